#include "support/module_calls.h"

#include "support/process.h"
#include "support/tree.h"

#include <aclapi.h>
#include <shlwapi.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <regex>

namespace {

/// Calls `See` with every function that a module imports by name: the library's name, its own, and the place that
/// holds it.
void ForEachImport(const char* Module,
                   const std::function<void(const char* Library, const char* Name, void** Slot)>& See) {
  auto* const Image = reinterpret_cast<BYTE*>(GetModuleHandleA(Module));
  Must(Image, "the module is not loaded");
  const auto* Dos = reinterpret_cast<IMAGE_DOS_HEADER*>(Image);
  const auto* Nt = reinterpret_cast<IMAGE_NT_HEADERS*>(Image + Dos->e_lfanew);
  const auto& Directory = Nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  const auto* Import = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(Image + Directory.VirtualAddress);
  for (; Import->Name; ++Import) {
    const auto* Names = reinterpret_cast<IMAGE_THUNK_DATA*>(Image + Import->OriginalFirstThunk);
    auto* Slots = reinterpret_cast<void**>(Image + Import->FirstThunk);
    for (; Names->u1.AddressOfData; ++Names, ++Slots) {
      if (IMAGE_SNAP_BY_ORDINAL(Names->u1.Ordinal)) continue;
      const auto* ByName = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(Image + Names->u1.AddressOfData);
      See(reinterpret_cast<const char*>(Image + Import->Name), reinterpret_cast<const char*>(ByName->Name), Slots);
    }
  }
}

/// Mendwork's, and the kit's when it is there.
std::vector<const char*> LoadedModules() {
  std::vector<const char*> Modules = {MendworkDll};
  if (GetModuleHandleA(KitDll)) Modules.push_back(KitDll);
  return Modules;
}

void SetSlot(void** Slot, void* Function) {
  DWORD Protection = 0;
  VirtualProtect(Slot, sizeof *Slot, PAGE_READWRITE, &Protection);
  *Slot = Function;
  VirtualProtect(Slot, sizeof *Slot, Protection, &Protection);
}

TFaultPlan Planned;
std::string PlannedName;

/// What PlanEvent planned, and how far it is.
struct TEvent {
  std::string Kind;
  int PointsLeft = 0;
  TPoints Points = ChangingCalls;
  void (*OnDeath)() = nullptr;
  bool Here = false;
  std::vector<const char*> Made = {};
} Event;

void DieWhen(const char* Kind) {
  if (!Event.Here || Event.Kind != Kind) return;
  if (Event.OnDeath) Event.OnDeath();
  TerminateProcess(GetCurrentProcess(), DiedStatus);
}

/// Before a call: whether it is made. `Opens`: it is an open of a file to read.
bool Passes(const TModuleCall& Call, bool Opens) {
  if (Call.Name == PlannedName) return Planned.Skip-- > 0 || Planned.Times-- <= 0;
  Event.Here = false;
  if (Event.Points == ChangingCalls && (!Call.Changes || Opens)) return true;
  if (Event.Kind == "torn" && std::strcmp(Call.Name, "WriteFile") != 0) return true;
  Event.Made.push_back(Call.Name);
  Event.Here = --Event.PointsLeft == 0;
  DieWhen("before");
  return true;
}

/// An open for reading changes nothing.
template <class TChar>
bool IsOpen(const TChar*, DWORD Access, DWORD, SECURITY_ATTRIBUTES*, DWORD Disposition, DWORD, HANDLE) {
  return Disposition == OPEN_EXISTING && !(Access & GENERIC_WRITE);
}
template <class... TArgs>
bool IsOpen(const TArgs&...) {
  return false;
}

/// What takes a function's place in the module.
template <auto Function>
struct TReplacement;
template <class TResult, class... TArgs, TResult(WINAPI* Function)(TArgs...)>
struct TReplacement<Function> {
  inline static TModuleCall Own;
  static TResult WINAPI Call(TArgs... Args) {
    if (!Passes(Own, IsOpen(Args...))) return Fail();
    const TResult Result = Function(Args...);
    DieWhen("after");
    return Result;
  }
  static TResult Fail() {
    constexpr DWORD Meaningless = ERROR_INVALID_FUNCTION;
    SetLastError(Own.Telling == TModuleCall::ByLastError ? Planned.Code : Meaningless);
    if (Own.Telling == TModuleCall::ByStatus) return (TResult)(intptr_t)Planned.Code;
    if (Own.Telling == TModuleCall::ByHResult) return (TResult)(intptr_t)HRESULT_FROM_WIN32(Planned.Code);
    return (TResult)Own.Failed;  // a number for some functions, a handle for others
  }
};

template <auto Function>
TModuleCall Row(const char* Name, TModuleCall::TTelling Telling, intptr_t Failed, bool Changes, int Failures) {
  using TPlace = TReplacement<Function>;
  return TPlace::Own = {Name, reinterpret_cast<void*>(&TPlace::Call), Telling, Failed, Changes, Failures};
}

BOOL WINAPI WriteOrTear(HANDLE File, LPCVOID Buffer, DWORD Size, DWORD* Written, OVERLAPPED* Overlapped) {
  const bool Torn = Event.Here && Event.Kind == "torn";
  const BOOL Result = WriteFile(File, Buffer, Torn ? Size / 2 : Size, Written, Overlapped);
  DieWhen("torn");
  return Result;
}

/// What the module looks up when it needs it, instead of importing it.
FARPROC WINAPI LookUp(HMODULE Module, LPCSTR Name) {
  if (std::strcmp(Name, "UnRegisterTypeLib") != 0) return GetProcAddress(Module, Name);
  static const TModuleCall Call = Row<&UnRegisterTypeLib>("UnRegisterTypeLib", TModuleCall::ByHResult, 0, true, 0);
  return reinterpret_cast<FARPROC>(Call.Replacement);
}

constexpr bool Changes = true, Looks = false;
constexpr intptr_t Null = 0, All = -1;
constexpr int NotAsked = 0, Asked = 1;
/// Patient wrappers repeat three times before they ask.
constexpr int AskedLate = 4;

#define ROW(Function, Failed, ...) Row<&Function>(#Function, TModuleCall::ByLastError, Failed, __VA_ARGS__)
#define STATUS(Function, ...) Row<&Function>(#Function, TModuleCall::ByStatus, Null, __VA_ARGS__)
#define RESULT(Function, ...) Row<&Function>(#Function, TModuleCall::ByHResult, Null, __VA_ARGS__)
#define BY(Function, Name, Failed, ...) Row<&Function>(Name, TModuleCall::ByLastError, Failed, __VA_ARGS__)

/// The system's helpers that touch nothing which outlives the process or is shared: the compiler's runtime, the threads
/// of its library, texts, numbers, COM's memory and errors. A failure of them is no answer of a machine.
constexpr char Harmless[] =
    "(Is|Rtl|Sys|Tls|Variant|Virtual|GetCurrent|CoCreate|CoGetClass|CoInitialize|CoRegister|CoRevoke|CoUninitialize)"
    "\\w*|(Resume|Suspend)Thread|(Create|Reset|Set)"
    "Event\\w?|"
    "\\w+(CriticalSection|VectoredExceptionHandler|AffinityMask|ThreadContext|ThreadPriority|ErrorInfo|ErrorMode)|"
    "(ExpandEnvironmentStrings|FormatMessage|GetDateFormat|GetTimeFormat|LCMapString|OutputDebugString|lstrcmpi)[AW]|"
    "Compare(String|FileTime)\\w*|"
    "\\w+(LastError|ToMultiByte|ToSystemTime|ToLocalFileTime|ToWideChar|FromCLSID|ActiveObject)|Get(LocalTime|"
    "SystemTimeAsFileTime|TickCount64)|"
    "Get(HandleInformation|ModuleFileNameW|ModuleHandleW|FullPathNameW|ProcessTimes)|LoadLibrary(Ex)?W|DispCallFunc|"
    "CoTaskMemFree|"
    "(Find|Load|Lock|Sizeof)Resource\\w?|GetTemp\\w+|(Get|Set)DllDirectoryW|Ole(Uni|I)nitialize|Convert\\w+Si[a-z]+\\w*"
    "A|Convert\\w+Descriptor[AW]|"
    "DuplicateHandle|EqualSid|"
    "GetTokenInformation|OpenProcessToken|LocalFree|OpenProcess|RaiseException|Sleep|"
    "WaitForMultipleObjects|__C_"
    "specific_handler";

}  // namespace

const std::vector<TModuleCall>& ModuleCalls() {
  static const std::vector<TModuleCall> Calls = {
      ROW(CreateFileA, All, Changes, AskedLate),
      ROW(ReadFile, FALSE, Looks, Asked),
      BY(WriteOrTear, "WriteFile", FALSE, Changes, Asked),
      ROW(CloseHandle, FALSE, Looks, Asked),
      ROW(SetEndOfFile, FALSE, Changes, Asked),
      ROW(SetFilePointer, All, Looks, Asked),
      ROW(SetFilePointerEx, FALSE, Looks, NotAsked),
      ROW(GetFileSize, All, Looks, Asked),
      ROW(GetFileSizeEx, FALSE, Looks, NotAsked),
      ROW(FlushFileBuffers, FALSE, Looks, NotAsked),
      ROW(GetFileAttributesA, All, Looks, Asked),
      ROW(SetFileAttributesA, FALSE, Changes, Asked),
      ROW(GetFileInformationByHandle, FALSE, Looks, NotAsked),
      ROW(GetFileInformationByHandleEx, FALSE, Looks, NotAsked),
      ROW(GetFinalPathNameByHandleW, 0, Looks, NotAsked),
      STATUS(GetSecurityInfo, Looks, NotAsked),
      ROW(GetFileTime, FALSE, Looks, Asked),
      ROW(SetFileTime, FALSE, Changes, Asked),
      ROW(DeleteFileA, FALSE, Changes, AskedLate),
      ROW(MoveFileA, FALSE, Changes, AskedLate),
      ROW(CreateDirectoryA, FALSE, Changes, Asked),
      ROW(RemoveDirectoryA, FALSE, Changes, Asked),
      ROW(FindFirstFileA, All, Looks, Asked),
      // How a search asks for the stored names; a walk holds its folders.
      ROW(FindFirstFileW, All, Looks, Asked),
      ROW(FindNextFileW, FALSE, Looks, Asked),
      ROW(CreateFileW, All, Changes, Asked),
      // The removal of listed folders, registration, and what the kit makes and removes.
      ROW(DeleteFileW, FALSE, Changes, NotAsked),
      ROW(RemoveDirectoryW, FALSE, Changes, NotAsked),
      ROW(SetFileAttributesW, FALSE, Changes, NotAsked),
      ROW(GetFileAttributesW, All, Looks, NotAsked),
      ROW(GetFileAttributesExW, FALSE, Looks, NotAsked),
      ROW(GetDiskFreeSpaceExW, FALSE, Looks, NotAsked),
      ROW(CreateDirectoryW, FALSE, Changes, NotAsked),
      ROW(MoveFileExW, FALSE, Changes, NotAsked),
      STATUS(RegCreateKeyExW, Changes, NotAsked),
      STATUS(RegDeleteKeyW, Changes, NotAsked),
      STATUS(RegDeleteKeyValueW, Changes, NotAsked),
      STATUS(RegSetValueExW, Changes, NotAsked),
      ROW(FindNextFileA, FALSE, Looks, Asked),
      ROW(FindClose, FALSE, Looks, Asked),
      STATUS(RegCreateKeyExA, Changes, Asked),
      STATUS(RegOpenKeyExA, Looks, Asked),
      STATUS(RegOpenKeyExW, Looks, Asked),
      STATUS(RegQueryInfoKeyA, Looks, Asked),
      STATUS(RegQueryInfoKeyW, Looks, Asked),
      STATUS(RegQueryValueExA, Looks, Asked),
      STATUS(RegQueryValueExW, Looks, Asked),
      STATUS(RegGetValueA, Looks, NotAsked),
      STATUS(RegGetValueW, Looks, NotAsked),
      STATUS(RegSetValueExA, Changes, Asked),
      STATUS(RegEnumValueA, Looks, Asked),
      STATUS(RegEnumValueW, Looks, Asked),
      STATUS(RegEnumKeyExA, Looks, Asked),
      STATUS(RegEnumKeyExW, Looks, Asked),
      STATUS(RegDeleteValueA, Changes, Asked),
      STATUS(RegDeleteKeyA, Changes, NotAsked),
      STATUS(RegDeleteTreeA, Changes, NotAsked),
      STATUS(RegCloseKey, Looks, Asked),
      STATUS(SHDeleteKeyA, Changes, Asked),
      STATUS(RegGetKeySecurity, Looks, Asked),
      STATUS(RegSetKeySecurity, Changes, NotAsked),
      ROW(LoadLibraryA, Null, Looks, Asked),
      // Comes when a module has just registered or unregistered itself.
      ROW(FreeLibrary, FALSE, Changes, Asked),
      ROW(GetModuleHandleA, Null, Looks, Asked),
      BY(LookUp, "GetProcAddress", Null, Looks, Asked),
      RESULT(LoadTypeLib, Looks, Asked),
      RESULT(RegisterTypeLib, Changes, Asked),
      ROW(CoTaskMemAlloc, Null, Looks, NotAsked),
      ROW(FlushFileBuffers, FALSE, Looks, NotAsked),
      ROW(CreateMutexA, Null, Looks, NotAsked),
      ROW(OpenMutexA, Null, Looks, NotAsked),
      ROW(CreateMutexW, Null, Looks, NotAsked),
      ROW(OpenMutexW, Null, Looks, NotAsked),
      ROW(CreateSemaphoreA, Null, Looks, NotAsked),
      ROW(OpenSemaphoreA, Null, Looks, NotAsked),
      ROW(WaitForSingleObject, All, Looks, NotAsked),
      ROW(ReleaseMutex, FALSE, Looks, NotAsked),
      ROW(ReleaseSemaphore, FALSE, Looks, NotAsked),
  };
  return Calls;
}

std::string ForgottenCalls() {
  const std::regex Libraries("(KERNEL32|ADVAPI32|SHLWAPI|OLEAUT32|ole32).dll"), Known(Harmless);
  std::string Forgotten;
  for (const char* Module : LoadedModules())
    ForEachImport(Module, [&](const char* Library, const char* Name, void**) {
      const bool Listed = std::ranges::count(ModuleCalls(), std::string(Name), &TModuleCall::Name) > 0;
      if (std::regex_match(Library, Libraries) && !Listed && !std::regex_match(Name, Known))
        Forgotten += std::string(Name) + " ";
    });
  return Forgotten;
}

TImportPatch::TImportPatch(const std::string& FunctionName, void* Replacement, const char* Module) {
  ForEachImport(Module, [&](const char*, const char* Name, void** Place) {
    if (Name == FunctionName) Slot = Place;
  });
  Must(Slot, "the module does not import " + FunctionName);
  Before = *Slot;
  SetSlot(Slot, Replacement);
}

TImportPatch::~TImportPatch() { SetSlot(Slot, Before); }

TFault::TFault(const std::string& FunctionName, TFaultPlan Plan, const char* Module)
    : Patch(FunctionName, std::ranges::find(ModuleCalls(), FunctionName, &TModuleCall::Name)->Replacement, Module) {
  PlannedName = FunctionName;
  Planned = Plan;
}

void PlanEvent(const std::string& Kind, int Point, TPoints Points, void (*OnDeath)()) {
  static bool Patched = false;
  Event = {Kind, Point, Points, OnDeath};
  if (std::exchange(Patched, true)) return;
  for (const char* Module : Points == AllCallsOfKit ? std::vector<const char*>{KitDll} : LoadedModules())
    ForEachImport(Module, [](const char*, const char* Name, void** Slot) {
      const auto Call = std::ranges::find(ModuleCalls(), std::string(Name), &TModuleCall::Name);
      if (Call != ModuleCalls().end()) SetSlot(Slot, Call->Replacement);  // for good
    });
}

const std::vector<const char*>& CallsMade() { return Event.Made; }
