#include "services/debug_log.h"

#include "base/data_folders.h"
#include "base/error_code.h"
#include "base/failure.h"
#include "base/handles.h"
#include "base/named_lock.h"
#include "base/system_error.h"
#include "base/text.h"
#include "formats/log_line.h"

#include <string>

namespace {

// Process-wide: every object of the process writes through one handle. Used inside the lock only.
std::string LogFileName;
TFileHandle LogFile;
TNamedLock LogLock;

void FindLogFile() { LogFileName = GetUpdatesDir() + "\\Log\\update.log"; }

/// Repeats one step until it succeeds or the user gives up. The box is the system's own call and not the dialog object,
/// because that one writes debug-log lines.
template <class TStep>
void RepeatWithBox(TMessage Message, TStep Step) {
  constexpr int AnyFailure = -1;
  while (!Step()) {
    DWORD Code = 0;
    std::string Reason;
    GetLastErrorInfo(Code, Reason);
    const std::string Text = FormatMessageText(Message, LogFileName) + LoadMessage(MsgEmptyLine) +
                             FormatMessageText(MsgErrorReason, Reason, static_cast<uint32_t>(Code));
    const int Answer =
        MessageBoxA(nullptr, Text.c_str(), LoadMessage(MsgError).c_str(), MB_RETRYCANCEL | MB_ICONERROR | MB_TASKMODAL);
    if (Answer != IDRETRY) throw EFailure(MakeErrorHResult(AnyFailure), ToWide(Reason));
  }
}

bool OpenLogFile() {
  if (LogFile) return true;
  LogFile.Reset(
      CreateFileA(LogFileName.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  return static_cast<bool>(LogFile);
}

std::string ComposeLine(long Id, BSTR Name, BSTR Action, BSTR Text) {
  SYSTEMTIME Now;
  GetLocalTime(&Now);
  std::wstring Line =
      LogLinePrefix({Now.wYear, Now.wMonth, Now.wDay, Now.wHour, Now.wMinute, Now.wSecond}, static_cast<int32_t>(Id));
  Line.append(ViewOf(Name)).append(L" ").append(ViewOf(Action)).append(L" ").append(ViewOf(Text));
  return FinishLogLine(LossyAnsi(Line));
}

void Append(long Id, BSTR Name, BSTR Action, BSTR Text) {
  RepeatWithBox(MsgCannotSetPointer,
                [] { return SetFilePointer(LogFile.Get(), 0, nullptr, FILE_END) != INVALID_SET_FILE_POINTER; });
  const std::string Line = ComposeLine(Id, Name, Action, Text);  // its time is that of the writing
  RepeatWithBox(MsgCannotWrite, [&] {
    DWORD Written = 0;
    return WriteFile(LogFile.Get(), Line.data(), static_cast<DWORD>(Line.size()), &Written, nullptr) != FALSE;
  });
}

}  // namespace

void TUDebugLog::Initialize() {
  try {
    GetUpdatesDir();  // makes the folder
  } catch (const EFailure&) {
    // No base folder. Put says so: from here the text would not reach a script.
  }
}

HRESULT TUDebugLog::Put(long Id, BSTR Name, BSTR Action, BSTR Text) {
  return SafeCall([&] {
    const TNamedLock::THold Hold(LogLock);
    if (LogFileName.empty()) FindLogFile();
    RepeatWithBox(MsgCannotOpenOrCreate, OpenLogFile);
    Append(Id, Name, Action, Text);
  });
}

static void CloseDebugLog() {
  LogFile.Reset();
  LogFileName.clear();
}

COCLASS(UDebugLog, TUDebugLog, &LogLock, nullptr, CloseDebugLog);
