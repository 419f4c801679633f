#include "services/dialog.h"

#include "base/progress_window.h"
#include "base/text.h"
#include "formats/comma_text.h"
#include "services/custom_message_box.h"

#include <string>

namespace {

/// A word that names what it tells.
std::wstring Labelled(const wchar_t* Label, std::wstring_view Text) { return std::wstring(Label).append(Text); }
std::wstring Labelled(const wchar_t* Label, BSTR Text) { return Labelled(Label, ViewOf(Text)); }
std::wstring Labelled(const wchar_t* Label, long Number) { return Label + std::to_wstring(Number); }

std::string AnsiOf(BSTR Text) { return LossyAnsi(ViewOf(Text)); }

}  // namespace

HRESULT TUDialog::ShowMsgBox(BSTR Text, BSTR Caption, long MsgType, long* Res) {
  long Answer = 0;
  return Give(Res, [&] {
    Routine("ShowMsgBox", {Labelled(L"Text=", Text), Labelled(L"Caption=", Caption), Labelled(L"MsgType=", MsgType)},
            [&] {
              Answer = MessageBoxA(FindProgressWindow(), AnsiOf(Text).c_str(), AnsiOf(Caption).c_str(),
                                   static_cast<UINT>(MsgType));
              return Labelled(L"Result=", Answer);
            });
    return Answer;
  });
}

HRESULT TUDialog::ShowCustomMsgBox(BSTR Text, BSTR Caption, long IcoType, BSTR Buttons, BSTR DefButton, BSTR* Res) {
  std::wstring Answer;
  return Give(Res, [&] {
    // The icon goes under the label MsgType, as the style does in the other method's line.
    Routine("ShowCustomMsgBox",
            {Labelled(L"Text=", Text), Labelled(L"Caption=", Caption), Labelled(L"MsgType=", IcoType),
             Labelled(L"Buttons=", Buttons), Labelled(L"DefButton=", DefButton)},
            [&] {
              Answer = ToWide(ShowCustomBox({AnsiOf(Text), AnsiOf(Caption), IcoType, ParseCommaText(AnsiOf(Buttons)),
                                             AnsiOf(DefButton), FindProgressWindow()}));
              return Labelled(L"Result=", std::wstring_view(Answer));
            });
    return Answer;
  });
}

COCLASS(UDialog, TUDialog, nullptr, RegisterBoxClass, UnregisterBoxClass);
