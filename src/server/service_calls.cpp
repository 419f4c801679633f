#include "server/service_calls.h"

#include "base/failure.h"
#include "base/text.h"
#include "server/active_objects.h"
#include "server/outermost_call.h"

void DebugLogPut(long Id, const std::wstring& Name, const std::wstring& Action, const std::wstring& Text) {
  TComRef<IUnknown> Active;
  TComRef<IUDebugLog> DebugLog;
  if (SUCCEEDED(GetActiveObject(CLSID_UDebugLog, nullptr, Active.Out())) && Active)
    CheckCall(Active->QueryInterface(__uuidof(IUDebugLog), DebugLog.OutVoid()));
  else
    CheckCall(TOutermostCall::DebugLogClass().CreateInstance(nullptr, __uuidof(IUDebugLog), DebugLog.OutVoid()));
  PutLine(*DebugLog, Id, Name, Action, Text);
}

void PutLine(IUDebugLog& DebugLog, long Id, const std::wstring& Name, const std::wstring& Action,
             const std::wstring& Text) {
  CheckCall(DebugLog.Put(Id, MakeBstr(Name).Get(), MakeBstr(Action).Get(), MakeBstr(Text).Get()));
}

long DialogShowMsgBox(const std::string& Text, TMessage Caption, long MsgType) {
  return ShowMsgBox(*ActiveOrNew<IUDialog>(CLSID_UDialog), Text, Caption, MsgType);
}

long ShowMsgBox(IUDialog& Dialog, const std::string& Text, TMessage Caption, long MsgType) {
  long Answer = 0;
  CheckCall(
      Dialog.ShowMsgBox(MakeBstr(ToWide(Text)).Get(), MakeBstr(LoadWideMessage(Caption)).Get(), MsgType, &Answer));
  return Answer;
}
