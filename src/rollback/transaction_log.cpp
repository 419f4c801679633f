#include "rollback/transaction_log.h"

#include "rollback/rollback_contract.h"
#include "server/environment.h"
#include "server/log_scope.h"

namespace {

constexpr wchar_t LogName[] = L"UTransactionLog";
constexpr long CheckPointCode = 0;

TNamedLock LogLock;

TGuardedRecordFile LogFile() { return TGuardedRecordFile(GetServiceDir() + "\\update.prt"); }

bool IsCheckPoint(const TLogRecord& Entry) {
  return SameGUID(GuidOf(Entry.Id), CLSID_UTransactionLog) && Entry.Code == CheckPointCode;
}

}  // namespace

void TUTransactionLog::Initialize() {
  PrepareDataFolders();
  DebugLog = ActiveOrNew<IUDebugLog>(CLSID_UDebugLog);
  Dialog = ActiveOrNew<IUDialog>(CLSID_UDialog);
}

HRESULT TUTransactionLog::Put(GUID Id, long Code, GUID DataID) {
  return SafeCall([&] { Append(Id, Code, DataID); });
}

HRESULT TUTransactionLog::PutCheckPoint(GUID CheckPointID) {
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("PutCheckPoint", CheckPointID));
    Append(CLSID_UTransactionLog, CheckPointCode, CheckPointID);
    Log.End(LogText("PutCheckPoint"));
  });
}

void TUTransactionLog::Append(const GUID& Id, long Code, const GUID& DataID) {
  TLogScope Log(DebugLog.Get(), LogName, LogText("Put", Id, Code, DataID));
  TGuardedRecordFile File = LogFile();
  {
    // Owned from the first look at the backup copy to its deletion: between the two holds of the semaphore, and between
    // the append and the deletion, another process would otherwise put the copy back over this entry.
    TNamedLock::TOwner Owner(LogLock);
    CheckBackupCopy(File, &Owner);
    {
      const TNamedLock::THold Hold(Owner);
      File.Append({BytesOf(Id), static_cast<int32_t>(Code), BytesOf(DataID)});
    }
    File.DropBackupCopy();
  }
  Log.End(LogText("Put"));
}

/// Repairs an interrupted modification, then makes the copy for the next one.
void TUTransactionLog::CheckBackupCopy(TGuardedRecordFile& File, TNamedLock::TOwner* TakeLock) {
  TLogScope Log(DebugLog.Get(), LogName, LogText("CheckBkp", TakeLock != nullptr));
  {
    std::optional<TNamedLock::THold> Hold;
    if (TakeLock) Hold.emplace(*TakeLock);
    File.Repair();
    File.MakeBackupCopy();
  }
  Log.End(LogText("CheckBkp"));
}

HRESULT TUTransactionLog::Rollback(VARIANT_BOOL OnlyToCheckPoint, GUID* CheckPointID) {
  if (!CheckPointID) return E_POINTER;
  return SafeCall([&] {
    TLogScope Log(DebugLog.Get(), LogName, LogText("Rollback", OnlyToCheckPoint));
    TGuardedRecordFile File = LogFile();
    TNamedLock::TOwner Owner(LogLock);
    CheckBackupCopy(File, &Owner);
    if (!File.Exists()) return;  // no log: no End line; the empty backup copy goes with the next modification
    {
      const TNamedLock::THold Hold(Owner);
      while (RollbackLast(File, OnlyToCheckPoint != VARIANT_FALSE, *CheckPointID)) {
      }
    }
    Log.End(LogText("Rollback", *CheckPointID));
  });
}

/// One pass: undoes and removes the newest entry. False when the walk is over.
bool TUTransactionLog::RollbackLast(TGuardedRecordFile& File, bool OnlyToCheckPoint, GUID& CheckPointID) {
  TGuardedRecordFile::TOpen Open(File, GENERIC_READ | GENERIC_WRITE);
  const std::optional<TLogRecord> Entry = Open.ReadLast();
  if (Entry && IsCheckPoint(*Entry)) {
    if (OnlyToCheckPoint) {
      CheckPointID = GuidOf(Entry->DataID);
      Open.Close();
      File.DropBackupCopy();
      return false;
    }
  } else if (Entry) {
    DispatchRollback(*Entry);
  }
  const bool Empty = Open.CutLast();
  if (Empty) File.Delete();
  File.DropBackupCopy();
  CheckBackupCopy(File, nullptr);
  return !Empty;
}

TAutoObjectBase* CreateUTransactionLog(TVersionedAutoObjectFactory& Factory) { return new TUTransactionLog(Factory); }

void StartTransactionLog() { LogLock.Create(GuidText(CLSID_UTransactionLog)); }
void StopTransactionLog() { LogLock.Close(); }
