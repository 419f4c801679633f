#include "support/client_thread.h"
#include "support/module_calls.h"
#include "support/process.h"
#include "support/sandbox_test.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <list>
#include <map>

namespace {

using namespace std::string_literals;
using TLines = std::vector<std::string>;

/// "yyyy.mm.dd hh:nn:ss " in local time: as long as the stamp of every line, and in the same order as the times.
std::string LogStamp() {
  SYSTEMTIME Now;
  GetLocalTime(&Now);
  char Stamp[32] = "";
  std::snprintf(Stamp, sizeof Stamp, "%04d.%02d.%02d %02d:%02d:%02d ", Now.wYear, Now.wMonth, Now.wDay, Now.wHour,
                Now.wMinute, Now.wSecond);
  return Stamp;
}

class DebugLog : public TSandboxTest {
 protected:
  DebugLog() : TSandboxTest(LogToFile) {}

  std::string LogFile() const { return Updates("Log\\update.log"); }
  static TComRef<IUDebugLog> MakeLog() { return Make<IUDebugLog>(CLSID_UDebugLog); }
  static HRESULT Put(IUDebugLog& Log, const std::string& Name, int Number = 1) {
    return Log.Put(Number, Text(Name), Text("Line"), Text(std::to_string(Number)));
  }
  /// The lines of update.log without their time stamps. The module keeps the file to itself, so it is made to go first:
  /// the caller holds no object of it.
  TLines Lines() const {
    CoFreeUnusedLibrariesEx(0, 0);
    const std::string Content = Read(LogFile());
    const size_t Stamp = LogStamp().size();
    TLines Result;
    for (size_t Begin = 0, End = 0; Begin < Content.size(); Begin = End + 2) {
      End = std::min(Content.find("\r\n", Begin), Content.size());
      const std::string Line = Content.substr(Begin, End - Begin);
      Result.push_back(Line.size() < Stamp ? "too short: " + Line : Line.substr(Stamp));
    }
    return Result;
  }
  /// The semaphore that every process sees.
  static TKernelHandle Semaphore() {
    return TKernelHandle(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, GuidText(CLSID_UDebugLog).c_str()));
  }
  static bool IsHeld() {
    const TKernelHandle Lock = Semaphore();
    if (WaitForSingleObject(Lock.Get(), 0) == WAIT_TIMEOUT) return true;
    ReleaseSemaphore(Lock.Get(), 1, nullptr);
    return false;
  }
  /// The box of whichever process shows one.
  static HWND AnyBox() { return FindWindowA(MessageBoxClass, "Error"); }
};

TEST_F(DebugLog, AppendsExactlyOneLineForEachCall) {
  struct TRow {
    long Id;
    std::wstring Name, Action, Text;
    std::string Line;
  };
  const TRow Rows[] = {
      {17, L"Common", L"Begin", L"DeleteFile C:\\App\\old.dll", "17 Common Begin DeleteFile C:\\App\\old.dll"},
      {LONG_MIN, L"N\r\nM", L"", L"\r\na\r\n\r\nb", "-2147483648 N<#NL>M  <#NL>a<#NL><#NL>b"},
      {3, L"gr\u00FC\u00DFe", L"\u20AC", L"\u2603\0b"s, "3 gr\xFC\xDF"s + "e \x80 ?\0b"s},
      {5, L"N", L"A", std::wstring(70000, L'x'), "5 N A " + std::string(70000, 'x')},
  };
  const std::string Old = LogStamp() + "a line of last week\r\n";
  TLines Expected = {"a line of last week"};
  Write(LogFile(), Old);
  const std::string Since = LogStamp();
  auto Log = MakeLog();
  for (const TRow& Row : Rows) {
    ASSERT_EQ(S_OK, Log->Put(Row.Id, Text(Row.Name), Text(Row.Action), Text(Row.Text))) << Row.Line;
    Expected.push_back(Row.Line);
  }
  ASSERT_EQ(S_OK, Log->Put(6, nullptr, nullptr, nullptr));
  const std::string Till = LogStamp();
  EXPECT_EQ("<no file>", Read(LogFile())) << "nobody else can open it meanwhile";
  Log.Reset();
  Expected.push_back("6   ");
  EXPECT_EQ(Expected, Lines());
  const std::string Stamp = Read(LogFile()).substr(Old.size(), Since.size());
  EXPECT_TRUE(Since <= Stamp && Stamp <= Till) << Stamp << " is not between " << Since << " and " << Till;
}

// ---- The three steps that can fail

UINT BoxStyle;

int WINAPI RecordedBox(HWND Owner, LPCSTR Text, LPCSTR Caption, UINT Style) {
  BoxStyle = Style;
  return MessageBoxA(Owner, Text, Caption, Style);
}

struct TStepRow {
  const char* Function;
  const char *Message, *End;  ///< around the file's name
  DWORD Code;
  const char* CodeText;
};

class DebugLogStep : public DebugLog, public testing::WithParamInterface<TStepRow> {};

TEST_P(DebugLogStep, IsRepeatedUntilItSucceedsOrTheUserGivesUp) {
  const TStepRow& Row = GetParam();
  const std::string Why = "\r\n\r\nError: '" + SystemText(Row.Code) + "' (Error code: " + Row.CodeText + ").";
  const TMessageBoxFacts Expected{"Error", Row.Message + LogFile() + Row.End + Why, {IDCANCEL, IDRETRY}, IDRETRY};
  {
    const auto Loaded = MakeLog();
    const TImportPatch Box("MessageBoxA", RecordedBox);
    const TFault Fault(Row.Function, {.Times = 3, .Code = Row.Code});
    HRESULT GivenUp = S_OK, Written = S_OK;
    std::string Reason;
    TClientThread Client([&] {
      const auto Log = MakeLog();
      GivenUp = Put(*Log, "given up");
      Reason = ErrorText();
      Written = Put(*Log, "written");
    });
    for (const int Answer : {IDRETRY, IDCANCEL, IDRETRY}) {
      const HWND Shown = Client.Window(MessageBoxClass);
      ASSERT_NE(nullptr, Shown);
      EXPECT_EQ(Expected, FactsOf(Shown));
      EXPECT_EQ(static_cast<UINT>(MB_RETRYCANCEL | MB_ICONERROR | MB_TASKMODAL), BoxStyle);
      EXPECT_EQ(nullptr, GetWindow(Shown, GW_OWNER));
      EXPECT_TRUE(IsHeld()) << "others must not write while the user thinks";
      Press(Shown, Answer);
    }
    Client.Join();
    EXPECT_EQ(static_cast<HRESULT>(0x800401FF), GivenUp);
    EXPECT_EQ(SystemText(Row.Code), Reason);
    EXPECT_EQ(S_OK, Written);
    EXPECT_FALSE(IsHeld());
  }
  EXPECT_EQ(TLines{"1 written Line 1"}, Lines());
  EXPECT_FALSE(Semaphore()) << "it goes with the module";
}

INSTANTIATE_TEST_SUITE_P(
    Rows, DebugLogStep,
    testing::Values(TStepRow{"CreateFileA", "Cannot open or create '", "'.", ERROR_ACCESS_DENIED, "5"},
                    TStepRow{"SetFilePointer", "Cannot set pointer in '", "' .", ERROR_NEGATIVE_SEEK, "83"},
                    TStepRow{"WriteFile", "Cannot write data to '", "'.", ERROR_IO_DEVICE, "45D"}),
    [](const auto& Info) { return std::string(Info.param.Function); });

// ---- Several threads and processes

TEST_F(DebugLog, KeepsTheLinesOfSeveralThreadsWhole) {
  constexpr int Count = 100;
  // Keeps the module loaded: threads that load and unload it while others start are another matter.
  auto Kept = MakeLog();
  std::list<TClientThread> Clients;
  for (const char* Name : {"A", "B", "C", "D"})
    Clients.emplace_back([Name] {
      const auto Log = MakeLog();
      for (int At = 0; At < Count; ++At) EXPECT_EQ(S_OK, Put(*Log, Name, At));
    });
  Clients.clear();
  Kept.Reset();
  std::map<std::string, int> Next;
  for (const std::string& Line : Lines()) {
    const std::string Name = Line.substr(Line.find(' ') + 1, 1), Number = std::to_string(Next[Name]++);
    EXPECT_EQ(Number + " " + Name + " Line " + Number, Line);
  }
  EXPECT_EQ((std::map<std::string, int>{{"A", Count}, {"B", Count}, {"C", Count}, {"D", Count}}), Next);
}

/// put-lines NAME COUNT: to the real debug log; repeats a line that the user gave up.
const TRole PutLines("put-lines", [](const TWords& Words, TScriptedDialog&) {
  const auto Log = Make<IUDebugLog>(CLSID_UDebugLog);
  return RepeatWhenLetGo(std::stoi(Words.at(1)), [&](int At) {
    return Log->Put(At + 1, Text(Words.at(0)), Text("Line"), Text(std::to_string(At + 1)));
  });
});

TEST_F(DebugLog, BelongsToOneProcessUntilItLetsGo) {
  auto Log = MakeLog();
  ASSERT_EQ(S_OK, Put(*Log, "First"));
  TChild Second({"put-lines", "Second", "2"});
  ASSERT_TRUE(Second.WaitUntilReady());
  Second.Continue();
  const std::string Why = "'.\r\n\r\nError: '" + SystemText(ERROR_SHARING_VIOLATION) + "' (Error code: 20).";
  const TMessageBoxFacts Expected{"Error", "Cannot open or create '" + LogFile() + Why, {IDCANCEL, IDRETRY}, IDRETRY};
  for (const bool LetGo : {false, true}) {
    ASSERT_TRUE(Until([] { return IsWindowVisible(AnyBox()); }));
    EXPECT_EQ(Expected, FactsOf(AnyBox()));
    if (LetGo) {
      Log.Reset();
      CoFreeUnusedLibrariesEx(0, 0);
    }
    Press(AnyBox(), IDRETRY);
  }
  EXPECT_EQ(0u, Second.Wait());
  EXPECT_EQ((TLines{"1 First Line 1", "1 Second Line 1", "2 Second Line 2"}), Lines());
}

TEST_F(DebugLog, ProcessThatDiesInsideTheLockBlocksNobody) {
  auto Log = MakeLog();
  ASSERT_EQ(S_OK, Put(*Log, "First"));
  TChild Second({"put-lines", "Second", "1"});
  ASSERT_TRUE(Second.WaitUntilReady());
  Second.Continue();
  ASSERT_TRUE(Until([] { return AnyBox() != nullptr; }));
  EXPECT_TRUE(IsHeld());
  Second.Kill();
  HRESULT Result = E_FAIL;
  TClientThread([&] { Result = Put(*MakeLog(), "Third"); }).Join();
  EXPECT_EQ(S_OK, Result);
  EXPECT_FALSE(IsHeld());
  Log.Reset();
  EXPECT_EQ((TLines{"1 First Line 1", "1 Third Line 1"}), Lines());
}

}  // namespace
