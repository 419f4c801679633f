// A module that registers as its file's name tells it to: returns-HRESULT in hexadecimal, crash or throw. It counts the
// calls in HKEY_CURRENT_USER\Software\MendworkTests, in a value of the function's name.

#include "base/windows_api.h"

#include <cstdlib>
#include <cstring>

namespace {

void Count(const char* Function) {
  constexpr char Key[] = "Software\\MendworkTests";
  DWORD Calls = 0, Size = sizeof Calls;
  RegGetValueA(HKEY_CURRENT_USER, Key, Function, RRF_RT_REG_DWORD, nullptr, &Calls, &Size);
  ++Calls;
  RegSetKeyValueA(HKEY_CURRENT_USER, Key, Function, REG_DWORD, &Calls, sizeof Calls);
}

[[noreturn]] void ThrowException() {
#if defined(__i386__)
  // As the platform's usual compiler throws; what this one throws in 32 bits does not leave the module.
  constexpr DWORD CppException = 0xE06D7363, Magic = 0x19930520;
  const ULONG_PTR Arguments[] = {Magic, 0, 0};
  RaiseException(CppException, EXCEPTION_NONCONTINUABLE, 3, Arguments);
  std::abort();
#else
  throw 1;
#endif
}

HRESULT Behave(const char* Function) {
  HMODULE Own = nullptr;
  char Path[MAX_PATH] = "";
  GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<const char*>(&Count), &Own);
  GetModuleFileNameA(Own, Path, sizeof Path);
  Count(Function);
  if (std::strstr(Path, "\\crash")) *static_cast<volatile int*>(nullptr) = 1;
  if (std::strstr(Path, "\\throw")) ThrowException();
  const char* const Result = std::strstr(Path, "\\returns-");
  return Result ? static_cast<HRESULT>(std::strtoul(Result + std::strlen("\\returns-"), nullptr, 16)) : E_UNEXPECTED;
}

}  // namespace

extern "C" HRESULT STDAPICALLTYPE DllRegisterServer() { return Behave("DllRegisterServer"); }
extern "C" HRESULT STDAPICALLTYPE DllUnregisterServer() { return Behave("DllUnregisterServer"); }
