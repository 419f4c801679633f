#include "kit/kit_fixture.h"

#include <algorithm>
#include <regex>

namespace {

TWords FilesOf(const std::string& Folder) {
  TWords Names;
  for (const auto& [Name, Entry] : TreeOf(Folder)) Names.push_back(Name);
  return Names;
}

class KitLog : public TKitTest {
 protected:
  std::string Folder(const std::string& Name = "") const { return App("Logs") + (Name.empty() ? "" : "\\" + Name); }
  /// The names of the logs, and what they hold, from the older one on.
  std::string Content() const {
    std::string All;
    TWords Names = FilesOf(Folder());
    std::ranges::sort(Names, {}, [](const std::string& Name) { return Name.find(".1.log") == Name.npos; });
    for (const std::string& Name : Names) All += Read(Folder(Name));
    return All;
  }
  static HRESULT Put(IUDebugLog& Log, const std::string& Line, const char* Action = "Begin") {
    return Log.Put(7, Text("Test"), Text(Action), Text(Line));
  }
};

TEST_F(KitLog, HasTheLinesOfMendworkInAFileOfTheProcess) {
  ASSERT_EQ(S_OK, Kit->Log(Text(Folder()), 0));
  Write(App("a.txt"), "a");
  ASSERT_EQ(S_OK, Make<IUFile>(CLSID_UFile)->CopyFile(Text(App("a.txt")), Text(App("b.txt")), 0));
  ASSERT_EQ(1u, FilesOf(Folder()).size());
  EXPECT_TRUE(std::regex_match(FilesOf(Folder())[0],
                               std::regex("update-\\d{8}-\\d{6}-" + std::to_string(GetCurrentProcessId()) + "\\.log")))
      << FilesOf(Folder())[0];
  EXPECT_EQ("", Content()) << "lines are gathered";
  auto Log = Active<IUDebugLog>(CLSID_UDebugLog);
  EXPECT_EQ(S_OK, Put(*Log.Get(), "at\r\nlast", "Exception"));
  const std::string Early = Content();
  EXPECT_TRUE(Early.ends_with(" 7 Test Exception at<#NL>last\r\n")) << "a failure is written at once";
  EXPECT_TRUE(
      std::regex_search(Early, std::regex("^\\d{4}\\.\\d\\d\\.\\d\\d \\d\\d:\\d\\d:\\d\\d \\d+ UFile Begin CopyFile ")))
      << Early;
  EXPECT_EQ(S_OK, Put(*Log.Get(), "behind it"));
  Log = {};
  EXPECT_EQ(S_OK, Kit->Log(Text(""), 0));
  EXPECT_FALSE(Active<IUDebugLog>(CLSID_UDebugLog));
  EXPECT_TRUE(Content().starts_with(Early) && Content().ends_with(" 7 Test Begin behind it\r\n"));
  EXPECT_FALSE(Exists(Updates("Log\\update.log")));

  EXPECT_EQ(E_INVALIDARG, Kit->Log(Text("Logs"), 0));
  EXPECT_EQ(E_INVALIDARG, Kit->Log(Text(Folder()), -1));
  EXPECT_EQ(E_INVALIDARG, Kit->Log(Text(Folder()), 65535));
  EXPECT_EQ("A debug log may take no fewer than 65536 bytes, or, with 0, any number.", ErrorText());
  EXPECT_EQ(static_cast<HRESULT>(0x80040200 + ERROR_PATH_NOT_FOUND), Kit->Log(Text(App("a.txt\\Logs")), 0));
  EXPECT_FALSE(Active<IUDebugLog>(CLSID_UDebugLog));
}

TEST_F(KitLog, KeepsToItsLimitAndLosesTheOldestLinesOnly) {
  ASSERT_EQ(S_OK, Kit->Log(Text(Folder()), 65536));
  const auto Log = Active<IUDebugLog>(CLSID_UDebugLog);
  ASSERT_EQ(S_OK, Put(*Log.Get(), std::string(70000, 'x')));
  constexpr int Lines = 3000;
  for (int At = 0; At < Lines; ++At) ASSERT_EQ(S_OK, Put(*Log.Get(), "line " + std::to_string(At)));
  ASSERT_EQ(S_OK, Put(*Log.Get(), "end", "Exception"));
  EXPECT_EQ(2u, FilesOf(Folder()).size());
  for (const std::string& Name : FilesOf(Folder())) EXPECT_LE(Read(Folder(Name)).size(), 32768u) << Name;
  std::string All = Content();
  const std::regex Line("\\S+ \\S+ 7 Test Begin line (\\d+)\r\n");
  int Next = -1;
  for (std::smatch Found; std::regex_search(All, Found, Line, std::regex_constants::match_continuous);
       All = Found.suffix()) {
    ASSERT_TRUE(Next < 0 || Next == std::stoi(Found[1])) << Next;
    Next = std::stoi(Found[1]) + 1;
  }
  EXPECT_EQ(Lines, Next) << "all from the first that is kept";
  EXPECT_TRUE(All.ends_with("7 Test Exception end\r\n")) << All.substr(0, 100);
}

BOOL WINAPI FullDisk(HANDLE, LPCVOID, DWORD, DWORD*, OVERLAPPED*) { return FALSE; }

TEST_F(KitLog, WaitsForADiskThatIsFull) {
  ASSERT_EQ(S_OK, Kit->Log(Text(Folder()), 0));
  const auto Log = Active<IUDebugLog>(CLSID_UDebugLog);
  {
    const TImportPatch Full("WriteFile", FullDisk, "MendworkKit.dll");
    for (const char* Line : {"one", "two"}) EXPECT_EQ(S_OK, Put(*Log.Get(), Line, "Exception"));
    EXPECT_EQ(S_OK, Put(*Log.Get(), std::string(1 << 20, 'x')));
  }
  EXPECT_EQ(S_OK, Put(*Log.Get(), "three", "Exception"));
  EXPECT_EQ(S_OK, Put(*Log.Get(), "four", "Exception"));
  const std::regex Stamp("\\d{4}\\S+ \\S+ 7 Test Exception ");
  EXPECT_EQ("one\r\ntwo\r\nthree\r\n1 lines could not be written.\r\nfour\r\n",
            std::regex_replace(Content(), Stamp, ""));
}

/// Writes lines beside others who do, and leaves without an end.
const TRole LogAndLeave(
    "log-and-leave",
    [](const TWords& Words, TScriptedDialog&) {
      IKit* const Kit = Make<IKit>(CLSID_Kit).Detach();
      if (Kit->Log(Text(Words[0]), 0) != S_OK) return 1;
      const auto File = Make<IUFile>(CLSID_UFile);
      if (File->CopyFile(Text(Words[1]), Text(Words[2]), 0) != S_OK) return 2;
      ExitProcess(0);
    },
    TRole::WithoutDoubles);

TEST_F(KitLog, OfProcessesThatRunSideBySideAreFilesOfTheirOwn) {
  Write(App("a.txt"), "a");
  {
    TChild First({"log-and-leave", Folder(), App("a.txt"), App("1.txt")}),
        Second({"log-and-leave", Folder(), App("a.txt"), App("2.txt")});
    EXPECT_EQ(0u, First.Wait());
    EXPECT_EQ(0u, Second.Wait());
  }
  std::string Copied;
  for (const std::string& Name : FilesOf(Folder())) {
    const std::string Lines = Read(Folder(Name));
    EXPECT_TRUE(Lines.ends_with(" UFile End CopyFile\r\n")) << Lines;
    for (const char* Word : {"1.txt", "2.txt"})
      if (Lines.find(App(Word)) != Lines.npos) Copied += Word;
  }
  EXPECT_TRUE(Copied == "1.txt2.txt" || Copied == "2.txt1.txt") << Copied;
}

}  // namespace
