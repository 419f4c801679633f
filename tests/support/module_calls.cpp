#include "support/module_calls.h"

#include "support/must.h"
#include "support/process.h"

#include <shlwapi.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <sstream>

namespace {

TCallWatch* Watcher = nullptr;

/// An open for reading changes nothing.
bool IsOpen(LPCSTR, DWORD Access, DWORD, SECURITY_ATTRIBUTES*, DWORD Disposition, DWORD, HANDLE) {
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
    if (!Watcher->Passes(Own, IsOpen(Args...))) return Fail();
    const TResult Result = Function(Args...);
    Watcher->Passed();
    return Result;
  }
  static TResult Fail() {
    constexpr DWORD Meaningless = ERROR_INVALID_FUNCTION;
    SetLastError(Own.Telling == TModuleCall::ByLastError ? Watcher->Code : Meaningless);
    if (Own.Telling == TModuleCall::ByStatus) return (TResult)(intptr_t)Watcher->Code;
    if (Own.Telling == TModuleCall::ByHResult) return (TResult)(intptr_t)HRESULT_FROM_WIN32(Watcher->Code);
    return (TResult)Own.Failed;  // a number for some functions, a handle for others
  }
};

template <auto Function>
TModuleCall Row(const char* Name, TModuleCall::TTelling Telling, intptr_t Failed, bool Changes, int Failures) {
  using TPlace = TReplacement<Function>;
  return TPlace::Own = {Name, reinterpret_cast<void*>(&TPlace::Call), Telling, Failed, Changes, Failures};
}

int TornWritesLeft = 0;

BOOL WINAPI WriteOrTear(HANDLE File, LPCVOID Buffer, DWORD Size, DWORD* Written, OVERLAPPED* Overlapped) {
  if (--TornWritesLeft != 0) return WriteFile(File, Buffer, Size, Written, Overlapped);
  WriteFile(File, Buffer, Size / 2, Written, Overlapped);
  return TerminateProcess(GetCurrentProcess(), DiedStatus);
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
    "AddVectoredExceptionHandler CreateEventA DeleteCriticalSection DisableThreadLibraryCalls DuplicateHandle "
    "EnterCriticalSection GetCurrentProcess GetCurrentProcessId GetCurrentThread GetCurrentThreadId "
    "GetHandleInformation GetLastError GetProcessAffinityMask GetThreadContext GetThreadPriority "
    "InitializeCriticalSection IsDebuggerPresent LeaveCriticalSection LocalFree OpenProcess OutputDebugStringA "
    "RaiseException RemoveVectoredExceptionHandler ResetEvent ResumeThread RtlUnwind SetErrorMode SetEvent "
    "SetLastError SetProcessAffinityMask SetThreadContext SetThreadPriority Sleep SuspendThread TlsAlloc TlsGetValue "
    "TlsSetValue TryEnterCriticalSection VirtualProtect VirtualQuery WaitForMultipleObjects "
    "ExpandEnvironmentStringsA FileTimeToSystemTime FormatMessageA GetDateFormatA GetLocalTime "
    "GetSystemTimeAsFileTime GetTickCount64 GetTimeFormatA IsDBCSLeadByte IsDBCSLeadByteEx LCMapStringA "
    "MultiByteToWideChar WideCharToMultiByte lstrcmpiA "
    "GetModuleFileNameA GetModuleHandleW LoadLibraryW "
    "DispCallFunc GetActiveObject SysAllocStringLen SysFreeString SysStringLen VariantChangeType VariantClear "
    "VariantCopyInd VariantInit CoCreateGuid CoCreateInstance CoTaskMemFree CreateErrorInfo GetErrorInfo SetErrorInfo ";

class TDeath final : public TCallWatch {
 public:
  TDeath(const std::string& Event, int Point, TPoints Points)
      : Event(Event), Points(Points), PointsLeft(Event == "torn" ? 0 : Point) {
    TornWritesLeft = Event == "torn" ? Point : 0;
    for (const TModuleCall& Call : ModuleCalls()) Watch(Call);
  }
  bool Passes(const TModuleCall& Call, bool Opens) override {
    Here = false;
    if (Points == ChangingCalls && (!Call.Changes || Opens)) return true;
    Made.push_back(Call.Name);
    Here = --PointsLeft == 0;
    if (Here && Event == "stop") {
      TellReady();
      Sleep(INFINITE);
    }
    if (Here && Event == "before") TerminateProcess(GetCurrentProcess(), DiedStatus);
    return true;
  }
  void Passed() override {
    if (Here && Event == "after") TerminateProcess(GetCurrentProcess(), DiedStatus);
  }

  std::vector<const char*> Made;

 private:
  const std::string Event;
  const TPoints Points;
  int PointsLeft;
  bool Here = false;
};

TDeath* Death = nullptr;

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
      ROW(GetFileTime, FALSE, Looks, Asked),
      ROW(SetFileTime, FALSE, Changes, Asked),
      ROW(DeleteFileA, FALSE, Changes, AskedLate),
      ROW(MoveFileA, FALSE, Changes, AskedLate),
      ROW(CreateDirectoryA, FALSE, Changes, Asked),
      ROW(RemoveDirectoryA, FALSE, Changes, Asked),
      ROW(FindFirstFileA, All, Looks, Asked),
      ROW(FindNextFileA, FALSE, Looks, Asked),
      ROW(FindClose, FALSE, Looks, Asked),
      STATUS(RegCreateKeyExA, Changes, Asked),
      STATUS(RegOpenKeyExA, Looks, Asked),
      STATUS(RegQueryInfoKeyA, Looks, Asked),
      STATUS(RegQueryValueExA, Looks, Asked),
      STATUS(RegQueryValueExW, Looks, NotAsked),
      STATUS(RegGetValueA, Looks, NotAsked),
      STATUS(RegSetValueExA, Changes, Asked),
      STATUS(RegEnumValueA, Looks, Asked),
      STATUS(RegEnumValueW, Looks, NotAsked),
      STATUS(RegEnumKeyExA, Looks, Asked),
      STATUS(RegEnumKeyExW, Looks, NotAsked),
      STATUS(RegDeleteValueA, Changes, Asked),
      STATUS(RegDeleteKeyA, Changes, NotAsked),
      STATUS(RegDeleteTreeA, Changes, NotAsked),
      STATUS(RegCloseKey, Looks, Asked),
      STATUS(SHDeleteKeyA, Changes, Asked),
      ROW(LoadLibraryA, Null, Looks, Asked),
      // Comes when a module has just registered or unregistered itself.
      ROW(FreeLibrary, FALSE, Changes, Asked),
      ROW(GetModuleHandleA, Null, Looks, Asked),
      BY(LookUp, "GetProcAddress", Null, Looks, Asked),
      RESULT(LoadTypeLib, Looks, Asked),
      RESULT(RegisterTypeLib, Changes, Asked),
      ROW(CoTaskMemAlloc, Null, Looks, NotAsked),
      ROW(CreateMutexA, Null, Looks, NotAsked),
      ROW(CreateSemaphoreA, Null, Looks, NotAsked),
      ROW(WaitForSingleObject, All, Looks, NotAsked),
      ROW(ReleaseMutex, FALSE, Looks, NotAsked),
      ROW(ReleaseSemaphore, FALSE, Looks, NotAsked),
  };
  return Calls;
}

std::string ForgottenCalls() {
  const std::string Libraries = "KERNEL32.dll ADVAPI32.dll SHLWAPI.dll OLEAUT32.dll ole32.dll ";
  std::string Forgotten;
  ForEachImport(GetModuleHandleA("Mendwork.dll"), [&](const std::string& Library, const char* Name, void**) {
    const bool Listed =
        std::ranges::any_of(ModuleCalls(), [&](const TModuleCall& Call) { return std::strcmp(Call.Name, Name) == 0; });
    const bool Known = Listed || (" " + std::string(Harmless)).find(" " + std::string(Name) + " ") != std::string::npos;
    if (Libraries.find(Library + " ") != std::string::npos && !Known) Forgotten += std::string(Name) + " ";
  });
  return Forgotten;
}

TCallWatch::TCallWatch() { Watcher = this; }
TCallWatch::~TCallWatch() {
  Patches.clear();
  Watcher = nullptr;
}

void TCallWatch::Watch(const TModuleCall& Call) {
  Patches.push_back(std::make_unique<TImportPatch>(Call.Name, Call.Replacement));
}

TFault::TFault(const std::string& FunctionName, TFaultPlan Plan) : Name(FunctionName), Plan(Plan) {
  Code = Plan.Code;
  const auto Found = std::ranges::find(ModuleCalls(), FunctionName, &TModuleCall::Name);
  Must(Found != ModuleCalls().end(), FunctionName + " is not in the list of the module's calls");
  Watch(*Found);
}

bool TFault::Passes(const TModuleCall& Call, bool) {
  if (Call.Name != Name) return true;  // it came with another one
  const int Before = Made++ - Plan.Skip;
  return Before < 0 || Before >= Plan.Times;
}

void PlanEvent(const std::string& Event, int Point, TPoints Points) {
  delete Death;
  Death = new TDeath(Event, Point, Points);
}

const std::vector<const char*>& CallsMade() { return Death->Made; }
