// Power loss: the update, or its rollback, ends just after each changing call, and what it had written and not flushed
// is as a journalling file system may leave it; a new process then rolls back, and the application must be as it was.

#include "support/module_calls.h"
#include "torture.h"
#include "unflushed.h"

#include <set>

namespace {

/// The changes of names were in order, and all are there. A file that was not flushed since has its old content, or a
/// part of the new one, or the new size with zeros instead.
std::string LeftOf(const std::string& Old, const std::string& New, int Way) {
  const size_t Kept = std::min(Old.size(), New.size());
  if (Way == 0) return Old;
  return Way == 1 ? New.substr(0, Kept + (New.size() - Kept) / 2) : New.substr(0, Kept).append(New.size() - Kept, '\0');
}
constexpr int Ways = 3;
constexpr const char* WayNames[Ways] = {"lost", "cut", "zeros"};

/// Each file alone, and all of them together, in each way: the contents that differ from what is there.
std::vector<std::pair<std::string, TUnflushed>> StatesOf(const TUnflushed& Unflushed) {
  std::vector<std::pair<std::string, TUnflushed>> States;
  std::set<TUnflushed> Known;
  const auto Add = [&](const TUnflushed& Files, int Way) {
    TUnflushed State;
    for (const auto& [Path, Old] : Files)
      if (const std::string New = Read(Path), Left = LeftOf(Old, New, Way); Left != New) State[Path] = Left;
    if (!State.empty() && Known.insert(State).second)
      States.emplace_back(State.begin()->first + " " + WayNames[Way], State);
  };
  for (int Way = 0; Way < Ways; ++Way) {
    for (const auto& File : Unflushed) Add({File}, Way);
    Add(Unflushed, Way);
  }
  return States;
}

class TPowerLoss {
 public:
  explicit TPowerLoss(TForm Form) : Machine(Form), QuickPoints(Form == TForm::Kit ? 100 : 300) {}

  TResult Run(const TPlan& Plan) {
    Machine.LayOut();
    const int Update = CallsOf("update"), All = Update + CallsOf("rollback");
    const int Stride = Plan.Full ? 1 : std::max(1, All / QuickPoints);
    for (int Point = 1, Number = 0; Point <= All; Point += Stride, ++Number) {
      const bool InUpdate = Point <= Update;
      const std::string What = InUpdate ? "update" : "rollback";
      const int At = InUpdate ? Point : Point - Update;
      if (Plan.Takes(static_cast<size_t>(Number), What)) Visit(What, At, Plan.Full ? -1 : Number / Plan.Shards);
      TellProgress(Number, All / Stride);
    }
    return Result;
  }

 private:
  /// Of a process that nobody disturbs; what it did is on the disk then.
  int CallsOf(const std::string& What) {
    const TTold Told = Machine.Change(What, {"power", "0"});
    Must(SUCCEEDED(Told.Result), "the undisturbed " + What + " failed in " + Told.Step + ": " + Told.Error);
    std::string Left;
    for (const auto& [Path, Content] : TakeUnflushed(Machine.Root())) Left += Path + " ";
    Result.Count(Left.empty(), "the whole " + What + " left unflushed " + Left);
    return static_cast<int>(Told.Calls.size());
  }
  /// All states of a point, or the one whose turn it is.
  void Visit(const std::string& What, int Point, int Turn) {
    std::vector<std::pair<std::string, TUnflushed>> States = StatesAfter(What, Point);
    const size_t Count = States.size();
    ++Result.Notes[Count ? "points with something unflushed" : "points without"];
    for (size_t At = 0; At < Count; ++At) {
      if (Turn >= 0 && At != static_cast<size_t>(Turn) % Count) continue;
      // Another run of the same point now and then leaves less unflushed.
      for (int TriesLeft = 3; (At > 0 && Turn < 0 && TriesLeft == 3) || (States.size() <= At && TriesLeft > 0);
           --TriesLeft)
        States = StatesAfter(What, Point);
      if (States.size() <= At) {
        Result.Count(false, What + " after call " + std::to_string(Point) + " does not come to the same state again");
        return;
      }
      const auto& [Name, Files] = States.at(At);
      for (const auto& [Path, Content] : Files) Replace(Path, Content);
      const std::string Wrong = Machine.RollBackAndCompare(Result.Notes);
      Result.Count(Wrong.empty(), What + " after call " + std::to_string(Point) + ", " + Name + ": " + Wrong);
    }
  }
  /// Lets the process die there, and gives what the power failure can make of that.
  std::vector<std::pair<std::string, TUnflushed>> StatesAfter(const std::string& What, int Point) {
    Machine.LayOut();
    if (What == "rollback") Must(SUCCEEDED(Machine.Change("update").Result), "the undisturbed update failed");
    const TTold Died = Machine.Change(What, {"power", std::to_string(Point)});
    Must(Died.Status == DiedStatus, "the process did not die where it was to");
    return StatesOf(TakeUnflushed(Machine.Root()));
  }
  static void Replace(const std::string& Path, const std::string& Content) {
    const DWORD Attributes = GetFileAttributesA(Path.c_str());
    SetFileAttributesA(Path.c_str(), FILE_ATTRIBUTE_NORMAL);
    Write(Path, Content);
    SetFileAttributesA(Path.c_str(), Attributes);
  }

  TMachine Machine;
  const int QuickPoints;  ///< of which half have something to lose
  TResult Result;
};

}  // namespace

TResult PowerLoss(const TPlan& Plan, TForm Form) { return TPowerLoss(Form).Run(Plan); }
