#include "rollback/transaction_log.h"

#include "base/data_folders.h"
#include "base/elevation.h"
#include "base/guid.h"
#include "formats/entry_codes.h"
#include "rollback/rollback_contract.h"

#include <mutex>

namespace {

TNamedLock TransactionLogLock;

/// The file for a change of it, in a folder that may be trusted; who owns it is asked once.
TGuardedRecordFile TransactionLogFile() {
  static std::mutex Lock;
  static std::string Trusted;
  const std::lock_guard Guard(Lock);
  const std::string Folder = GetServiceDir();
  if (Trusted != Folder) RequireFolderOfAdministrators(Folder);
  Trusted = Folder;
  return TGuardedRecordFile(Folder + "\\update.prt");
}

bool IsCheckPoint(const TLogRecord& Entry) {
  return SameGUID(GuidOf(Entry.Id), CLSID_UTransactionLog) && Entry.Code == CheckPointCode;
}

// The word of a "CheckBkp" line: whether the semaphore was taken for it.
constexpr bool TakesSemaphore = true, InsideSemaphore = false;

}  // namespace

void TUTransactionLog::Initialize() {
  PrepareDataFolders();
  TLoggedObject::Initialize();
}

HRESULT TUTransactionLog::Put(GUID Id, long Code, GUID DataID) {
  return SafeCall([&] { Append(Id, Code, DataID); });
}

HRESULT TUTransactionLog::PutCheckPoint(GUID CheckPointID) {
  return Method("PutCheckPoint", {CheckPointID}, [&] { Append(CLSID_UTransactionLog, CheckPointCode, CheckPointID); });
}

void TUTransactionLog::Append(const GUID& Id, long Code, const GUID& DataID) const {
  Routine("Put", {Id, Code, DataID}, [&] {
    TRecordFileChange Change(TransactionLogFile(), TransactionLogLock, Lines(), {TakesSemaphore});
    Change.Append({BytesOf(Id), static_cast<int32_t>(Code), BytesOf(DataID)});
    Change.Commit();
  });
}

HRESULT TUTransactionLog::Rollback(VARIANT_BOOL OnlyToCheckPoint, GUID* CheckPointID) {
  if (!CheckPointID) return RefuseNullPointer();
  return Method("Rollback", {OnlyToCheckPoint}, [&](TRoutine& Rollback) {
    TRecordFileChange Change(TransactionLogFile(), TransactionLogLock, Lines(), {TakesSemaphore});
    if (!Change.File().Exists()) return Rollback.HasNoEnd();  // the empty copy goes with the next modification
    const TNamedLock::THold Hold = Change.Hold();
    while (RollbackLast(Change, OnlyToCheckPoint != VARIANT_FALSE, *CheckPointID)) {
    }
    Rollback.EndsWith({*CheckPointID});
  });
}

/// One pass: undoes and removes the newest entry. False when the walk is over.
bool TUTransactionLog::RollbackLast(const TRecordFileChange& Change, bool OnlyToCheckPoint, GUID& CheckPointID) const {
  TGuardedRecordFile::TOpen Open(Change.File(), GENERIC_READ | GENERIC_WRITE);
  const std::optional<TLogRecord> Entry = Open.ReadLast();
  if (Entry && IsCheckPoint(*Entry)) {
    if (OnlyToCheckPoint) {
      CheckPointID = GuidOf(Entry->DataID);
      Open.FlushAndClose();
      Change.Commit();
      return false;
    }
  } else if (Entry) {
    DispatchRollback(*Entry);
  }
  const bool Empty = Open.CutLast();
  if (Empty) Change.File().Delete();
  Change.CommitAndGoOn(Lines(), {InsideSemaphore});
  return !Empty;
}

COCLASS(UTransactionLog, TUTransactionLog, &TransactionLogLock);
