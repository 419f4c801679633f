// The fault matrix: a system call of the update fails once. When the user presses Retry, the update must end as if
// nothing had happened; when the user presses Cancel, the method fails with the call's own code and text, and a
// rollback restores everything.

#include "base/error_code.h"
#include "support/module_calls.h"
#include "torture.h"
#include "update.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace {

constexpr DWORD OddCode = 0x2222;  // no system's text
constexpr DWORD Codes[] = {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_DISK_FULL, ERROR_PATH_NOT_FOUND,
                           OddCode};

/// What the process with the fault tells.
struct TTold {
  int Boxes = 0;
  long Result = -1;
  std::string Step;  ///< in which the user was asked, or which failed
  std::string Message;
};

struct TFaultCase {
  const TModuleCall* Call;
  int Nth;
  DWORD Code;
  bool Retry;
  std::string Text() const {
    return std::string(Call->Name) + " call " + std::to_string(Nth) + " fails with " + std::to_string(Code) + ", " +
           (Retry ? "Retry" : "Cancel");
  }
};

bool IsSearch(const TFaultCase& Case) { return std::string(Case.Call->Name) == "FindFirstFileA"; }

/// Rules of the system by which a failing call is an answer: a test whether a key or value exists takes any failure for
/// "no", and a search for a mask that is told that there is no such path has found nothing.
bool IsAnswer(const TFaultCase& Case, const TTold& Told) {
  const std::string Name = Case.Call->Name;
  return (Told.Boxes == 0 && (Name == "RegOpenKeyExA" || Name == "RegQueryValueExA")) ||
         (IsSearch(Case) && Case.Code == ERROR_PATH_NOT_FOUND);
}

class TFaultMatrix {
 public:
  TResult Run(const TPlan& Plan);

 private:
  TTold Update(const TFaultCase& Case);
  std::vector<TFaultCase> Cases(bool Full);
  std::string JudgeUpdate(const TFaultCase& Case, const TTold& Told);
  std::string JudgeRollback(const TFaultCase& Case, const TTold& Told);
  void Visit(const TFaultCase& Case);

  TMachine Machine;
  const std::string ToldFile = Machine.Root() + "\\told.txt";
  TCapture Before, After;
  TResult Result;
};

TTold TFaultMatrix::Update(const TFaultCase& Case) {
  Machine.LayOut();
  DeleteFileA(ToldFile.c_str());
  const DWORD Status = TChild({"fault", Machine.Root(), Case.Call ? Case.Call->Name : "", std::to_string(Case.Nth),
                               std::to_string(Case.Code), Case.Retry ? "retry" : "cancel", ToldFile})
                           .Wait();
  TTold Told;
  std::istringstream In(Read(ToldFile));
  In >> Told.Boxes >> Told.Result;
  In.ignore();
  std::getline(In, Told.Step);
  std::getline(In, Told.Message, '\0');
  if (Status != 0) Told.Result = -1;
  Must(Case.Call || Told.Result == S_OK, "the undisturbed update failed in " + Told.Step);
  return Told;
}

/// Every function's calls in an undisturbed update, or some of them spread evenly, with every code and both answers.
std::vector<TFaultCase> TFaultMatrix::Cases(bool Full) {
  Update({nullptr, 0, 0, false});
  std::map<std::string, int> Counts;
  std::istringstream Names(Read(Machine.Root() + "\\calls.txt"));
  for (std::string Name; Names >> Name;) ++Counts[Name];
  const int Most = Full ? 8 : 2;
  std::vector<TFaultCase> All;
  int Number = 0;
  for (const TModuleCall& Call : ModuleCalls()) {
    if (Call.Failures == 0) continue;
    const int Calls = Counts[Call.Name], Count = std::min(Most, Calls);
    Must(Calls > 0, std::string("the update never calls ") + Call.Name);
    for (int At = 0; At < Count; ++At, ++Number)
      for (const DWORD Code : Codes) {
        // A quick run takes one code in turn.
        if (!Full && Code != Codes[static_cast<size_t>(Number) % std::size(Codes)]) continue;
        for (const bool Retry : {true, false}) All.push_back({&Call, 1 + At * Calls / Count, Code, Retry});
      }
  }
  return All;
}

/// Rolls back in a new process; gives what is wrong then, or "".
std::string TFaultMatrix::JudgeRollback(const TFaultCase& Case, const TTold& Told) {
  if (TChild({"change", "rollback", Machine.Root(), "nothing", "0"}).Wait() != 0) return "the rollback failed";
  const TCapture Now = Machine.Capture();
  std::string Files = Difference(Before.Files, Now.Files);
  std::string Keys = Difference(Before.Registry, Now.Registry) + Difference(Before.Classes, Now.Classes);
  RemoveKnownRemains(Files), RemoveKnownRemains(Keys);
  // What was taken for missing was not saved.
  std::string& Unsaved = IsSearch(Case) ? Files : Keys;
  if (!Unsaved.empty() && IsAnswer(Case, Told)) {
    ++Result.Notes[std::string("taken for an answer, so not restored: ") + Case.Call->Name];
    Unsaved = "";
  }
  const std::string Rest = Files + Keys;
  return Rest.empty() ? "" : "after the rollback: " + Rest;
}

/// What is wrong with how the update ended, or "".
std::string TFaultMatrix::JudgeUpdate(const TFaultCase& Case, const TTold& Told) {
  if (Told.Result == -1) return "the process died, or its rollback failed";
  const std::string Name = Case.Call->Name;
  const bool Answer = IsAnswer(Case, Told), Succeeded = Told.Result == S_OK, Asked = Told.Boxes > 0;
  if (Succeeded && (!Asked || Case.Retry)) {
    ++Result.Notes[Asked ? "passed after Retry" : "passed without a box"];
    const std::string Rest = Difference(After, Machine.Capture());
    if (!Rest.empty() && Answer) ++Result.Notes["taken for an answer, so not done: " + Name];
    return Rest.empty() || Answer ? "" : "not as if nothing had happened: " + Rest;
  }
  if (Case.Retry && Asked) {
    // A file that is said not to be there cannot be deleted, and no Retry makes room for the new one.
    if (Answer) ++Result.Notes["taken for an answer, so Retry did not help: " + Name];
    return Answer ? "" : "failed after Retry: " + Told.Message;
  }
  if (Succeeded) {
    // These swallow what goes wrong.
    if (!Told.Step.starts_with("unregister") && Told.Step != UninstallLogStep) return "given up, and it went on";
    ++Result.Notes["given up, and the method went on, as unregistering and the uninstall log do"];
    return "";
  }
  if (!Asked && Name != "RegisterTypeLib") return "failed without a box";
  const auto IsFailure = [&](long Expected, DWORD Code) {
    const std::string Reason = SystemText(Code).empty() ? "Unknown error." : SystemText(Code);
    return Told.Result == Expected && Told.Message == Reason;
  };
  // A type library is read before the system loads it; what cannot be read cannot be loaded.
  constexpr auto NoLibrary = static_cast<DWORD>(TYPE_E_CANTLOADLIBRARY);
  const bool IsReading =
      (Name == "CreateFileA" || Name == "ReadFile") && Told.Step.find("type library") != std::string::npos;
  const bool Exact =
      IsFailure(Asked ? MakeErrorHResult(static_cast<int32_t>(Case.Code)) : HRESULT_FROM_WIN32(Case.Code), Case.Code) ||
      (IsReading && IsFailure(MakeErrorHResult(static_cast<int32_t>(NoLibrary)), NoLibrary));
  if (Exact) ++Result.Notes["failed with the call's code and text"];
  return Exact ? "" : "failed with " + std::to_string(Told.Result) + " '" + Told.Message + "'";
}

void TFaultMatrix::Visit(const TFaultCase& Case) {
  ++Result.Cases;
  const TTold Told = Update(Case);
  std::string Wrong = JudgeUpdate(Case, Told);
  if (Wrong.empty()) Wrong = JudgeRollback(Case, Told);
  if (Wrong.empty())
    ++Result.Good;
  else
    Result.Bad.push_back(Case.Text() + ", in " + Told.Step + ": " + Wrong);
}

TResult TFaultMatrix::Run(const TPlan& Plan) {
  Machine.LayOut();
  Before = Machine.Capture();
  const std::vector<TFaultCase> All = Cases(Plan.Full);
  After = Machine.Capture();  // of the undisturbed update
  for (size_t At = 0; At < All.size(); ++At) {
    if (!Plan.Takes(At / 2, All[At].Text())) continue;  // Retry and Cancel: the one takes longer
    Visit(All[At]);
    TellProgress("fault", Result.Cases, static_cast<int>(All.size()) / Plan.Shards);
  }
  return Result;
}

/// fault ROOT FUNCTION NTH CODE ANSWER TOLD-FILE: the user meets the failing call with one answer, and says Yes to
/// everything else; one who retries gives up when it does not help. Some of those who give up roll back in the same
/// process. Without a FUNCTION the calls are counted.
const TRole Fault("fault", [](const TWords& Words, TScriptedDialog& User) {
  constexpr int MostRetries = 4;  // as often as a call fails
  constexpr long Kinds = 15;
  const bool Retry = Words.at(4) == "retry";
  const int Nth = std::stoi(Words.at(2));
  int Boxes = 0;
  std::string Step, StepAsked;
  User.OnBox = [&] {
    const bool Failure = (User.Boxes.back().MsgType & Kinds) == MB_RETRYCANCEL;
    if (Failure && Boxes++ == 0) StepAsked = Step;
    User.Answer({!Failure ? IDYES : Retry && Boxes <= MostRetries ? IDRETRY : IDCANCEL});
  };
  TUpdater Updater(Words.at(0));
  const TNoPauses NoPauses;
  std::string Message;
  const auto Update = [&] {
    const HRESULT Result = RunUpdate(Updater, Step);
    if (FAILED(Result)) Message = ErrorText();
    return Result;
  };
  HRESULT Result = S_OK;
  if (Words.at(1).empty()) {
    PlanEvent("nothing", 0, AllCalls);
    Result = Update();
    WriteCalls(Words.at(0));
  } else {
    const auto Call = std::ranges::find(ModuleCalls(), Words.at(1), &TModuleCall::Name);
    const TFault Planned(Call->Name, {Nth - 1, Call->Failures, static_cast<DWORD>(std::stoul(Words.at(3)))});
    Result = Update();
  }
  Write(Words.at(5),
        std::to_string(Boxes) + " " + std::to_string(Result) + "\n" + (Boxes > 0 ? StepAsked : Step) + "\n" + Message);
  const bool RollsBack = FAILED(Result) && Nth % 2 == 1;
  return int{RollsBack && FAILED(RollBack())};
});

}  // namespace

TResult FaultMatrix(const TPlan& Plan) { return TFaultMatrix().Run(Plan); }
