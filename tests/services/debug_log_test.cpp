#include "services/log_file.h"
#include "support/child.h"
#include "support/client_thread.h"
#include "support/sandbox.h"

#include <algorithm>
#include <climits>
#include <list>
#include <map>

namespace {

using namespace std::string_literals;
using TLines = std::vector<std::string>;

class DebugLog : public TSandbox {
 protected:
  DebugLog() : TSandbox(LogToFile) {}

  std::string LogFile() const { return Updates("Log\\update.log"); }
  static TComRef<IUDebugLog> MakeLog() { return Make<IUDebugLog>(CLSID_UDebugLog); }
  static HRESULT Put(IUDebugLog& Log, const std::string& Name, int Number = 1) {
    return Log.Put(Number, Text(Name), Text("Line"), Text(std::to_string(Number)));
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
};

struct TLineRow {
  long Id;
  std::wstring Name, Action, Text;
  std::string Line;
};

const TLineRow LineRows[] = {
    {17, L"Common", L"Begin", L"RetryDeleteFile C:\\App\\old.dll", "17 Common Begin RetryDeleteFile C:\\App\\old.dll"},
    {LONG_MIN, L"", L"", L"", "-2147483648   "},
    {-1, L"N\r\nM", L"A\r\n", L"\r\na\r\n\r\nb", "-1 N<#NL>M A<#NL> <#NL>a<#NL><#NL>b"},
    {2, L"a\nb", L"c\rd", L"\n\re\r\r\nf\r", "2 a\nb c\rd \n\re\r<#NL>f\r"},
    {3, L"gr\u00FC\u00DFe", L"\u20AC", L"\u2603", "3 gr\xFC\xDF"s + "e \x80 ?"},
    {4, L"N", L"A", L"a\0b"s, "4 N A a\0b"s},
    {5, L"N", L"A", std::wstring(70000, L'x'), "5 N A " + std::string(70000, 'x')},
};

TEST_F(DebugLog, AppendsExactlyOneLineForEachCall) {
  const std::string Old = "a line of last week without an end";
  Write(LogFile(), Old);
  const std::string Since = LogStamp();
  auto Log = MakeLog();
  for (const TLineRow& Row : LineRows)
    ASSERT_EQ(S_OK, Log->Put(Row.Id, Text(Row.Name), Text(Row.Action), Text(Row.Text))) << Row.Line;
  ASSERT_EQ(S_OK, Log->Put(6, nullptr, nullptr, nullptr));
  const std::string Till = LogStamp();
  EXPECT_EQ("<no file>", Read(LogFile())) << "nobody else can open it meanwhile";
  Log.Reset();
  CoFreeUnusedLibrariesEx(0, 0);

  const std::string Content = Read(LogFile());
  ASSERT_EQ(Old, Content.substr(0, Old.size()));
  size_t At = Old.size();
  const auto ExpectLine = [&](const std::string& Line) {
    const std::string Stamp = Content.substr(At, Since.size());
    EXPECT_TRUE(Since <= Stamp && Stamp <= Till) << Stamp << " is not between " << Since << " and " << Till;
    At += Since.size();
    EXPECT_EQ(Line + "\r\n", Content.substr(At, Line.size() + 2));
    At += Line.size() + 2;
  };
  for (const TLineRow& Row : LineRows) ExpectLine(Row.Line);
  ExpectLine("6   ");
  EXPECT_EQ(Content.size(), At);
}

// ---- The three steps that can fail

int FailuresLeft;
DWORD FailureCode;
UINT BoxStyle;
HWND BoxOwner;

bool Fails() {
  if (FailuresLeft == 0) return false;
  --FailuresLeft;
  SetLastError(FailureCode);
  return true;
}
HANDLE WINAPI FailingCreate(LPCSTR Name, DWORD Access, DWORD Share, LPSECURITY_ATTRIBUTES Security, DWORD Disposition,
                            DWORD Attributes, HANDLE Template) {
  if (Fails()) return INVALID_HANDLE_VALUE;
  return CreateFileA(Name, Access, Share, Security, Disposition, Attributes, Template);
}
DWORD WINAPI FailingSetPointer(HANDLE File, LONG Distance, PLONG High, DWORD From) {
  return Fails() ? INVALID_SET_FILE_POINTER : SetFilePointer(File, Distance, High, From);
}
BOOL WINAPI FailingWrite(HANDLE File, LPCVOID Data, DWORD Size, LPDWORD Written, LPOVERLAPPED Overlapped) {
  return Fails() ? FALSE : WriteFile(File, Data, Size, Written, Overlapped);
}
int WINAPI RecordedBox(HWND Owner, LPCSTR Text, LPCSTR Caption, UINT Style) {
  BoxOwner = Owner;
  BoxStyle = Style;
  return MessageBoxA(Owner, Text, Caption, Style);
}

struct TStepRow {
  const char* Function;
  void* Replacement;
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
    const TImportPatch Box(Module(), "MessageBoxA", reinterpret_cast<void*>(RecordedBox));
    const TImportPatch Step(Module(), Row.Function, Row.Replacement);
    FailuresLeft = 3;
    FailureCode = Row.Code;
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
      EXPECT_EQ(0x2015u, BoxStyle);
      EXPECT_EQ(nullptr, BoxOwner);
      EXPECT_TRUE(IsHeld()) << "others must not write while the user thinks";
      Press(Shown, Answer);
    }
    Client.Join();
    EXPECT_EQ(static_cast<HRESULT>(0x800401FF), GivenUp);
    EXPECT_EQ(SystemText(Row.Code), Reason);
    EXPECT_EQ(S_OK, Written);
    EXPECT_FALSE(IsHeld());
  }
  EXPECT_EQ(TLines{"1 written Line 1"}, LinesOf(LogFile()));
  EXPECT_FALSE(Semaphore()) << "it goes with the module";
}

INSTANTIATE_TEST_SUITE_P(Rows, DebugLogStep,
                         testing::Values(TStepRow{"CreateFileA", reinterpret_cast<void*>(FailingCreate),
                                                  "Cannot open or create '", "'.", ERROR_ACCESS_DENIED, "5"},
                                         TStepRow{"SetFilePointer", reinterpret_cast<void*>(FailingSetPointer),
                                                  "Cannot set pointer in '", "' .", ERROR_NEGATIVE_SEEK, "83"},
                                         TStepRow{"WriteFile", reinterpret_cast<void*>(FailingWrite),
                                                  "Cannot write data to '", "'.", ERROR_IO_DEVICE, "45D"}),
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
  CoFreeUnusedLibrariesEx(0, 0);  // closes the file
  std::map<std::string, int> Next;
  for (const std::string& Line : LinesOf(LogFile())) {
    const std::string Name = Line.substr(Line.find(' ') + 1, 1), Number = std::to_string(Next[Name]++);
    EXPECT_EQ(Number + " " + Name + " Line " + Number, Line);
  }
  EXPECT_EQ((std::map<std::string, int>{{"A", Count}, {"B", Count}, {"C", Count}, {"D", Count}}), Next);
}

/// The box of whichever process shows one.
HWND AnyBox() { return FindWindowA(MessageBoxClass, "Error"); }

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
  EXPECT_EQ((TLines{"1 First Line 1", "1 Second Line 1", "2 Second Line 2"}), LinesOf(LogFile()));
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
  EXPECT_EQ((TLines{"1 First Line 1", "1 Third Line 1"}), LinesOf(LogFile()));
}

TEST_F(DebugLog, LosesNoLineOfProcessesThatTakeTurns) {
  constexpr int Count = 15;
  TChild One({"put-lines", "One", std::to_string(Count)}), Two({"put-lines", "Two", std::to_string(Count)});
  ASSERT_TRUE(One.WaitUntilReady());
  ASSERT_TRUE(Two.WaitUntilReady());
  One.Continue();
  Two.Continue();
  // Whoever comes second meets the box and, given up, lets the other go on with its next line.
  ASSERT_TRUE(Until([&] {
    if (const HWND Box = AnyBox()) PostMessageA(Box, WM_COMMAND, IDCANCEL, 0);
    return One.HasEnded() && Two.HasEnded();
  }));
  EXPECT_EQ(0u, One.Wait());
  EXPECT_EQ(0u, Two.Wait());
  TLines Expected;
  for (const char* Name : {"One", "Two"})
    for (int At = 1; At <= Count; ++At)
      Expected.push_back(std::to_string(At) + " " + Name + " Line " + std::to_string(At));
  const TLines Lines = LinesOf(LogFile());
  // The first to open the file keeps it to its end.
  if (!Lines.empty() && Lines.front() != Expected.front())
    std::rotate(Expected.begin(), Expected.begin() + Count, Expected.end());
  EXPECT_EQ(Expected, Lines);
}

}  // namespace
