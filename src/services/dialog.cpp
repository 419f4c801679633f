#include "services/dialog.h"

#include "base/text.h"
#include "formats/comma_text.h"
#include "server/environment.h"
#include "server/log_scope.h"
#include "services/custom_message_box.h"

namespace {
constexpr wchar_t LogName[] = L"UDialog";
}

void TUDialog::Initialize() { DebugLog = ActiveOrNew<IUDebugLog>(CLSID_UDebugLog); }

HRESULT TUDialog::ShowMsgBox(BSTR Text, BSTR Caption, long MsgType, long* Res) {
  if (!Res) return E_POINTER;
  *Res = 0;
  return SafeCall([&] {
    std::wstring Shown = L"ShowMsgBox Text=";
    Shown.append(ViewOf(Text)).append(L" Caption=").append(ViewOf(Caption));
    TLogScope Log(DebugLog.Get(), LogName, Shown + L" MsgType=" + std::to_wstring(MsgType));
    const long Answer = MessageBoxA(FindProgressWindow(), ToAnsi(ViewOf(Text)).c_str(), ToAnsi(ViewOf(Caption)).c_str(),
                                    static_cast<UINT>(MsgType));
    Log.End(L"ShowMsgBox Result=" + std::to_wstring(Answer));
    *Res = Answer;
  });
}

HRESULT TUDialog::ShowCustomMsgBox(BSTR Text, BSTR Caption, long IcoType, BSTR Buttons, BSTR DefButton, BSTR* Res) {
  if (!Res) return E_POINTER;
  *Res = nullptr;
  return SafeCall([&] {
    std::wstring Shown = L"ShowCustomMsgBox Text=";
    Shown.append(ViewOf(Text)).append(L" Caption=").append(ViewOf(Caption));
    // The icon goes under the label MsgType, as the style does in the other method's line.
    Shown += L" MsgType=" + std::to_wstring(IcoType);
    Shown.append(L" Buttons=").append(ViewOf(Buttons)).append(L" DefButton=").append(ViewOf(DefButton));
    TLogScope Log(DebugLog.Get(), LogName, Shown);
    const std::wstring Answer = ToWide(
        ShowCustomBox({ToAnsi(ViewOf(Text)), ToAnsi(ViewOf(Caption)), IcoType, ParseCommaText(ToAnsi(ViewOf(Buttons))),
                       ToAnsi(ViewOf(DefButton)), FindProgressWindow()}));
    Log.End(L"ShowCustomMsgBox Result=" + Answer);
    *Res = MakeBstr(Answer).Detach();
  });
}

TAutoObjectBase* CreateUDialog(TVersionedAutoObjectFactory& Factory) { return new TUDialog(Factory); }

void StartDialogs() { RegisterBoxClass(); }
void StopDialogs() { UnregisterBoxClass(); }
