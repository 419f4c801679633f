// The module's entry: its start-up and shut-down, unit by unit in a fixed order, and its four exports.

#include "base/data_folders.h"
#include "base/guid.h"
#include "base/module_instance.h"
#include "server/class_factory.h"
#include "server/safe_call.h"

#include <utility>
#include <vector>

namespace {

HINSTANCE Instance;
/// Freed by its unit, not by the language: at the end of a process the modules that it needs may be gone before it.
TComServer* Server = nullptr;
/// The classes whose units have started, in order; shut-down takes them from the end.
std::vector<const TCoClass*> Started;

void StartUnit(const TCoClass& Class) {
  Server->AddFactory(Class);
  Started.push_back(&Class);
  if (Class.Lock) Class.Lock->Create(GuidText(Class.ClassId));
  if (Class.StartUnit) Class.StartUnit();
}

void StopUnit(const TCoClass& Class) {
  if (Class.StopUnit) Class.StopUnit();
  if (Class.Lock) Class.Lock->Close();
}

void StartModule() {
  Server = new TComServer;
  for (const TCoClass* Class : OwnModule.CoClasses) StartUnit(*Class);
}

void StopModule() {
  for (; !Started.empty(); Started.pop_back()) StopUnit(*Started.back());
  ForgetDataFolders();
  delete std::exchange(Server, nullptr);
}

HRESULT RunRegistration(bool Register) {
  return SUCCEEDED(RunSafely(IID_IUnknown, OwnModule.Name, [&] { Server->UpdateRegistry(Register); })) ? S_OK : E_FAIL;
}

}  // namespace

HINSTANCE ModuleInstance() { return Instance; }

extern "C" BOOL WINAPI DllMain(HINSTANCE Module, DWORD Reason, LPVOID ProcessEnds) {
  if (Reason == DLL_PROCESS_ATTACH) {
    Instance = Module;
    if (SUCCEEDED(RunSafely(IID_IUnknown, OwnModule.Name, StartModule))) return TRUE;
    StopModule();
    return FALSE;
  }
  // When the process ends, the system takes everything back, and other modules may be gone already.
  if (Reason == DLL_PROCESS_DETACH && !ProcessEnds) StopModule();
  return TRUE;
}

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID ClassId, REFIID Iid, LPVOID* Result) {
  if (!Result) return E_POINTER;
  *Result = nullptr;
  TVersionedAutoObjectFactory* const Factory = Server ? Server->FindFactory(ClassId) : nullptr;
  return Factory ? Factory->QueryInterface(Iid, Result) : CLASS_E_CLASSNOTAVAILABLE;
}

extern "C" HRESULT WINAPI DllCanUnloadNow() { return !Server || Server->CanUnload() ? S_OK : S_FALSE; }

extern "C" HRESULT WINAPI DllRegisterServer() { return RunRegistration(true); }

extern "C" HRESULT WINAPI DllUnregisterServer() { return RunRegistration(false); }
