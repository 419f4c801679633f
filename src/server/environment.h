#pragma once

#include "base/failure.h"
#include "base/handles.h"
#include "server/interfaces.h"

#include <string>

/// The helpers that every other room uses: the data folders, call ids, the way to the debug log and the dialogs, and
/// the texts of system errors and times.

/// The next call id for the debug log; the first one of the process is 1.
long NextCallId();

/// The updates folder (base folder + "\Updates"). The first call reads the base folder from the default value of
/// HKEY_CURRENT_USER\Software\Orvane\Core and creates the folder and its "Log" folder; later calls give the cached
/// path. Fails with a message that names the key when its default value is missing, empty or not a string.
std::string GetUpdatesDir();

/// The service folder (updates folder + "\Mendwork"); the first call creates it with "Garbage", "History" and "Backup".
std::string GetServiceDir();

/// The uninstall folder (base folder + "\Uninstall"), read afresh on every call and not created.
std::string GetUninstallDir();

/// Fills the folder caches while an object starts. A missing base folder is no failure yet: creating an object loses
/// the text of a failure on its way to a script, so the first call that needs a folder tells it. Gives whether the
/// folders are known.
bool PrepareDataFolders() noexcept;

/// Writes one debug-log line through a debug-log object obtained for this call.
void DebugLogPut(long Id, const std::wstring& Name, const std::wstring& Action, const std::wstring& Text);

/// Shows a message box through a dialog object obtained for this call and gives the pressed button.
long DialogShowMsgBox(const std::wstring& Text, const std::wstring& Caption, long MsgType);

/// The active object of a class if one is registered in the running object table, else a new instance made through
/// COM. Raises the COM failure of the creation or of the query for the interface.
TComRef<IUnknown> ActiveOrNewObject(const CLSID& ClassId, DWORD Context = CLSCTX_INPROC_SERVER);
template <class TInterface>
TComRef<TInterface> ActiveOrNew(const CLSID& ClassId) {
  TComRef<TInterface> Result;
  CheckCall(ActiveOrNewObject(ClassId)->QueryInterface(__uuidof(TInterface), Result.OutVoid()));
  return Result;
}

/// The system's text for an error code or HRESULT as it comes, or "Unknown error." when it has none.
std::string SystemErrorText(DWORD Code);

/// The thread's last error and its text.
void GetLastErrorInfo(DWORD& Code, std::string& Text);

/// See DayCount.
double FileTimeToDateTime(const FILETIME& Time);

/// A time (UTC, as stored) in the user's short-date and long-time format; the time part is left out at midnight.
std::string DateTimeText(const FILETIME& Time);

/// The updater's progress window, or null: owner of the message boxes and target of the rollback message.
HWND FindProgressWindow();

/// Unit start and stop (see module.cpp): the caches begin and end empty.
void StartEnvironment();
void StopEnvironment();
