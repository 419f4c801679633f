// Many at once: processes that change, read and record on one base folder, some of them killed and replaced. Whatever a
// caller was told had succeeded is there once, whole; nobody waits for the dead.

#include "formats/log_record.h"
#include "torture.h"
#include "update.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>

namespace {

constexpr int Workers = 8;
constexpr int PerWorker = 100000;  ///< the numbers of a worker's calls begin with its own
constexpr size_t ItemTag = 4;      ///< what an item begins with
/// Longer than any call of a living process takes while seven others work; a wait for a dead one would not end.
constexpr double LongestCall = 10000;
const GUID SharedGroup = NumberedGuid(31);

/// The text that stands for a number in an item and in a garbage list.
std::string NameOf(int Unique) { return "C:\\torture\\" + std::to_string(Unique); }

/// What a worker does, told to a journal line by line: "+" and the time before a call; after its success "=", the
/// milliseconds that it took, and the item that it made.
class TWorker {
 public:
  TWorker(const std::string& Root, int Number, const std::string& Journal)
      : Updater(Root), Number(Number), File(std::fopen(Journal.c_str(), "ab")), Random(static_cast<unsigned>(Number)) {}
  int Run(ULONGLONG Until);

 private:
  HRESULT Do(const std::string& Kind, int Unique, GUID& DataID);

  TUpdater Updater;
  const int Number;
  std::FILE* const File;
  std::mt19937 Random;
};

HRESULT TWorker::Do(const std::string& Kind, int Unique, GUID& DataID) {
  if (Kind == "garbage") return Updater.Garbage->PutFile(Text(NameOf(Unique)));
  if (Kind == "item") return Updater.Backup->BackupString(Text(NameOf(Unique)), &DataID);
  if (Kind == "put") return Updater.Log->Put(CLSID_UCanRollback, Unique, NumberedGuid(Unique));
  if (Kind == "record") return Updater.History->Put(SharedGroup, Unique, NumberedGuid(Unique));
  if (Kind == "macro")
    return Updater.Macro->SetMacro(Text("Worker" + std::to_string(Number)), Text(std::to_string(Unique)), VARIANT_TRUE);
  if (Kind == "write")
    return Updater.Registry->SetDwordValueLogged(0x80000001, Text("Software\\MendworkTorture\\Watched"),
                                                 Text("Worker" + std::to_string(Number % Workers)),
                                                 static_cast<unsigned long>(Unique));
  long Code = 0;
  VARIANT_BOOL NoMore = 0, CheckPoint = 0;
  return Updater.History->Get(SharedGroup, &Code, &DataID, &NoMore, &CheckPoint);
}

int TWorker::Run(ULONGLONG Until) {
  const char* const Kinds[] = {"put", "record", "macro", "write", "read", "garbage", "item"};
  constexpr int OfEachOne = std::size(Kinds);
  for (int Call = 0; Call < OfEachOne || GetTickCount64() < Until; ++Call) {
    const std::string Kind = Kinds[Call < OfEachOne ? static_cast<unsigned>(Call) : Random() % std::size(Kinds)];
    const int Unique = Number * PerWorker + Call;
    const ULONGLONG Begin = GetTickCount64();
    std::fprintf(File, "+ %s %d %s\n", Kind.c_str(), Unique, std::to_string(Begin).c_str());
    std::fflush(File);
    GUID DataID{};
    const HRESULT Result = Do(Kind, Unique, DataID);
    const auto Took = static_cast<unsigned>(GetTickCount64() - Begin);
    if (FAILED(Result)) {
      std::fprintf(File, "! %s %d 0x%lx %s\n", Kind.c_str(), Unique, static_cast<unsigned long>(Result),
                   ErrorText().c_str());
      return 1;
    }
    std::fprintf(File, "= %s %d %u %s\n", Kind.c_str(), Unique, Took, GuidText(DataID).c_str());
    std::fflush(File);
  }
  return std::fclose(File);
}

class TCrowd {
 public:
  explicit TCrowd(bool Full) : Milliseconds(Full ? 60000 : 20000) {}
  TResult Run();

 private:
  std::string Journal(int Number) const { return Machine.Root() + "\\journal" + std::to_string(Number) + ".txt"; }
  std::unique_ptr<TChild> Start();
  void LetThemWork();
  void ReadJournals();
  void ReadJournal(int Number);
  void Expect(bool Condition, const std::string& Text);
  std::vector<TLogRecord> RecordsOf(const std::string& File);
  int CompareRecords(const std::string& Kind, const std::string& File);
  void CompareMacros();
  void CompareLines();
  void CompareItems();
  void ExpectOnce(const std::string& Kind, const std::multiset<int>& Found);
  void ExpectBetween(const std::string& What, const std::string& Kind, int Found);

  TMachine Machine;
  const DWORD Milliseconds;
  ULONGLONG Until = 0;
  int Started = 0;
  double Longest = 0;
  std::map<std::string, std::set<int>> Begun, Acknowledged;
  std::map<int, std::string> Items;   ///< acknowledged, with their DataIDs
  std::map<int, ULONGLONG> KilledAt;  ///< by the worker's number
  TResult Result;
};

std::unique_ptr<TChild> TCrowd::Start() {
  const int Number = ++Started;
  return std::make_unique<TChild>(
      TWords{"worker", Machine.Root(), std::to_string(Number), std::to_string(Until), Journal(Number)});
}

void TCrowd::LetThemWork() {
  constexpr DWORD KillEvery = 400;
  std::mt19937 Random(1);
  Until = GetTickCount64() + Milliseconds;
  struct TMember {
    std::unique_ptr<TChild> Role;
    int Number;
  };
  std::vector<TMember> Crowd;
  const auto Join = [&] { return TMember{Start(), Started}; };
  while (Crowd.size() < Workers) Crowd.push_back(Join());
  while (GetTickCount64() + 2 * KillEvery < Until) {
    Sleep(KillEvery + Random() % KillEvery);
    TMember& Victim = Crowd[Random() % Workers];
    Expect(!Victim.Role->HasEnded(), "a worker ended before its time");
    KilledAt[Victim.Number] = GetTickCount64();
    Victim.Role->Kill();
    Victim = Join();
  }
  for (TMember& Worker : Crowd) Expect(Worker.Role->Wait() == 0, "a worker ended with a failure");
  // Whoever comes next mends what the last death left half done; a worker does everything once at least.
  Expect(Start()->Wait() == 0, "the last worker ended with a failure");
}

void TCrowd::ReadJournals() {
  for (int Number = 1; Number <= Started; ++Number) ReadJournal(Number);
  for (const char* Kind : {"put", "record", "macro", "write", "read", "garbage", "item"})
    Expect(!Acknowledged[Kind].empty(), std::string("nobody got done: ") + Kind);
}

void TCrowd::ReadJournal(int Number) {
  std::istringstream Lines(Exists(Journal(Number)) ? Read(Journal(Number)) : "");
  std::string Sign, Kind;
  ULONGLONG OpenSince = 0;
  for (std::string Line; std::getline(Lines, Line);) {
    std::istringstream Words(Line);
    int Unique = 0;
    double Took = 0;
    if (!(Words >> Sign >> Kind >> Unique)) continue;  // cut by a death
    if (Sign == "!") Expect(false, Line);
    if (Sign == "+") {
      Begun[Kind].insert(Unique);
      Words >> OpenSince;
    }
    std::string DataID;
    if (Sign == "=" && Words >> Took >> DataID) {
      Acknowledged[Kind].insert(Unique);
      if (Kind == "item") Items[Unique] = DataID;
      Longest = std::max(Longest, Took);
      OpenSince = 0;
    }
  }
  // What it was at when it was killed counts as a call, too.
  if (OpenSince != 0 && KilledAt.count(Number))
    Longest = std::max(Longest, static_cast<double>(KilledAt[Number]) - static_cast<double>(OpenSince));
}

void TCrowd::Expect(bool Condition, const std::string& Text) {
  ++Result.Cases;
  Result.Good += Condition;
  if (!Condition) Result.Bad.push_back(Text);
}

/// What was acknowledged is there once, and nothing that was not at least begun.
void TCrowd::ExpectOnce(const std::string& Kind, const std::multiset<int>& Found) {
  for (const int Unique : Acknowledged[Kind])
    Expect(Found.count(Unique) == 1, Kind + " " + std::to_string(Unique) + " was acknowledged and is there " +
                                         std::to_string(Found.count(Unique)) + " times");
  for (const int Unique : Found)
    if (!Begun[Kind].count(Unique)) Expect(false, Kind + " " + std::to_string(Unique) + " was never made");
}

std::vector<TLogRecord> TCrowd::RecordsOf(const std::string& File) {
  const std::string Content = Exists(File) ? Read(File) : "";
  Expect(Content.size() % LogRecordSize == 0, File + " has a torn end");
  std::vector<TLogRecord> Records;
  for (size_t At = 0; At + LogRecordSize <= Content.size(); At += LogRecordSize) {
    TLogRecordBytes Bytes;
    std::copy_n(Content.begin() + static_cast<std::ptrdiff_t>(At), LogRecordSize, Bytes.begin());
    Records.push_back(DecodeRecord(Bytes));
  }
  return Records;
}

/// The records of the workers' own, which repeat their number; gives how many others there are.
int TCrowd::CompareRecords(const std::string& Kind, const std::string& File) {
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
void TCrowd::CompareMacros() {
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
    Expect(Saved.count(Macro) == 1, "the macro " + Macro + " was acknowledged and is in no record");
  }
  ExpectBetween("records of macros", "macro", Settings);
}

/// As many as were acknowledged, or some of those that a death cut off as well.
void TCrowd::ExpectBetween(const std::string& What, const std::string& Kind, int Found) {
  const auto Least = static_cast<int>(Acknowledged[Kind].size()), Most = static_cast<int>(Begun[Kind].size());
  Expect(Least <= Found && Found <= Most,
         What + ": " + std::to_string(Found) + ", not from " + std::to_string(Least) + " to " + std::to_string(Most));
}

void TCrowd::CompareLines() {
  const std::string Content = Read(Machine.Service("Garbage\\Files.grb"));
  const std::string Begin = NameOf(0).substr(0, NameOf(0).size() - 1);
  std::multiset<int> Found;
  for (size_t At = 0, End; (End = Content.find("\r\n", At)) != std::string::npos; At = End + 2) {
    const std::string Line = Content.substr(At, End - At);
    const int Unique = Line.starts_with(Begin) ? std::atoi(Line.c_str() + Begin.size()) : -1;
    if (Line == NameOf(Unique))
      Found.insert(Unique);
    else
      Expect(false, "the garbage list has the line " + Line);
  }
  ExpectOnce("garbage", Found);
}

void TCrowd::CompareItems() {
  for (const auto& [Unique, DataID] : Items) {
    const std::string Content = Read(Machine.Service("Backup\\" + DataID));
    Expect(Content.size() > ItemTag && Content.substr(ItemTag) == NameOf(Unique),
           "the item " + DataID + " is not what was saved");
  }
}

TResult TCrowd::Run() {
  Machine.LayOut();
  for (int Number = 0; Number < Workers; ++Number)
    StoreValue(std::wstring(AppKeyName) + L"\\Watched", L"Worker" + std::to_wstring(Number), REG_BINARY, "before");
  const TCapture Before = Machine.Capture();
  LetThemWork();
  ReadJournals();
  Expect(Longest < LongestCall, "a call took " + std::to_string(Longest) + " ms");
  CompareRecords("record", Machine.Service("History\\" + GuidText(SharedGroup)));
  // The entries of logged writes are among the others.
  ExpectBetween("entries of registry writes", "write", CompareRecords("put", Machine.Service("update.prt")));
  CompareMacros();
  CompareLines();
  CompareItems();
  Expect(TChild({"change", "rollback", Machine.Root(), "nothing", "0"}).Wait() == 0, "the rollback failed");
  Expect(!Exists(Machine.Service("update.prt")), "the rollback left entries");
  const std::string Rest = Difference(Before, Machine.Capture());
  Expect(Rest.empty(), "after the rollback: " + Rest);
  for (const auto& [Kind, Uniques] : Acknowledged)
    Result.Notes["acknowledged: " + Kind] = static_cast<int>(Uniques.size());
  Result.Notes["processes"] = Started;
  Result.Notes["killed"] = static_cast<int>(KilledAt.size());
  Result.Notes["longest call, ms"] = static_cast<int>(Longest);
  return Result;
}

/// worker ROOT NUMBER UNTIL JOURNAL
const TRole Worker("worker", [](const TWords& Words, TScriptedDialog&) {
  return TWorker(Words.at(0), std::stoi(Words.at(1)), Words.at(3)).Run(std::stoull(Words.at(2)));
});

}  // namespace

TResult ManyAtOnce(const TPlan& Plan) {
  if (Plan.Shard != 0) return {.Skipped = true};
  return TCrowd(Plan.Full).Run();
}
