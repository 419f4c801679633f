#include "kit/kit_dialog.h"

#include "base/text.h"
#include "formats/comma_text.h"
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
  if (!User.IsAskedAgain(Text)) Heard->Add(Text);
}

HRESULT TKitDialog::ShowMsgBox(BSTR Text, BSTR Caption, long MsgType, long* Res) {
  if (!Res) return RefuseNullPointer();
  *Res = 0;
  return SafeCall([&] {
    const std::wstring Question(ViewOf(Text));
    Hear(Question);
    RunRoutine(Lines, "ShowMsgBox",
               {Labelled(L"Text=", Text), Labelled(L"Caption=", Caption), Labelled(L"MsgType=", MsgType)}, [&] {
                 *Res = User.Press(Question, MsgType);
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
    RunRoutine(Lines, "ShowCustomMsgBox",
               {Labelled(L"Text=", Text), Labelled(L"Caption=", Caption), Labelled(L"MsgType=", IcoType),
                Labelled(L"Buttons=", Buttons), Labelled(L"DefButton=", DefButton)},
               [&] {
                 Answer = ToWide(User.Press(Question, ParseCommaText(LossyAnsi(ViewOf(Buttons)))));
                 return Labelled(L"Result=", std::wstring_view(Answer));
               });
    *Res = MakeBstr(Answer).Detach();
  });
}
