#pragma once

#include "server/automation.h"

/// Named macros. Not available in this version: objects can be made, and
/// every method fails with E_NOTIMPL.
class TUMacro final : public TAutoObject<IUMacro> {
 public:
  using TAutoObject::TAutoObject;
  STDMETHOD(GetMacro)(BSTR, BSTR*) override { return NotYet(); }
  STDMETHOD(SetMacro)(BSTR, BSTR, VARIANT_BOOL) override { return NotYet(); }
  STDMETHOD(DelMacro)(BSTR) override { return NotYet(); }
  STDMETHOD(MacroExists)(BSTR, VARIANT_BOOL*) override { return NotYet(); }
};
