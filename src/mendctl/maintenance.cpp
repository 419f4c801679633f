// mendctl commit, mendctl prune, and the entry that a rollback skips

#include "mendctl/commands.h"

#include <fstream>

namespace fs = std::filesystem;

namespace {

void Remove(const fs::path& Path) {
  std::error_code Error;
  fs::remove(Path, Error);
  if (Error) throw ECannotRead{NameOf(Path), 0, "it cannot be deleted: " + Error.message()};
}

/// Creates a file with these records, which is on the disk when this returns.
void WriteRecords(const fs::path& Path, const std::vector<TLogRecord>& Records) {
  std::ofstream File(Path, std::ios::binary);
  for (const TLogRecord& Record : Records) {
    const TLogRecordBytes Bytes = EncodeRecord(Record);
    File.write(reinterpret_cast<const char*>(Bytes.data()), LogRecordSize);
  }
  File.close();
  if (!File) throw ECannotRead{NameOf(Path), 0, "it cannot be written"};
  FlushFile(Path);
}

fs::path CopyOf(const fs::path& Path) { return fs::path(Path).concat(".bkp"); }

/// Puts a left-over backup copy back, as every change of the log does first.
void Repair(const fs::path& Path) {
  const std::optional<TFileNow> Copy = TMachine::LookAt(CopyOf(Path));
  if (!Copy) return;
  if (TMachine::LookAt(Path)) Remove(Path);
  if (Copy->Size == 0) return Remove(CopyOf(Path));
  fs::rename(CopyOf(Path), Path);
}

}  // namespace

TReport Commit(const TContext& Context, const TAsk& Ask) {
  const TStateLock Lock;
  const TRecordFile Log = Context.State.TransactionLog();
  TReport Report;
  const size_t Count = Log.Records.size();
  Report.Data = {{"records", Count}, {"committed", false}};
  if (!Ask(Counted(Count, "record") + " of the transaction log in " + NameOf(Context.State.Service) +
           " will be removed: what they changed cannot be undone any more. Commit?")) {
    Report.Text = "Nothing was changed.\n";
    Report.Status = FoundSomething;
    return Report;
  }
  // In this order a crash leaves the whole log or none: a copy that is still there is put back.
  Remove(Context.State.TransactionLogPath());
  Remove(CopyOf(Context.State.TransactionLogPath()));
  Report.Data["committed"] = true;
  Report.Text =
      "The update is committed: " + Counted(Count, "record") + " removed. Its items stay until they are pruned.\n";
  return Report;
}

TReport Prune(const TContext& Context, bool DryRun) {
  // The items are listed before the lock is looked at: whatever comes later belongs to somebody alive.
  const std::vector<TStoredFile> Files = Context.State.StoredFiles();
  std::optional<TStateLock> Lock;
  if (!DryRun) Lock.emplace();
  const TReached Reached = ReachedItems(Context.State, Context.Machine);
  if (!Reached.WholeStore)
    throw ECannotRead{NameOf(Context.State.Backup), 0,
                      "an item that leads to others cannot be read, so nothing is removed; verify tells which"};
  uint64_t Count = 0, Bytes = 0;
  for (const TStoredFile& File : Files) {
    const auto Id = ParseGuid(File.Name);
    if (!Id || Reached.Items.contains(*Id)) continue;
    if (!DryRun) Remove(Context.State.Backup / PathFrom(File.Name));
    ++Count;
    Bytes += File.Size;
  }
  TReport Report;
  Report.Data = {{"items", Files.size()}, {"removed", Count}, {"bytes", Bytes}, {"dry_run", DryRun}};
  Report.Text = Counted(Count, "item") + " of " + std::to_string(Files.size()) + " (" + SizeText(Bytes) +
                (DryRun ? ") would be removed.\n" : ") removed.\n");
  return Report;
}

std::string SkipEntry(const TContext& Context, size_t Number) {
  const TStateLock Lock;
  const fs::path Path = Context.State.TransactionLogPath();
  const TEntry Entry = EntryOf(Context, Number);
  if (Entry.Meaning.Layout == TLayout::CheckPoint)
    throw EWrongUse{"Entry " + std::to_string(Number) + " is a check point."};
  Repair(Path);
  const TRecordFile Log = Context.State.TransactionLog();
  if (!Log.IsWhole()) throw EWrongUse{"The end of the transaction log is damaged; a rollback sets it aside first."};
  fs::path Aside;
  for (int Free = 1; TMachine::LookAt(Aside = fs::path(Path).concat(".skipped" + std::to_string(Free))); ++Free) {
  }
  WriteRecords(Aside, {Entry.Record});
  std::vector<TLogRecord> Left = Log.Records;
  Left.erase(Left.begin() + static_cast<ptrdiff_t>(Number - 1));
  // As every change of the log: the old one is kept until the new one is on the disk.
  fs::rename(Path, CopyOf(Path));
  if (!Left.empty()) WriteRecords(Path, Left);
  Remove(CopyOf(Path));
  return NameOf(Aside);
}
