#include "base/failure.h"

#include "base/error_code.h"
#include "base/handles.h"
#include "base/system_error.h"
#include "base/text.h"

void CheckCall(HRESULT Result) {
  if (SUCCEEDED(Result)) return;
  TComRef<IErrorInfo> Info;
  TBstr Description;
  if (GetErrorInfo(0, Info.Out()) == S_OK && Info) Info->GetDescription(Description.Out());
  std::wstring Message(ViewOf(Description.Get()));
  if (Message.empty()) CheckSystemCall(Result);
  throw EFailure(Result, std::move(Message));
}

void CheckSystemCall(HRESULT Result) {
  if (FAILED(Result)) throw EFailure(Result, ToWide(SystemErrorText(static_cast<DWORD>(Result))));
}

void RaiseLastError() {
  DWORD Code = 0;
  std::string Text;
  GetLastErrorInfo(Code, Text);
  throw EFailure(MakeErrorHResult(static_cast<int32_t>(Code)), ToWide(Text));
}
