// The fault matrix: a system call of the update fails once. When the user presses Retry, the update must end as if
// nothing had happened; when the user presses Cancel, the method fails with the call's own code and text, and a
// rollback restores everything.

#include "base/error_code.h"
#include "support/module_calls.h"
#include "torture.h"
#include "update.h"

#include <algorithm>

namespace {

/// The last one has no text of the system's.
constexpr DWORD Codes[] = {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_DISK_FULL, ERROR_PATH_NOT_FOUND, 0x2222};

struct TFaultCase {
  std::string Name;
  int Nth;
  DWORD Code;
  bool Retry;

  std::string Text() const {
    return Name + " call " + std::to_string(Nth) + " fails with " + std::to_string(Code) + ", " + Answer();
  }
  std::string Answer() const { return Retry ? "retry" : "cancel"; }
  bool IsSearch() const { return Name == "FindFirstFileA"; }
  /// Rules of the system by which a failing call is an answer: a test whether a key or value exists takes any failure
  /// for "no", and a search for a mask, or a question for a file, that is told that there is no such path has found
  /// nothing.
  bool IsAnswer(const TTold& Told) const {
    return (Told.Boxes == 0 && (Name == "RegOpenKeyExA" || Name == "RegQueryValueExA")) ||
           ((IsSearch() || Name == "GetFileAttributesW") && Code == ERROR_PATH_NOT_FOUND);
  }
};

class TFaultMatrix {
 public:
  explicit TFaultMatrix(TForm Form) : OfKit(Form == TForm::Kit), Machine(Form) {}

  TResult Run(const TPlan& Plan) {
    const std::vector<TFaultCase> All = Cases(Plan.Full);
    for (size_t At = 0; At < All.size(); ++At) {
      const TFaultCase& Case = All[At];
      if (!Plan.Takes(At / 2, Case.Text())) continue;  // Retry and Cancel: the one takes longer
      const TTold Told = Update(Case);
      std::string Wrong = JudgeUpdate(Case, Told);
      if (Wrong.empty()) Wrong = JudgeRollback(Case, Told);
      Result.Count(Wrong.empty(), Case.Text() + ", in " + Told.Step + ": " + Wrong);
      TellProgress(Result.Cases, static_cast<int>(All.size()) / Plan.Shards);
    }
    return Result;
  }

 private:
  TTold Update(const TFaultCase& Case) {
    Machine.LayOut();
    return Machine.Change("fault", {Case.Name, std::to_string(Case.Nth), std::to_string(Case.Code), Case.Answer()});
  }

  /// Every function's calls in an undisturbed update, or some of them spread evenly, with every code and both answers.
  std::vector<TFaultCase> Cases(bool Full) {
    const TTold Undisturbed = Update({"", 0, 0, false});
    Must(Undisturbed.Result == S_OK, "the undisturbed update failed in " + Undisturbed.Step);
    After = Machine.Capture();
    std::vector<TFaultCase> All;
    size_t Number = 0;
    for (const TModuleCall& Call : ModuleCalls()) {
      if (!OfKit && Call.Failures == 0) continue;
      const auto Calls = static_cast<int>(std::ranges::count(Undisturbed.Calls, Call.Name));
      const int Count = std::min(Full ? 8 : 2, Calls);
      Must(OfKit || Calls > 0, std::string("the update never calls ") + Call.Name);
      for (int At = 0; At < Count; ++At, ++Number)
        for (const DWORD Code : Codes) {
          // A quick run takes one code in turn.
          if (!Full && Code != Codes[Number % std::size(Codes)]) continue;
          for (const bool Retry : {true, false}) All.push_back({Call.Name, 1 + At * Calls / Count, Code, Retry});
        }
    }
    return All;
  }

  /// Rolls back in a new process; gives what is wrong then, or "".
  std::string JudgeRollback(const TFaultCase& Case, const TTold& Told) {
    if (FAILED(Machine.Change("rollback").Result)) return "the rollback failed";
    const TCapture Now = Machine.Capture(), &Before = Machine.Before();
    std::string Files = Difference(Before.Files, Now.Files);
    std::string Keys = Difference(Before.Registry, Now.Registry) + Difference(Before.Classes, Now.Classes);
    RemoveKnownRemains(Files), RemoveKnownRemains(Keys);
    // What was taken for missing was not saved.
    std::string& Unsaved = Case.IsSearch() ? Files : Keys;
    if (!Unsaved.empty() && Case.IsAnswer(Told) && !OfKit) {
      ++Result.Notes["taken for an answer, so not restored: " + Case.Name];
      Unsaved = "";
    }
    const std::string Rest = Files + Keys;
    return Rest.empty() ? "" : "after the rollback: " + Rest;
  }

  /// What is wrong with how the update ended, or "".
  std::string JudgeUpdate(const TFaultCase& Case, const TTold& Told) {
    if (Told.Result == -1) return "the process died, or its rollback failed";
    const bool Answer = Case.IsAnswer(Told), Succeeded = Told.Result == S_OK, Asked = Told.Boxes > 0;
    const auto Right = [this](const std::string& Note) { return ++Result.Notes[Note], std::string(); };
    if (Succeeded && (!Asked || Case.Retry)) {
      Right(Asked ? "passed after Retry" : "passed without a box");
      const std::string Rest = Difference(After, Machine.Capture());
      if (!Rest.empty() && Answer) return Right("taken for an answer, so not done: " + Case.Name);
      return Rest.empty() ? "" : "not as if nothing had happened: " + Rest;
    }
    if (Case.Retry && Asked) {
      // A file that is said not to be there cannot be deleted, and no Retry makes room for the new one.
      if (Answer) return Right("taken for an answer, so Retry did not help: " + Case.Name);
      return "failed after Retry: " + Told.Error;
    }
    if (Succeeded) {
      // These swallow what goes wrong.
      if (!Told.Step.starts_with("unregister") && Told.Step != UninstallLogStep) return "given up, and it went on";
      return Right("given up, and the method went on, as unregistering and the uninstall log do");
    }
    if (!Asked && Answer && OfKit) return Right("taken for an answer, so refused: " + Case.Name);
    if (!Asked && Case.Name != "RegisterTypeLib") return "failed without a box";
    const auto IsFailure = [&](HRESULT Expected, DWORD Code) {
      const std::string Reason = SystemText(Code).empty() ? "Unknown error." : SystemText(Code);
      return Told.Result == Expected && Told.Error == Reason;
    };
    // A type library is read before the system loads it; what cannot be read cannot be loaded.
    constexpr auto NoLibrary = static_cast<DWORD>(TYPE_E_CANTLOADLIBRARY);
    const bool IsReading =
        (Case.Name == "CreateFileA" || Case.Name == "ReadFile") && Told.Step.find("type library") != std::string::npos;
    const auto Own = [](DWORD Code) { return MakeErrorHResult(static_cast<int32_t>(Code)); };
    if (IsFailure(Asked ? Own(Case.Code) : HRESULT_FROM_WIN32(Case.Code), Case.Code) ||
        (IsReading && IsFailure(Own(NoLibrary), NoLibrary)))
      return Right("failed with the call's code and text");
    return "failed with " + std::to_string(Told.Result) + " '" + Told.Error + "'";
  }

  const bool OfKit;
  TMachine Machine;
  TCapture After;  ///< the undisturbed update
  TResult Result;
};

}  // namespace

TResult FaultMatrix(const TPlan& Plan, TForm Form) { return TFaultMatrix(Form).Run(Plan); }
