#pragma once

#include "server/automation.h"

/// Writes and deletes registry keys and values. Not available in this version: objects can be made, and
/// every method fails with E_NOTIMPL.
class TURegistry final : public TAutoObject<IURegistry> {
 public:
  using TAutoObject::TAutoObject;
  STDMETHOD(Rollback)(long, GUID) override { return NotYet(); }
  STDMETHOD(DeleteRegKey)(unsigned long, BSTR) override { return NotYet(); }
  STDMETHOD(DeleteRegKeyValue)(unsigned long, BSTR, BSTR) override { return NotYet(); }
  STDMETHOD(SetStringValue)(unsigned long, BSTR, BSTR, BSTR) override { return NotYet(); }
  STDMETHOD(SetDwordValue)(unsigned long, BSTR, BSTR, unsigned long) override { return NotYet(); }
  STDMETHOD(SetBinaryValue)(unsigned long, BSTR, BSTR, void*, long) override { return NotYet(); }
  STDMETHOD(DeleteRegKeyLogged)(unsigned long, BSTR) override { return NotYet(); }
  STDMETHOD(DeleteRegKeyValueLogged)(unsigned long, BSTR, BSTR) override { return NotYet(); }
  STDMETHOD(SetStringValueLogged)(unsigned long, BSTR, BSTR, BSTR) override { return NotYet(); }
  STDMETHOD(SetDwordValueLogged)(unsigned long, BSTR, BSTR, unsigned long) override { return NotYet(); }
  STDMETHOD(SetBinaryValueLogged)(unsigned long, BSTR, BSTR, void*, long) override { return NotYet(); }
};
