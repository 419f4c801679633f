// mendctl verify

#include "formats/comma_text.h"
#include "formats/garbage_lines.h"
#include "mendctl/commands.h"
#include "mendctl/uninstall_log_file.h"

namespace fs = std::filesystem;

namespace {

class TVerifier {
 public:
  explicit TVerifier(const TContext& Context) : Context(Context), Reader(Context.State) {}

  TReport Run() {
    TransactionLog();
    for (const THistoryGroup& Group : Context.State.Groups()) HistoryGroup(Group);
    OddNames();
    Store();
    for (const char* Name : {"Files.grb", "Dirs.grb", "RKeys.grb", "RKeyVals.grb"}) GarbageList(Name);
    Uninstall();
    if (Faults == 0)
      Report.Text += Context.Paint.Good("No fault was found") + "; " + Counted(Notes, "note") + ".\n";
    else
      Report.Text += Context.Paint.Bad(Counted(Faults, "fault")) + ", " + Counted(Notes, "note") + ".\n";
    Report.Status = Faults ? FoundSomething : Fine;
    Report.Data = {{"findings", Findings}, {"faults", Faults}, {"notes", Notes}};
    return Report;
  }

 private:
  enum TWeight { Fault, Note };
  void Find(TWeight Weight, const std::string& File, uint64_t Offset, const std::string& What,
            const std::string& Effect) {
    ++(Weight == Fault ? Faults : Notes);
    Findings.push_back({{"weight", Weight == Fault ? "fault" : "note"},
                        {"file", File},
                        {"offset", Offset},
                        {"what", What},
                        {"rollback", Effect}});
    Report.Text += (Weight == Fault ? Context.Paint.Bad("fault ") : "note  ") + File + " at " + std::to_string(Offset) +
                   ": " + What + ". Rollback: " + Effect + ".\n";
  }

  void RecordFile(const TRecordFile& File) {
    const uint64_t Whole = uint64_t{File.Records.size()} * LogRecordSize;
    if (File.ZeroRecords)
      Find(Fault, File.Name, Whole, Counted(File.ZeroRecords, "record") + " of zeros at the end",
           "they are set aside, what is before them is undone");
    if (File.TornBytes)
      Find(Fault, File.Name, Whole + uint64_t{File.ZeroRecords} * LogRecordSize,
           "the last record is torn, " + Counted(File.TornBytes, "byte") + " are left of it",
           "it is set aside, what is before it is undone");
    if (File.CopyPending && Context.Machine.LockState() != TLockState::Held)
      Find(Note, File.Name, 0, "a backup copy is pending",
           "the copy is put back first; the change that was interrupted never happened");
  }

  void TransactionLog() {
    const TRecordFile Log = Context.State.TransactionLog();
    RecordFile(Log);
    std::set<TGuidBytes> CheckPoints;
    for (size_t Index = 0; Index < Log.Records.size(); ++Index) {
      const TLogRecord& Record = Log.Records[Index];
      const TMeaning Meaning = MeaningOf(Record, Context.Machine);
      const uint64_t Offset = uint64_t{Index} * LogRecordSize;
      const std::string Entry = "entry " + std::to_string(Index + 1) + " (" + Meaning.Done + ")";
      if (Meaning.Layout == TLayout::CheckPoint && !CheckPoints.insert(Record.DataID).second)
        Find(Note, Log.Name, Offset, Entry + " has the identifier of an earlier check point", "none");
      if (Meaning.Layout == TLayout::Nothing && Meaning.Class != "UCanRollback")
        Find(Fault, Log.Name, Offset, Entry + " has a code that its class does not know", "the entry is passed over");
      if (Meaning.Layout == TLayout::Unknown && Context.Machine.HasClass(GuidText(Record.Id)) == TAnswer::No)
        Find(Fault, Log.Name, Offset, Entry + " belongs to a class that is not registered", "it stops at this entry");
      ItemFaults(Reader.Read(Meaning.Layout, Record.DataID), Entry, "it stops at " + Entry);
    }
    for (const fs::path& Path : Context.State.SetAside())
      Find(Note, NameOf(Path), 0, "something was set aside of the transaction log", "none; it is not undone any more");
  }

  void ItemFaults(const TSaved& Saved, const std::string& Of, const std::string& Effect) {
    for (const TItemFault& Each : Saved.Faults)
      Find(Fault, NameOf(Context.State.ItemPath(Each.DataID)), Each.Offset, Each.What + ", in " + Of, Effect);
  }

  void HistoryGroup(const THistoryGroup& Group) {
    RecordFile(Group.File);
    const bool List =
        Group.Id == MacroGroupId || Group.Id == InstalledFilesGroupId || Group.Id == InstalledServersGroupId;
    static const std::string HistoryClass = IdOfClass("UHistory");
    for (size_t Index = 0; Index < Group.File.Records.size(); ++Index) {
      const TLogRecord& Record = Group.File.Records[Index];
      const std::string Marker = GuidText(Record.Id);
      const uint64_t Offset = uint64_t{Index} * LogRecordSize;
      if (Marker != Group.Id && Marker != HistoryClass)
        Find(Note, Group.File.Name, Offset,
             "the marker " + Marker + " is neither the group's nor that of a check point", "none");
      if (List && Marker == Group.Id && Index + 1 == Group.File.Records.size())
        ItemFaults(Reader.Read(TLayout::FileName, Record.DataID), "the newest state of a saved list",
                   "none; the list cannot be loaded, and macros or the lists of installed files fail");
    }
  }

  /// Names that are no identifiers, where all are.
  void OddNames() {
    for (const fs::path& Folder : {Context.State.Backup, Context.State.History})
      for (const fs::path& Path : FilesOf(Folder)) {
        const std::string Name = NameOf(Path.filename());
        const bool Copy = Folder == Context.State.History && Name.ends_with(".bkp");
        const bool Aside = Name.find(".damaged") != std::string::npos;
        if (!Copy && !Aside && !ParseGuid(Name)) Find(Note, NameOf(Path), 0, "a file that is not the system's", "none");
      }
  }

  void Store() {
    const TReached Reached = ReachedItems(Context.State, Context.Machine);
    uint64_t Orphans = 0;
    for (const TStoredFile& File : Context.State.StoredFiles()) {
      const auto Id = ParseGuid(File.Name);
      Orphans += Id && !Reached.Items.contains(*Id) ? 1 : 0;
    }
    if (Orphans)
      Find(Note, NameOf(Context.State.Backup), 0, Counted(Orphans, "item") + " that nobody refers to",
           "none; prune removes them");
  }

  void GarbageList(const std::string& ListName) {
    const fs::path Path = Context.State.Garbage / ListName;
    if (!TMachine::LookAt(Path)) return;
    const std::string Content = TReadableFile(Path).Text(), Name = NameOf(Path);
    std::string_view Rest = Content;
    while (const auto Line = TakeLine(Rest)) {
      const auto Offset = static_cast<uint64_t>(Line->data() - Content.data());
      const bool Registry = ListName.starts_with("RKey");
      if (Line->find('\0') != std::string_view::npos)
        Find(Note, Name, Offset, "a line with a NUL, which is passed over", "none");
      else if (Registry && !ParseRoot(SplitAtBlank(*Line).First))
        Find(Fault, Name, Offset, "a line that does not begin with the number of a root",
             "none; Garbage ends here, for this list");
    }
    if (!Rest.empty())
      Find(Note, Name, Content.size() - Rest.size(), "the last line is cut off, and is no line", "none");
  }

  void Uninstall() {
    const TUninstallLogFile File = ReadUninstallLog(Context.State.UninstallLog);
    const std::string Name = NameOf(Context.State.UninstallLog);
    if (File.State == "damaged" || File.State == "unreadable")
      Find(Fault, Name, 0, File.Why, "none; nothing is appended to this log any more");
    else if (File.Log && !File.Log->EndsWithLastRecord())
      Find(Fault, Name, 0, "something lies between its last record and its end",
           "none; nothing is appended to this log any more");
  }

  const TContext& Context;
  const TItemReaderOf Reader;
  TReport Report;
  TJson Findings = TJson::array();
  uint64_t Faults = 0, Notes = 0;
};

}  // namespace

TReport Verify(const TContext& Context) { return TVerifier(Context).Run(); }
