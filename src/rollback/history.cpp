#include "rollback/history.h"

#include "base/data_folders.h"
#include "base/guid.h"
#include "formats/entry_codes.h"

namespace {

/// One lock for all groups.
TNamedLock HistoryLock;

TGuardedRecordFile GroupFile(const GUID& GroupID) {
  // A record of the group that is all zero may be all zero itself.
  const bool ZeroGroup = SameGUID(GroupID, GUID{});
  return TGuardedRecordFile(GetServiceDir() + "\\History\\" + GuidText(GroupID),
                            ZeroGroup ? TGuardedRecordFile::ZerosAreARecord : TGuardedRecordFile::ZerosAreDamage);
}

bool IsCheckPoint(const TLogRecord& Record) {
  return SameGUID(GuidOf(Record.Id), CLSID_UHistory) && Record.Code == CheckPointCode;
}

}  // namespace

void TUHistory::Initialize() {
  PrepareDataFolders();
  TLoggedObject::Initialize();
}

HRESULT TUHistory::Put(GUID GroupID, long Code, GUID DataID) {
  return Method("Put", {GroupID, Code, DataID}, [&] { Append(GroupID, Code, false, DataID); });
}

HRESULT TUHistory::PutCheckPoint(GUID GroupID, GUID CheckPointID) {
  // The log tells it as a Put; the line of the append below shows that it is a check point.
  return Method("Put", {GroupID, CheckPointID}, [&] { Append(GroupID, CheckPointCode, true, CheckPointID); });
}

TRecordFileChange TUHistory::Open(const GUID& GroupID, TRecordFileChange::TPurpose Purpose) const {
  return TRecordFileChange(GroupFile(GroupID), HistoryLock, Lines(), {GroupID, Purpose == TRecordFileChange::ToChange},
                           Purpose);
}

void TUHistory::Append(const GUID& GroupID, long Code, bool CheckPoint, const GUID& DataID) const {
  Routine("PutAction", {GroupID, Code, DataID, CheckPoint}, [&] {
    TRecordFileChange Group = Open(GroupID, TRecordFileChange::ToChange);
    Group.Append({BytesOf(CheckPoint ? CLSID_UHistory : GroupID), static_cast<int32_t>(Code), BytesOf(DataID)});
    Group.Commit();
  });
}

HRESULT TUHistory::Get(GUID GroupID, long* Code, GUID* DataID, VARIANT_BOOL* NoMoreRecords,
                       VARIANT_BOOL* ThisIsCheckPoint) {
  if (!Code || !DataID || !NoMoreRecords || !ThisIsCheckPoint) return RefuseNullPointer();
  return Method("Get", {GroupID}, [&](TRoutine& Get) {
    *NoMoreRecords = VARIANT_FALSE;
    const std::optional<TLogRecord> Record = Open(GroupID, TRecordFileChange::ToRead).ReadLast();
    if (!Record) {
      *NoMoreRecords = VARIANT_TRUE;
      return Get.HasNoEnd();
    }
    *Code = Record->Code;
    *DataID = GuidOf(Record->DataID);
    *ThisIsCheckPoint = IsCheckPoint(*Record) ? VARIANT_TRUE : VARIANT_FALSE;
    Get.EndsWith({*Code, *DataID, *NoMoreRecords, IsCheckPoint(*Record)});
  });
}

HRESULT TUHistory::DeleteLastRecord(GUID GroupID) {
  return Method("DeleteLastRecord", {GroupID}, [&](TRoutine& Delete) {
    TRecordFileChange Group = Open(GroupID, TRecordFileChange::ToChange);
    if (!Group.CutLast()) return Delete.HasNoEnd();  // the empty copy goes with the next operation on the group
    Group.Commit();
    Delete.EndsWith({GroupID});
  });
}

HRESULT TUHistory::ClearAll(GUID GroupID) {
  return Method("ClearAll", {GroupID}, [&] {
    const TGuardedRecordFile Group = GroupFile(GroupID);
    // The semaphore is not taken here; the mutex keeps a modification of our own from being cut in two.
    const TNamedLock::TOwner Owner(HistoryLock);
    Group.Delete();
    Group.DropCopy();
  });
}

COCLASS(UHistory, TUHistory, &HistoryLock);
