#pragma once

#include "rollback/record_file.h"
#include "server/logged_object.h"

/// The transaction log: the undoable changes of an update, in "update.prt" in the service folder, shared by all
/// processes. A process that is elevated neither records nor rolls back where the service folder belongs to a user who
/// is not; see elevation.h. An entry whose id is this class and whose code is 0 is a check point; its DataID is the
/// check point's identifier.
class TUTransactionLog final : public TLoggedObject<IUTransactionLog, IUDialog> {
 public:
  using TLoggedObject::TLoggedObject;
  void Initialize() override;

  /// Appends one entry and returns when it is in the log. The log is as before or has exactly one more entry, also when
  /// the process dies inside.
  STDMETHOD(Put)(GUID Id, long Code, GUID DataID) override;
  STDMETHOD(PutCheckPoint)(GUID CheckPointID) override;
  /// Undoes the recorded changes, newest first, to the newest check point (which stays, and whose identifier is given)
  /// or to the beginning. An entry is removed only after its undoing succeeded; a failure ends the walk, and the next
  /// call begins with the same entry. CheckPointID keeps the caller's value when no check point was reached; late bound
  /// that is the all-zero GUID.
  /// An object called back from here must not call this one: that fails with E_UNEXPECTED.
  STDMETHOD(Rollback)(VARIANT_BOOL OnlyToCheckPoint, GUID* CheckPointID) override;

 private:
  void Append(const GUID& Id, long Code, const GUID& DataID) const;
  bool RollbackLast(const TRecordFileChange& Change, bool OnlyToCheckPoint, GUID& CheckPointID) const;
};
