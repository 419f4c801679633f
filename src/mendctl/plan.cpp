// mendctl plan

#include "mendctl/commands.h"
#include "mendctl/comparison.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace {

/// One step of a rollback, and what is in its way.
struct TStep {
  std::string Subject;
  std::vector<std::string> Problems;  ///< each would stop the rollback, unless the user mends it when a box asks
  std::vector<std::string> Notes;
};

class TPlanner {
 public:
  explicit TPlanner(const TContext& Context) : Context(Context), Reader(Context.State) {}

  TStep StepOf(const TEntry& Entry) {
    const TSaved Saved = Reader.Read(Entry.Meaning.Layout, Entry.Record.DataID);
    TStep Step{Context.SubjectOf(Entry, Saved), {}, {}};
    for (const TItemFault& Fault : Saved.Faults)
      Step.Problems.push_back("the item " + GuidText(Fault.DataID) + " cannot be used: " + Fault.What +
                              (Fault.Offset ? " (at offset " + std::to_string(Fault.Offset) + ")" : ""));
    if (Entry.Meaning.Layout == TLayout::Unknown) LookForClass(Entry, Step);
    if (Entry.Meaning.Class == "UCom" && Saved.Text) LookForModule(Entry, *Saved.Text, Step);
    if (Entry.Meaning.Class == "UFile" && Saved.Text) LookAtCreated(*Saved.Text, Step);
    for (const TSavedFile& File : Saved.Files) LookAtFile(File, Step);
    LookForRoom(Saved, Step);
    for (const TRegistryKeyItem& Key : Saved.Keys) LookForNewValues(Key, Saved);
    CreatesFiles = CreatesFiles || (Entry.Meaning.Class == "UFile" && Entry.Record.Code == FileCode::Created);
    return Step;
  }

  /// What the rules leave behind, as far as this log can have it.
  std::vector<std::string> Staying() const {
    std::vector<std::string> Texts = Merged;
    if (CreatesFiles) Texts.emplace_back("Folders that were created for new files stay.");
    Texts.emplace_back("Registry keys and values that the update created stay: nothing was there to be saved.");
    Texts.emplace_back(
        "Records that were appended to the uninstall log stay, and so does every change that was not logged.");
    return Texts;
  }

 private:
  void LookForClass(const TEntry& Entry, TStep& Step) const {
    Step.Subject = "to " + Entry.Meaning.Class;
    switch (Context.Machine.HasClass(GuidText(Entry.Record.Id))) {
      case TAnswer::No:
        Step.Problems.push_back("the class " + GuidText(Entry.Record.Id) + " is not registered");
        break;
      case TAnswer::Unknown:
        Step.Notes.emplace_back("whether its class is registered cannot be told here");
        break;
      case TAnswer::Yes:
        break;
    }
  }

  void LookForModule(const TEntry& Entry, const std::string& Name, TStep& Step) const {
    const auto Path = Context.Machine.PathOf(Name);
    if (!Path || Look(*Path, Step)) return;
    const bool Registers =
        Entry.Record.Code == ComCode::ServerUnregistered || Entry.Record.Code == ComCode::LibraryUnregistered;
    if (Registers)
      Step.Problems.emplace_back("the file is not there, so it cannot be registered");
    else
      Step.Notes.emplace_back("the file is not there; nothing is unregistered");
  }

  void LookAtCreated(const std::string& Name, TStep& Step) const {
    const auto Path = Context.Machine.PathOf(Name);
    if (!Path) return;
    if (!Look(*Path, Step))
      Step.Notes.emplace_back("it is gone already");
    else
      LookForHolder(*Path, Step);
  }

  void LookAtFile(const TSavedFile& File, TStep& Step) const {
    const auto Path = Context.Machine.PathOf(File.Path);
    if (!Path) return;
    if (const auto Now = Look(*Path, Step)) {
      if (Now->IsFolder) Step.Problems.push_back("a folder has the name of " + NameOf(*Path));
      TSaved One;
      One.Files.push_back(File);
      if (Together(CompareWithNow(Context.State, Context.Machine, One)) == TNow::Same) return;
      LookForHolder(*Path, Step);
    }
    fs::path Folder = Path->parent_path();
    while (Folder.has_relative_path() && !TMachine::LookAt(Folder)) Folder = Folder.parent_path();
    if (Context.Machine.CanCreateIn(Folder) == TAnswer::No)
      Step.Problems.push_back("nothing can be written into " + NameOf(Folder));
  }

  void LookForHolder(const fs::path& Path, TStep& Step) const {
    const std::string Holders = Context.Machine.HoldersOf(Path);
    if (!Holders.empty()) Step.Problems.push_back(NameOf(Path) + " is in use by " + Holders);
  }

  void LookForRoom(const TSaved& Saved, TStep& Step) const {
    uint64_t Needed = 0;
    std::optional<fs::path> Folder;
    for (const TSavedFile& File : Saved.Files) {
      Needed += File.Size;
      if (!Folder) Folder = Context.Machine.PathOf(File.Path);
    }
    if (!Folder) return;
    const auto Free = Context.Machine.FreeBytes(Folder->root_path());
    if (Free && *Free < Needed)
      Step.Problems.push_back("there is no room: " + SizeText(Needed) + " are needed, " + SizeText(*Free) +
                              " are free");
  }

  /// A restored key is merged into what is there.
  void LookForNewValues(const TRegistryKeyItem& Key, const TSaved& Saved) {
    for (const std::string& Name : Context.Machine.ValueNames(Key.RootKey, Key.KeyName)) {
      const bool Known = std::any_of(Saved.Values.begin(), Saved.Values.end(), [&](const TRegistryValueItem& Value) {
        return Value.KeyName == Key.KeyName && Value.Name == Name;
      });
      if (!Known)
        Merged.push_back("The value '" + Context.Machine.ToUtf8(Name) + "' in " +
                         Context.Machine.ToUtf8(KeyText(Key.RootKey, Key.KeyName)) + " came later and stays.");
    }
  }

  static std::optional<TFileNow> Look(const fs::path& Path, TStep& Step) {
    try {
      return TMachine::LookAt(Path);
    } catch (const ECannotRead& Failure) {
      Step.Problems.push_back(Failure.File + ": " + Failure.Why);
      return TFileNow{};
    }
  }

  const TContext& Context;
  const TItemReaderOf Reader;
  std::vector<std::string> Merged;
  bool CreatesFiles = false;
};

}  // namespace

TReport Plan(const TContext& Context, bool OnlyToCheckPoint) {
  TReport Report;
  TPlanner Planner(Context);
  size_t Steps = 0, Failing = 0;
  TJson Json = TJson::array();
  std::string Lines, Where = "the beginning of the log";
  for (const TEntry& Entry : EntriesOf(Context.State.TransactionLog(), !OnlyToCheckPoint, Context.Machine)) {
    if (Entry.Meaning.Layout == TLayout::CheckPoint) {
      if (OnlyToCheckPoint) Where = "check point " + GuidText(Entry.Record.DataID);
      continue;
    }
    const TStep Step = Planner.StepOf(Entry);
    ++Steps;
    Failing += Step.Problems.empty() ? 0 : 1;
    Json.push_back({{"number", Entry.Number},
                    {"action", Entry.Meaning.Undo},
                    {"subject", Step.Subject},
                    {"problems", Step.Problems},
                    {"notes", Step.Notes}});
    Lines += InColumn(std::to_string(Entry.Number), 6) + InColumn(Entry.Meaning.Undo, 12) + Step.Subject + "\n";
    for (const std::string& Problem : Step.Problems)
      Lines += "      " + Context.Paint.Bad("would fail: ") + Problem + "\n";
    for (const std::string& Note : Step.Notes) Lines += "      " + Context.Paint.Weak(Note) + "\n";
  }
  Report.Status = Failing ? FoundSomething : Fine;
  Report.Data = {{"to", Where},
                 {"steps", Json},
                 {"failing", Failing},
                 {"stays", Steps ? Planner.Staying() : std::vector<std::string>()}};
  if (Steps == 0) {
    Report.Text = "There is nothing to undo.\n";
    return Report;
  }
  Report.Text = "A rollback to " + Where + " would undo " + Counted(Steps, "change") + ", newest first:\n" + Lines;
  Report.Text += Failing
                     ? Context.Paint.Bad(std::to_string(Failing) + " of " + Counted(Steps, "step") + " would fail") +
                           "; the rollback stops at the first of them until that is mended, or skipped.\n"
                     : Context.Paint.Good("Every step can be done") + ", as far as that can be seen.\n";
  Report.Text += "What stays by rule:\n";
  for (const std::string& Text : Planner.Staying()) Report.Text += "  " + Text + "\n";
  return Report;
}
