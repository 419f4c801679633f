// mendctl status

#include "mendctl/commands.h"
#include "mendctl/uninstall_log_file.h"

namespace {

struct TStore {
  uint64_t Items = 0, Bytes = 0, Orphans = 0, OrphanBytes = 0;
  bool Sure = true;  ///< false: some item that leads to others cannot be read
};

TStore StoreOf(const TContext& Context) {
  TStore Store;
  const TReached Reached = ReachedItems(Context.State, Context.Machine);
  Store.Sure = Reached.WholeStore;
  for (const TStoredFile& File : Context.State.StoredFiles()) {
    ++Store.Items;
    Store.Bytes += File.Size;
    const auto Id = ParseGuid(File.Name);
    if (Id && Reached.Items.contains(*Id)) continue;
    ++Store.Orphans;
    Store.OrphanBytes += File.Size;
  }
  return Store;
}

std::string WholeOrNot(const TRecordFile& File) {
  if (File.IsWhole()) return "whole";
  return "damaged at its end: " + (File.TornBytes ? Counted(File.TornBytes, "byte") + " of a torn record" : "") +
         (File.TornBytes && File.ZeroRecords ? ", " : "") +
         (File.ZeroRecords ? Counted(File.ZeroRecords, "record") + " of zeros" : "");
}

const char* WordOf(TLockState Lock) {
  switch (Lock) {
    case TLockState::Held:
      return "held";
    case TLockState::Loaded:
      return "loaded";
    case TLockState::Free:
      return "free";
    default:
      return "unknown";
  }
}

/// What is going on, for programs.
std::string StateOf(TLockState Lock, size_t Undoable) {
  if (Lock == TLockState::Held || (Lock == TLockState::Loaded && Undoable > 0)) return "in progress";
  return Undoable > 0 ? "interrupted" : "idle";
}

TJson RecordFileJson(const TRecordFile& File) {
  return {{"records", File.Records.size()},
          {"whole", File.IsWhole()},
          {"torn_bytes", File.TornBytes},
          {"zero_records", File.ZeroRecords},
          {"backup_copy_pending", File.CopyPending}};
}

/// The size and state of a log that is there or not, and may be held by a program.
TJson LogJson(const std::filesystem::path& Path) {
  try {
    const std::optional<TFileNow> Now = TMachine::LookAt(Path);
    if (!Now) return {{"state", "missing"}};
    return {{"state", "present"}, {"bytes", Now->Size}, {"last_change", TimeText(Now->LastWrite)}};
  } catch (const ECannotRead& Failure) {
    return {{"state", "unreadable"}, {"why", Failure.Why}};
  }
}

std::string Headline(const TPaint& Paint, const TJson& Data) {
  const std::string State = Data["state"];
  const uint64_t Undoable = Data["changes_since_check_point"];
  if (State == "idle") return Paint.Good("idle") + ": no change waits to be committed or undone";
  const std::string Where =
      Data["check_point"].is_null() ? "the beginning of the log" : "check point " + std::string(Data["check_point"]);
  const std::string Changes = Counted(Undoable, "change") + " since " + Where + " can be undone";
  return (State == "interrupted" ? Paint.Bad("interrupted, or never committed") : Paint.Strong("in progress")) + ": " +
         Changes;
}

}  // namespace

TReport Status(const TContext& Context) {
  const TRecordFile Log = Context.State.TransactionLog();
  size_t Undoable = 0, UndoableInAll = 0;
  TJson CheckPoint;
  for (auto Record = Log.Records.rbegin(); Record != Log.Records.rend(); ++Record) {
    if (!IsCheckPoint(*Record)) {
      ++UndoableInAll;
      if (CheckPoint.is_null()) ++Undoable;
    } else if (CheckPoint.is_null()) {
      CheckPoint = GuidText(Record->DataID);
    }
  }
  const TLockState Lock = Context.Machine.LockState();
  const TStore Store = StoreOf(Context);
  size_t DamagedGroups = 0, HistoryRecords = 0;
  const std::vector<THistoryGroup> Groups = Context.State.Groups();
  bool GroupCopyPending = false;
  for (const THistoryGroup& Group : Groups) {
    DamagedGroups += Group.File.IsWhole() ? 0 : 1;
    HistoryRecords += Group.File.Records.size();
    GroupCopyPending = GroupCopyPending || Group.File.CopyPending;
  }
  const TUninstallLogFile Uninstall = ReadUninstallLog(Context.State.UninstallLog);
  TReport Report;
  Report.Data = {{"base", NameOf(Context.State.Base)},
                 {"service_folder", NameOf(Context.State.Service)},
                 {"state", StateOf(Lock, Undoable)},
                 {"lock", WordOf(Lock)},
                 {"check_point", CheckPoint},
                 {"last_change", TimeText(Log.LastWrite)},
                 {"changes_since_check_point", Undoable},
                 {"changes_in_all", UndoableInAll},
                 {"transaction_log", RecordFileJson(Log)},
                 {"set_aside", Context.State.SetAside().size()},
                 {"history",
                  {{"groups", Groups.size()},
                   {"records", HistoryRecords},
                   {"damaged_groups", DamagedGroups},
                   {"backup_copy_pending", GroupCopyPending}}},
                 {"store",
                  {{"items", Store.Items},
                   {"bytes", Store.Bytes},
                   {"orphans", Store.Orphans},
                   {"orphan_bytes", Store.OrphanBytes},
                   {"orphans_are_certain", Store.Sure}}},
                 {"uninstall_log", {{"state", Uninstall.State}, {"why", Uninstall.Why}}},
                 {"debug_log", LogJson(Context.State.DebugLog)}};
  const bool Damaged = !Log.IsWhole() || DamagedGroups > 0 || Uninstall.State == "damaged";
  Report.Status = Report.Data["state"] == "idle" && !Damaged && !Log.CopyPending ? Fine : FoundSomething;

  const TPaint& Paint = Context.Paint;
  const auto Line = [&](const char* Name, const std::string& Text) {
    Report.Text += InColumn(Name, 17) + " " + Text + "\n";
  };
  Line("Base folder", std::string(Report.Data["base"]));
  Line("State", Headline(Paint, Report.Data));
  if (UndoableInAll > Undoable)
    Line("", Counted(UndoableInAll, "change") + " in all, down to the beginning of the log");
  Line("Last change", TimeText(Log.LastWrite));
  Line("Updater", Lock == TLockState::Held     ? "at work: it holds the lock"
                  : Lock == TLockState::Loaded ? "alive: it has the library loaded, and is between two changes"
                  : Lock == TLockState::Free   ? "none is alive"
                                               : "cannot be told here");
  Line("Transaction log",
       Counted(Log.Records.size(), "record") + ", " + (Log.IsWhole() ? WholeOrNot(Log) : Paint.Bad(WholeOrNot(Log))));
  const bool AtWork = Report.Data["state"] == "in progress";
  Line("Backup copy",
       !Log.CopyPending ? "none"
       : AtWork         ? "being used"
                        : Paint.Bad("pending") + ": the next change puts it back, the interrupted one never happened");
  if (!Context.State.SetAside().empty()) Line("Set aside", Counted(Context.State.SetAside().size(), "file"));
  Line("History", Counted(Groups.size(), "group") + ", " + Counted(HistoryRecords, "record") +
                      (DamagedGroups ? ", " + Paint.Bad(Counted(DamagedGroups, "damaged group")) : ", whole"));
  Line("Backup store", Counted(Store.Items, "item") + ", " + SizeText(Store.Bytes) + "; " +
                           (Store.Sure ? Counted(Store.Orphans, "item") : "up to " + Counted(Store.Orphans, "item")) +
                           " that nobody refers to (" + SizeText(Store.OrphanBytes) + ")");
  Line("Uninstall log", Uninstall.State == "damaged" ? Paint.Bad(Uninstall.Words()) : Uninstall.Words());
  const TJson& Debug = Report.Data["debug_log"];
  Line("Debug log", Debug["state"] == "present"
                        ? SizeText(Debug["bytes"]) + ", last line " + std::string(Debug["last_change"])
                        : std::string(Debug["state"]));
  return Report;
}
