// The fault matrix: a system call of the update fails once. When the user presses Retry, the update must end as if
// nothing had happened; when the user presses Cancel, the method fails with the call's own code and text, and a
// rollback restores everything.

#include "roles.h"
#include "server/error_code.h"
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
    FAILS(CreateFileA, -1),           FAILS(ReadFile, FALSE),         FAILS(WriteFile, FALSE),
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

class TFaultMatrix {
 public:
  TResult Run(const TPlan& Plan);

 private:
  TTold Update(const TFaultCase& Case);
  std::vector<int> CountCalls();
  std::vector<TFaultCase> Cases(bool Full);
  std::string Judge(const TFaultCase& Case, const TTold& Told);
  std::string JudgeRollback();
  void Visit(const TFaultCase& Case);

  TMachine Machine;
  const std::string ToldFile = Machine.Root() + "\\told.txt";
  TCapture Before, After;
  TResult Result;
};

TTold TFaultMatrix::Update(const TFaultCase& Case) {
  Machine.LayOut();
  DeleteFileA(ToldFile.c_str());
  TRole("fault", {Machine.Root(), Case.Call->Name, std::to_string(Case.Nth), std::to_string(Case.Code),
                  Case.Retry ? "retry" : "cancel", ToldFile})
      .Wait();
  TTold Told;
  std::istringstream In(Read(ToldFile));
  In >> Told.Boxes >> Told.Result;
  In.ignore();
  std::getline(In, Told.Message, '\0');
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
    for (int At = 0; At < Count; ++At)
      for (const DWORD Code : Codes)
        for (const bool Retry : {true, false}) {
          // A quick run takes one code in turn.
          if (!Full && Code != Codes[Number % std::size(Codes)]) continue;
          All.push_back({&Call, 1 + At * Calls / Count, Code, Retry});
          ++Number;
        }
  }
  return All;
}

std::string TFaultMatrix::JudgeRollback() {
  if (TRole("change", {"rollback", Machine.Root(), "nothing", "0", Machine.Root() + "\\calls.txt"}).Wait() != 0)
    return "the rollback failed";
  std::string Rest = Difference(Before, Machine.Capture());
  RemoveKnownRemains(Rest);
  if (!Rest.empty()) Rest = "after the rollback: " + Rest;
  return Rest;
}

/// Rules of the system by which a failing call is an answer: a test whether a key or value exists takes any failure for
/// "no", and a search that is told that there is no such path has found nothing. What is taken for missing is not
/// saved.
bool IsAnswer(const TFaultCase& Case, const TTold& Told) {
  const std::string Name = Case.Call->Name;
  return (Told.Boxes == 0 && (Name == "RegOpenKeyExA" || Name == "RegQueryValueExA")) ||
         (Name == "FindFirstFileA" && Case.Code == ERROR_PATH_NOT_FOUND);
}

/// What is wrong, or "".
std::string TFaultMatrix::Judge(const TFaultCase& Case, const TTold& Told) {
  if (Told.Result == -1) return "the process died";
  if (Told.Boxes == 0 && Told.Result == S_OK) {
    ++Result.Notes["passed without a box"];
    return JudgeRollback();
  }
  if (Case.Retry && Told.Boxes > 0) {
    if (Told.Result != S_OK) return "failed after Retry: " + Told.Message;
    const std::string Rest = Difference(After, Machine.Capture());
    return Rest.empty() ? JudgeRollback() : "not as if nothing had happened: " + Rest;
  }
  if (Told.Result == S_OK) {
    ++Result.Notes["given up, and the method went on, as unregistering does"];
    return JudgeRollback();
  }
  const std::string Reason = SystemText(Case.Code).empty() ? "Unknown error." : SystemText(Case.Code);
  if (Told.Boxes == 0) ++Result.Notes["failed without a box"];
  const long Expected =
      Told.Boxes > 0 ? MakeErrorHResult(static_cast<int32_t>(Case.Code)) : HRESULT_FROM_WIN32(Case.Code);
  if (Told.Result != Expected || Told.Message != Reason)
    return "failed with " + std::to_string(Told.Result) + " '" + Told.Message + "'";
  return JudgeRollback();
}

void TFaultMatrix::Visit(const TFaultCase& Case) {
  ++Result.Cases;
  const TTold Told = Update(Case);
  const std::string Wrong = Judge(Case, Told);
  const bool ByRule = !Wrong.empty() && Told.Result != -1 && IsAnswer(Case, Told);
  if (ByRule) ++Result.Notes[std::string("taken for an answer, so not restored: ") + Case.Call->Name];
  if (Wrong.empty() || ByRule)
    ++Result.Good;
  else
    Result.Bad.push_back(Case.Text() + ": " + Wrong);
}

TResult TFaultMatrix::Run(const TPlan& Plan) {
  Machine.LayOut();
  Before = Machine.Capture();
  const std::vector<TFaultCase> All = Cases(Plan.Full);
  After = Machine.Capture();  // of the undisturbed update
  for (size_t At = 0; At < All.size(); ++At) {
    if (!Plan.Takes(At, All[At].Text())) continue;
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
    constexpr int MostRetries = 3;
    Boxes += Failure;
    *Res = !Failure ? IDYES : Retry && Boxes <= MostRetries ? IDRETRY : IDCANCEL;
    return S_OK;
  }
  STDMETHOD(ShowCustomMsgBox)(BSTR, BSTR, long, BSTR, BSTR, BSTR*) override { return E_NOTIMPL; }
  int Boxes = 0;

 private:
  const bool Retry;
};

}  // namespace

/// fault ROOT FUNCTION NTH CODE ANSWER TOLD-FILE
int PlayFault(const std::vector<std::string>& Words) {
  const bool Retry = Words.at(4) == "retry";
  const TComRef<TAnsweringUser> User(new TAnsweringUser(Retry));
  RegisterActive(User.Get(), CLSID_UDialog);
  TUpdater Updater(Words.at(0));
  const TNoPauses NoPauses;
  const auto Call = std::find_if(std::begin(FailingCalls), std::end(FailingCalls),
                                 [&](const TFailingCall& Row) { return Words.at(1) == Row.Name; });
  HRESULT Result = S_OK;
  std::string Failed, Message;
  {
    TFault Fault(Call->Name, Call->Failing,
                 {std::stoi(Words.at(2)) - 1, Call->Times, static_cast<DWORD>(std::stoul(Words.at(3)))});
    Result = RunUpdate(Updater, Failed);
    if (FAILED(Result)) Message = ErrorText();
  }
  Write(Words.at(5), std::to_string(User->Boxes) + " " + std::to_string(Result) + "\n" + Message);
  return 0;
}

/// count ROOT TOLD-FILE
int PlayCount(const std::vector<std::string>& Words) {
  RegisterActive(new TAnsweringUser(false), CLSID_UDialog);
  TUpdater Updater(Words.at(0));
  std::vector<std::unique_ptr<TImportPatch>> Patches;
  for (const TFailingCall& Row : FailingCalls)
    Patches.push_back(std::make_unique<TImportPatch>(GetModuleHandleA("Mendwork.dll"), Row.Name, Row.Counting));
  std::string Failed, Counts;
  const HRESULT Result = RunUpdate(Updater, Failed);
  for (const TFailingCall& Row : FailingCalls) Counts += std::to_string(*Row.Calls) + "\n";
  Write(Words.at(1), Counts);
  return FAILED(Result);
}

TResult FaultMatrix(const TPlan& Plan) { return TFaultMatrix().Run(Plan); }
