// A module that registers as its file's name tells it to: returns-HRESULT in hexadecimal, crash or throw. It counts the
// calls in HKEY_CURRENT_USER\Software\MendworkTests, in a value of the function's name.

#include "base/windows_api.h"

#include <cstdlib>
#include <cstring>

namespace {

HRESULT Behave(const char* Function) {
  constexpr char Key[] = "Software\\MendworkTests";
  DWORD Calls = 0, Size = sizeof Calls;
  RegGetValueA(HKEY_CURRENT_USER, Key, Function, RRF_RT_REG_DWORD, nullptr, &Calls, &Size);
  ++Calls;
  RegSetKeyValueA(HKEY_CURRENT_USER, Key, Function, REG_DWORD, &Calls, sizeof Calls);
  HMODULE Own = nullptr;
  char Path[MAX_PATH] = "";
  GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<const char*>(&Behave), &Own);
  GetModuleFileNameA(Own, Path, sizeof Path);
  if (std::strstr(Path, "\\crash")) *static_cast<volatile int*>(nullptr) = 1;
  // As the platform's usual compiler throws; what this one throws in 32 bits does not leave the module.
  constexpr ULONG_PTR Magic[] = {0x19930520, 0, 0};
  if (std::strstr(Path, "\\throw")) RaiseException(0xE06D7363, EXCEPTION_NONCONTINUABLE, 3, Magic);
  const char* const Result = std::strstr(Path, "\\returns-");
  return Result ? static_cast<HRESULT>(std::strtoul(Result + std::strlen("\\returns-"), nullptr, 16)) : E_UNEXPECTED;
}

}  // namespace

extern "C" HRESULT STDAPICALLTYPE DllRegisterServer() { return Behave("DllRegisterServer"); }
extern "C" HRESULT STDAPICALLTYPE DllUnregisterServer() { return Behave("DllUnregisterServer"); }
