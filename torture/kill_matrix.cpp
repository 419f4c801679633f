// The kill matrix: the process that updates is ended at every changing system call, and so is the one that rolls back;
// a new process then rolls back, and the application must be as it was.

#include "support/memory_file.h"
#include "support/module_calls.h"
#include "torture.h"
#include "update.h"

#include <set>
#include <sstream>

namespace {

using TCalls = std::vector<std::string>;

/// One way to die: which of the two processes, and where.
struct TDeath {
  std::string Process, Event;
  int Point;
  std::string Call;

  std::string Text() const { return Process + " " + Event + " call " + std::to_string(Point) + " (" + Call + ")"; }
};

class TKillMatrix {
 public:
  TResult Run(const TPlan& Plan);

 private:
  DWORD Change(const std::string& What, const std::string& Event = "nothing", int Point = 0) {
    return TChild({"change", What, Machine.Root(), Event, std::to_string(Point)}).Wait();
  }
  TCalls CallsOf(const std::string& What);
  void Visit(const TDeath& Death, int Number);
  void EndRollback(const TDeath& Death, int Number);
  void Judge(const TDeath& Death, DWORD RolledBack);
  bool UninstallLogIsWhole() const;

  TMachine Machine;
  TCapture Before;
  TCalls Update, Rollback;  ///< of processes that nobody disturbs
  bool Full = false;
  TResult Result;
};

TCalls TKillMatrix::CallsOf(const std::string& What) {
  const DWORD Status = Change(What);
  Must(Status == 0, "the undisturbed " + What + " ended with " + std::to_string(Status));
  std::istringstream Names(Read(Machine.Root() + "\\calls.txt"));
  TCalls Calls;
  for (std::string Name; Names >> Name;) Calls.push_back(Name);
  return Calls;
}

/// Every death of a process that makes these calls. Only a WriteFile can be torn, and its number counts those alone.
std::vector<TDeath> DeathsOf(const std::string& Process, const TCalls& Calls) {
  std::vector<TDeath> Deaths;
  int Write = 0;
  for (size_t At = 0; At < Calls.size(); ++At) {
    const int Point = static_cast<int>(At) + 1;
    Deaths.push_back({Process, "before", Point, Calls[At]});
    Deaths.push_back({Process, "after", Point, Calls[At]});
    if (Calls[At] == "WriteFile") Deaths.push_back({Process, "torn", ++Write, Calls[At]});
  }
  return Deaths;
}

/// The sample of a quick run: deaths spread evenly, and the first of every kind.
std::vector<TDeath> SampleOf(const std::vector<TDeath>& Deaths, size_t Count) {
  std::vector<TDeath> Sample;
  std::set<std::string> Kinds;
  const size_t Stride = std::max<size_t>(1, Deaths.size() / Count);
  for (size_t At = 0; At < Deaths.size(); ++At) {
    const bool NewKind = Kinds.insert(Deaths[At].Process + Deaths[At].Event + Deaths[At].Call).second;
    if (NewKind || At % Stride == 0) Sample.push_back(Deaths[At]);
  }
  return Sample;
}

/// The rollback that follows a death is ended as well, just after a call that the cases take in turn: now one of those
/// that undo the change which the death cut off, now one of all that are left.
void TKillMatrix::EndRollback(const TDeath& Death, int Number) {
  constexpr int QuickEvery = 3, NewestEntry = 16, Stride = 37;
  if (!Full && Number % QuickEvery != 0) return;
  const int All = static_cast<int>(Rollback.size()), Updated = static_cast<int>(Update.size());
  const int Left = Death.Process == "update" ? All * Death.Point / Updated : All - Death.Point;
  // Two neighbours are for the two shares of a run.
  const int Turn = Number / 2, Range = Turn % 2 == 0 ? NewestEntry : std::max(1, Left);
  const DWORD Status = Change("rollback", "after", 1 + Turn / 2 * Stride % Range);
  if (Status == DiedStatus)
    ++Result.Notes["rollbacks that were ended, too"];
  else if (Status != 0)
    Result.Bad.push_back(Death.Text() + ": the rollback to be ended gave " + std::to_string(Status));
}

/// A rollback does not undo what the uninstaller was told, but it is all there or nothing of it.
bool TKillMatrix::UninstallLogIsWhole() const {
  constexpr int Added = 2;
  try {
    TUninstallLog Log;
    LoadFrom(Read(UninstallLogOf(Machine.Root())), Log);
    return Log.Count() == UninstallRecords || Log.Count() == UninstallRecords + Added;
  } catch (const EUninstallLogError&) {
    return false;
  }
}

void TKillMatrix::Judge(const TDeath& Death, DWORD RolledBack) {
  std::string Rest = Difference(Before, Machine.Capture());
  const int Known = RemoveKnownRemains(Rest);
  if (RolledBack != 0) Rest += "the rollback ended with status " + std::to_string(RolledBack) + "\n";
  if (!UninstallLogIsWhole()) Rest += "the uninstall log is neither the old nor the new one\n";
  if (Exists(Machine.Service("update.prt"))) Rest += "the transaction log is not empty\n";
  if (!Rest.empty()) {
    Result.Bad.push_back(Death.Text() + ": " + Rest);
    return;
  }
  ++Result.Good;
  ++Result
        .Notes[Known > 0 ? "restored, with folders, keys or values that logged calls had created" : "restored exactly"];
}

void TKillMatrix::Visit(const TDeath& Death, int Number) {
  Machine.LayOut();
  Must(Death.Process != "rollback" || Change("update") == 0, "the undisturbed update failed");
  ++Result.Cases;
  const DWORD Status = Change(Death.Process, Death.Event, Death.Point);
  if (Status != DiedStatus) {
    Result.Bad.push_back(Death.Text() + ": ended with status " + std::to_string(Status));
    return;
  }
  EndRollback(Death, Number);
  const DWORD RolledBack = Change("rollback");
  Judge(Death, RolledBack);
}

TResult TKillMatrix::Run(const TPlan& Plan) {
  Full = Plan.Full;
  Machine.LayOut();
  Before = Machine.Capture();
  Update = CallsOf("update"), Rollback = CallsOf("rollback");
  std::vector<TDeath> Deaths = DeathsOf("update", Update);
  const std::vector<TDeath> Second = DeathsOf("rollback", Rollback);
  Deaths.insert(Deaths.end(), Second.begin(), Second.end());
  constexpr size_t QuickCount = 150;
  if (!Full) Deaths = SampleOf(Deaths, QuickCount);
  for (size_t At = 0; At < Deaths.size(); ++At) {
    if (!Plan.Takes(At, Deaths[At].Text())) continue;
    Visit(Deaths[At], static_cast<int>(At));
    TellProgress("kill", Result.Cases, static_cast<int>(Deaths.size()) / Plan.Shards);
  }
  Result.Notes["changing calls of the update"] = static_cast<int>(Update.size());
  Result.Notes["changing calls of the rollback"] = static_cast<int>(Rollback.size());
  return Result;
}

/// change WHAT ROOT EVENT POINT: makes the update, or rolls everything back and looks at what outlives it; see
/// module_calls.h for the event at a point.
const TRole Change("change", [](const TWords& Words, TScriptedDialog& User) {
  constexpr long Kinds = 15;
  User.OnBox = [&] { User.Answer({(User.Boxes.back().MsgType & Kinds) == MB_YESNO ? IDYES : IDCANCEL}); };
  TComRef<IClassFactory> Loaded;
  CoGetClassObject(CLSID_UFile, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, Loaded.OutVoid());
  PlanEvent(Words.at(2), std::stoi(Words.at(3)));
  std::string Step = "rollback";
  HRESULT Result = S_OK;
  if (Words.at(0) == "update") {
    TUpdater Updater(Words.at(1));
    Result = RunUpdate(Updater, Step);
    WriteCalls(Words.at(1));
  } else {
    Result = RollBack();
    WriteCalls(Words.at(1));
    if (SUCCEEDED(Result)) Step = "history, macros, garbage lists", Result = LookAtStores();
  }
  Must(SUCCEEDED(Result), Step + " failed with " + std::to_string(Result) + ": " + ErrorText());
  return 0;
});

}  // namespace

TResult KillMatrix(const TPlan& Plan) { return TKillMatrix().Run(Plan); }
