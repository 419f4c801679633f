#include "mendctl/state_folder.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace {

constexpr TGuidBytes NoGuid{};
/// Nearly two million entries. Each change copies the log, so no update comes near that.
constexpr uint64_t LargestLog = 64 << 20;

/// The file, or its backup copy when that holds: whoever finds a copy puts it back, for the change that made it was
/// never finished. An updater at work makes and deletes copies; what is read between two of its steps is read again.
TRecordFile ReadRecordFile(const fs::path& Path, bool ZerosAreRecords) {
  constexpr int Tries = 5;
  const fs::path CopyPath = Path.string() + ".bkp";
  for (int TriesLeft = Tries;; --TriesLeft) {
    try {
      const std::optional<TFileNow> Copy = TMachine::LookAt(CopyPath);
      const bool UseCopy = Copy && Copy->Size > 0;
      TRecordFile Result;
      if (UseCopy || (!Copy && TMachine::LookAt(Path))) {
        const TReadableFile File(UseCopy ? CopyPath : Path);
        if (File.Size() > LargestLog)
          throw ECannotRead{NameOf(Path), LargestLog, "it is larger than the log of any update"};
        Result = RecordsOf(
            File.Size(), [&](uint64_t Offset, void* To, size_t Count) { return File.ReadAt(Offset, To, Count); },
            ZerosAreRecords);
        Result.LastWrite = File.LastWrite();
      }
      Result.Name = NameOf(UseCopy ? CopyPath : Path);
      // A rollback leaves an empty copy behind where there is no log any more: nothing is pending then.
      Result.CopyPending = Copy && (UseCopy || TMachine::LookAt(Path));
      Result.IsCopy = UseCopy;
      const std::optional<TFileNow> After = TMachine::LookAt(CopyPath);
      if (After.has_value() == Copy.has_value() || TriesLeft == 0) return Result;
    } catch (const ECannotRead&) {
      if (TriesLeft == 0) throw;
    }
  }
}

fs::path ServiceFolder(const fs::path& Updates, int Bits) {
  const fs::path Of32 = Updates / "Mendwork", Of64 = Updates / "Mendwork64";
  if (Bits == 0) {
    const bool OwnIsThere = TMachine::LookAt(OwnBits == 64 ? Of64 : Of32).has_value();
    Bits = OwnIsThere || !TMachine::LookAt(OwnBits == 64 ? Of32 : Of64) ? OwnBits : 32 + 64 - OwnBits;
  }
  return Bits == 64 ? Of64 : Of32;
}

}  // namespace

TRecordFile RecordsOf(uint64_t Size, const std::function<size_t(uint64_t, void*, size_t)>& ReadAt,
                      bool ZerosAreRecords) {
  constexpr size_t RecordsAtOnce = 1024;
  TRecordFile File;
  std::vector<TLogRecordBytes> Piece(static_cast<size_t>(std::min<uint64_t>(RecordsAtOnce, Size / LogRecordSize + 1)));
  File.Records.reserve(static_cast<size_t>(Size / LogRecordSize));
  for (uint64_t At = 0; At < Size;) {
    const size_t Got = ReadAt(At, Piece.data(), Piece.size() * LogRecordSize);
    for (size_t Index = 0; Index < Got / LogRecordSize; ++Index) File.Records.push_back(DecodeRecord(Piece[Index]));
    File.TornBytes = Got % LogRecordSize;
    if (Got < Piece.size() * LogRecordSize) break;
    At += Got;
  }
  while (!ZerosAreRecords && !File.Records.empty() && File.Records.back() == TLogRecord{}) {
    File.Records.pop_back();
    ++File.ZeroRecords;
  }
  return File;
}

std::vector<fs::path> FilesOf(const fs::path& Folder) {
  std::vector<fs::path> Files;
  std::error_code Error;
  for (fs::directory_iterator At(Folder, Error), End; !Error && At != End; At.increment(Error))
    Files.push_back(At->path());
  if (Error && Error != std::errc::no_such_file_or_directory) throw ECannotRead{NameOf(Folder), 0, Error.message()};
  std::sort(Files.begin(), Files.end());
  return Files;
}

TStateFolder::TStateFolder(fs::path BaseFolder, int Bits)
    : Base(std::move(BaseFolder)),
      Service(ServiceFolder(Base / "Updates", Bits)),
      Backup(Service / "Backup"),
      History(Service / "History"),
      Garbage(Service / "Garbage"),
      DebugLog(Base / "Updates" / "Log" / "update.log"),
      UninstallLog(Base / "Uninstall" / "unins000.dat") {
  if (!TMachine::LookAt(Base)) throw ECannotRead{NameOf(Base), 0, "there is no such folder"};
  if (!TMachine::LookAt(Service))
    throw ECannotRead{NameOf(Service), 0,
                      "there is no state of an update here; is this the application's base folder?"};
}

TRecordFile TStateFolder::TransactionLog() const { return ReadRecordFile(TransactionLogPath(), false); }

std::vector<THistoryGroup> TStateFolder::Groups() const {
  std::set<std::string> Names;
  for (const fs::path& Path : FilesOf(History))
    Names.insert(NameOf(Path.stem()).starts_with('{') ? NameOf(Path.stem()) : "");
  std::vector<THistoryGroup> Groups;
  for (const std::string& Name : Names) {
    const std::optional<TGuidBytes> Id = ParseGuid(Name);
    if (Id) Groups.push_back({GuidText(*Id), ReadRecordFile(History / Name, *Id == NoGuid)});
  }
  return Groups;
}

std::vector<fs::path> TStateFolder::SetAside() const {
  std::vector<fs::path> Found;
  for (const fs::path& Path : FilesOf(Service)) {
    const std::string Name = NameOf(Path.filename());
    if (Name.starts_with("update.prt.damaged") || Name.starts_with("update.prt.skipped")) Found.push_back(Path);
  }
  return Found;
}

std::vector<TStoredFile> TStateFolder::StoredFiles() const {
  std::vector<TStoredFile> Files;
  for (const fs::path& Path : FilesOf(Backup)) {
    std::error_code Error;
    const uintmax_t Size = fs::file_size(Path, Error);
    Files.push_back({NameOf(Path.filename()), Error ? 0 : static_cast<uint64_t>(Size)});
  }
  return Files;
}
