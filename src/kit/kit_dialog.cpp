#include "kit/kit_dialog.h"

#include "base/failure.h"
#include "base/text.h"
#include "formats/comma_text.h"
#include "kit/file_in_use.h"
#include "server/routine.h"

#include <string>

namespace {

/// A word that names what it tells.
std::wstring Labelled(const wchar_t* Label, std::wstring_view Text) { return std::wstring(Label).append(Text); }
std::wstring Labelled(const wchar_t* Label, BSTR Text) { return Labelled(Label, ViewOf(Text)); }
std::wstring Labelled(const wchar_t* Label, long Number) { return Label + std::to_wstring(Number); }

constexpr TLineSource Lines{nullptr, "UDialog"};

}  // namespace

/// What is asked again and again is one message.
void TKitDialog::Hear(const std::wstring& Text) {
  const bool Again = User ? User->IsAskedAgain(Text) : Text == Heard->Last();
  if (!Again) Heard->Add(Text);
}

IUDialog& TKitDialog::Own() {
  if (!OwnDialog)
    CheckCall(CoCreateInstance(CLSID_UDialog, nullptr, CLSCTX_INPROC_SERVER, IID_IUDialog, OwnDialog.OutVoid()));
  return *OwnDialog;
}

HRESULT TKitDialog::ShowMsgBox(BSTR Text, BSTR Caption, long MsgType, long* Res) {
  if (!Res) return RefuseNullPointer();
  *Res = 0;
  return SafeCall([&] {
    const std::wstring Question(ViewOf(Text));
    Hear(Question);
    if (!User) {
      if ((MsgType & MB_TYPEMASK) == MB_RETRYCANCEL)
        *Res = AskAboutFile(Own(), Text, Caption, MsgType);
      else
        CheckCall(Own().ShowMsgBox(Text, Caption, MsgType, Res));
      return;
    }
    RunRoutine(Lines, "ShowMsgBox",
               {Labelled(L"Text=", Text), Labelled(L"Caption=", Caption), Labelled(L"MsgType=", MsgType)}, [&] {
                 *Res = User->Press(Question, MsgType);
                 return Labelled(L"Result=", *Res);
               });
  });
}

HRESULT TKitDialog::ShowCustomMsgBox(BSTR Text, BSTR Caption, long IcoType, BSTR Buttons, BSTR DefButton, BSTR* Res) {
  if (!Res) return RefuseNullPointer();
  *Res = nullptr;
  return SafeCall([&] {
    const std::wstring Question(ViewOf(Text));
    std::wstring Answer;
    Hear(Question);
    if (!User) return CheckCall(Own().ShowCustomMsgBox(Text, Caption, IcoType, Buttons, DefButton, Res));
    RunRoutine(Lines, "ShowCustomMsgBox",
               {Labelled(L"Text=", Text), Labelled(L"Caption=", Caption), Labelled(L"MsgType=", IcoType),
                Labelled(L"Buttons=", Buttons), Labelled(L"DefButton=", DefButton)},
               [&] {
                 Answer = ToWide(User->Press(Question, ParseCommaText(LossyAnsi(ViewOf(Buttons)))));
                 return Labelled(L"Result=", std::wstring_view(Answer));
               });
    *Res = MakeBstr(Answer).Detach();
  });
}
