#include "base/text.h"
#include "stories/story.h"
#include "support/process.h"

#include <algorithm>
#include <cstdlib>

namespace {

/// A link of the host's file system at a place below drive C, or instead of a drive, for as long as this object lives.
class THostLink {
 public:
  THostLink(const std::string& Place, const std::string& Target) : Place(Place) {
    Run("ln -s \"" + HostPath(Target) + "\"", true);
  }
  ~THostLink() { Run("rm -f", false); }

 private:
  static std::string HostPath(const std::string& WindowsPath) {
    std::string Path = WindowsPath.size() > 2 ? "/drive_c" + WindowsPath.substr(2) : "/dosdevices/" + WindowsPath;
    std::replace(Path.begin(), Path.end(), '\\', '/');
    return std::getenv("WINEPREFIX") + Path;
  }
  /// The end of a program of the host cannot be waited for.
  void Run(const std::string& Command, bool Appears) const {
    StartProgram("Z:\\bin\\" + Command + " \"" + HostPath(Place) + "\"");
    for (int Polls = 0; Exists("Z:" + HostPath(Place)) != Appears && Polls < 500; ++Polls) Sleep(20);
  }
  const std::string Place;
};

class Rubbish : public TStory {
 protected:
  std::string List(const std::string& Name) const { return Service("Garbage\\" + Name); }
  void TellList(const std::string& Name) { Tell(Name + " " + Read(List(Name))); }
  /// Lists one folder and removes it.
  void RemoveFolder(const std::string& Folder) {
    Begin();
    Garbage->PutDirectory(Text(Folder));
    Brief("remove " + Folder, Garbage->Garbage());
  }
};

TEST_F(Rubbish, IsListedLineByLineAndRemoved) {
  Put("a b, \"c\".txt", "");
  Put("old\\sub\\fixed.txt", "", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
  for (const wchar_t* Name : {L"A B\\Deep\\Deeper", L"Kept", L"Empty"}) StoreValue(Wide(Name), L"Value", REG_SZ, "");
  for (const wchar_t* Name : {L"", L"Last  Run ", L"Other"}) StoreValue(Wide(L"Values"), Name, REG_DWORD, "1234");
  Begin();
  for (const char* Name : {"a b, \"c\".txt", "\xE4.txt", "\xE4.txt"}) Step("file", Garbage->PutFile(Text(App(Name))));
  Step("folder", Garbage->PutDirectory(Text(App("old"))));
  for (const char* Name : {"A B", "None", "Empty"}) Step("key", Garbage->PutRegKey(User, Text(Key(Name))));
  for (const char* Name : {"Last  Run ", "", "None"})
    Step("value", Garbage->PutRegKeyValue(User, Text(Key("Values")), Text(std::string(Name))));
  for (const char* Name : {"Files.grb", "Dirs.grb", "RKeys.grb", "RKeyVals.grb"}) TellList(Name);
  Step("remove", Garbage->Garbage());
  Step("nothing is listed", Garbage->Garbage());
}

TEST_F(Rubbish, ThatALineCannotHoldIsRefused) {
  const std::wstring Outside = L"C:\\\x0416", Break = L"C:\\a\r\nC:\\", Nul(L"a\0b", 3);
  for (const std::wstring& Words : {std::wstring(), Outside, Break, Nul}) {
    const Text Name(Words);
    Brief("file", Garbage->PutFile(Name));
    Brief("folder", Garbage->PutDirectory(Name));
    Brief("key", Garbage->PutRegKey(User, Name));
    if (!Words.empty()) Brief("value", Garbage->PutRegKeyValue(User, Text(L"Key"), Name));
  }
  Brief("blank", Garbage->PutRegKeyValue(User, Text(L"A B"), Text(L"Value")));
  Brief("whole root", Garbage->PutRegKey(User, Text(L"\\")));
  for (const unsigned long Root : {0x7FFFFFFFul, 0x80000006ul}) {
    Brief("no root", Garbage->PutRegKey(Root, Text(L"Key")));
    Brief("no root", Garbage->PutRegKeyValue(Root, Text(L"Key"), Text(L"Value")));
  }
}

BOOL WINAPI WriteHalf(HANDLE File, LPCVOID Buffer, DWORD Size, DWORD* Written, OVERLAPPED* Overlapped) {
  WriteFile(File, Buffer, Size / 2, Written, Overlapped);
  SetLastError(ERROR_DISK_FULL);
  return FALSE;
}

TEST_F(Rubbish, ThatCannotBeListedOrReadLosesNoLine) {
  Put("a.txt", "");
  Garbage->PutFile(Text(App("a.txt")));
  Begin();
  const auto PutOther = [&] { return Garbage->PutFile(Text(App("other"))); };
  Brief("half a line would name another file", While(TImportPatch("WriteFile", WriteHalf), PutOther));
  Brief("held list", While(Hold(List("Files.grb"), FILE_SHARE_READ), PutOther));
  Brief("held list", While(Hold(List("Files.grb")), [&] { return Garbage->Garbage(); }));
  // A process died while it wrote: the end of a list that is no whole line reaches nothing and costs no other.
  for (const std::string& Whole : {App("none") + "\r\n", std::string()}) {
    Write(List("Files.grb"), Whole + App("a.tx"));
    Brief("put behind a torn line", Garbage->PutFile(Text(App("b.txt"))));
    TellList("Files.grb");
  }
  Write(List("Files.grb"), App("a.txt"));
  Brief("remove by a torn line", Garbage->Garbage());
}

std::string Deleted;
LSTATUS WINAPI NoteKey(HKEY, LPCSTR Name) {
  Deleted += Name;
  return ERROR_SUCCESS;
}

TEST_F(Rubbish, OfOddLinesReachesNothingElse) {
  for (const char* Name : {"a.txt", "b.txt", "c\\d.txt"}) Put(Name, "");
  Put("fixed.txt", "", FILE_ATTRIBUTE_READONLY);
  for (const wchar_t* Name : {L"Before", L"After"}) StoreValue(Wide(Name), L"Value", REG_SZ, "");
  // As another hand may have written it: every kind of line break, empty lines, one twice, a folder, a NUL.
  Write(List("Files.grb"), App("a.txt") + "\r\n\r\n" + App("a.txt") + "\r" + App("fixed.txt") + "\n" + App("c") + "\n" +
                               App("c\\d.txt") + std::string("\0x", 2) + "\n" + App("none") + "\n" + App("b.txt") +
                               "\n");
  const std::string Begin = "2147483649 " + Key("Before") + "\r\n", Rest = "-2147483647 " + Key("After") + "\r\n";
  Write(List("RKeys.grb"), Begin + "HKCU x\r\n" + Rest);
  Write(List("RKeyVals.grb"), "2147483649 " + Key("After") + " Value\r\n");
  TStory::Begin();
  Brief("a line without a number stops its list", Garbage->Garbage());
  Write(List("RKeys.grb"), "6442450945 " + Key("Before") + "\r\n" + Rest);
  Brief("numbers wrap", Garbage->Garbage());
  // Lines that would reach a whole root, or no root.
  const TImportPatch Patch("SHDeleteKeyA", NoteKey);
  Write(List("RKeys.grb"),
        "2147483649\r\n2147483649 \r\n2147483649 \\\r\n0 Software\r\n4 Software\r\n2147483653 last\r\n2147483654 "
        "x\r\n4294967296 c\r\n");
  Brief("no key", Garbage->Garbage());
  EXPECT_EQ("last", Deleted);
}

TEST_F(Rubbish, OfFoldersGoesButDotNamesLinksAndWhatIsHeld) {
  for (const char* Name :
       {"Beside.txt", "Gone\\a.txt", "Gone\\Sub\\b", "Old\\Sub\\.keep", "Old\\Sub\\a.txt", "Old\\.folder\\b.txt",
        "Old\\Other\\c.txt", "Held\\1.txt", "Held\\2\\held.txt", "Held\\3\\a.txt", "Target\\kept.txt", "Links\\a.txt"})
    Put(Name, "", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  MakeFolders(App("Gone\\Empty"));
  RemoveFolder(App("Gone"));
  RemoveFolder(App("Old\\"));
  for (const char* Nothing : {"none", "Beside.txt", "*"}) RemoveFolder(App(Nothing));
  Write(List("Dirs.grb"), "\r\n" + App("Old\\.folder") + std::string("\0x\r\n", 4));
  Brief("a NUL", Garbage->Garbage());
  Put("Held\\2\\held.txt", "");
  auto Held = Hold(App("Held\\2\\held.txt"), FILE_SHARE_READ);
  RemoveFolder(App("Held"));
  Held.Reset();
  const THostLink Link(App("Links\\Link"), App("Target"));
  for (const char* Name : {"Links\\Link", "Links"}) RemoveFolder(App(Name));
  // The code page has no such backslash and would take the plain one: "x\..\..\Target".
  MakeFolders(App("Bent\\x"));
  const std::wstring Bent = ToWide(App("Bent")) + L"\\x\xFF3C..\xFF3C..\xFF3CTarget";
  ASSERT_TRUE(CreateDirectoryW(Bent.c_str(), nullptr));
  RemoveFolder(App("Bent"));
  const THostLink Drive("q:", App());
  // A single letter stands for the drive, but only where there is a folder of that name.
  for (const char* Name : {"q", "Q:\\", "Q:", "Q:"}) {
    Put("Sub\\b.txt", "", FILE_ATTRIBUTE_READONLY);
    Begin();
    Write(List("Dirs.grb"), Name + std::string("\r\n"));
    Brief("a line " + std::string(Name), Garbage->Garbage());
  }
}

}  // namespace
