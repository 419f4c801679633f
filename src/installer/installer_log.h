#pragma once

#include "server/automation.h"

/// Adds files and COM servers to the installer's uninstall log. Not available in this version: objects can be made, and
/// every method fails with E_NOTIMPL.
class TUInno final : public TAutoObject<IUInno> {
 public:
  using TAutoObject::TAutoObject;
  STDMETHOD(AddFile)(BSTR) override { return NotYet(); }
  STDMETHOD(AddCOM)(BSTR) override { return NotYet(); }
  STDMETHOD(GetFileList)(BSTR*) override { return NotYet(); }
  STDMETHOD(GetCOMList)(BSTR*) override { return NotYet(); }
  STDMETHOD(ProcessInno)() override { return NotYet(); }
};
