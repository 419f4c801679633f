// The kill matrix: the process that updates is ended at every changing system call, and so is the one that rolls back;
// a new process then rolls back, and the application must be as it was.

#include "support/module_calls.h"
#include "torture.h"

#include <set>

namespace {

/// One way to die: which of the two processes, and where.
struct TDeath {
  std::string Process, Event;
  int Point;
  std::string Call;

  std::string Text() const { return Process + " " + Event + " call " + std::to_string(Point) + " (" + Call + ")"; }
};
using TDeaths = std::vector<TDeath>;

/// Every death of a process that makes these calls. Only a WriteFile can be torn, and its number counts those alone.
void AddDeaths(TDeaths& Deaths, const std::string& Process, const TWords& Calls) {
  int Point = 0, Write = 0;
  for (const std::string& Call : Calls) {
    Deaths.push_back({Process, "before", ++Point, Call});
    Deaths.push_back({Process, "after", Point, Call});
    if (Call == "WriteFile") Deaths.push_back({Process, "torn", ++Write, Call});
  }
}

/// The sample of a quick run: deaths spread evenly, and the first of every kind.
TDeaths SampleOf(const TDeaths& Deaths, size_t Count) {
  TDeaths Sample;
  std::set<std::string> Kinds;
  const size_t Stride = std::max<size_t>(1, Deaths.size() / Count);
  for (size_t At = 0; At < Deaths.size(); ++At) {
    const bool NewKind = Kinds.insert(Deaths[At].Process + Deaths[At].Event + Deaths[At].Call).second;
    if (NewKind || At % Stride == 0) Sample.push_back(Deaths[At]);
  }
  return Sample;
}

class TKillMatrix {
 public:
  explicit TKillMatrix(TForm Form) : Machine(Form), SampleSize(Form == TForm::Kit ? 60 : 150) {}

  TResult Run(const TPlan& Plan) {
    Machine.LayOut();
    const int Update = CallsOf("update"), Rollback = CallsOf("rollback");
    if (!Plan.Full) Deaths = SampleOf(Deaths, SampleSize);
    for (size_t At = 0; At < Deaths.size(); ++At) {
      const TDeath& Death = Deaths[At];
      if (!Plan.Takes(At, Death.Text())) continue;
      const int Left = Death.Process == "update" ? Rollback * Death.Point / Update : Rollback - Death.Point;
      const std::string Wrong = Visit(Death, static_cast<int>(At), Left, Plan.Full);
      Result.Count(Wrong.empty(), Death.Text() + ": " + Wrong);
      TellProgress(Result.Cases, static_cast<int>(Deaths.size()) / Plan.Shards);
    }
    return Result;
  }

 private:
  /// Of a process that nobody disturbs.
  int CallsOf(const std::string& What) {
    const TTold Told = Machine.Change(What);
    Must(SUCCEEDED(Told.Result), "the undisturbed " + What + " failed in " + Told.Step + ": " + Told.Error);
    AddDeaths(Deaths, What, Told.Calls);
    return Result.Notes["changing calls of the " + What] = static_cast<int>(Told.Calls.size());
  }

  /// What is wrong after a death and the rollbacks that follow, or "". `Left` is about how many calls they make.
  std::string Visit(const TDeath& Death, int Number, int Left, bool Full) {
    Machine.LayOut();
    if (Death.Process == "rollback") Must(SUCCEEDED(Machine.Change("update").Result), "the undisturbed update failed");
    const TTold Died = Machine.Change(Death.Process, {Death.Event, std::to_string(Death.Point)});
    if (Died.Status != DiedStatus) return "ended with status " + std::to_string(Died.Status);
    std::string Wrong = EndRollback(Number, Left, Full);
    return Wrong + Machine.RollBackAndCompare(Result.Notes);
  }

  /// The rollback that follows a death is ended as well, just after a call that the cases take in turn: now one of
  /// those that undo the change which the death cut off, now one of all that are left.
  std::string EndRollback(int Number, int Left, bool Full) {
    constexpr int QuickEvery = 3, NewestEntry = 16, Stride = 37;
    if (!Full && Number % QuickEvery != 0) return "";
    // Two neighbours are for the two shares of a run.
    const int Turn = Number / 2, Range = Turn % 2 == 0 ? NewestEntry : std::max(1, Left);
    const TTold Told = Machine.Change("rollback", {"after", std::to_string(1 + Turn / 2 * Stride % Range)});
    Result.Notes["rollbacks that were ended, too"] += Told.Status == DiedStatus;
    return Told.Status == DiedStatus || SUCCEEDED(Told.Result) ? "" : "the rollback to be ended failed\n";
  }

  TMachine Machine;
  const size_t SampleSize;
  TDeaths Deaths;
  TResult Result;
};

}  // namespace

TResult KillMatrix(const TPlan& Plan, TForm Form) { return TKillMatrix(Form).Run(Plan); }
