#include "fuzz/targets.h"

#include "base/format_text.h"
#include "base/numbers.h"
#include "formats/comma_text.h"
#include "formats/kit_changes.h"
#include "formats/update_manifest.h"
#include "mendctl/call_log.h"
#include "mendctl/commands.h"
#include "support/memory_file.h"
#include "support/raw_uninstall_log.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>

/// Of the sanitizers' run-time library; not every compiler brings the header that declares it.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*OnMalloc)(const volatile void*, size_t),
                                                         void (*OnFree)(const volatile void*));

namespace {

/// Ends the program, so that the fuzzer keeps the input, when a promise does not hold.
void Promise(bool Holds, const char* What) {
  if (Holds) return;
  std::fprintf(stderr, "broken promise: %s\n", What);
  std::abort();
}

bool Watching = false;
size_t Largest = 0;

/// Once: there is room for few watchers.
void WatchAllocations() {
  static const int Installed = __sanitizer_install_malloc_and_free_hooks(
      [](const volatile void*, size_t Asked) { Largest = std::max(Largest, Watching ? Asked : 0); },
      [](const volatile void*) {});
  Promise(Installed != 0, "the allocations can be watched");
}

/// Reads something of `Size` bytes, for which no larger piece of memory must be asked.
void ReadWatched(size_t Size, const auto& Read) {
  WatchAllocations();
  Largest = 0;
  Watching = true;
  Read();
  Watching = false;
  // An exception's own memory is larger than the smallest files.
  constexpr size_t Frame = sizeof(TUninstallRecord) + 256;
  Promise(Largest <= Size + Frame, "no more memory than there are bytes");
}

/// Whatever becomes of it, and with whichever operation the disk breaks, the old records stay.
void AppendOne(const std::string& Bytes, const TUninstallLog& Log, int FailAfter) {
  TUninstallLog More, Now;
  More.AddStringRecord(0x82, {"name"}, 0);
  More.ApplicationId = Log.ApplicationId;
  More.Is64Bit = Log.Is64Bit;
  std::string Longer = Bytes, Expected = StreamOf(Log);
  try {
    More.Save(OpenerOf(Longer, FailAfter), "", true, false);
    Expected += StreamOf(More);
  } catch (const EFileError&) {
  } catch (const EUninstallLogError&) {
  }
  if (!Log.EndsWithLastRecord()) return;
  Promise(Load(Longer, Now) && StreamOf(Now) == Expected && Now.EndsWithLastRecord(),
          "a log is appended to or as it was");
}

void ExtractStrings(const TUninstallRecord& Rec) {
  std::vector<std::string> Strings(10, "not emptied"), Again(Strings.size());
  const size_t Filled = TUninstallLog::ExtractRecordStrings(Rec, Strings);
  TUninstallLog Log;
  Log.AddStringRecord(1, {Strings.begin(), Strings.begin() + static_cast<ptrdiff_t>(Filled)}, 0);
  Promise(TUninstallLog::ExtractRecordStrings(*Log.First(), Again) == Filled && Again == Strings,
          "strings survive being written and read");
}

/// What was read is what would have been written.
template <class TItem>
void ReadItem(TFuzzInput Input) {
  TMemorySource Source({reinterpret_cast<const char*>(Input.data()), Input.size()});
  TItemReader Reader(Source);
  TItem Item;
  ReadWatched(Input.size(), [&] { Item.Fields(Reader); });
  if (!Reader.Good()) return;
  const std::string Taken(Input.begin(), Input.end() - static_cast<ptrdiff_t>(Source.Remaining()));
  Promise(EncodeItem(Item).substr(ItemTagSize) == Taken, "an item is written as it was read");
}

void ReadCommaText(TFuzzInput Input) {
  const std::vector<std::string> Entries = ParseCommaText({reinterpret_cast<const char*>(Input.data()), Input.size()});
  Promise(ParseCommaText(MakeCommaText(Entries)) == Entries, "what any text gives survives");
}

void ReadKitChanges(std::string_view Text) {
  constexpr size_t MostMemory = 64;  // an empty word for each byte, in a list that grows by doubling
  std::optional<TKitChanges> Changes;
  ReadWatched(MostMemory * Text.size(), [&] { Changes = DecodeKitChanges(Text); });
  if (!Changes) return;
  const std::string Written = EncodeKitChanges(*Changes);
  const std::optional<TKitChanges> Again = DecodeKitChanges(Written);
  Promise(Again && EncodeKitChanges(*Again) == Written, "changes survive being written and read");
}

/// A text that is no UTF-8 ends the program.
void RequireUtf8(const std::string& Text) { nlohmann::json(Text).dump(); }

/// Below a folder, wherever that is.
void RequireNameBelow(const std::string& Name) {
  RequireUtf8(Name);
  const std::string Framed = "\\" + Name + "\\";
  for (const char* Part : {"\\\\", "\\.\\", "\\..\\", ":", "*", "?", "/"})
    Promise(Framed.find(Part) == std::string::npos, "names are plain ones below a folder");
}

void ReadManifest(std::string_view Text) {
  const auto Lines = static_cast<size_t>(1 + std::ranges::count(Text, '\n'));
  try {
    const TUpdateManifest Manifest = ReadUpdateManifest(Text);
    RequireUtf8(Manifest.Name);
    RequireNameBelow(Manifest.Target.substr(3));
    if (!Manifest.Source.empty()) RequireNameBelow(Manifest.Source);
    for (const TManifestFile& File : Manifest.Files) {
      RequireNameBelow(File.Name);
      Promise(File.Sha256.size() == 64, "a file has a hash");
    }
    for (const std::string& Name : Manifest.Delete) RequireNameBelow(Name);
    for (const TManifestKey& Key : Manifest.Keys) RequireUtf8(Key.Key), Promise(Key.Root != 0, "a key has a root");
    for (const TManifestValue& Value : Manifest.Values)
      for (const std::string& Each : {Value.Key, Value.Name, Value.Data}) RequireUtf8(Each);
  } catch (const EManifestError& Error) {
    RequireUtf8(Error.Why);
    Promise(Error.Line >= 1 && Error.Line <= Lines, "the line of an error is one of the text");
  }
}

std::string LogOfLines(TFuzzInput Input) {
  constexpr const char* Routines[] = {"UFile %s CopyFile C:\\A",
                                      "UFile %s CopySomeFile C:\\A",
                                      "UTransactionLog %s Rollback",
                                      "UTransactionLog %s CheckBkp",
                                      "Common %s RetryForceDirectories C:\\A",
                                      "Common %s RetryCreateFile \\update.prt 1",
                                      "UDialog %s ShowMsgBox Text=a Caption=b",
                                      "Client %s Step"};
  constexpr const char* Actions[] = {"Begin", "End", "Exception", "Kept"};
  std::string Log;
  for (const uint8_t Byte : Input)
    Log += "2026.01.01 10:00:00 " + std::to_string(Byte & 7) + " " +
           FormatText(Routines[Byte >> 5], {Actions[Byte >> 3 & 3]}) + "\r\n";
  return Log;
}

/// Each line is in one place, and each call within the one that made it.
void CheckCallLog(const TCallLog& Log) {
  std::vector<uint32_t> Told(Log.Lines + 1), Below(Log.Processes.size());
  for (const TLogCall& Call : Log.Calls) {
    ++Told[Call.Line];
    if (Call.EndLine) ++Told[Call.EndLine];
    if (Call.Parent == NoIndex) {
      Below[Call.Process] += Call.InnerLines + 1 + (Call.EndLine ? 1 : 0);
      continue;
    }
    const TLogCall& Outer = Log.Calls[Call.Parent];
    Promise(Outer.Line < Call.Line && Outer.Process == Call.Process && Outer.Depth + 1 == Call.Depth &&
                (!Outer.EndLine || Call.EndLine < Outer.EndLine),
            "a call is made within another one");
  }
  for (const TLogNote& Note : Log.Notes) ++Told[Note.Line], Below[Note.Process] += Note.Call == NoIndex;
  for (const TStrayLines& Each : Log.Strays)
    for (uint32_t At = 0; At < Each.Count; ++At) ++Told[Each.Line + At];
  Promise(std::all_of(Told.begin() + 1, Told.end(), [](uint32_t Times) { return Times == 1; }),
          "each line is told once");
  for (size_t At = 0; At < Below.size(); ++At)
    Promise(Below[At] == Log.Processes[At].Lines, "the tree has all lines of a process");
}

}  // namespace

bool Load(std::string Bytes, TUninstallLog& Log) {
  TMemoryFile File(Bytes);
  bool Loaded = true;
  ReadWatched(Bytes.size(), [&] {
    try {
      Log.Load(File);
    } catch (const EUninstallLogError&) {
      Loaded = false;
    }
  });
  return Loaded;
}

std::string StreamOf(const TUninstallLog& Log) {
  std::string Stream;
  int32_t Count = 0;
  const TUninstallRecord* Before = nullptr;
  for (const TUninstallRecord* Rec = Log.First(); Rec; Before = Rec, Rec = Rec->Next, ++Count) {
    Promise(Rec->Previous == Before, "the records are linked both ways");
    const std::string Data(Rec->Data().begin(), Rec->Data().end());
    Stream += Record(Rec->RecordType, static_cast<uint32_t>(Rec->ExtraValue), Data);
  }
  Promise(Log.Last() == Before && Log.Count() == Count, "all records are counted");
  return Stream;
}

void FuzzUninstallLog(TFuzzInput Input) {
  constexpr size_t FlagsAt = 332, CrcAt = 444, HeaderSize = 448;
  std::string Bytes(Input.begin() + 1, Input.end());
  if (Bytes.size() >= HeaderSize) {
    uint8_t* const Header = reinterpret_cast<uint8_t*>(Bytes.data());
    if (Input[0] & 1) PutNumber(Header + CrcAt, 0x11111111u);
    if (Input[0] & 2) Header[FlagsAt] |= 2;
  }
  TUninstallLog Log, Again;
  const bool Loaded = Load(Bytes, Log);
  const std::string Stream = StreamOf(Log);
  if (!Loaded) return;
  for (int Operations = -1; Operations < 6; ++Operations) AppendOne(Bytes, Log, Operations);
  for (const TUninstallRecord* Rec = Log.First(); Rec; Rec = Rec->Next) ExtractStrings(*Rec);
  SaveTo(Bytes, Log);
  Promise(Load(Bytes, Again) && StreamOf(Again) == Stream && Again.Is64Bit == Log.Is64Bit && Again.Flags == Log.Flags,
          "a saved log loads as it was");
}

void FuzzBackupItems(TFuzzInput Input) {
  constexpr void (*Readers[])(TFuzzInput) = {ReadItem<TSingleFileItem>, ReadItem<TFileSetItem>,
                                             ReadItem<TRegistryValueItem>, ReadItem<TRegistryKeyItem>, ReadCommaText};
  Readers[Input[0] % std::size(Readers)](Input.subspan(1));
}

void FuzzKitFiles(TFuzzInput Input) {
  const std::string Text(Input.begin() + 1, Input.end());
  Input[0] & 1 ? ReadKitChanges(Text) : ReadManifest(Text);
}

void FuzzState(TFuzzInput Input) {
  namespace fs = std::filesystem;
  static const fs::path Base = fs::temp_directory_path() / ("mendwork-fuzz-" + std::to_string(getpid()));
  const fs::path Service = Base / "Updates" / "Mendwork";
  const std::string Item = "{00000001-0000-0000-0000-000000000000}";
  const auto Write = [](const fs::path& Path, TFuzzInput Bytes) {
    fs::create_directories(Path.parent_path());
    std::ofstream(Path, std::ios::binary)
        .write(reinterpret_cast<const char*>(Bytes.data()), static_cast<std::streamsize>(Bytes.size()));
  };
  // An entry of each layout leads to the item.
  std::vector<uint8_t> Log;
  for (const auto& [Class, Code] : {std::pair{"UFile", FileCode::Deleted},
                                    {"UFile", FileCode::Created},
                                    {"URegistry", RegistryCode::KeyDeleted},
                                    {"URegistry", RegistryCode::StringSet},
                                    {"UBackup", BackupCode::KeyRights}}) {
    const TLogRecordBytes Bytes = EncodeRecord({ParseGuid(IdOfClass(Class)).value(), Code, ParseGuid(Item).value()});
    Log.insert(Log.end(), Bytes.begin(), Bytes.end());
  }
  const fs::path Places[] = {Service / "Backup" / Item,         Service / "update.prt",
                             Service / "update.prt.bkp",        Service / "History" / MacroGroupId,
                             Service / "Garbage" / "RKeys.grb", Base / "Uninstall" / "unins000.dat"};
  fs::remove_all(Base);
  Write(Service / "update.prt", Log);
  Write(Places[Input[0] % std::size(Places)], Input.subspan(1));
  const TContext Context({}, TStateFolder(Base, 32), TPaint(false));
  for (const auto Command :
       {+[](const TContext& To) { return Status(To); }, +[](const TContext& To) { return Show(To, true); },
        +[](const TContext& To) { return Plan(To, false); }, +[](const TContext& To) { return Verify(To); }}) {
    try {
      const TReport Report = Command(Context);
      Promise(!Report.Text.empty() && !Report.Data.dump().empty(), "it tells something, in words and as JSON");
    } catch (const ECannotRead&) {
    }
  }
  fs::remove_all(Base);
}

void FuzzCallLog(TFuzzInput Input) {
  constexpr size_t MostMemory = 16;
  const TFuzzInput Rest = Input.subspan(1);
  const std::string Bytes = Input[0] == 1 ? LogOfLines(Rest) : std::string(Rest.begin(), Rest.end());
  TCallLog Log;
  ReadWatched(MostMemory * Bytes.size(), [&] { Log = ReadCallLog(Bytes); });
  CheckCallLog(Log);
  Promise(CallLogText(Log, {}, false).find('\x1b') == std::string::npos, "nothing that a terminal obeys is told");
  Promise(!CallLogJson(Log, {}).dump().empty(), "it is told as JSON");
  const std::string Page = CallLogPage(Log, {}, "log");
  const size_t Data = Page.find("{\"title\"");
  Promise(Page.find("</script>", Data) == Page.find('<', Data), "nothing of the log is markup");
}
