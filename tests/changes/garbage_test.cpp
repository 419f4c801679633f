#include "client/commands.h"
#include "server/text.h"
#include "support/changing_calls.h"
#include "support/child.h"
#include "support/fault.h"
#include "support/host_link.h"
#include "support/registry_tree.h"

#include <algorithm>

namespace {

using TLines = std::vector<std::string>;

constexpr char NoFile[] = "<no file>";

class Garbage : public TRegistrySandbox {
 protected:
  explicit Garbage(TLogChoice Choice = LogInMemory) : TRegistrySandbox(Choice) {
    Lists = Make<IUGarbage>(CLSID_UGarbage);
    if (Choice == LogInMemory) Log().Lines.clear();
  }

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
  /// The names of all that is in the application, joined with blanks.
  std::string Names() const {
    std::string Result;
    for (const auto& [Name, Entry] : TreeOf(App())) Result += (Result.empty() ? "" : " ") + Name;
    return Result;
  }

  TComRef<IUGarbage> Lists;
};

// ---- The lists

TEST_F(Garbage, IsListedLineByLine) {
  ASSERT_EQ(S_OK, Lists->PutFile(Text("C:\\App\\a b, \"c\".txt")));
  ASSERT_EQ(S_OK, Lists->PutFile(Text("C:\\App\\\xE4.txt")));
  ASSERT_EQ(S_OK, Lists->PutFile(Text("C:\\App\\\xE4.txt")));
  ASSERT_EQ(S_OK, Lists->PutDirectory(Text("C:\\App\\Old")));
  ASSERT_EQ(S_OK, Lists->PutRegKey(0x80000002, Text("Software\\A B")));
  ASSERT_EQ(S_OK, Lists->PutRegKeyValue(0x80000001, Text("Software\\App"), Text("Last  Run ")));
  ASSERT_EQ(S_OK, Lists->PutRegKeyValue(0x80000000, Text("App"), Text("")));
  EXPECT_EQ("C:\\App\\a b, \"c\".txt\r\nC:\\App\\\xE4.txt\r\nC:\\App\\\xE4.txt\r\n", Read(List("Files.grb")));
  EXPECT_EQ("C:\\App\\Old\r\n", Read(List("Dirs.grb")));
  EXPECT_EQ("2147483650 Software\\A B\r\n", Read(List("RKeys.grb")));
  EXPECT_EQ("2147483649 Software\\App Last  Run \r\n2147483648 App \r\n", Read(List("RKeyVals.grb")));
}

TEST_F(Garbage, WritesTheseLines) {
  ASSERT_EQ(S_OK, Lists->PutFile(Text("C:\\a")));
  ASSERT_EQ(S_OK, Lists->PutDirectory(Text("C:\\b")));
  ASSERT_EQ(S_OK, Lists->PutRegKey(User, Text(Key("No"))));
  ASSERT_EQ(S_OK, Lists->PutRegKeyValue(User, Text(Key("No")), Text("v w")));
  Remove();
  const auto Put = [this](const std::string& Begin, const std::string& End, const char* File, const std::string& Line) {
    return TLines{"Begin " + Begin, "Begin WriteToGrbFile " + List(File) + " " + Line, "End WriteToGrbFile",
                  "End " + End};
  };
  const std::string KeyLine = "2147483649 " + Key("No");
  TLines Expected;
  for (const TLines& Lines : {Put("PutFile C:\\a", "PutFile", "Files.grb", "C:\\a"),
                              Put("PutDirectory C:\\b", "PutDirectory", "Dirs.grb", "C:\\b"),
                              Put("PutRegKey " + KeyLine, "PutRegKey", "RKeys.grb", KeyLine),
                              Put("PutRegKey " + KeyLine + " v w", "PutRegKey", "RKeyVals.grb", KeyLine + " v w"),
                              TLines{"Begin Garbage", "End Garbage"}})
    Expected.insert(Expected.end(), Lines.begin(), Lines.end());
  EXPECT_EQ(Expected, Log().Texts("UGarbage"));
  // Of two nested routines each has an id of its own.
  std::vector<long> Ids;
  for (const auto& Line : Log().Lines)
    if (Line.Name == "UGarbage") Ids.push_back(Line.Id);
  EXPECT_TRUE(Ids[0] == Ids[3] && Ids[1] == Ids[2] && Ids[0] != Ids[1]);

  Log().Lines.clear();
  Remove();
  EXPECT_EQ((TLines{"UGarbage Begin Garbage", "UGarbage End Garbage"}), Log().Texts())
      << "without lists, and without the retry layer";
}

TEST_F(Garbage, ThatALineCannotHoldIsRefused) {
  const std::wstring Outside = L"C:\\\x0416", Break = L"C:\\a\r\nC:\\", Nul(L"a\0b", 3);
  for (const std::wstring& Name : {std::wstring(), Outside, Break, std::wstring(L"C:\\a\n"), Nul}) {
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
    TImportPatch Patch(Module(), "WriteFile", reinterpret_cast<void*>(WriteHalf));
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
  // The lock and the file are free again.
  ASSERT_EQ(S_OK, Lists->PutDirectory(Text("C:\\Third")));
  EXPECT_EQ("C:\\Kept\r\nC:\\Third\r\n", Read(List("Dirs.grb")));
  const TKernelHandle Semaphore(
      OpenSemaphoreA(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, GuidText(CLSID_UGarbage).c_str()));
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(Semaphore.Get(), 0));
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(Semaphore.Get(), 0));
  ReleaseSemaphore(Semaphore.Get(), 1, nullptr);
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
  ASSERT_EQ(S_OK, Lists->PutRegKey(User, Text(Key("A B"))));
  ASSERT_EQ(S_OK, Lists->PutRegKey(User, Text(Key("None"))));
  ASSERT_EQ(S_OK, Lists->PutRegKey(User, Text(Key("Empty"))));
  ASSERT_EQ(S_OK, Lists->PutRegKeyValue(User, Text(Key("Values")), Text("Last Run")));
  ASSERT_EQ(S_OK, Lists->PutRegKeyValue(User, Text(Key("Values")), Text("")));
  ASSERT_EQ(S_OK, Lists->PutRegKeyValue(User, Text(Key("None")), Text("Value")));
  Remove();
  TRegistryTree Expected;
  Expected[L""], Expected[L"Kept\\"], Expected[L"Values\\"];
  Expected[L"Kept\\Value"] = {REG_SZ, ""};
  Expected[L"Values\\Other"] = {REG_DWORD, "1234"};
  EXPECT_EQ("", Difference(Expected, Tree()));
  EXPECT_EQ(NoFile, Read(List("RKeys.grb")));
  EXPECT_EQ(NoFile, Read(List("RKeyVals.grb")));
}

TEST_F(Garbage, ALineWithoutANumberStopsItsListOnly) {
  StoreValue(Wide(L"Before"), L"Value", REG_SZ, "");
  StoreValue(Wide(L"After"), L"Value", REG_SZ, "");
  const std::string Begin = "2147483649 " + Key("Before") + "\r\n", Rest = "2147483649 " + Key("After") + "\r\n";
  for (const char* Bad : {"HKCU x", "", "99999999999999999999 x"}) {
    SCOPED_TRACE(Bad);
    StoreValue(Wide(L"Before"), L"Value", REG_SZ, "");
    StoreValue(Wide(L"After"), L"Value", REG_SZ, "");
    const std::string Keys = Begin + Bad + "\r\n" + Rest;
    Write(List("RKeys.grb"), Keys);
    Write(List("RKeyVals.grb"), "2147483649 " + Key("After") + " Value\r\n");
    Remove();
    TRegistryTree Now = Tree();
    EXPECT_EQ(0u, Now.count(L"Before\\"));
    EXPECT_EQ(1u, Now.count(L"After\\"));
    EXPECT_EQ(0u, Now.count(L"After\\Value")) << "the list of values is another one";
    EXPECT_EQ(Keys, Read(List("RKeys.grb")));
    EXPECT_EQ(NoFile, Read(List("RKeyVals.grb")));
  }
  Write(List("RKeys.grb"), Begin + Rest);
  Remove();
  EXPECT_EQ(0u, Tree().count(L"After\\"));
}

TLines DeletedKeys;
LSTATUS WINAPI NoteKey(HKEY Root, LPCSTR Name) {
  DeletedKeys.push_back(std::to_string(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(Root))) + " " + Name);
  return ERROR_SUCCESS;
}

TEST_F(Garbage, LinesThatWouldReachAWholeRootOrNoRootArePassedOver) {
  // Should one of them not be passed over after all, this keeps the registry.
  TImportPatch Patch(Module(), "SHDeleteKeyA", reinterpret_cast<void*>(NoteKey));
  Write(List("RKeys.grb"),
        "2147483649\r\n2147483649 \r\n2147483649 \\\r\n0 Software\r\n4 Software\r\n2147483654 x\r\n"
        "2147483649 a\r\n-2147483647 b\r\n4294967296 c\r\n6442450946 d\r\n");
  Remove();
  EXPECT_EQ((TLines{"2147483649 a", "2147483649 b", "2147483650 d"}), DeletedKeys);
  EXPECT_EQ(NoFile, Read(List("RKeys.grb")));
}

TEST_F(Garbage, AListInOtherHandsStaysForTheNextTime) {
  Write(App("a.txt"), "");
  MakeFolders(App("folder"));
  ASSERT_EQ(S_OK, Lists->PutFile(Text(App("a.txt"))));
  ASSERT_EQ(S_OK, Lists->PutDirectory(Text(App("folder"))));
  {
    const TFileHandle Held(
        CreateFileA(List("Files.grb").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    Remove();
    EXPECT_EQ("a.txt", Names());
  }
  EXPECT_EQ(App("a.txt") + "\r\n", Read(List("Files.grb")));
  Remove();
  EXPECT_EQ("", Names());
}

// ---- Folders

TEST_F(Garbage, FoldersGoWithAllButDotNames) {
  Write(App("Old\\a.txt"), "", FILE_ATTRIBUTE_READONLY);
  Write(App("Old\\b.txt"), "", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
  Write(App("Old\\Sub\\Deep\\c"), "", FILE_ATTRIBUTE_HIDDEN);
  MakeFolders(App("Old\\Empty"));
  Write(App("Beside.txt"), "");
  RemoveFolder(App("Old"));
  EXPECT_EQ("Beside.txt", Names());

  Write(App("Old\\Sub\\.keep"), "");
  Write(App("Old\\Sub\\a.txt"), "");
  Write(App("Old\\.folder\\b.txt"), "");
  Write(App("Old\\Other\\c.txt"), "");
  RemoveFolder(App("Old\\"));
  EXPECT_EQ("Beside.txt Old\\ Old\\.folder\\ Old\\.folder\\b.txt Old\\Sub\\ Old\\Sub\\.keep", Names());

  RemoveFolder(App("none"));
  RemoveFolder(App("Beside.txt"));
  RemoveFolder(App("*"));
  Write(List("Dirs.grb"), "\r\n" + App("Old\\.folder") + std::string("\0x\r\n", 4));
  Remove();
  EXPECT_EQ("Beside.txt Old\\ Old\\.folder\\ Old\\.folder\\b.txt Old\\Sub\\ Old\\Sub\\.keep", Names());
  EXPECT_EQ("", Read(App("Beside.txt")));
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

BOOL WINAPI FindNextLabel(HANDLE Search, WIN32_FIND_DATAA* Entry) {
  constexpr DWORD VolumeLabel = 0x8;
  const BOOL Found = FindNextFileA(Search, Entry);
  const std::string Name = Found ? Entry->cFileName : "";
  if (Name == "label" || Name == "label folder") Entry->dwFileAttributes |= VolumeLabel;
  if (Name == "only label") Entry->dwFileAttributes = VolumeLabel;
  return Found;
}

TEST_F(Garbage, VolumeLabelsStay) {
  for (const char* Name : {"Old\\label", "Old\\label folder\\a.txt", "Old\\only label", "Old\\z.txt"})
    Write(App(Name), "");
  TImportPatch Patch(Module(), "FindNextFileA", reinterpret_cast<void*>(FindNextLabel));
  RemoveFolder(App("Old"));
  EXPECT_EQ("Old\\ Old\\label Old\\only label", Names());
}

TEST_F(Garbage, ASearchThatFailsKeepsTheFolder) {
  Write(App("Old\\a.txt"), "");
  Write(App("Old\\Sub\\b.txt"), "");
  for (const auto& [Import, Replacement] : {std::pair{"FindFirstFileA", FailsWith<decltype(&FindFirstFileA), -1>},
                                            std::pair{"FindNextFileA", FailsWith<decltype(&FindNextFileA), 0>}}) {
    TFault Fault(Import, Replacement, {*Import && Import[4] == 'N' ? 4 : 0, 9, ERROR_ACCESS_DENIED});
    RemoveFolder(App("Old"));
    EXPECT_TRUE(Exists(App("Old"))) << Import;
  }
  RemoveFolder(App("Old"));
  EXPECT_EQ("", Names());
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
  RemoveFolder("Q:\\");
  EXPECT_EQ("Drive\\ Drive\\.keep", Names());
  Fill();
  RemoveFolder("Q:");
  EXPECT_EQ("Drive\\ Drive\\.keep", Names());
  Fill();
  DeleteFileA(App("Drive\\.keep").c_str());
  RemoveFolder("Q:");
  EXPECT_EQ("Drive\\", Names()) << "nothing was in the way, and the drive is still there";
  // A single letter stands for the drive, but only where there is a folder of that name.
  Fill();
  RemoveFolder("q");
  EXPECT_EQ("Drive\\ Drive\\.keep Drive\\Sub\\ Drive\\Sub\\b.txt Drive\\a.txt", Names());
}

// ---- Several processes

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
    DWORD Status = DiedStatus;
    for (int Point = 1; Status == DiedStatus; ++Point) {
      SCOPED_TRACE(Event + std::to_string(Point));
      Write(App("a.txt"), "");
      Write(App("Old\\b.txt"), "", FILE_ATTRIBUTE_READONLY);
      StoreValue(Wide(L"Key"), L"Value", REG_SZ, "");
      StoreValue(Wide(L"Kept"), L"Value", REG_SZ, "");
      ASSERT_EQ(S_OK, Lists->PutFile(Text(App("a.txt"))));
      ASSERT_EQ(S_OK, Lists->PutDirectory(Text(App("Old"))));
      ASSERT_EQ(S_OK, Lists->PutRegKey(User, Text(Key("Key"))));
      ASSERT_EQ(S_OK, Lists->PutRegKeyValue(User, Text(Key("Kept")), Text("Value")));
      Status = TChild({"make-changes", "garbage", "", Event, std::to_string(Point)}).Wait();
      EXPECT_TRUE(Status == 0 || Status == DiedStatus) << Status;
      ASSERT_EQ(S_OK, Lists->Garbage());
      EXPECT_EQ("", Names());
      TRegistryTree Expected;
      Expected[L""], Expected[L"Kept\\"];
      EXPECT_EQ("", Difference(Expected, Tree()));
      EXPECT_TRUE(TreeOf(Service("Garbage")).empty());
      if (Status == 0) {
        EXPECT_LE(9, Point);
      }
    }
  }
}

TEST_F(SharedGarbage, AProcessThatDiesWhileItPutsBlocksNobody) {
  DWORD Status = DiedStatus;
  for (int Point = 1; Status == DiedStatus; ++Point) {
    SCOPED_TRACE(Point);
    DeleteFileA(List("Files.grb").c_str());
    Status = TChild({"make-changes", "put-garbage", App("a"), "after", std::to_string(Point)}).Wait();
    ASSERT_EQ(S_OK, Lists->PutFile(Text(App("b"))));
    const std::string Lines = Read(List("Files.grb"));
    EXPECT_TRUE(Lines == App("b") + "\r\n" || Lines == App("a") + "\r\n" + App("b") + "\r\n") << Lines;
  }
  EXPECT_EQ(0u, Status);
}

}  // namespace
