#include "retry/engine.h"

#include "server/environment.h"

namespace {

constexpr wchar_t LogName[] = L"Common";

/// The time given to whoever holds a file before the user is asked.
void RetryPause() {
  constexpr DWORD PauseMilliseconds = 3000;
  Sleep(PauseMilliseconds);
}

}  // namespace

TRetryCall::TRetryCall(TRetryVariant Variant, const std::wstring& Begin)
    : SilentRepeatsLeft(Variant.SilentRepeats), Quiet(Variant.Quiet), Id(Variant.TakesCallId ? NextCallId() : 0) {
  if (!Quiet) Line(ToWide(LoadMessage(MsgBegin)), Begin);
}

void TRetryCall::End(const std::wstring& Text) {
  if (!Quiet) Line(ToWide(LoadMessage(MsgEnd)), Text);
}

void TRetryCall::Line(const std::wstring& Action, const std::wstring& Text) { DebugLogPut(Id, LogName, Action, Text); }

bool TRetryCall::RepeatsSilently() {
  if (SilentRepeatsLeft == 0) return false;
  --SilentRepeatsLeft;
  RetryPause();
  return true;
}

void TRetryCall::AskOrFail(const TOutcome& Last, const std::string& Words) {
  constexpr long BoxStyle = MB_RETRYCANCEL | MB_ICONERROR;
  const uint32_t ShownCode = static_cast<uint32_t>(Last.Code);
  const std::string Text =
      Last.OutOfMemory ? LoadMessage(MsgOutOfMemory) : SystemErrorText(static_cast<DWORD>(Last.Code));
  const std::string Reason =
      Last.OutOfMemory ? LoadMessage(MsgCloseApplications) : FormatMessageText(MsgErrorReason, Text, ShownCode);
  const long Answer =
      DialogShowMsgBox(ToWide(Words + LoadMessage(MsgEmptyLine) + Reason), ToWide(LoadMessage(MsgError)), BoxStyle);
  if (Answer != IDRETRY) FailureStep(Last.Code, Text);
}

void FailureStep(long Code, const std::string& Text) {
  DebugLogPut(NextCallId(), LogName, ToWide(LoadMessage(MsgException)), LogText(Code, Text));
  throw EFailure(MakeErrorHResult(static_cast<int32_t>(Code)), ToWide(Text));
}

void FailWithBox(IUDialog& Dialog, TMessage Message) {
  constexpr int AnyFailure = -1;
  const std::string Text = LoadMessage(Message);
  long Answer = 0;
  CheckCall(Dialog.ShowMsgBox(MakeBstr(ToWide(Text)).Get(), MakeBstr(ToWide(LoadMessage(MsgError))).Get(),
                              MB_OK | MB_ICONERROR, &Answer));
  FailureStep(MakeErrorHResult(AnyFailure), Text);
}
