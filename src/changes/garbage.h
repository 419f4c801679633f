#pragma once

#include "server/automation.h"

/// Lists of leftovers, removed later. Not available in this version: objects can be made, and
/// every method fails with E_NOTIMPL.
class TUGarbage final : public TAutoObject<IUGarbage> {
 public:
  using TAutoObject::TAutoObject;
  STDMETHOD(PutFile)(BSTR) override { return NotYet(); }
  STDMETHOD(PutDirectory)(BSTR) override { return NotYet(); }
  STDMETHOD(PutRegKey)(unsigned long, BSTR) override { return NotYet(); }
  STDMETHOD(PutRegKeyValue)(unsigned long, BSTR, BSTR) override { return NotYet(); }
  STDMETHOD(Garbage)() override { return NotYet(); }
};
