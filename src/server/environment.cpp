#include "server/environment.h"

#include "base/day_count.h"
#include "base/messages.h"
#include "base/text.h"

#include <vector>

namespace {

constexpr char BaseKeyName[] = "Software\\Orvane\\Core";

LONG CallCounter = 0;
std::string UpdatesDir;
std::string ServiceDir;
// Held for the length of one call only, so that every line and box finds the object that is active at that moment.
TComRef<IUDebugLog> DebugLogInUse;
TComRef<IUDialog> DialogInUse;

[[noreturn]] void RaiseNoBaseFolder(long Code, const std::string& Why) {
  throw EFailure(MakeErrorHResult(Code),
                 ToWide("Cannot read the base folder from the default value of the registry key 'HKEY_CURRENT_USER\\" +
                        std::string(BaseKeyName) + "': " + Why));
}

std::string Expanded(const std::string& Text) {
  std::string Result(ExpandEnvironmentStringsA(Text.c_str(), nullptr, 0), '\0');
  ExpandEnvironmentStringsA(Text.c_str(), Result.data(), static_cast<DWORD>(Result.size()));
  return Result.c_str();
}

std::string ReadBaseFolder() {
  TRegistryKey Key;
  LSTATUS Status = RegOpenKeyExA(HKEY_CURRENT_USER, BaseKeyName, 0, KEY_ALL_ACCESS, Key.Out());
  DWORD Type = REG_NONE, Size = 0;
  if (Status == ERROR_SUCCESS) Status = RegQueryValueExA(Key.Get(), nullptr, nullptr, &Type, nullptr, &Size);
  // One zero more than asked for: a stored string need not have its terminator.
  std::vector<char> Buffer(Size + 1);
  if (Status == ERROR_SUCCESS)
    Status = RegQueryValueExA(Key.Get(), nullptr, nullptr, &Type, reinterpret_cast<BYTE*>(Buffer.data()), &Size);
  if (Status != ERROR_SUCCESS) RaiseNoBaseFolder(Status, SystemErrorText(static_cast<DWORD>(Status)));
  if (Type != REG_SZ && Type != REG_EXPAND_SZ) RaiseNoBaseFolder(ERROR_INVALID_DATA, "It is not a string.");
  const std::string Text = Buffer.data();
  if (Text.empty()) RaiseNoBaseFolder(ERROR_INVALID_DATA, "It is empty.");
  return Type == REG_EXPAND_SZ ? Expanded(Text) : Text;
}

/// An existing folder is what is wanted, and the first file operation in a missing one tells the user what is wrong.
void MakeFolder(const std::string& Dir) { CreateDirectoryA(Dir.c_str(), nullptr); }

/// Empties a slot on every way out of a call.
template <class T>
struct TReleaseAfterCall {
  TComRef<T>& Slot;
  ~TReleaseAfterCall() { Slot.Reset(); }
};

}  // namespace

long NextCallId() { return InterlockedIncrement(&CallCounter); }

std::string GetUpdatesDir() {
  if (UpdatesDir.empty()) {
    UpdatesDir = ReadBaseFolder() + "\\Updates";
    MakeFolder(UpdatesDir);
    MakeFolder(UpdatesDir + "\\Log");
  }
  return UpdatesDir;
}

std::string GetServiceDir() {
  if (ServiceDir.empty()) {
    ServiceDir = GetUpdatesDir() + "\\Mendwork";
    MakeFolder(ServiceDir);
    for (const char* Name : {"\\Garbage", "\\History", "\\Backup"}) MakeFolder(ServiceDir + Name);
  }
  return ServiceDir;
}

std::string GetUninstallDir() { return ReadBaseFolder() + "\\Uninstall"; }

bool PrepareDataFolders() noexcept {
  try {
    return !GetServiceDir().empty();
  } catch (...) {
    return false;  // said again, and then heard, by the first call that needs a folder
  }
}

TComRef<IUnknown> ActiveOrNewObject(const CLSID& ClassId, DWORD Context) {
  TComRef<IUnknown> Result;
  if (SUCCEEDED(GetActiveObject(ClassId, nullptr, Result.Out())) && Result) return Result;
  CheckCall(CoCreateInstance(ClassId, nullptr, Context, IID_IUnknown, Result.OutVoid()));
  return Result;
}

void DebugLogPut(long Id, const std::wstring& Name, const std::wstring& Action, const std::wstring& Text) {
  const TReleaseAfterCall<IUDebugLog> Release{DebugLogInUse};
  if (!DebugLogInUse) DebugLogInUse = ActiveOrNew<IUDebugLog>(CLSID_UDebugLog);
  const TComRef<IUDebugLog> Log = DebugLogInUse;
  CheckCall(Log->Put(Id, MakeBstr(Name).Get(), MakeBstr(Action).Get(), MakeBstr(Text).Get()));
}

long DialogShowMsgBox(const std::wstring& Text, const std::wstring& Caption, long MsgType) {
  const TReleaseAfterCall<IUDialog> Release{DialogInUse};
  if (!DialogInUse) DialogInUse = ActiveOrNew<IUDialog>(CLSID_UDialog);
  const TComRef<IUDialog> Dialog = DialogInUse;
  long Res = 0;
  CheckCall(Dialog->ShowMsgBox(MakeBstr(Text).Get(), MakeBstr(Caption).Get(), MsgType, &Res));
  return Res;
}

std::string SystemErrorText(DWORD Code) {
  std::string Text = SystemMessage(Code);
  return Text.empty() ? LoadMessage(MsgUnknownError) : Text;
}

void GetLastErrorInfo(DWORD& Code, std::string& Text) {
  Code = GetLastError();
  Text = SystemErrorText(Code);
}

double FileTimeToDateTime(const FILETIME& Time) { return DayCount(Time.dwLowDateTime, Time.dwHighDateTime); }

std::string DateTimeText(const FILETIME& Time) {
  constexpr int64_t TicksPerMillisecond = 10000;
  const int64_t Ticks = MillisecondsOf(FileTimeToDateTime(Time)) * TicksPerMillisecond;
  const FILETIME Rounded = {static_cast<DWORD>(Ticks), static_cast<DWORD>(Ticks >> 32)};
  SYSTEMTIME Parts{};
  char Date[80] = "", Clock[80] = "";
  FileTimeToSystemTime(&Rounded, &Parts);
  GetDateFormatA(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &Parts, nullptr, Date, sizeof Date);
  GetTimeFormatA(LOCALE_USER_DEFAULT, 0, &Parts, nullptr, Clock, sizeof Clock);
  const bool Midnight = Parts.wHour == 0 && Parts.wMinute == 0 && Parts.wSecond == 0 && Parts.wMilliseconds == 0;
  return Midnight ? Date : std::string(Date) + " " + Clock;
}

HWND FindProgressWindow() { return FindWindowA("TMainForm", LoadMessage(MsgProgressWindowTitle).c_str()); }

void StartEnvironment() {
  UpdatesDir.clear();
  ServiceDir.clear();
}

void StopEnvironment() {
  StartEnvironment();
  DebugLogInUse.Reset();
  DialogInUse.Reset();
}
