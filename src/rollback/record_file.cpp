#include "rollback/record_file.h"

#include "base/failure.h"
#include "base/file_content.h"
#include "base/text.h"
#include "retry/engine.h"

#include <algorithm>
#include <limits>

namespace {

/// The size in bytes of an open record file. Fails when it is no multiple of a record's.
int64_t RequireWholeRecords(const TOpenFile& File) {
  const int64_t Size = PlainFileSize(File.Get());
  if (Size < 0 || Size % LogRecordSize != 0)
    FailureStep(ERROR_FILE_CORRUPT, FormatMessageText(MsgDamagedRecordFile, File.Name, std::to_string(LogRecordSize)));
  return Size;
}

/// Bytes at a place of an open file; fewer, or none, when they cannot be read.
std::string ReadFromPlace(HANDLE File, int64_t Place, size_t Size) {
  LARGE_INTEGER Distance;
  Distance.QuadPart = Place;
  DWORD BytesRead = 0;
  std::string Bytes(Size, '\0');
  if (!SetFilePointerEx(File, Distance, nullptr, FILE_BEGIN) ||
      !ReadFile(File, Bytes.data(), static_cast<DWORD>(Size), &BytesRead, nullptr))
    BytesRead = 0;
  Bytes.resize(BytesRead);
  return Bytes;
}

std::string HexText(const std::string& Bytes) {
  constexpr char Digits[] = "0123456789ABCDEF";
  std::string Text;
  for (const char Byte : Bytes) Text.append({Digits[(Byte >> 4) & 0xF], Digits[Byte & 0xF]});
  return Text;
}

TOpenFile OpenToRead(const std::string& Path) { return RetryCreateFile(Path, GENERIC_READ, 0, OPEN_EXISTING); }

TOpenFile CreateToWrite(const std::string& Path) { return RetryCreateFile(Path, GENERIC_WRITE, 0, CREATE_NEW); }

}  // namespace

/// Whether the copy stays. Who died while he deleted it let go of the lock a moment before the system closed his
/// handle, and only then the copy goes: taken for one that is left over, it would cost the file that it is the copy of.
/// Plain and silent; what is held for longer is for the retry layer to tell.
bool TGuardedRecordFile::CopyStays() const {
  constexpr DWORD PauseMilliseconds = 20;
  constexpr int MostPauses = 250;
  for (int Pauses = 0; Pauses < MostPauses; ++Pauses, Sleep(PauseMilliseconds)) {
    // Without leave to others to delete: whoever is about to is in the way.
    if (TFileHandle(CreateFileA(CopyPath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr)))
      return true;
    const DWORD Code = GetLastError();
    if (Code == ERROR_FILE_NOT_FOUND) return false;
    if (Code != ERROR_SHARING_VIOLATION && Code != ERROR_ACCESS_DENIED) return true;
  }
  return true;
}

void TGuardedRecordFile::Repair() const {
  if (!FileExistsByFind(CopyPath) || !CopyStays()) return;
  if (Exists()) RetryDeleteFile(Path);
  TOpenFile Copy = OpenToRead(CopyPath);
  const DWORD Size = RetryGetFileSize(Copy);
  RetryCloseHandle(Copy);
  if (Size == 0)
    RetryDeleteFile(CopyPath);
  else
    RetryMoveFile(CopyPath, Path);
}

/// The size in bytes up to the end of the last record that may be one.
int64_t TGuardedRecordFile::WholeSize(HANDLE File) const {
  constexpr int64_t BlockSize = int64_t{1024} * LogRecordSize;
  const int64_t Size = PlainFileSize(File);
  int64_t Whole = Size - Size % LogRecordSize;
  std::string Block;
  while (Zeros == ZerosAreDamage && Whole > 0) {
    const int64_t Begin = std::max<int64_t>(0, Whole - BlockSize);
    Block = ReadFromPlace(File, Begin, static_cast<size_t>(Whole - Begin));
    // What cannot be read is not zeros; whoever reads it next tells.
    if (Block.size() != static_cast<size_t>(Whole - Begin)) return Size;
    const size_t Last = Block.find_last_not_of('\0');
    const int64_t Used = Last == std::string::npos ? 0 : static_cast<int64_t>(Last) / LogRecordSize + 1;
    Whole = Begin + Used * LogRecordSize;
    if (Used > 0) break;
  }
  return Whole;
}

void TGuardedRecordFile::SetDamagedTailAside(const TRoutine& Lines) const {
  constexpr size_t ShownSize = LogRecordSize;
  int64_t Size = 0, Whole = 0;
  std::string Shown;
  {
    const TFileHandle File(
        CreateFileA(Path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!File) return;  // none there, or told by whoever opens it next
    Size = PlainFileSize(File.Get()), Whole = WholeSize(File.Get());
    if (Size <= Whole || Size > std::numeric_limits<LONG>::max()) return;
    Shown = HexText(ReadFromPlace(File.Get(), Whole, std::min(ShownSize, static_cast<size_t>(Size - Whole))));
  }
  std::string AsidePath;
  for (int Number = 1; FileExistsByFind(AsidePath = Path + ".damaged" + std::to_string(Number)); ++Number) {
  }
  Lines.Line(L"Damaged", FormatWideMessage(MsgTailSetAside, std::to_wstring(Size - Whole), ToWide(Path), ToWide(Shown),
                                           ToWide(AsidePath)));
  TOpenFile File = RetryCreateFile(Path, GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING);
  TOpenFile Aside = CreateToWrite(AsidePath);
  RetrySetFilePointer(File, static_cast<LONG>(Whole), FILE_BEGIN);
  RetryReadAndAppendFile(File, Aside);
  FlushToDisk(Aside);
  RetryCloseHandle(Aside);
  RetrySetFilePointer(File, static_cast<LONG>(Whole), FILE_BEGIN);
  RetrySetEndOfFile(File);
  FlushToDisk(File);
  RetryCloseHandle(File);
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
  RunRoutine(Lines, "CheckBkp", CheckWords, [&](const TRoutine& Check) {
    const TNamedLock::THold Held(Owner);
    Guarded.Repair();
    Guarded.SetDamagedTailAside(Check);
    if (Purpose == ToChange) Guarded.MakeCopy();
  });
}

void TRecordFileChange::CommitAndGoOn(TLineSource Lines, std::initializer_list<TLogWord> CheckWords) const {
  Commit();
  RunRoutine(Lines, "CheckBkp", CheckWords, [&](const TRoutine& Check) {
    Guarded.Repair();
    Guarded.SetDamagedTailAside(Check);
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
