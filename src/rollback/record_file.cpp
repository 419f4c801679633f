#include "rollback/record_file.h"

#include "base/file_content.h"
#include "retry/engine.h"

namespace {

/// The size in bytes of an open record file. Fails when it is no multiple of a record's.
int64_t RequireWholeRecords(const TOpenFile& File) {
  const int64_t Size = PlainFileSize(File.Get());
  if (Size < 0 || Size % LogRecordSize != 0)
    FailureStep(ERROR_FILE_CORRUPT, FormatMessageText(MsgDamagedRecordFile, File.Name, std::to_string(LogRecordSize)));
  return Size;
}

TOpenFile OpenToRead(const std::string& Path) { return RetryCreateFile(Path, GENERIC_READ, 0, OPEN_EXISTING); }

TOpenFile CreateToWrite(const std::string& Path) { return RetryCreateFile(Path, GENERIC_WRITE, 0, CREATE_NEW); }

}  // namespace

void TGuardedRecordFile::Repair() const {
  if (!FileExistsByFind(CopyPath)) return;
  if (Exists()) RetryDeleteFile(Path);
  TOpenFile Copy = OpenToRead(CopyPath);
  const DWORD Size = RetryGetFileSize(Copy);
  RetryCloseHandle(Copy);
  if (Size == 0)
    RetryDeleteFile(CopyPath);
  else
    RetryMoveFile(CopyPath, Path);
}

void TGuardedRecordFile::MakeCopy() const {
  if (!Exists()) {
    TOpenFile Empty = CreateToWrite(CopyPath);
    RetryCloseHandle(Empty);
    return;
  }
  RetryMoveFile(Path, CopyPath);
  TOpenFile Copy = OpenToRead(CopyPath);
  TOpenFile File = CreateToWrite(Path);
  RetryReadAndAppendFile(Copy, File);
  RetryCloseHandle(Copy);
  RetryFlushFileBuffers(File);
  RetryCloseHandle(File);
}

void TGuardedRecordFile::Append(const TLogRecord& Record) const {
  const TLogRecordBytes Bytes = EncodeRecord(Record);
  TOpenFile File = RetryCreateFile(Path, GENERIC_WRITE, 0, OPEN_ALWAYS);
  RequireWholeRecords(File);
  RetrySetFilePointer(File, 0, FILE_END);
  RetryWriteFile(File, Bytes.data(), true, LogRecordSize);
  RetryFlushFileBuffers(File);
  FlushToDisk(File);
  RetryCloseHandle(File);
}

std::optional<TLogRecord> TGuardedRecordFile::TOpen::ReadLast() const {
  if (RequireWholeRecords(File) == 0) return std::nullopt;
  TLogRecordBytes Bytes{};
  RetrySetFilePointer(File, -LogRecordSize, FILE_END);
  RetryReadFile(File, Bytes.data(), true, LogRecordSize);
  return DecodeRecord(Bytes);
}

bool TGuardedRecordFile::TOpen::CutLast() {
  if (RequireWholeRecords(File) > 0) {
    RetrySetFilePointer(File, -LogRecordSize, FILE_END);
    RetrySetEndOfFile(File);
    RetryFlushFileBuffers(File);
    FlushToDisk(File);
  }
  const bool Empty = RetryGetFileSize(File) == 0;
  Close();
  return Empty;
}

TRecordFileChange::TRecordFileChange(TGuardedRecordFile File, TNamedLock& Lock, TLineSource Lines,
                                     std::initializer_list<TLogWord> CheckWords, TPurpose Purpose)
    : Guarded(std::move(File)), Owner(Lock) {
  RunRoutine(Lines, "CheckBkp", CheckWords, [&] {
    const TNamedLock::THold Held(Owner);
    Guarded.Repair();
    if (Purpose == ToChange) Guarded.MakeCopy();
  });
}

void TRecordFileChange::CommitAndGoOn(TLineSource Lines, std::initializer_list<TLogWord> CheckWords) const {
  Commit();
  RunRoutine(Lines, "CheckBkp", CheckWords, [&] {
    Guarded.Repair();
    Guarded.MakeCopy();
  });
}

void TRecordFileChange::Append(const TLogRecord& Record) {
  const TNamedLock::THold Held(Owner);
  Guarded.Append(Record);
}

std::optional<TLogRecord> TRecordFileChange::ReadLast() {
  if (!Guarded.Exists()) return std::nullopt;
  const TNamedLock::THold Held(Owner);
  TGuardedRecordFile::TOpen Open(Guarded, GENERIC_READ);
  std::optional<TLogRecord> Record = Open.ReadLast();
  Open.Close();
  return Record;
}

bool TRecordFileChange::CutLast() {
  if (!Guarded.Exists()) return false;
  const TNamedLock::THold Held(Owner);
  TGuardedRecordFile::TOpen Open(Guarded, GENERIC_WRITE);
  if (Open.CutLast()) Guarded.Delete();
  return true;
}
