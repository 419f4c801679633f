#pragma once

#include "kit/change_items.h"
#include "server/automation.h"

/// Undoes the kit's entries of the transaction log: removes what was made, when it is still as it was made, and keys
/// and folders when they are empty; what somebody has changed or needs by now stays, without a word. A file that was
/// replaced comes back as it was, whatever is there. The user is asked about what fails.
class TKitRollback final : public TAutoObject<IKitChanges, IUCanRollback> {
 public:
  using TAutoObject::TAutoObject;

  /// A code that is not known is ignored. An item that is damaged fails with E_INVALIDARG, and nothing is undone.
  STDMETHOD(Rollback)(long Code, GUID DataID) override;
};
