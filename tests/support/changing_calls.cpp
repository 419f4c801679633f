#include "support/changing_calls.h"

#include "support/child.h"
#include "support/import_patch.h"

#include <shlwapi.h>

#include <cstring>
#include <map>
#include <memory>

namespace {

enum TEvent { Nothing, Before, After, Torn, Stop };
const std::map<std::string, TEvent> Events = {
    {"nothing", Nothing}, {"before", Before}, {"after", After}, {"torn", Torn}, {"stop", Stop}};
TEvent Planned = Nothing;
TPoints Points = ChangingCalls;
int PointsLeft = 0;
std::vector<const char*> Made;

void Happen() {
  if (Planned == Stop) {
    TellReady();
    Sleep(INFINITE);
  }
  TerminateProcess(GetCurrentProcess(), DiedStatus);
}

template <class TCall>
auto Pass(const char* Name, TCall Call) {
  Made.push_back(Name);
  const bool Here = Planned != Torn && --PointsLeft == 0;
  if (Here && Planned != After) Happen();
  const auto Result = Call();
  if (Here) Happen();
  return Result;
}

/// The replacement of one function.
template <auto Function>
struct TPoint;
template <class TResult, class... TArgs, TResult(WINAPI* Function)(TArgs...)>
struct TPoint<Function> {
  inline static const char* Name = nullptr;
  static TResult WINAPI Call(TArgs... Args) {
    return Pass(Name, [&] { return Function(Args...); });
  }
};

HANDLE WINAPI Create(LPCSTR Name, DWORD Access, DWORD Share, SECURITY_ATTRIBUTES* Security, DWORD Disposition,
                     DWORD Flags, HANDLE Template) {
  const auto Call = [&] { return CreateFileA(Name, Access, Share, Security, Disposition, Flags, Template); };
  const bool Changes = Disposition != OPEN_EXISTING || Access & GENERIC_WRITE;
  return Changes || Points == AllCalls ? Pass("CreateFileA", Call) : Call();
}
BOOL WINAPI Write(HANDLE File, LPCVOID Buffer, DWORD Size, DWORD* Written, OVERLAPPED* Overlapped) {
  if (Planned == Torn && --PointsLeft == 0) {
    WriteFile(File, Buffer, Size / 2, Written, Overlapped);
    Happen();
  }
  return Pass("WriteFile", [&] { return WriteFile(File, Buffer, Size, Written, Overlapped); });
}

/// What the module looks up when it needs it, instead of importing it.
FARPROC WINAPI LookUp(HMODULE Module, LPCSTR Name) {
  if (std::strcmp(Name, "UnRegisterTypeLib") != 0) return GetProcAddress(Module, Name);
  using TUnregister = TPoint<&UnRegisterTypeLib>;
  TUnregister::Name = "UnRegisterTypeLib";
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&TUnregister::Call));
}

struct TRow {
  const char* Name;
  void* Replacement;
  TPoints Points;
};

template <auto Function>
TRow Row(const char* Name, TPoints Of = ChangingCalls) {
  TPoint<Function>::Name = Name;
  return {Name, reinterpret_cast<void*>(&TPoint<Function>::Call), Of};
}
#define ROW(Function, ...) Row<&Function>(#Function __VA_OPT__(, ) __VA_ARGS__)

const TRow Rows[] = {
    {"CreateFileA", reinterpret_cast<void*>(Create), ChangingCalls},
    {"WriteFile", reinterpret_cast<void*>(Write), ChangingCalls},
    ROW(DeleteFileA),
    ROW(MoveFileA),
    ROW(SetEndOfFile),
    ROW(SetFileAttributesA),
    ROW(SetFileTime),
    ROW(CreateDirectoryA),
    ROW(RemoveDirectoryA),
    ROW(RegCreateKeyExA),
    ROW(RegSetValueExA),
    ROW(RegDeleteValueA),
    ROW(SHDeleteKeyA),
    ROW(RegisterTypeLib),
    {"GetProcAddress", reinterpret_cast<void*>(LookUp), ChangingCalls},
    // Comes when a module has just registered or unregistered itself.
    ROW(FreeLibrary),
    ROW(CloseHandle, AllCalls),
    ROW(GetFileSizeEx, AllCalls),
    ROW(ReadFile, AllCalls),
    ROW(RegOpenKeyExA, AllCalls),
    ROW(RegQueryValueExA, AllCalls),
    ROW(ReleaseMutex, AllCalls),
    ROW(ReleaseSemaphore, AllCalls),
    ROW(SetFilePointerEx, AllCalls),
    ROW(WaitForSingleObject, AllCalls),
};

}  // namespace

void PlanEvent(const std::string& Event, int Point, TPoints Of) {
  static std::vector<std::unique_ptr<TImportPatch>> Patches;
  for (const TRow& Row : Rows)
    if (Row.Points <= Of)
      Patches.push_back(std::make_unique<TImportPatch>(GetModuleHandleA("Mendwork.dll"), Row.Name, Row.Replacement));
  Planned = Events.at(Event);
  Points = Of;
  PointsLeft = Point;
}

const std::vector<const char*>& CallsMade() { return Made; }
