#include "kit/kit_log.h"

#include "base/failure.h"
#include "base/text.h"
#include "formats/log_line.h"
#include "kit/names.h"

#include <cstdio>

namespace {

/// update-YYYYMMDD-HHNNSS-PROCESS.log, with the local time at which the process started.
std::wstring LogFileName(const std::wstring& Folder) {
  FILETIME Started{}, Unused{}, Local{};
  SYSTEMTIME Time{};
  GetProcessTimes(GetCurrentProcess(), &Started, &Unused, &Unused, &Unused);
  FileTimeToLocalFileTime(&Started, &Local);
  FileTimeToSystemTime(&Local, &Time);
  wchar_t Name[80] = L"";
  std::swprintf(Name, std::size(Name), L"update-%04d%02d%02d-%02d%02d%02d-%lu.log", Time.wYear, Time.wMonth, Time.wDay,
                Time.wHour, Time.wMinute, Time.wSecond, GetCurrentProcessId());
  return Under(Folder, Name);
}

/// The folder of the log, made when it is missing.
const std::wstring& Made(const std::wstring& Folder) {
  for (const std::wstring& Missing : MissingFolders(Folder))
    if (!CreateDirectoryW(Missing.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) RaiseLastError();
  return Folder;
}

}  // namespace

TKitLog::TKitLog(TComServer& Server, const std::wstring& Folder, int64_t Limit)
    : TStandIn(Server), File(LogFileName(Made(Folder)), Limit), FailureAction(LoadWideMessage(MsgException)) {}

HRESULT TKitLog::Put(long Id, BSTR Name, BSTR Action, BSTR Text) {
  return SafeCall([&] {
    SYSTEMTIME Now;
    GetLocalTime(&Now);
    std::wstring Line =
        LogLinePrefix({Now.wYear, Now.wMonth, Now.wDay, Now.wHour, Now.wMinute, Now.wSecond}, static_cast<int32_t>(Id));
    Line.append(ViewOf(Name)).append(L" ").append(ViewOf(Action)).append(L" ").append(ViewOf(Text));
    File.Append(FinishLogLine(LossyAnsi(Line)), ViewOf(Action) == FailureAction);
  });
}
