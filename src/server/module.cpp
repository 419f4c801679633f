// The module's entry: its start-up and shut-down, unit by unit in a fixed order, and its four exports.

#include "base/data_folders.h"
#include "base/module_instance.h"
#include "server/class_factory.h"
#include "server/safe_call.h"
#include "server/service_calls.h"

#include <utility>
#include <vector>

namespace {

HINSTANCE Instance;
/// Freed by its unit, not by the language: at the end of a process the modules that it needs may be gone before it.
TComServer* Server = nullptr;
/// The units that have started, in order; shut-down takes them from the end.
std::vector<void (*)()> StopUnits;

void StartFrame() { Server = new TComServer; }
void StopFrame() { delete std::exchange(Server, nullptr); }

void StartUnit(void (*Start)(), void (*Stop)()) {
  if (Start) Start();
  StopUnits.push_back(Stop);
}

void StopModule() {
  while (!StopUnits.empty()) {
    if (StopUnits.back()) StopUnits.back()();
    StopUnits.pop_back();
  }
}

void StartModule() {
  StartUnit(StartFrame, StopFrame);
  StartUnit(nullptr, ForgetDataFolders);
  StartUnit(nullptr, ForgetServices);
  for (const TCoClass* Row : CoClasses()) {
    Server->AddFactory(*Row);
    StartUnit(Row->StartUnit, Row->StopUnit);
  }
}

HRESULT RunRegistration(bool Register) {
  return SUCCEEDED(RunSafely(IID_IUnknown, L"Mendwork", [&] { Server->UpdateRegistry(Register); })) ? S_OK : E_FAIL;
}

}  // namespace

HINSTANCE ModuleInstance() { return Instance; }

extern "C" BOOL WINAPI DllMain(HINSTANCE Module, DWORD Reason, LPVOID ProcessEnds) {
  if (Reason == DLL_PROCESS_ATTACH) {
    Instance = Module;
    if (SUCCEEDED(RunSafely(IID_IUnknown, L"Mendwork", StartModule))) return TRUE;
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
