#pragma once

#include "kit/message_list.h"
#include "kit/silent_user.h"
#include "kit/stand_in.h"

#include <memory>
#include <optional>

/// Stands in for Mendwork's dialogs: keeps the text of every box, and answers it without showing it, with the lines in
/// the debug log that Mendwork's own would write. Without a policy it hands every box to that one, and only says more
/// about files in use.
class TKitDialog final : public TStandIn<IUDialog> {
 public:
  TKitDialog(TComServer& Server, std::shared_ptr<TMessageList> Heard, const std::optional<TSilencePolicy>& Policy)
      : TStandIn(Server), Heard(std::move(Heard)) {
    if (Policy) User.emplace(*Policy);
  }

  STDMETHOD(ShowMsgBox)(BSTR Text, BSTR Caption, long MsgType, long* Res) override;
  STDMETHOD(ShowCustomMsgBox)
  (BSTR Text, BSTR Caption, long IcoType, BSTR Buttons, BSTR DefButton, BSTR* Res) override;

 private:
  void Hear(const std::wstring& Text);
  /// Mendwork's own, made when it is needed first. Raises the COM failure.
  IUDialog& Own();

  std::shared_ptr<TMessageList> Heard;
  std::optional<TSilentUser> User;
  TComRef<IUDialog> OwnDialog;
};
