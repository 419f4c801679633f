// The classes of both libraries in one thread, without registration.

#include "base/failure.h"
#include "base/module_instance.h"
#include "base/paths.h"
#include "base/text.h"
#include "kit/interfaces.h"
#include "kit/mendwork_classes.h"
#include "kit/names.h"
#include "server/coclass_table.h"
#include "server/safe_call.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using TGetClassObject = HRESULT(WINAPI*)(REFCLSID, REFIID, LPVOID*);
using TCanUnloadNow = HRESULT(WINAPI*)();

#define CLASS(Name, Id) &CLSID_##Name,
constexpr const CLSID* MendworkClasses[] = {
#include "server/class_ids.inc"
};
#undef CLASS

std::wstring KitFolder() {
  constexpr DWORD LongestPath = 32768;
  std::wstring Path(LongestPath, L'\0');
  Path.resize(GetModuleFileNameW(ModuleInstance(), Path.data(), LongestPath));
  if (Path.empty()) RaiseLastError();
  return FolderOf(Path);
}

std::wstring LibraryName(const wchar_t* Given) {
  if (!Given) return Under(KitFolder(), L"Mendwork.dll");
  RequireRoot(LossyAnsi(Given));
  return Given;
}

/// An apartment-threaded object that is made by the factory itself needs a thread of its own apartment.
void RequireOwnApartment() {
  const HRESULT Entered = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  if (SUCCEEDED(Entered)) CoUninitialize();
  CheckSystemCall(Entered == S_OK ? CO_E_NOTINITIALIZED : Entered);
}

class TThreadClasses {
 public:
  explicit TThreadClasses(const std::wstring& Library)
      : Mendwork(LoadLibraryExW(Library.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH)) {
    if (!Mendwork) RaiseLastError();
    const auto GetClassObject = reinterpret_cast<TGetClassObject>(Function("DllGetClassObject"));
    CanUnloadNow = reinterpret_cast<TCanUnloadNow>(Function("DllCanUnloadNow"));
    try {
      for (const CLSID* Class : MendworkClasses) Register(GetClassObject, *Class);
      for (const TCoClass* Class : OwnModule.CoClasses) Register(DllGetClassObject, Class->ClassId);
    } catch (...) {
      Revoke();
      throw;
    }
  }
  ~TThreadClasses() {
    Revoke();
    // What is still held would be called in memory that is gone.
    if (CanUnloadNow && CanUnloadNow() != S_OK) Mendwork.Detach();
  }
  TThreadClasses(const TThreadClasses&) = delete;
  TThreadClasses& operator=(const TThreadClasses&) = delete;

 private:
  void* Function(const char* Name) const {
    const FARPROC Found = GetProcAddress(Mendwork.Get(), Name);
    if (!Found) RaiseLastError();
    return reinterpret_cast<void*>(Found);
  }

  void Register(TGetClassObject GetClassObject, const CLSID& ClassId) {
    TComRef<IUnknown> Factory;
    DWORD Entry = 0;
    CheckSystemCall(GetClassObject(ClassId, IID_IUnknown, Factory.OutVoid()));
    CheckSystemCall(CoRegisterClassObject(ClassId, Factory.Get(), CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &Entry));
    Entries.push_back(Entry);
  }

  void Revoke() {
    for (const DWORD Entry : Entries) CoRevokeClassObject(Entry);
    Entries.clear();
  }

  TModuleHandle Mendwork;
  TCanUnloadNow CanUnloadNow = nullptr;
  std::vector<DWORD> Entries;
};

/// Released by the thread's own call, and so never by its end.
thread_local TThreadClasses* Registered = nullptr;

}  // namespace

HRESULT __stdcall MendworkKitRegisterClasses(const wchar_t* MendworkDll) {
  return RunSafely(IID_IUnknown, OwnModule.Name, [&] {
    if (Registered) CheckSystemCall(CO_E_OBJISREG);
    RequireOwnApartment();
    Registered = std::make_unique<TThreadClasses>(LibraryName(MendworkDll)).release();
  });
}

HRESULT __stdcall MendworkKitRevokeClasses() {
  return RunSafely(IID_IUnknown, OwnModule.Name, [&] {
    if (!Registered) CheckSystemCall(CO_E_OBJNOTREG);
    const std::unique_ptr<TThreadClasses> Gone(std::exchange(Registered, nullptr));
  });
}
