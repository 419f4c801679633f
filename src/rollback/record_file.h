#pragma once

#include "formats/log_record.h"
#include "retry/file_wrappers.h"

#include <optional>
#include <string>

/// A file of 36-byte records whose every modification is all-or-nothing across crashes.
///
/// Before a modification a copy named with ".bkp" is made, and it is deleted when the modification is complete; an
/// empty copy means that there was no file. Who finds a copy puts it back first. The caller holds the file's named
/// lock: its mutex from Repair to DropBackupCopy, its semaphore where its own rules say.
///
/// Every method passes the retry layer's failures. A file whose size is no multiple of 36 fails with a message and is
/// not changed: appending to it would shift every later record, cutting it would be a guess.
class TGuardedRecordFile {
 public:
  explicit TGuardedRecordFile(std::string Path) : Path(std::move(Path)), BackupPath(this->Path + ".bkp") {}

  bool Exists() const { return FileExistsByFind(Path); }

  /// Puts a left-over copy back: undoes an interrupted modification.
  void Repair();
  /// Makes the copy for the modification that follows: the file itself is renamed, and its content written anew.
  void MakeBackupCopy();
  /// Marks the modification as complete.
  void DropBackupCopy() { RetryDeleteFile(BackupPath); }

  /// Adds a record at the end; creates the file when it is missing.
  void Append(const TLogRecord& Record);
  void Delete() { RetryDeleteFile(Path); }

  /// The file, open without sharing. Closed on every way out.
  class TOpen {
   public:
    TOpen(const TGuardedRecordFile& File, DWORD Access);
    /// The newest record; nothing when the file is empty.
    std::optional<TLogRecord> ReadLast();
    /// Cuts the newest record off and closes the file. True when no record is left.
    bool CutLast();
    void Close() { RetryCloseHandle(Path, Handle); }

   private:
    const std::string& Path;
    TFileHandle Handle;
  };

 private:
  std::string Path;
  std::string BackupPath;
};
