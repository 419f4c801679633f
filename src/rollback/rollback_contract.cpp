#include "rollback/rollback_contract.h"

#include "base/guid.h"
#include "base/progress_window.h"
#include "formats/entry_codes.h"
#include "server/active_objects.h"

namespace {

/// Asks the progress window to undo a change of the updater's own: wParam is the entry's code, lParam 0.
constexpr UINT RollbackMessage = 0x7EB;

bool UpdaterTookIt(const TLogRecord& Entry) {
  if (GuidText(Entry.Id) != UpdaterClassId) return false;
  const HWND Window = FindProgressWindow();
  if (Window) SendMessageA(Window, RollbackMessage, static_cast<WPARAM>(Entry.Code), 0);
  return Window != nullptr;
}

}  // namespace

void DispatchRollback(const TLogRecord& Entry) {
  if (UpdaterTookIt(Entry)) return;
  SetErrorInfo(0, nullptr);  // whatever text is found after a failure is that failure's
  const TComRef<IUnknown> Object = ActiveOrNewObject(GuidOf(Entry.Id), CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER);
  TComRef<IUCanRollback> Target;
  CheckCall(Object->QueryInterface(IID_IUCanRollback, Target.OutVoid()));
  CheckCall(Target->Rollback(Entry.Code, GuidOf(Entry.DataID)));
}

COCLASS(UCanRollback, TUCanRollback);
