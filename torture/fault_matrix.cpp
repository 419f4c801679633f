// The fault matrix: a system call of the update fails once. When the user presses Retry, the update must end as if
// nothing had happened; when the user presses Cancel, the method fails with the call's own code and text, and a
// rollback restores everything.

#include "base/error_code.h"
#include "roles.h"
#include "support/fault.h"
#include "update.h"

#include <shlwapi.h>

#include <algorithm>
#include <memory>
#include <sstream>

namespace {

/// The replacement of a function that only counts.
template <auto Function>
struct TCounted;
template <class TResult, class... TArgs, TResult(WINAPI* Function)(TArgs...)>
struct TCounted<Function> {
  inline static int Calls = 0;
  static TResult WINAPI Call(TArgs... Args) {
    ++Calls;
    return Function(Args...);
  }
};

struct TFailingCall {
  const char* Name;
  void* Failing;
  void* Counting;
  const int* Calls;
  /// How often it fails, one call after the other, until the user is asked.
  int Times;
};

template <auto Function>
TFailingCall Row(const char* Name, void* Failing, int Times = 1) {
  return {Name, Failing, reinterpret_cast<void*>(&TCounted<Function>::Call), &TCounted<Function>::Calls, Times};
}
#define FAILS(Function, ...) Row<&Function>(#Function, FailsWith<decltype(&Function), __VA_ARGS__>)
#define FAILS_BY_CODE(Function) Row<&Function>(#Function, FailsWithCode<decltype(&Function)>)
#define FAILS_BY_RESULT(Function) Row<&Function>(#Function, FailsWithResult<decltype(&Function)>)
/// Patient wrappers repeat three times before they ask.
#define FAILS_OFTEN(Function, ...) Row<&Function>(#Function, FailsWith<decltype(&Function), __VA_ARGS__>, 4)

const TFailingCall FailingCalls[] = {
    FAILS_OFTEN(CreateFileA, -1),     FAILS(ReadFile, FALSE),         FAILS(WriteFile, FALSE),
    FAILS(CloseHandle, FALSE),        FAILS(SetEndOfFile, FALSE),     FAILS(SetFilePointer, -1),
    FAILS(GetFileSize, -1),           FAILS(GetFileAttributesA, -1),  FAILS(SetFileAttributesA, FALSE),
    FAILS(GetFileTime, FALSE),        FAILS(SetFileTime, FALSE),      FAILS_OFTEN(DeleteFileA, FALSE),
    FAILS_OFTEN(MoveFileA, FALSE),    FAILS(CreateDirectoryA, FALSE), FAILS(RemoveDirectoryA, FALSE),
    FAILS(FindFirstFileA, -1),        FAILS(FindNextFileA, FALSE),    FAILS(FindClose, FALSE),
    FAILS_BY_CODE(RegCreateKeyExA),   FAILS_BY_CODE(RegOpenKeyExA),   FAILS_BY_CODE(RegQueryInfoKeyA),
    FAILS_BY_CODE(RegQueryValueExA),  FAILS_BY_CODE(RegSetValueExA),  FAILS_BY_CODE(RegEnumValueA),
    FAILS_BY_CODE(RegEnumKeyExA),     FAILS_BY_CODE(RegDeleteValueA), FAILS_BY_CODE(RegCloseKey),
    FAILS_BY_CODE(SHDeleteKeyA),      FAILS(LoadLibraryA, 0),         FAILS(FreeLibrary, FALSE),
    FAILS(GetModuleHandleA, 0),       FAILS(GetProcAddress, 0),       FAILS_BY_RESULT(LoadTypeLib),
    FAILS_BY_RESULT(RegisterTypeLib),
};

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
  const TFailingCall* Call;
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
  std::vector<int> CountCalls();
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
  const DWORD Status = TRole("fault", {Machine.Root(), Case.Call->Name, std::to_string(Case.Nth),
                                       std::to_string(Case.Code), Case.Retry ? "retry" : "cancel", ToldFile})
                           .Wait();
  TTold Told;
  std::istringstream In(Read(ToldFile));
  In >> Told.Boxes >> Told.Result;
  In.ignore();
  std::getline(In, Told.Step);
  std::getline(In, Told.Message, '\0');
  if (Status != 0) Told.Result = -1;
  return Told;
}

/// How often an undisturbed update calls each function.
std::vector<int> TFaultMatrix::CountCalls() {
  Machine.LayOut();
  if (const DWORD Status = TRole("count", {Machine.Root(), ToldFile}).Wait())
    throw ETorture("the undisturbed update ended with " + std::to_string(Status));
  std::vector<int> Counts;
  std::istringstream In(Read(ToldFile));
  for (int Count; In >> Count;) Counts.push_back(Count);
  if (Counts.size() != std::size(FailingCalls)) throw ETorture("not every function was counted");
  return Counts;
}

/// Every function's calls, or some of them spread evenly, with every code and both answers.
std::vector<TFaultCase> TFaultMatrix::Cases(bool Full) {
  const int Most = Full ? 8 : 2;
  const std::vector<int> Counts = CountCalls();
  std::vector<TFaultCase> All;
  int Number = 0;
  for (size_t Row = 0; Row < Counts.size(); ++Row) {
    const TFailingCall& Call = FailingCalls[Row];
    const int Calls = Counts[Row], Count = std::min(Most, Calls);
    if (Calls == 0) throw ETorture(std::string("the update never calls ") + Call.Name);
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
  if (TRole("change", {"rollback", Machine.Root(), "nothing", "0", Machine.Root() + "\\calls.txt"}).Wait() != 0)
    return "the rollback failed";
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

/// A user who meets a failing call with one answer, and says Yes to everything else. One who retries gives up when it
/// does not help.
class TAnsweringUser final : public TDouble<IUDialog> {
 public:
  explicit TAnsweringUser(bool Retry) : Retry(Retry) {}
  STDMETHOD(ShowMsgBox)(BSTR, BSTR, long MsgType, long* Res) override {
    constexpr long Kinds = 15;
    const bool Failure = (MsgType & Kinds) == MB_RETRYCANCEL;
    constexpr int MostRetries = 4;  // as often as a call fails
    if (Failure && Boxes++ == 0) StepAsked = Step;
    *Res = !Failure ? IDYES : Retry && Boxes <= MostRetries ? IDRETRY : IDCANCEL;
    return S_OK;
  }
  STDMETHOD(ShowCustomMsgBox)(BSTR, BSTR, long, BSTR, BSTR, BSTR*) override { return E_NOTIMPL; }
  int Boxes = 0;
  std::string Step;       ///< of the update, as it goes on
  std::string StepAsked;  ///< in which the first box was shown

 private:
  const bool Retry;
};

}  // namespace

/// fault ROOT FUNCTION NTH CODE ANSWER TOLD-FILE: some of those who give up roll back in the same process.
int PlayFault(const std::vector<std::string>& Words) {
  const bool Retry = Words.at(4) == "retry";
  const int Nth = std::stoi(Words.at(2));
  const TComRef<TAnsweringUser> User(new TAnsweringUser(Retry));
  RegisterActive(User.Get(), CLSID_UDialog);
  TUpdater Updater(Words.at(0));
  const TNoPauses NoPauses;
  const auto Call = std::find_if(std::begin(FailingCalls), std::end(FailingCalls),
                                 [&](const TFailingCall& Row) { return Words.at(1) == Row.Name; });
  HRESULT Result = S_OK;
  std::string Message;
  {
    TFault Fault(Call->Name, Call->Failing, {Nth - 1, Call->Times, static_cast<DWORD>(std::stoul(Words.at(3)))});
    Result = RunUpdate(Updater, User->Step);
    if (FAILED(Result)) Message = ErrorText();
  }
  Write(Words.at(5), std::to_string(User->Boxes) + " " + std::to_string(Result) + "\n" +
                         (User->Boxes > 0 ? User->StepAsked : User->Step) + "\n" + Message);
  const bool RollsBack = FAILED(Result) && Nth % 2 == 1;
  return RollsBack && FAILED(RollBackAll());
}

/// count ROOT TOLD-FILE
int PlayCount(const std::vector<std::string>& Words) {
  RegisterActive(new TAnsweringUser(false), CLSID_UDialog);
  TUpdater Updater(Words.at(0));
  std::vector<std::unique_ptr<TImportPatch>> Patches;
  for (const TFailingCall& Row : FailingCalls)
    Patches.push_back(std::make_unique<TImportPatch>(GetModuleHandleA("Mendwork.dll"), Row.Name, Row.Counting));
  std::string Step, Counts;
  const HRESULT Result = RunUpdate(Updater, Step);
  for (const TFailingCall& Row : FailingCalls) Counts += std::to_string(*Row.Calls) + "\n";
  Write(Words.at(1), Counts);
  return FAILED(Result);
}

TResult FaultMatrix(const TPlan& Plan) { return TFaultMatrix().Run(Plan); }
