#include "rollback/history.h"

#include "server/environment.h"
#include "server/log_scope.h"

namespace {

constexpr wchar_t LogName[] = L"UHistory";
constexpr long CheckPointCode = 0;

/// One lock for all groups. Its mutex is owned for a whole modification, as in the transaction log.
TNamedLock HistoryLock;

TGuardedRecordFile GroupFile(const GUID& GroupID) {
  return TGuardedRecordFile(GetServiceDir() + "\\History\\" + GuidText(GroupID));
}

bool IsCheckPoint(const TLogRecord& Record) {
  return SameGUID(GuidOf(Record.Id), CLSID_UHistory) && Record.Code == CheckPointCode;
}

}  // namespace

void TUHistory::Initialize() {
  PrepareDataFolders();
  DebugLog = ActiveOrNew<IUDebugLog>(CLSID_UDebugLog);
  Dialog = ActiveOrNew<IUDialog>(CLSID_UDialog);
}

HRESULT TUHistory::Put(GUID GroupID, long Code, GUID DataID) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("Put", GroupID, Code, DataID));
    Append(GroupID, Code, false, DataID);
    Log.End(LogText("Put"));
  });
}

HRESULT TUHistory::PutCheckPoint(GUID GroupID, GUID CheckPointID) {
  return SafeCall([&] {
    // The log tells it as a Put; the line of the append below shows that it is a check point.
    TLogScope Log(DebugLog.Get(), LogName, LogText("Put", GroupID, CheckPointID));
    Append(GroupID, CheckPointCode, true, CheckPointID);
    Log.End(LogText("Put"));
  });
}

void TUHistory::Append(const GUID& GroupID, long Code, bool CheckPoint, const GUID& DataID) {
  TLogScope Log(DebugLog.Get(), LogName, LogText("PutAction", GroupID, Code, DataID, CheckPoint));
  TGuardedRecordFile File = GroupFile(GroupID);
  {
    TNamedLock::TOwner Owner(HistoryLock);
    CheckBackupCopy(File, Owner, GroupID, true);
    {
      const TNamedLock::THold Hold(Owner);
      File.Append({BytesOf(CheckPoint ? CLSID_UHistory : GroupID), static_cast<int32_t>(Code), BytesOf(DataID)});
    }
    File.DropBackupCopy();
  }
  Log.End(LogText("PutAction"));
}

/// Repairs an interrupted modification, then makes the copy for the next one when there will be one.
void TUHistory::CheckBackupCopy(TGuardedRecordFile& File, TNamedLock::TOwner& Owner, const GUID& GroupID,
                                bool MakeCopy) {
  TLogScope Log(DebugLog.Get(), LogName, LogText("CheckBkp", GroupID, MakeCopy));
  {
    const TNamedLock::THold Hold(Owner);
    File.Repair();
    if (MakeCopy) File.MakeBackupCopy();
  }
  Log.End(LogText("CheckBkp"));
}

HRESULT TUHistory::Get(GUID GroupID, long* Code, GUID* DataID, VARIANT_BOOL* NoMoreRecords,
                       VARIANT_BOOL* ThisIsCheckPoint) {
  if (!Code || !DataID || !NoMoreRecords || !ThisIsCheckPoint) return E_POINTER;
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("Get", GroupID));
    *NoMoreRecords = VARIANT_FALSE;
    TGuardedRecordFile File = GroupFile(GroupID);
    std::optional<TLogRecord> Record;
    {
      TNamedLock::TOwner Owner(HistoryLock);
      CheckBackupCopy(File, Owner, GroupID, false);
      if (File.Exists()) {
        const TNamedLock::THold Hold(Owner);
        TGuardedRecordFile::TOpen Open(File, GENERIC_READ);
        Record = Open.ReadLast();
        Open.Close();
      }
    }
    if (!Record) {
      *NoMoreRecords = VARIANT_TRUE;
      return;  // no End line
    }
    *Code = Record->Code;
    *DataID = GuidOf(Record->DataID);
    *ThisIsCheckPoint = IsCheckPoint(*Record) ? VARIANT_TRUE : VARIANT_FALSE;
    Log.End(LogText("Get", *Code, *DataID, *NoMoreRecords, IsCheckPoint(*Record)));
  });
}

HRESULT TUHistory::DeleteLastRecord(GUID GroupID) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("DeleteLastRecord", GroupID));
    TGuardedRecordFile File = GroupFile(GroupID);
    {
      TNamedLock::TOwner Owner(HistoryLock);
      CheckBackupCopy(File, Owner, GroupID, true);
      if (!File.Exists()) return;  // no End line; the empty copy goes with the next operation on the group
      {
        const TNamedLock::THold Hold(Owner);
        TGuardedRecordFile::TOpen Open(File, GENERIC_WRITE);
        if (Open.CutLast()) File.Delete();
      }
      File.DropBackupCopy();
    }
    Log.End(LogText("DeleteLastRecord", GroupID));
  });
}

HRESULT TUHistory::ClearAll(GUID GroupID) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("ClearAll", GroupID));
    TGuardedRecordFile File = GroupFile(GroupID);
    {
      // The semaphore is not taken here; the mutex keeps a modification of our own from being cut in two.
      TNamedLock::TOwner Owner(HistoryLock);
      File.Delete();
      File.DropBackupCopy();
    }
    Log.End(LogText("ClearAll"));
  });
}

TAutoObjectBase* CreateUHistory(TVersionedAutoObjectFactory& Factory) { return new TUHistory(Factory); }

void StartHistory() { HistoryLock.Create(GuidText(CLSID_UHistory)); }
void StopHistory() { HistoryLock.Close(); }
