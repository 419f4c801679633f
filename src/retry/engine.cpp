#include "retry/engine.h"

#include "base/error_code.h"
#include "base/failure.h"
#include "base/system_error.h"
#include "base/text.h"
#include "server/service_calls.h"

namespace {

/// The time given to whoever holds a file before the user is asked.
void RetryPause() {
  constexpr DWORD PauseMilliseconds = 3000;
  Sleep(PauseMilliseconds);
}

}  // namespace

bool TRetryCall::RepeatsSilently() {
  if (SilentRepeatsLeft == 0) return false;
  --SilentRepeatsLeft;
  RetryPause();
  return true;
}

void TRetryCall::AskOrFail(const TOutcome& Last, const std::string& Words) {
  const uint32_t ShownCode = static_cast<uint32_t>(Last.Code);
  const std::string Text =
      Last.OutOfMemory ? LoadMessage(MsgOutOfMemory) : SystemErrorText(static_cast<DWORD>(Last.Code));
  const std::string Reason =
      Last.OutOfMemory ? LoadMessage(MsgCloseApplications) : FormatMessageText(MsgErrorReason, Text, ShownCode);
  const long Answer =
      DialogShowMsgBox(Words + LoadMessage(MsgEmptyLine) + Reason, MsgError, MB_RETRYCANCEL | MB_ICONERROR);
  if (Answer != IDRETRY) FailureStep(Last.Code, Text);
}

void FailureStep(long Code, const std::wstring& Text) {
  DebugLogPut(NextCallId(), L"Common", LoadWideMessage(MsgException), LogText(Code, {Text}));
  throw EFailure(MakeErrorHResult(static_cast<int32_t>(Code)), Text);
}

void FailureStep(long Code, const std::string& Text) { FailureStep(Code, ToWide(Text)); }

void FailureStep(long Code) { FailureStep(Code, SystemErrorText(static_cast<DWORD>(Code))); }

void FailWithBox(IUDialog& Dialog, TMessage Message) {
  constexpr int AnyFailure = -1;
  const std::string Text = LoadMessage(Message);
  ShowMsgBox(Dialog, Text, MsgError, MB_OK | MB_ICONERROR);
  FailureStep(MakeErrorHResult(AnyFailure), Text);
}
