#include "kit/asked_step.h"

#include "base/error_code.h"
#include "base/failure.h"
#include "base/text.h"
#include "server/log_text.h"
#include "server/routine.h"
#include "server/service_calls.h"

void AskOrFail(DWORD Code, const std::string& What) {
  const std::string Reason = SystemErrorText(Code);
  const std::string Text = What + LoadMessage(MsgEmptyLine) + FormatMessageText(MsgErrorReason, Reason, uint32_t{Code});
  if (DialogShowMsgBox(Text, MsgError, MB_RETRYCANCEL | MB_ICONERROR) == IDRETRY) return;
  DebugLogPut(NextCallId(), L"Kit", LoadWideMessage(MsgException), LogText(Code, {Reason}));
  throw EFailure(MakeErrorHResult(static_cast<int32_t>(Code)), ToWide(Reason));
}
