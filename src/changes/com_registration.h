#pragma once

#include "server/automation.h"

/// Registers COM servers and type libraries. Not available in this version: objects can be made, and
/// every method fails with E_NOTIMPL.
class TUCom final : public TAutoObject<IUCom> {
 public:
  using TAutoObject::TAutoObject;
  STDMETHOD(Rollback)(long, GUID) override { return NotYet(); }
  STDMETHOD(RegServer)(BSTR) override { return NotYet(); }
  STDMETHOD(UnRegServer)(BSTR) override { return NotYet(); }
  STDMETHOD(RegTLB)(BSTR) override { return NotYet(); }
  STDMETHOD(UnRegTLB)(BSTR) override { return NotYet(); }
  STDMETHOD(RegServerLogged)(BSTR) override { return NotYet(); }
  STDMETHOD(RegTLBLogged)(BSTR) override { return NotYet(); }
  STDMETHOD(UnRegServerLogged)(BSTR) override { return NotYet(); }
  STDMETHOD(UnRegTLBLogged)(BSTR) override { return NotYet(); }
  STDMETHOD(Reg)(BSTR) override { return NotYet(); }
  STDMETHOD(UnReg)(BSTR) override { return NotYet(); }
  STDMETHOD(RegLogged)(BSTR) override { return NotYet(); }
  STDMETHOD(UnRegLogged)(BSTR) override { return NotYet(); }
};
