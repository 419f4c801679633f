// Many at once: processes that change, read and record on one base folder, some of them killed and replaced. Whatever a
// caller was told had succeeded is there once, whole; nobody waits for the dead.

#include "formats/log_record.h"
#include "torture.h"
#include "update.h"

#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>

namespace {

constexpr int Workers = 8;
constexpr int PerWorker = 100000;  ///< the numbers of a worker's calls begin with its own
constexpr size_t ItemTag = 4;      ///< what an item begins with
/// Longer than any call of a living process takes while seven others work; a wait for a dead one would not end.
constexpr LONGLONG LongestCall = 10000;
const GUID SharedGroup = NumberedGuid(31);

/// The text that stands for a number in an item and in a garbage list.
std::string NameOf(int Unique) { return "C:\\torture\\" + std::to_string(Unique); }

/// What workers call with their numbers.
const struct TCall {
  std::string Kind;
  HRESULT (*Make)(TUpdater& U, int Unique);
} Calls[] = {
    {"put", [](TUpdater& U, int Unique) { return U.Log->Put(CLSID_UCanRollback, Unique, NumberedGuid(Unique)); }},
    {"record", [](TUpdater& U, int Unique) { return U.History->Put(SharedGroup, Unique, NumberedGuid(Unique)); }},
    {"macro",
     [](TUpdater& U, int Unique) {
       return U.Macro->SetMacro(Text("Worker" + std::to_string(Unique / PerWorker)), Text(std::to_string(Unique)), Yes);
     }},
    {"write",
     [](TUpdater& U, int Unique) {
       const Text Name("Worker" + std::to_string(Unique / PerWorker % Workers));
       return U.Registry->SetDwordValueLogged(User, KeyName("Watched"), Name, static_cast<unsigned long>(Unique));
     }},
    {"read", [](TUpdater& U, int) { return U.ReadGroup(SharedGroup); }},
    {"garbage", [](TUpdater& U, int Unique) { return U.Garbage->PutFile(Text(NameOf(Unique))); }},
    {"item", [](TUpdater& U, int Unique) { return U.Backup->BackupString(Text(NameOf(Unique)), &U.Item); }}};

/// worker ROOT NUMBER UNTIL JOURNAL: makes every call once, then any. Tells a journal line by line: "+" and the time
/// before a call; after its success "=", the milliseconds that it took, and the item that it made.
const TRole Worker("worker", [](const TWords& Words, TScriptedDialog&) {
  TUpdater Updater(Words.at(0));
  const int Number = std::stoi(Words.at(1));
  std::ofstream Journal(Words.at(3), std::ios::binary);
  std::mt19937 Random(static_cast<unsigned>(Number));
  for (unsigned At = 0; At < std::size(Calls) || GetTickCount64() < std::stoull(Words.at(2)); ++At) {
    const TCall& Call = Calls[At < std::size(Calls) ? At : Random() % std::size(Calls)];
    const int Unique = Number * PerWorker + static_cast<int>(At);
    const std::string Which = Call.Kind + " " + std::to_string(Unique) + " ";
    const ULONGLONG Begin = GetTickCount64();
    Journal << "+ " << Which << Begin << std::endl;
    const HRESULT Result = Call.Make(Updater, Unique);
    if (FAILED(Result)) {
      Journal << "! " << Which << Result << " " << ErrorText() << std::endl;
      return 1;
    }
    Journal << "= " << Which << GetTickCount64() - Begin << " " << GuidText(Updater.Item) << std::endl;
  }
  return 0;
});

class TCrowd {
 public:
  TResult Run(DWORD Milliseconds) {
    Machine.LayOut();
    for (int Number = 0; Number < Workers; ++Number)
      StoreValue(std::wstring(AppKeyName) + L"\\Watched", L"Worker" + std::to_wstring(Number), REG_BINARY, "before");
    const TCapture Before = Machine.Capture();
    LetThemWork(GetTickCount64() + Milliseconds);
    for (int Number = 1; Number <= Started; ++Number) ReadJournal(Number);
    for (const TCall& Call : Calls) {
      const auto Count = static_cast<int>(Acknowledged[Call.Kind].size());
      Result.Count(Count > 0, "nobody got done: " + Call.Kind);
      Result.Notes["acknowledged: " + Call.Kind] = Count;
    }
    Result.Count(Longest < LongestCall, "a call took " + std::to_string(Longest) + " ms");
    CompareRecords("record", Machine.Service("History\\" + GuidText(SharedGroup)));
    // The entries of logged writes are among the others.
    ExpectBetween("entries of registry writes", "write", CompareRecords("put", Machine.Service("update.prt")));
    CompareMacros();
    CompareLines();
    for (const auto& [Unique, DataID] : Items) {
      const std::string Content = Read(Machine.Service("Backup\\" + DataID));
      Result.Count(Content.size() > ItemTag && Content.substr(ItemTag) == NameOf(Unique),
                   "the item " + DataID + " is not what was saved");
    }
    Result.Count(SUCCEEDED(Machine.Change("rollback").Result), "the rollback failed");
    Result.Count(!Exists(Machine.Service("update.prt")), "the rollback left entries");
    const std::string Rest = Difference(Before, Machine.Capture());
    Result.Count(Rest.empty(), "after the rollback: " + Rest);
    Result.Notes["processes"] = Started;
    Result.Notes["killed"] = static_cast<int>(KilledAt.size());
    Result.Notes["longest call, ms"] = static_cast<int>(Longest);
    return Result;
  }

 private:
  std::string Journal(int Number) const { return Machine.Root() + "\\journal" + std::to_string(Number) + ".txt"; }

  void LetThemWork(ULONGLONG Until) {
    constexpr DWORD KillEvery = 400;
    std::mt19937 Random(1);
    std::map<int, TChild> Crowd;  // by their numbers
    const auto Join = [&]() -> TChild& {
      const std::string Number = std::to_string(++Started);
      const TWords Words = {"worker", Machine.Root(), Number, std::to_string(Until), Journal(Started)};
      return Crowd.try_emplace(Started, Words).first->second;
    };
    while (Crowd.size() < Workers) Join();
    while (GetTickCount64() + 2 * KillEvery < Until) {
      Sleep(KillEvery + Random() % KillEvery);
      const auto Victim = std::next(Crowd.begin(), static_cast<int>(Random() % Workers));
      Result.Count(!Victim->second.HasEnded(), "a worker ended before its time");
      KilledAt[Victim->first] = static_cast<LONGLONG>(GetTickCount64());
      Crowd.erase(Victim);
      Join();
    }
    for (auto& [Number, Child] : Crowd) Result.Count(Child.Wait() == 0, "a worker ended with a failure");
    // Whoever comes next mends what the last death left half done; a worker does everything once at least.
    Result.Count(Join().Wait() == 0, "the last worker ended with a failure");
  }

  void ReadJournal(int Number) {
    std::istringstream Lines(Read(Journal(Number)));
    std::string Sign, Kind;
    LONGLONG OpenSince = 0;
    for (std::string Line; std::getline(Lines, Line);) {
      std::istringstream Words(Line);
      int Unique = 0;
      LONGLONG Time = 0;  // of the beginning, or that it took
      std::string DataID;
      if (!(Words >> Sign >> Kind >> Unique >> Time)) continue;  // cut by a death
      if (Sign == "!") Result.Count(false, Line);
      if (Sign == "+") Begun[Kind].insert(Unique), OpenSince = Time;
      if (Sign == "=" && Words >> DataID) {
        Acknowledged[Kind].insert(Unique);
        if (Kind == "item") Items[Unique] = DataID;
        Longest = std::max(Longest, Time);
        OpenSince = 0;
      }
    }
    // What it was at when it was killed counts as a call, too.
    if (OpenSince != 0 && KilledAt.count(Number)) Longest = std::max(Longest, KilledAt[Number] - OpenSince);
  }

  /// What was acknowledged is there once, and nothing that was not at least begun.
  void ExpectOnce(const std::string& Kind, const std::multiset<int>& Found) {
    for (const int Unique : Acknowledged[Kind])
      Result.Count(Found.count(Unique) == 1, Kind + " " + std::to_string(Unique) + " was acknowledged and is there " +
                                                 std::to_string(Found.count(Unique)) + " times");
    for (const int Unique : Found)
      if (!Begun[Kind].count(Unique)) Result.Count(false, Kind + " " + std::to_string(Unique) + " was never made");
  }

  std::vector<TLogRecord> RecordsOf(const std::string& File) {
    const std::string Content = Exists(File) ? Read(File) : "";
    Result.Count(Content.size() % LogRecordSize == 0, File + " has a torn end");
    std::vector<TLogRecord> Records;
    for (size_t At = 0; At + LogRecordSize <= Content.size(); At += LogRecordSize) {
      TLogRecordBytes Bytes;
      std::copy_n(Content.begin() + static_cast<std::ptrdiff_t>(At), LogRecordSize, Bytes.begin());
      Records.push_back(DecodeRecord(Bytes));
    }
    return Records;
  }

  /// The records of the workers' own, which repeat their number; gives how many others there are.
  int CompareRecords(const std::string& Kind, const std::string& File) {
    std::multiset<int> Found;
    int Others = 0;
    for (const TLogRecord& Record : RecordsOf(File)) {
      const bool Own = Record.DataID == BytesOf(NumberedGuid(Record.Code));
      Own ? void(Found.insert(Record.Code)) : void(++Others);
    }
    ExpectOnce(Kind, Found);
    return Others;
  }

  /// Every setting of a macro is a record of the macros' group, whose item has all macros that the process knew.
  void CompareMacros() {
    std::set<std::string> Saved;
    int Settings = 0;
    for (const auto& [Name, Entry] : TreeOf(Machine.Service("History"))) {
      if (Name == GuidText(SharedGroup)) continue;
      for (const TLogRecord& Record : RecordsOf(Machine.Service("History\\" + Name))) {
        ++Settings;
        const std::string Item = Read(Machine.Service("Backup\\" + GuidText(Record.DataID)));
        std::istringstream Macros(Item.substr(std::min(ItemTag, Item.size())));
        for (std::string Macro; std::getline(Macros, Macro, ',');) Saved.insert(Macro);
      }
    }
    for (const int Unique : Acknowledged["macro"]) {
      const std::string Macro = "Worker" + std::to_string(Unique / PerWorker) + "=" + std::to_string(Unique);
      Result.Count(Saved.count(Macro) == 1, "the macro " + Macro + " was acknowledged and is in no record");
    }
    ExpectBetween("records of macros", "macro", Settings);
  }

  /// As many as were acknowledged, or some of those that a death cut off as well.
  void ExpectBetween(const std::string& What, const std::string& Kind, int Found) {
    const auto Least = static_cast<int>(Acknowledged[Kind].size()), Most = static_cast<int>(Begun[Kind].size());
    Result.Count(Least <= Found && Found <= Most, What + ": " + std::to_string(Found) + ", not from " +
                                                      std::to_string(Least) + " to " + std::to_string(Most));
  }

  void CompareLines() {
    std::istringstream Lines(Read(Machine.Service("Garbage\\Files.grb")));
    std::multiset<int> Found;
    for (std::string Line; std::getline(Lines, Line) && !Lines.eof();) {
      const int Unique = std::atoi(Line.substr(std::min(Line.size(), NameOf(0).size() - 1)).c_str());
      Line == NameOf(Unique) + "\r" ? void(Found.insert(Unique)) : Result.Count(false, "the garbage list has " + Line);
    }
    ExpectOnce("garbage", Found);
  }

  TMachine Machine;
  int Started = 0;
  LONGLONG Longest = 0;
  std::map<std::string, std::set<int>> Begun, Acknowledged;
  std::map<int, std::string> Items;  ///< acknowledged, with their DataIDs
  std::map<int, LONGLONG> KilledAt;  ///< by the worker's number
  TResult Result;
};

}  // namespace

TResult ManyAtOnce(const TPlan& Plan) {
  if (Plan.Shard != 0) return {.Skipped = true};
  return TCrowd().Run(Plan.Full ? 60000 : 20000);
}
