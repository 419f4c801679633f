// mendctl show, mendctl diff

#include "mendctl/commands.h"
#include "mendctl/comparison.h"
#include "mendctl/saved_names.h"

namespace {

TJson FaultsJson(const TSaved& Saved) {
  TJson Faults = TJson::array();
  for (const TItemFault& Fault : Saved.Faults)
    Faults.push_back({{"item", GuidText(Fault.DataID)}, {"offset", Fault.Offset}, {"what", Fault.What}});
  return Faults;
}

TJson SavedJson(const TContext& Context, const TSaved& Saved) {
  const auto Utf8 = [&](const std::string& Text) { return Context.Machine.ToUtf8(Text); };
  TJson All = TJson::array();
  for (const TSavedFile& File : Saved.Files)
    All.push_back({{"kind", "file"},
                   {"path", Utf8(File.Path)},
                   {"bytes", File.Size},
                   {"attributes", AttributesText(File.Attributes)},
                   {"created", TimeText(File.Creation)},
                   {"changed", TimeText(File.LastWrite)}});
  for (const std::string& Folder : Saved.Folders) All.push_back({{"kind", "folder"}, {"path", Utf8(Folder)}});
  for (const TRegistryKeyItem& Key : Saved.Keys)
    All.push_back({{"kind", "key"},
                   {"path", Utf8(KeyText(Key.RootKey, Key.KeyName))},
                   {"values", Key.Values.size()},
                   {"subkeys", Key.Subkeys.size()}});
  for (const TRegistryValueItem& Value : Saved.Values)
    All.push_back({{"kind", "value"},
                   {"path", Utf8(KeyText(Value.RootKey, Value.KeyName))},
                   {"name", Utf8(Value.Name)},
                   {"type", TypeText(Value.Type)},
                   {"bytes", Value.Data.size()},
                   {"data", DataText(Value.Type, Value.Data, Context.Machine)}});
  for (const TKeyRightsItem& Rights : Saved.Rights)
    All.push_back(
        {{"kind", "rights"}, {"path", Utf8(KeyText(Rights.RootKey, Rights.KeyName))}, {"rights", Utf8(Rights.Rights)}});
  if (Saved.Text) All.push_back({{"kind", "name"}, {"path", Utf8(*Saved.Text)}});
  return All;
}

/// One line for each saved thing.
std::string SavedText(const TJson& All) {
  std::string Text;
  for (const TJson& Thing : All) {
    const std::string Kind = Thing["kind"], Path = Thing["path"];
    Text += InColumn(Kind, 7) + Path;
    if (Kind == "file")
      Text += "  " + SizeText(Thing["bytes"]) + ", changed " + std::string(Thing["changed"]) + ", attributes " +
              std::string(Thing["attributes"]);
    if (Kind == "key") Text += "  " + Counted(Thing["values"], "value") + ", " + Counted(Thing["subkeys"], "subkey");
    if (Kind == "value")
      Text += ", " +
              (Thing["name"].get<std::string>().empty() ? std::string("default value") : std::string(Thing["name"])) +
              " = " + std::string(Thing["type"]) + " " + std::string(Thing["data"]);
    if (Kind == "rights") Text += "  " + std::string(Thing["rights"]);
    Text += "\n";
  }
  return Text;
}

TJson ComparisonJson(const std::vector<TComparison>& All) {
  TJson Result = TJson::array();
  for (const TComparison& Each : All)
    Result.push_back({{"subject", Each.Subject}, {"now", WordOf(Each.Now)}, {"details", Each.Details}});
  return Result;
}

TJson EntryJson(const TEntry& Entry) {
  return {{"number", Entry.Number},    {"class", Entry.Meaning.Class},          {"class_id", GuidText(Entry.Record.Id)},
          {"code", Entry.Record.Code}, {"item", GuidText(Entry.Record.DataID)}, {"what", Entry.Meaning.Done}};
}

/// What is there now, in a few words.
std::string NowText(const TEntry& Entry, TNow Now) {
  const bool Name = Entry.Meaning.Layout == TLayout::FileName;
  switch (Now) {
    case TNow::Same:
      return Name ? "is there now" : "now as saved";
    case TNow::Differs:
      return "differs now";
    case TNow::Gone:
      return "not there now";
    default:
      return "";
  }
}

std::string SavedWords(const TSaved& Saved) {
  uint64_t Bytes = 0;
  for (const TSavedFile& File : Saved.Files) Bytes += File.Size;
  return Saved.Files.empty() ? "" : SizeText(Bytes) + " saved";
}

/// Of a text file, in UTF-8.
std::string LinesThatDiffer(const TContext& Context, const TSavedFile& Saved) {
  constexpr uint64_t Most = (1 << 20) + 1;  // one more than is compared
  try {
    const auto Path = Context.Machine.PathOf(Saved.Path);
    const TReadableFile Item(Context.State.ItemPath(Saved.DataID)), Now(Path.value());
    return Context.Machine.ToUtf8(LineDifference(Item.Text(Saved.ContentAt, Most), Now.Text(0, Most)));
  } catch (const ECannotRead&) {
    return {};  // a folder, or gone meanwhile: that it differs has been told
  }
}

}  // namespace

TEntry EntryOf(const TContext& Context, size_t Number) {
  const TRecordFile Log = Context.State.TransactionLog();
  if (Number == 0 || Number > Log.Records.size())
    throw EWrongUse{"There is no entry " + std::to_string(Number) + "; the log has " +
                    Counted(Log.Records.size(), "record") + "."};
  const TLogRecord& Record = Log.Records[Number - 1];
  return {Number, Record, MeaningOf(Record, Context.Machine)};
}

std::string TContext::SubjectOf(const TEntry& Entry, const TSaved& Saved) const {
  std::string Subject = ::SubjectOf(Saved, Machine);
  if (!Subject.empty() || Saved.Faults.empty()) return Subject;
  try {
    if (!NamesInLog) NamesInLog = SavedNames(TReadableFile(State.DebugLog).Text());
  } catch (const ECannotRead&) {
    NamesInLog.emplace();  // an updater has it open, or there is none
  }
  const auto Found = NamesInLog->find(GuidText(Entry.Record.DataID));
  return Found == NamesInLog->end() ? "" : Machine.ToUtf8(Found->second);
}

std::string EntryLine(const TContext& Context, const TEntry& Entry, const TSaved& Saved) {
  std::string Line = InColumn(std::to_string(Entry.Number), 6) + InColumn(Entry.Meaning.Done, 26) + " ";
  const std::string Subject = Context.SubjectOf(Entry, Saved);
  Line += Subject.empty() ? GuidText(Entry.Record.DataID) : Subject;
  for (const TItemFault& Fault : Saved.Faults)
    Line += "  " + Context.Paint.Bad("item " + GuidText(Fault.DataID) + ": " + Fault.What);
  return Line;
}

TReport Show(const TContext& Context, bool All) {
  TReport Report;
  Report.Data = {{"entries", TJson::array()}};
  const TRecordFile Log = Context.State.TransactionLog();
  const TItemReaderOf Reader(Context.State);
  for (const TEntry& Entry : EntriesOf(Log, All, Context.Machine)) {
    TJson Json = EntryJson(Entry);
    if (Entry.Meaning.Layout == TLayout::CheckPoint) {
      Report.Text += Context.Paint.Strong("---- check point " + GuidText(Entry.Record.DataID)) + "\n";
    } else {
      const TSaved Saved = Reader.Read(Entry.Meaning.Layout, Entry.Record.DataID);
      const TNow Now = Together(CompareWithNow(Context.State, Context.Machine, Saved));
      Json["subject"] = Context.SubjectOf(Entry, Saved);
      Json["saved_at"] = TimeText(Saved.LastWrite);
      Json["now"] = WordOf(Now);
      Json["faults"] = FaultsJson(Saved);
      Report.Text += EntryLine(Context, Entry, Saved);
      for (const std::string& Words : {SavedWords(Saved), NowText(Entry, Now)})
        if (!Words.empty()) Report.Text += "  " + Context.Paint.Weak(Words);
      Report.Text += "\n";
    }
    Report.Data["entries"].push_back(std::move(Json));
  }
  if (Log.Records.empty()) Report.Text = "The transaction log is empty.\n";
  return Report;
}

TReport ShowOne(const TContext& Context, size_t Number) {
  const TEntry Entry = EntryOf(Context, Number);
  const TSaved Saved = TItemReaderOf(Context.State).Read(Entry.Meaning.Layout, Entry.Record.DataID);
  const std::vector<TComparison> Compared = CompareWithNow(Context.State, Context.Machine, Saved);
  TReport Report;
  Report.Data = EntryJson(Entry);
  Report.Data["saved_at"] = TimeText(Saved.LastWrite);
  Report.Data["saved"] = SavedJson(Context, Saved);
  Report.Data["now"] = ComparisonJson(Compared);
  Report.Data["faults"] = FaultsJson(Saved);
  Report.Text = EntryLine(Context, Entry, Saved) + "\n      class " + Entry.Meaning.Class + ", code " +
                std::to_string(Entry.Record.Code) + ", item " + GuidText(Entry.Record.DataID) + ", saved " +
                TimeText(Saved.LastWrite) + "\nSaved:\n" + Indented(SavedText(Report.Data["saved"]), 2) + "Now:\n";
  for (const TComparison& Each : Compared) {
    Report.Text += "  " + InColumn(WordOf(Each.Now), 8) + Each.Subject + "\n";
    for (const std::string& Detail : Each.Details) Report.Text += "          " + Detail + "\n";
  }
  return Report;
}

TReport Diff(const TContext& Context, size_t Number) {
  const TEntry Entry = EntryOf(Context, Number);
  const TSaved Saved = TItemReaderOf(Context.State).Read(Entry.Meaning.Layout, Entry.Record.DataID);
  const std::vector<TComparison> Compared = CompareWithNow(Context.State, Context.Machine, Saved);
  TReport Report;
  Report.Data = EntryJson(Entry);
  Report.Data["now"] = ComparisonJson(Compared);
  Report.Data["faults"] = FaultsJson(Saved);
  for (size_t At = 0; At < Compared.size(); ++At) {
    const TComparison& Each = Compared[At];
    if (Each.Now == TNow::Same) continue;
    Report.Status = FoundSomething;
    Report.Text += Context.Paint.Strong(InColumn(WordOf(Each.Now), 8)) + Each.Subject + "\n";
    for (const std::string& Detail : Each.Details) Report.Text += "        " + Detail + "\n";
    if (Each.Now == TNow::Differs && At < Saved.Files.size())
      Report.Text += Indented(LinesThatDiffer(Context, Saved.Files[At]), 8);
  }
  for (const TItemFault& Fault : Saved.Faults) {
    Report.Status = FoundSomething;
    Report.Text += Context.Paint.Bad("item " + GuidText(Fault.DataID) + " at offset " + std::to_string(Fault.Offset) +
                                     ": " + Fault.What) +
                   "\n";
  }
  if (Report.Status == Fine) Report.Text = "Everything is as it was saved.\n";
  return Report;
}
