#include "support/module_calls.h"
#include "support/process.h"
#include "support/sandbox_test.h"

#include <climits>
#include <cstdio>
#include <regex>

namespace {

using namespace std::string_literals;

/// "yyyy.mm.dd hh:nn:ss " in local time: as long as the stamp of every line, and in the same order as the times.
std::string LogStamp() {
  SYSTEMTIME Now;
  GetLocalTime(&Now);
  char Stamp[32] = "";
  std::snprintf(Stamp, sizeof Stamp, "%04d.%02d.%02d %02d:%02d:%02d ", Now.wYear, Now.wMonth, Now.wDay, Now.wHour,
                Now.wMinute, Now.wSecond);
  return Stamp;
}

/// Whether the log's lock is taken.
bool IsHeld() {
  const TKernelHandle Lock(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, GuidText(CLSID_UDebugLog).c_str()));
  if (WaitForSingleObject(Lock.Get(), 0) == WAIT_TIMEOUT) return true;
  ReleaseSemaphore(Lock.Get(), 1, nullptr);
  return false;
}

class DebugLog : public TSandboxTest {
 protected:
  DebugLog() : TSandboxTest(LogToFile) {}
  HRESULT Put(const std::string& Name) { return Kept->Put(1, Text(Name), Text("Line"), Text("1")); }
  std::string LogFile() const { return Updates("Log\\update.log"); }
  /// update.log without its time stamps. The module keeps the file to itself, so it is made to go first: the caller
  /// holds no object of it.
  std::string Lines() {
    Kept = {};
    CoFreeUnusedLibrariesEx(0, 0);
    const std::regex Stamps("(^|\n)\\d{4}(\\.\\d\\d){2} \\d\\d(:\\d\\d){2} ");
    return std::regex_replace(Read(LogFile()), Stamps, "$1");
  }
  TComRef<IUDebugLog> Kept = Make<IUDebugLog>(CLSID_UDebugLog);
};

TEST_F(DebugLog, GetsExactlyOneLineFromEachCall) {
  const struct {
    long Id;
    std::wstring Name, Action, Text;
    std::string Line;
  } Rows[] = {
      {17, L"Common", L"Begin", L"DeleteFile C:\\old.dll", "17 Common Begin DeleteFile C:\\old.dll"},
      {LONG_MIN, L"N\r\nM", L"", L"\r\na\r\n\r\nb", "-2147483648 N<#NL>M  <#NL>a<#NL><#NL>b"},
      {4, L"\n", L"\r", L"\r\r\n\xFF\n\r\n", "4 \n \r \r<#NL>\xFF\n<#NL>"},
      {3, L"gr\u00FC\u00DFe", L"\u20AC", L"\u2603\0b"s, "3 gr\xFC\xDF"s + "e \x80 ?\0b"s},
      {5, L"N", L"A", std::wstring(70000, L'x'), "5 N A " + std::string(70000, 'x')},
  };
  const std::string Since = LogStamp();
  std::string Expected = "a line of last week\r\n";
  Write(LogFile(), Since + Expected);
  const size_t Next = Since.size() + Expected.size();
  for (const auto& Row : Rows) {
    ASSERT_EQ(S_OK, Kept->Put(Row.Id, Text(Row.Name), Text(Row.Action), Text(Row.Text))) << Row.Line;
    Expected += Row.Line + "\r\n";
  }
  ASSERT_EQ(S_OK, Kept->Put(6, nullptr, nullptr, nullptr));
  const std::string Till = LogStamp();
  EXPECT_EQ("<no file>", Read(LogFile())) << "nobody else can open it meanwhile";
  EXPECT_TRUE(Expected + "6   \r\n" == Lines());
  const std::string Stamp = Read(LogFile()).substr(Next, Since.size());
  EXPECT_TRUE(Since <= Stamp && Stamp <= Till) << Stamp << " is not between " << Since << " and " << Till;
}

TWords Boxes;

/// The user cancels every second of three boxes.
int WINAPI AnswerBox(HWND Owner, LPCSTR Text, LPCSTR Caption, UINT Style) {
  Boxes.push_back(std::string(Caption) + ": " + Text);
  EXPECT_EQ(nullptr, Owner);
  EXPECT_EQ(static_cast<UINT>(MB_RETRYCANCEL | MB_ICONERROR | MB_TASKMODAL), Style);
  EXPECT_TRUE(IsHeld()) << "others must not write while the user thinks";
  return Boxes.size() == 2 ? IDCANCEL : IDRETRY;
}

TEST_F(DebugLog, RepeatsAStepUntilItSucceedsOrTheUserGivesUp) {
  const std::tuple<const char*, std::string, DWORD, const char*> Steps[] = {
      {"CreateFileA", "Cannot open or create '" + LogFile() + "'.", ERROR_ACCESS_DENIED, "5"},
      {"SetFilePointer", "Cannot set pointer in '" + LogFile() + "' .", ERROR_NEGATIVE_SEEK, "83"},
      {"WriteFile", "Cannot write data to '" + LogFile() + "'.", ERROR_IO_DEVICE, "45D"}};
  for (const auto& [Function, Message, Code, CodeText] : Steps) {
    SCOPED_TRACE(Function);
    const TImportPatch Box("MessageBoxA", AnswerBox);
    const TFault Fault(Function, {.Times = 3, .Code = Code});
    Boxes.clear();
    EXPECT_EQ(static_cast<HRESULT>(0x800401FF), Put("given up"));
    EXPECT_EQ(SystemText(Code), ErrorText());
    EXPECT_EQ(S_OK, Put("written"));
    EXPECT_EQ(
        TWords(3, "Error: " + Message + "\r\n\r\nError: '" + SystemText(Code) + "' (Error code: " + CodeText + ")."),
        Boxes);
    EXPECT_FALSE(IsHeld());
  }
  EXPECT_EQ("1 written Line 1\r\n1 written Line 1\r\n1 written Line 1\r\n", Lines());
  EXPECT_EQ(nullptr, OpenSemaphoreA(SYNCHRONIZE, FALSE, GuidText(CLSID_UDebugLog).c_str()))
      << "it goes with the module";
}

}  // namespace
