#pragma once

#include "server/automation.h"

/// The debug log: appends one line per Put to "update.log" in the log folder. The file is opened by the first Put of
/// the process and then kept open, exclusively, until the module unloads; nothing is flushed.
class TUDebugLog final : public TAutoObject<IUDebugLog> {
 public:
  using TAutoObject::TAutoObject;
  void Initialize() override;

  /// Appends "yyyy.mm.dd hh:nn:ss Id Name Action Text". A system call that fails brings up a box with Retry and Cancel;
  /// on Cancel fails with 0x800401FF and the system's text for the error.
  STDMETHOD(Put)(long Id, BSTR Name, BSTR Action, BSTR Text) override;
};
