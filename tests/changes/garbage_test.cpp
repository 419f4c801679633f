#include "base/text.h"
#include "changes/changes_test.h"
#include "support/host_link.h"
#include "support/module_calls.h"
#include "support/process.h"

#include <algorithm>

namespace {

using TLines = std::vector<std::string>;

constexpr char NoFile[] = "<no file>";

class Garbage : public TChangesTest {
 protected:
  explicit Garbage(TLogChoice Choice = LogInMemory) : TChangesTest(CLSID_UGarbage, Choice) {}

 public:
  std::string List(const std::string& Name) const { return Service("Garbage\\" + Name); }
  /// Removes everything, and shows nothing meanwhile.
  void Remove() {
    ASSERT_EQ(S_OK, Lists->Garbage()) << ErrorText();
    EXPECT_TRUE(Dialog().Boxes.empty());
  }
  /// Lists one folder and removes it.
  void RemoveFolder(const std::string& Folder) {
    ASSERT_EQ(S_OK, Lists->PutDirectory(Text(Folder)));
    Remove();
    EXPECT_EQ(NoFile, Read(List("Dirs.grb")));
  }

  TComRef<IUGarbage> Lists = Make<IUGarbage>(CLSID_UGarbage);
};

// ---- The lists

TEST_F(Garbage, IsListedLineByLine) {
  ASSERT_EQ(S_OK, Lists->PutFile(Text("C:\\App\\a b, \"c\".txt")));
  for (int Times = 0; Times < 2; ++Times) ASSERT_EQ(S_OK, Lists->PutFile(Text("C:\\App\\\xE4.txt")));
  ASSERT_EQ(S_OK, Lists->PutDirectory(Text("C:\\App\\Old")));
  ASSERT_EQ(S_OK, Lists->PutRegKey(0x80000002, Text("Software\\A B")));
  ASSERT_EQ(S_OK, Lists->PutRegKeyValue(User, Text("Software\\App"), Text("Last  Run ")));
  ASSERT_EQ(S_OK, Lists->PutRegKeyValue(0x80000000, Text("App"), Text("")));
  EXPECT_EQ("C:\\App\\a b, \"c\".txt\r\nC:\\App\\\xE4.txt\r\nC:\\App\\\xE4.txt\r\n", Read(List("Files.grb")));
  EXPECT_EQ("C:\\App\\Old\r\n", Read(List("Dirs.grb")));
  EXPECT_EQ("2147483650 Software\\A B\r\n", Read(List("RKeys.grb")));
  EXPECT_EQ("2147483649 Software\\App Last  Run \r\n2147483648 App \r\n", Read(List("RKeyVals.grb")));
}

TEST_F(Garbage, ThatALineCannotHoldIsRefused) {
  const std::wstring Outside = L"C:\\\x0416", Break = L"C:\\a\r\nC:\\", Nul(L"a\0b", 3);
  for (const std::wstring& Name : {std::wstring(), Outside, Break, Nul}) {
    EXPECT_EQ(E_INVALIDARG, Lists->PutFile(Text(Name)));
    EXPECT_EQ(E_INVALIDARG, Lists->PutDirectory(Text(Name)));
    EXPECT_EQ(E_INVALIDARG, Lists->PutRegKey(User, Text(Name)));
  }
  for (const std::wstring& Name : {Outside, Break, Nul})
    EXPECT_EQ(E_INVALIDARG, Lists->PutRegKeyValue(User, Text(L"Key"), Text(Name)));
  EXPECT_EQ(E_INVALIDARG, Lists->PutRegKeyValue(User, Text(L"A B"), Text(L"Value")));
  EXPECT_EQ("The key of a value in a garbage list must not have a blank in its path.", ErrorText());
  EXPECT_EQ(E_INVALIDARG, Lists->PutRegKey(User, Text(L"\\")));
  EXPECT_EQ("The registry key in a garbage list must have a name.", ErrorText());
  EXPECT_EQ(E_INVALIDARG, Lists->PutRegKey(0x7FFFFFFF, Text(L"Key")));
  EXPECT_EQ(E_INVALIDARG, Lists->PutRegKeyValue(0x80000006, Text(L"Key"), Text(L"Value")));
  EXPECT_TRUE(TreeOf(Service("Garbage")).empty());
}

BOOL WINAPI WriteHalf(HANDLE File, LPCVOID Buffer, DWORD Size, DWORD* Written, OVERLAPPED* Overlapped) {
  WriteFile(File, Buffer, Size / 2, Written, Overlapped);
  SetLastError(ERROR_DISK_FULL);
  return FALSE;
}

TEST_F(Garbage, ThatCannotBeListedLeavesNothingBehind) {
  ASSERT_EQ(S_OK, Lists->PutDirectory(Text("C:\\Kept")));
  {
    TImportPatch Patch("WriteFile", WriteHalf);
    EXPECT_EQ(static_cast<HRESULT>(0x80040270), Lists->PutDirectory(Text("C:\\Programs\\Old")));
    EXPECT_EQ(SystemText(ERROR_DISK_FULL), ErrorText());
  }
  EXPECT_EQ("C:\\Kept\r\n", Read(List("Dirs.grb"))) << "half of a line would name another folder";
  {
    TNoPauses NoPauses;
    const TFileHandle Held(CreateFileA(List("Dirs.grb").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_EQ(static_cast<HRESULT>(0x80040220), Lists->PutDirectory(Text("C:\\Other")));
  }
  ASSERT_EQ(S_OK, Lists->PutDirectory(Text("C:\\Third")));
  EXPECT_EQ("C:\\Kept\r\nC:\\Third\r\n", Read(List("Dirs.grb")));
}

// ---- Files and the registry

TEST_F(Garbage, FilesGoAndTheListWithThem) {
  Write(App("a.txt"), "");
  Write(App("b.txt"), "");
  Write(App("fixed.txt"), "", FILE_ATTRIBUTE_READONLY);
  Write(App("folder\\c.txt"), "");
  // As another hand may have written it: every kind of line break, empty lines, one twice, a folder, a NUL.
  Write(List("Files.grb"), App("a.txt") + "\r\n\r\n" + App("a.txt") + "\r" + App("fixed.txt") + "\n" + App("folder") +
                               "\n" + App("folder\\c.txt") + std::string("\0x", 2) + "\n" + App("none") + "\n" +
                               App("b.txt") + "\n");
  Remove();
  EXPECT_EQ("fixed.txt folder\\ folder\\c.txt", Names());
  EXPECT_EQ(NoFile, Read(List("Files.grb")));
}

TEST_F(Garbage, KeysAndValuesGo) {
  for (const wchar_t* Name : {L"A B\\Deep\\Deeper", L"Kept", L"Empty"}) StoreValue(Wide(Name), L"Value", REG_SZ, "");
  for (const wchar_t* Name : {L"", L"Last Run", L"Other"}) StoreValue(Wide(L"Values"), Name, REG_DWORD, "1234");
  for (const char* Name : {"A B", "None", "Empty"}) ASSERT_EQ(S_OK, Lists->PutRegKey(User, Text(Key(Name))));
  for (const char* Name : {"Last Run", "", "None"})
    ASSERT_EQ(S_OK, Lists->PutRegKeyValue(User, Text(Key("Values")), Text(std::string(Name))));
  ASSERT_EQ(S_OK, Lists->PutRegKeyValue(User, Text(Key("None")), Text("Value")));
  Remove();
  TRegistryTree Expected;
  Expected[L""], Expected[L"Kept\\"], Expected[L"Values\\"];
  Expected[L"Kept\\Value"] = {REG_SZ, ""};
  Expected[L"Values\\Other"] = {REG_DWORD, "1234"};
  EXPECT_EQ("", Difference(Expected, Tree()));
  EXPECT_TRUE(TreeOf(Service("Garbage")).empty());
}

TEST_F(Garbage, ALineWithoutANumberStopsItsListOnly) {
  StoreValue(Wide(L"Before"), L"Value", REG_SZ, "");
  StoreValue(Wide(L"After"), L"Value", REG_SZ, "");
  const std::string Begin = "2147483649 " + Key("Before") + "\r\n", Rest = "2147483649 " + Key("After") + "\r\n";
  Write(List("RKeys.grb"), Begin + "HKCU x\r\n" + Rest);
  Write(List("RKeyVals.grb"), "2147483649 " + Key("After") + " Value\r\n");
  Remove();
  EXPECT_EQ((TRegistryTree{{L"", {}}, {L"After\\", {}}}), Tree()) << "the list of values is another one";
  EXPECT_EQ(Begin + "HKCU x\r\n" + Rest, Read(List("RKeys.grb")));
  EXPECT_EQ(NoFile, Read(List("RKeyVals.grb")));
  Write(List("RKeys.grb"), Begin + Rest);
  Remove();
  EXPECT_EQ((TRegistryTree{{L"", {}}}), Tree());
}

TLines DeletedKeys;
LSTATUS WINAPI NoteKey(HKEY Root, LPCSTR Name) {
  DeletedKeys.push_back(std::to_string(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(Root))) + " " + Name);
  return ERROR_SUCCESS;
}

TEST_F(Garbage, LinesThatWouldReachAWholeRootOrNoRootArePassedOver) {
  // Should one of them not be passed over after all, this keeps the registry.
  TImportPatch Patch("SHDeleteKeyA", NoteKey);
  Write(List("RKeys.grb"),
        "2147483649\r\n2147483649 \r\n2147483649 \\\r\n0 Software\r\n4 Software\r\n2147483654 x\r\n"
        "2147483649 a\r\n-2147483647 b\r\n4294967296 c\r\n6442450946 d\r\n");
  Remove();
  EXPECT_EQ((TLines{"2147483649 a", "2147483649 b", "2147483650 d"}), DeletedKeys);
  EXPECT_EQ(NoFile, Read(List("RKeys.grb")));
}

TEST_F(Garbage, AListInOtherHandsStaysForTheNextTime) {
  Write(App("a.txt"), "");
  ASSERT_EQ(S_OK, Lists->PutFile(Text(App("a.txt"))));
  {
    const TFileHandle Held(
        CreateFileA(List("Files.grb").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    Remove();
    EXPECT_EQ("a.txt", Names());
  }
  Remove();
  EXPECT_EQ("", Names());
}

// ---- Folders

TEST_F(Garbage, FoldersGoWithAllButDotNames) {
  Write(App("Beside.txt"), "");
  Write(App("Gone\\a.txt"), "", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
  Write(App("Gone\\Sub\\Deep\\c"), "", FILE_ATTRIBUTE_HIDDEN);
  MakeFolders(App("Gone\\Empty"));
  RemoveFolder(App("Gone"));
  for (const char* Name : {"Old\\Sub\\.keep", "Old\\Sub\\a.txt", "Old\\.folder\\b.txt", "Old\\Other\\c.txt"})
    Write(App(Name), "");
  RemoveFolder(App("Old\\"));
  for (const char* Nothing : {"none", "Beside.txt", "*"}) RemoveFolder(App(Nothing));
  Write(List("Dirs.grb"), "\r\n" + App("Old\\.folder") + std::string("\0x\r\n", 4));
  Remove();
  EXPECT_EQ("Beside.txt Old\\ Old\\.folder\\ Old\\.folder\\b.txt Old\\Sub\\ Old\\Sub\\.keep", Names());
}

TEST_F(Garbage, ALineThatWasCutOffReachesNothingAndCostsNoOther) {
  Write(App("Old\\a.txt"), "");
  Write(App("b.txt"), "");
  // A process died while it put a folder below Old.
  Write(List("Dirs.grb"), App("Old"));
  Remove();
  EXPECT_EQ("Old\\ Old\\a.txt b.txt", Names());

  Write(List("Files.grb"), App("none") + "\r\n" + App("Old\\a.t"));
  ASSERT_EQ(S_OK, Lists->PutFile(Text(App("b.txt"))));
  EXPECT_EQ(App("none") + "\r\n" + App("b.txt") + "\r\n", Read(List("Files.grb")));
  Write(List("Files.grb"), App("Old\\a.t"));
  ASSERT_EQ(S_OK, Lists->PutFile(Text(App("b.txt"))));
  Remove();
  EXPECT_EQ("Old\\ Old\\a.txt", Names());
}

TEST_F(Garbage, AFileThatCannotGoKeepsItsFoldersOnly) {
  for (const char* Name : {"Old\\1.txt", "Old\\2\\held.txt", "Old\\3\\a.txt", "Old\\4.txt"}) Write(App(Name), "");
  const TFileHandle Held(CreateFileA(App("Old\\2\\held.txt").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  RemoveFolder(App("Old"));
  EXPECT_EQ("Old\\ Old\\2\\ Old\\2\\held.txt", Names());
}

TEST_F(Garbage, ALinkStaysAsItIs) {
  Write(App("Target\\kept.txt"), "kept");
  MakeFolders(App("EmptyTarget"));
  Write(App("Old\\a.txt"), "");
  MakeFolders(App("Old\\Sub"));
  const THostLink Link(THostLink::Path(App("Old\\Link")), App("Target"));
  const THostLink Deep(THostLink::Path(App("Old\\Sub\\Link")), App("EmptyTarget"));
  RemoveFolder(App("Old\\Link"));
  RemoveFolder(App("Old"));
  RemoveFolder(App("Old\\Sub\\Link"));
  EXPECT_EQ("kept", Read(App("Target\\kept.txt")));
  EXPECT_TRUE(Exists(App("EmptyTarget")));
  EXPECT_FALSE(Exists(App("Old\\a.txt")));
}

TEST_F(Garbage, ANameThatTheCodePageBendsLeadsNowhere) {
  // The code page has no such backslash and takes the plain one: "x\..\..\Victim".
  Write(App("Victim\\kept.txt"), "kept");
  MakeFolders(App("Old\\x"));
  ASSERT_TRUE(CreateDirectoryW(ToWide(App("Old")).append(L"\\x\xFF3C..\xFF3C..\xFF3CVictim").c_str(), nullptr));
  WIN32_FIND_DATAA Entry;
  ASSERT_TRUE(TFindHandle(FindFirstFileA(App("Old\\x*Victim").c_str(), &Entry)));
  ASSERT_STREQ("x\\..\\..\\Victim", Entry.cFileName);
  RemoveFolder(App("Old"));
  EXPECT_EQ("kept", Read(App("Victim\\kept.txt")));
  EXPECT_TRUE(Exists(App("Old")));
  EXPECT_FALSE(Exists(App("Old\\x")));
  EXPECT_TRUE(RemoveDirectoryW(ToWide(App("Old")).append(L"\\x\xFF3C..\xFF3C..\xFF3CVictim").c_str()));
}

TEST_F(Garbage, ADriveIsEmptiedAndStays) {
  const auto Fill = [this] {
    Write(App("Drive\\a.txt"), "", FILE_ATTRIBUTE_READONLY);
    Write(App("Drive\\.keep"), "");
    Write(App("Drive\\Sub\\b.txt"), "");
  };
  Fill();
  const THostLink Drive(THostLink::Drive('q'), App("Drive"));
  // A single letter stands for the drive, but only where there is a folder of that name.
  RemoveFolder("q");
  EXPECT_EQ("Drive\\ Drive\\.keep Drive\\Sub\\ Drive\\Sub\\b.txt Drive\\a.txt", Names());
  for (const char* Name : {"Q:\\", "Q:"}) {
    Fill();
    RemoveFolder(Name);
    EXPECT_EQ("Drive\\ Drive\\.keep", Names()) << Name;
  }
  DeleteFileA(App("Drive\\.keep").c_str());
  RemoveFolder("Q:");
  EXPECT_EQ("Drive\\", Names()) << "nothing was in the way, and the drive is still there";
}

// ---- Several processes

/// put-garbage PREFIX COUNT: writes the files PREFIX0, PREFIX1, ... and lists each.
const TRole PutGarbage("put-garbage", [](const TWords& Words, TScriptedDialog&) {
  const auto Garbage = Make<IUGarbage>(CLSID_UGarbage);
  return RepeatWhenLetGo(std::stoi(Words.at(1)), [&](int At) {
    const std::string Path = Words.at(0) + std::to_string(At);
    Write(Path, "garbage");
    return Garbage->PutFile(Text(Path));
  });
});

/// Other processes work here; see NoDoubles.
class SharedGarbage : public Garbage {
 protected:
  SharedGarbage() : Garbage(NoDoubles) {}
};

TEST_F(SharedGarbage, NoLineIsLostBesideARemoval) {
  constexpr int Count = 60;
  const std::string Files = std::to_string(Count);
  TChild Children[] = {TChild({"put-garbage", App("one"), Files}), TChild({"put-garbage", App("two"), Files}),
                       TChild({"put-garbage", App("three"), Files})};
  for (TChild& Child : Children) ASSERT_TRUE(Child.WaitUntilReady());
  for (TChild& Child : Children) Child.Continue();
  int Removals = 0;
  for (; !std::all_of(std::begin(Children), std::end(Children), [](const TChild& Child) { return Child.HasEnded(); });
       ++Removals)
    ASSERT_EQ(S_OK, Lists->Garbage());
  for (TChild& Child : Children) EXPECT_EQ(0u, Child.Wait());
  EXPECT_LT(5, Removals);
  ASSERT_EQ(S_OK, Lists->Garbage());
  EXPECT_EQ("", Names()) << "the line of a file that is still there was lost";
}

TEST_F(SharedGarbage, IsFinishedByTheNextProcessWhereverOneDies) {
  for (const char* Event : {"before", "after"}) {
    int Point = 0;
    for (DWORD Status = DiedStatus; Status == DiedStatus;) {
      SCOPED_TRACE(Event + std::to_string(++Point));
      Write(App("a.txt"), "");
      Write(App("Old\\b.txt"), "", FILE_ATTRIBUTE_READONLY);
      StoreValue(Wide(L"Key"), L"Value", REG_SZ, "");
      StoreValue(Wide(L"Kept"), L"Value", REG_SZ, "");
      ASSERT_EQ(S_OK, Lists->PutFile(Text(App("a.txt"))));
      ASSERT_EQ(S_OK, Lists->PutDirectory(Text(App("Old"))));
      ASSERT_EQ(S_OK, Lists->PutRegKey(User, Text(Key("Key"))));
      ASSERT_EQ(S_OK, Lists->PutRegKeyValue(User, Text(Key("Kept")), Text("Value")));
      Status = TChild({"make-changes", "garbage", "", Event, std::to_string(Point)}).Wait();
      ASSERT_TRUE(Status == 0 || Status == DiedStatus) << Status;
      ASSERT_EQ(S_OK, Lists->Garbage());
      EXPECT_EQ("", Names());
      EXPECT_EQ((TRegistryTree{{L"", {}}, {L"Kept\\", {}}}), Tree());
      EXPECT_TRUE(TreeOf(Service("Garbage")).empty());
    }
    EXPECT_LE(9, Point);
  }
}

}  // namespace
