#pragma once

#include "server/logged_object.h"

/// Message boxes for the whole system and its clients. Both kinds are owned by the updater's progress window when it
/// exists, and write what they showed and what the user answered into the debug log.
class TUDialog final : public TLoggedObject<IUDialog> {
 public:
  using TLoggedObject::TLoggedObject;

  /// The system's message box; MsgType is its style, Res the pressed button's code.
  STDMETHOD(ShowMsgBox)(BSTR Text, BSTR Caption, long MsgType, long* Res) override;
  /// A box with the buttons that the comma text `Buttons` names; see ShowCustomBox.
  STDMETHOD(ShowCustomMsgBox)
  (BSTR Text, BSTR Caption, long IcoType, BSTR Buttons, BSTR DefButton, BSTR* Res) override;
};
