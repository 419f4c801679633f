#pragma once

#include "formats/log_record.h"
#include "server/automation.h"

/// The contract between the transaction log and the classes that undo changes. A Logged operation saves what it will
/// destroy, records an entry (its own class identifier, a code of its class, the saved item), and only then acts; the
/// entry alone must suffice to undo it, in another process and at another time.

/// Hands one entry back to an object of the class that made it. An entry of the updater program itself goes to its
/// progress window, as a synchronous message 0x7EB with the code, when that window exists; every other entry to the
/// active or a new object of its class. Raises the COM failure, or the failure of the object's Rollback.
void DispatchRollback(const TLogRecord& Entry);

/// The target of entries that need no undoing: accepts every code and every item, and does nothing.
class TUCanRollback final : public TAutoObject<IUCanRollback> {
 public:
  using TAutoObject::TAutoObject;
  STDMETHOD(Rollback)(long, GUID) override { return S_OK; }
};
