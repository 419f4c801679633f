#pragma once

#include "formats/log_record.h"
#include "mendctl/machine.h"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

/// A file of 36-byte records, read while somebody may be changing it.
struct TRecordFile {
  std::string Name;  ///< UTF-8
  std::vector<TLogRecord> Records;
  uint64_t TornBytes = 0;    ///< behind the last whole record
  size_t ZeroRecords = 0;    ///< of zeros at the end; they are not among Records
  bool CopyPending = false;  ///< there is a backup copy: a change was interrupted, or is being made
  bool IsCopy = false;       ///< Records are the copy's, which the next change puts back
  uint64_t LastWrite = 0;    ///< FILETIME; 0 when there is no file

  bool IsWhole() const { return TornBytes == 0 && ZeroRecords == 0; }
};

/// What the bytes of such a file hold. `ZerosAreRecords` where a record may be all zero. No more memory than the bytes.
TRecordFile RecordsOf(uint64_t Size, const std::function<size_t(uint64_t, void*, size_t)>& ReadAt,
                      bool ZerosAreRecords);

/// A group of the history.
struct THistoryGroup {
  std::string Id;  ///< registry form
  TRecordFile File;
};

/// One item of the backup store, as the folder lists it.
struct TStoredFile {
  std::string Name;
  uint64_t Size = 0;
};

/// The files that the system keeps below the application's base folder. Reading raises ECannotRead.
class TStateFolder {
 public:
  /// The state of the library of this bitness; with 0 of OwnBits, or of the other one when only that is there.
  TStateFolder(std::filesystem::path Base, int Bits);

  std::filesystem::path Base, Service, Backup, History, Garbage, DebugLog, UninstallLog;

  /// A missing log has no records.
  TRecordFile TransactionLog() const;
  std::filesystem::path TransactionLogPath() const { return Service / "update.prt"; }
  /// In the order of their names; files whose names are no identifiers are left out.
  std::vector<THistoryGroup> Groups() const;
  /// What was set aside of the transaction log: damaged ends, entries that a rollback was told to skip.
  std::vector<std::filesystem::path> SetAside() const;
  std::filesystem::path ItemPath(const TGuidBytes& DataID) const { return Backup / GuidText(DataID); }
  std::vector<TStoredFile> StoredFiles() const;
};

/// The files of a folder, by name; none when there is no such folder.
std::vector<std::filesystem::path> FilesOf(const std::filesystem::path& Folder);
