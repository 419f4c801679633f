#pragma once

#include "server/automation.h"

/// Named stacks of records that outlive an update. Not available in this version: objects can be made, and
/// every method fails with E_NOTIMPL.
class TUHistory final : public TAutoObject<IUHistory> {
 public:
  using TAutoObject::TAutoObject;
  STDMETHOD(Put)(GUID, long, GUID) override { return NotYet(); }
  STDMETHOD(Get)(GUID, long*, GUID*, VARIANT_BOOL*, VARIANT_BOOL*) override { return NotYet(); }
  STDMETHOD(DeleteLastRecord)(GUID) override { return NotYet(); }
  STDMETHOD(PutCheckPoint)(GUID, GUID) override { return NotYet(); }
  STDMETHOD(ClearAll)(GUID) override { return NotYet(); }
};
