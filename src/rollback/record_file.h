#pragma once

#include "base/named_lock.h"
#include "formats/log_record.h"
#include "retry/file_wrappers.h"
#include "server/log_text.h"
#include "server/routine.h"

#include <initializer_list>
#include <optional>
#include <string>
#include <utility>

/// A file of 36-byte records whose every modification is all-or-nothing across crashes.
///
/// Before a modification a copy named with ".bkp" is made, and it is deleted when the modification is complete; an
/// empty copy means that there was no file. Who finds a copy puts it back first.
///
/// Every method passes the retry layer's failures. What follows the last whole record, and records of zeros at the end,
/// which a power failure leaves, are set aside before a change and kept in a file of their own.
class TGuardedRecordFile {
 public:
  enum TZeros { ZerosAreDamage, ZerosAreARecord };
  explicit TGuardedRecordFile(std::string Path, TZeros Zeros = ZerosAreDamage)
      : Path(std::move(Path)), CopyPath(this->Path + ".bkp"), Zeros(Zeros) {}

  bool Exists() const { return FileExistsByFind(Path); }

  /// Puts a left-over copy back: undoes an interrupted modification.
  void Repair() const;
  /// Moves a damaged end of the file into a new file beside it, named with ".damaged" and a number, and tells it in a
  /// "Damaged" line. Otherwise silent.
  void SetDamagedTailAside(const TRoutine& Lines) const;
  /// Makes the copy for the modification that follows: the file itself is renamed, and its content written anew.
  void MakeCopy() const;
  /// Marks the modification as complete.
  void DropCopy() const { RetryDeleteFile(CopyPath); }

  /// Adds a record at the end; creates the file when it is missing.
  void Append(const TLogRecord& Record) const;
  void Delete() const { RetryDeleteFile(Path); }

  /// The file, open without sharing. Closed on every way out.
  class TOpen {
   public:
    TOpen(const TGuardedRecordFile& Owner, DWORD Access)
        : File(RetryCreateFile(Owner.Path, Access, 0, OPEN_EXISTING)) {}
    /// The newest record; nothing when the file is empty.
    std::optional<TLogRecord> ReadLast() const;
    /// Cuts the newest record off and closes the file. True when no record is left.
    bool CutLast();
    /// For a file that stays as it was read, and loses its copy: it was written anew from that one.
    void FlushAndClose() {
      FlushToDisk(File);
      Close();
    }
    void Close() { RetryCloseHandle(File); }

   private:
    TOpenFile File;
  };

 private:
  bool CopyStays() const;
  int64_t WholeSize(HANDLE File) const;

  std::string Path, CopyPath;
  TZeros Zeros;
};

/// One change of a record file: repair and copy at its begin, then the caller's steps, and the end of the copy when it
/// is committed; a change that is not leaves the copy, and the next one puts it back.
///
/// The lock's mutex is owned from the first look at the copy to its deletion: in between, another process would put the
/// copy back over a record that was already acknowledged, and so would a call that comes in on the same thread while a
/// line is written or a box is shown: that one fails. The semaphore is held inside each step, as other versions of
/// this system know it.
class TRecordFileChange {
 public:
  enum TPurpose { ToRead, ToChange };

  /// The first step has lines of the file's owner, as "CheckBkp" with these words. It makes no copy when the file will
  /// only be read.
  TRecordFileChange(TGuardedRecordFile File, TNamedLock& Lock, TLineSource Lines,
                    std::initializer_list<TLogWord> CheckWords, TPurpose Purpose = ToChange);

  const TGuardedRecordFile& File() const { return Guarded; }

  void Append(const TLogRecord& Record);
  /// The newest record; nothing when the file is missing or empty.
  std::optional<TLogRecord> ReadLast();
  /// Cuts the newest record off, and the file with the last one. False, without a change, when there is no file.
  bool CutLast();
  void Commit() const { Guarded.DropCopy(); }

  /// Several changes in a row without letting the semaphore go: held from construction to destruction.
  TNamedLock::THold Hold() { return TNamedLock::THold(Owner); }
  /// Ends this change and begins the next one, inside such a time.
  void CommitAndGoOn(TLineSource Lines, std::initializer_list<TLogWord> CheckWords) const;

 private:
  TGuardedRecordFile Guarded;
  TNamedLock::TOwner Owner;
};
