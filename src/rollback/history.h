#pragma once

#include "rollback/record_file.h"
#include "server/logged_object.h"

/// Named stacks of records that outlive an update: each group is a guarded record file in the "History" folder, named
/// by the registry form of its identifier. A record whose marker is this class and whose code is 0 is a check point;
/// the marker of an ordinary record is its group. Nothing is dispatched.
class TUHistory final : public TLoggedObject<IUHistory, IUDialog> {
 public:
  using TLoggedObject::TLoggedObject;
  void Initialize() override;

  /// The group is as before or has exactly one more record, also when the process dies inside.
  STDMETHOD(Put)(GUID GroupID, long Code, GUID DataID) override;
  STDMETHOD(PutCheckPoint)(GUID GroupID, GUID CheckPointID) override;
  /// Reads the newest record and leaves it. For an empty group only NoMoreRecords is written; the others keep the
  /// caller's values, which late bound are 0, the all-zero GUID and False.
  STDMETHOD(Get)
  (GUID GroupID, long* Code, GUID* DataID, VARIANT_BOOL* NoMoreRecords, VARIANT_BOOL* ThisIsCheckPoint) override;
  /// An empty group stays empty; that is no failure.
  STDMETHOD(DeleteLastRecord)(GUID GroupID) override;
  STDMETHOD(ClearAll)(GUID GroupID) override;

 private:
  TRecordFileChange Open(const GUID& GroupID, TRecordFileChange::TPurpose Purpose) const;
  void Append(const GUID& GroupID, long Code, bool CheckPoint, const GUID& DataID) const;
};
