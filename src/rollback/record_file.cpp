#include "rollback/record_file.h"

namespace {

/// The size in bytes of an open record file. Fails when it is no multiple of a record's.
int64_t RequireWholeRecords(const std::string& Path, HANDLE Handle) {
  const int64_t Size = PlainFileSize(Handle);
  if (Size < 0 || Size % LogRecordSize != 0)
    FailureStep(ERROR_FILE_CORRUPT, "The file '" + Path + "' is damaged: its size is not a multiple of " +
                                        std::to_string(LogRecordSize) + " bytes.");
  return Size;
}

TFileHandle OpenToRead(const std::string& Path) {
  return RetryCreateFile(Path, GENERIC_READ, 0, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL);
}

TFileHandle CreateToWrite(const std::string& Path) {
  return RetryCreateFile(Path, GENERIC_WRITE, 0, CREATE_NEW, FILE_ATTRIBUTE_NORMAL);
}

}  // namespace

void TGuardedRecordFile::Repair() {
  if (!FileExistsByFind(BackupPath)) return;
  if (Exists()) RetryDeleteFile(Path);
  TFileHandle Copy = OpenToRead(BackupPath);
  const DWORD Size = RetryGetFileSize(BackupPath, Copy.Get());
  RetryCloseHandle(BackupPath, Copy);
  if (Size == 0)
    RetryDeleteFile(BackupPath);
  else
    RetryMoveFile(BackupPath, Path);
}

void TGuardedRecordFile::MakeBackupCopy() {
  if (!Exists()) {
    TFileHandle Empty = CreateToWrite(BackupPath);
    RetryCloseHandle(BackupPath, Empty);
    return;
  }
  RetryMoveFile(Path, BackupPath);
  TFileHandle Copy = OpenToRead(BackupPath);
  TFileHandle File = CreateToWrite(Path);
  RetryReadAndAppendFile(BackupPath, Path, Copy.Get(), File.Get());
  RetryCloseHandle(BackupPath, Copy);
  RetryFlushFileBuffers(Path, File.Get());
  RetryCloseHandle(Path, File);
}

void TGuardedRecordFile::Append(const TLogRecord& Record) {
  const TLogRecordBytes Bytes = EncodeRecord(Record);
  TFileHandle File = RetryCreateFile(Path, GENERIC_WRITE, 0, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL);
  RequireWholeRecords(Path, File.Get());
  RetrySetFilePointer(Path, File.Get(), 0, FILE_END);
  RetryWriteFile(Path, File.Get(), Bytes.data(), true, LogRecordSize);
  RetryFlushFileBuffers(Path, File.Get());
  RetryCloseHandle(Path, File);
}

TGuardedRecordFile::TOpen::TOpen(const TGuardedRecordFile& File, DWORD Access)
    : Path(File.Path), Handle(RetryCreateFile(Path, Access, 0, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL)) {}

std::optional<TLogRecord> TGuardedRecordFile::TOpen::ReadLast() {
  if (RequireWholeRecords(Path, Handle.Get()) == 0) return std::nullopt;
  TLogRecordBytes Bytes{};
  RetrySetFilePointer(Path, Handle.Get(), -LogRecordSize, FILE_END);
  RetryReadFile(Path, Handle.Get(), Bytes.data(), true, LogRecordSize);
  return DecodeRecord(Bytes);
}

bool TGuardedRecordFile::TOpen::CutLast() {
  if (RequireWholeRecords(Path, Handle.Get()) > 0) {
    RetrySetFilePointer(Path, Handle.Get(), -LogRecordSize, FILE_END);
    RetrySetEndOfFile(Path, Handle.Get());
    RetryFlushFileBuffers(Path, Handle.Get());
  }
  const bool Empty = RetryGetFileSize(Path, Handle.Get()) == 0;
  Close();
  return Empty;
}
