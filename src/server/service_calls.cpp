#include "server/service_calls.h"

#include "base/failure.h"
#include "base/handles.h"
#include "base/text.h"
#include "server/active_objects.h"

namespace {

// Held for the length of one call only.
TComRef<IUDebugLog> DebugLogInUse;
TComRef<IUDialog> DialogInUse;

/// Empties a slot on every way out of a call.
template <class T>
struct TReleaseAfterCall {
  TComRef<T>& Slot;
  ~TReleaseAfterCall() { Slot.Reset(); }
};

}  // namespace

void DebugLogPut(long Id, const std::wstring& Name, const std::wstring& Action, const std::wstring& Text) {
  const TReleaseAfterCall<IUDebugLog> Release{DebugLogInUse};
  if (!DebugLogInUse) DebugLogInUse = ActiveOrNew<IUDebugLog>(CLSID_UDebugLog);
  const TComRef<IUDebugLog> Log = DebugLogInUse;
  PutLine(*Log, Id, Name, Action, Text);
}

void PutLine(IUDebugLog& Log, long Id, const std::wstring& Name, const std::wstring& Action, const std::wstring& Text) {
  CheckCall(Log.Put(Id, MakeBstr(Name).Get(), MakeBstr(Action).Get(), MakeBstr(Text).Get()));
}

long DialogShowMsgBox(const std::string& Text, TMessage Caption, long MsgType) {
  const TReleaseAfterCall<IUDialog> Release{DialogInUse};
  if (!DialogInUse) DialogInUse = ActiveOrNew<IUDialog>(CLSID_UDialog);
  const TComRef<IUDialog> Dialog = DialogInUse;
  return ShowMsgBox(*Dialog, Text, Caption, MsgType);
}

long ShowMsgBox(IUDialog& Dialog, const std::string& Text, TMessage Caption, long MsgType) {
  long Answer = 0;
  CheckCall(
      Dialog.ShowMsgBox(MakeBstr(ToWide(Text)).Get(), MakeBstr(LoadWideMessage(Caption)).Get(), MsgType, &Answer));
  return Answer;
}

void ForgetServices() {
  DebugLogInUse.Reset();
  DialogInUse.Reset();
}
