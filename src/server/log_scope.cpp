#include "server/log_scope.h"

#include "base/failure.h"
#include "base/messages.h"
#include "server/environment.h"

TLogScope::TLogScope(IUDebugLog* Log, const wchar_t* Name, const std::wstring& Begin)
    : Log(Log), Name(Name), Id(NextCallId()) {
  Line(ToWide(LoadMessage(MsgBegin)), Begin);
}

void TLogScope::End(const std::wstring& Text) { Line(ToWide(LoadMessage(MsgEnd)), Text); }

void TLogScope::Line(const std::wstring& Action, const std::wstring& Text) {
  if (Log)
    CheckCall(Log->Put(Id, MakeBstr(Name).Get(), MakeBstr(Action).Get(), MakeBstr(Text).Get()));
  else
    DebugLogPut(Id, Name, Action, Text);
}
