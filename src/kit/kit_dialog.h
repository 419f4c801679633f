#pragma once

#include "kit/message_list.h"
#include "kit/silent_user.h"
#include "kit/stand_in.h"

#include <memory>

/// Stands in for Mendwork's dialogs: keeps the text of every box, and answers it without showing it. Writes the lines
/// into the debug log that Mendwork's own would write.
class TKitDialog final : public TStandIn<IUDialog> {
 public:
  TKitDialog(TComServer& Server, std::shared_ptr<TMessageList> Heard, const TSilencePolicy& Policy)
      : TStandIn(Server), Heard(std::move(Heard)), User(Policy) {}

  STDMETHOD(ShowMsgBox)(BSTR Text, BSTR Caption, long MsgType, long* Res) override;
  STDMETHOD(ShowCustomMsgBox)
  (BSTR Text, BSTR Caption, long IcoType, BSTR Buttons, BSTR DefButton, BSTR* Res) override;

 private:
  void Hear(const std::wstring& Text);

  std::shared_ptr<TMessageList> Heard;
  TSilentUser User;
};
