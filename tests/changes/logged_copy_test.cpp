#include "changes/file_test.h"
#include "server/handles.h"

namespace {

constexpr DWORD Everything = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
constexpr HRESULT Missing = static_cast<HRESULT>(0x80040202), NoFolder = static_cast<HRESULT>(0x80040203),
                  Denied = static_cast<HRESULT>(0x80040205), Locked = static_cast<HRESULT>(0x80040220);

TFileHandle HoldAlone(const std::string& Path) {
  return TFileHandle(CreateFileA(Path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

using CopyFiles = TFileTest;

TEST_F(CopyFiles, RollbackBringsTheOverwrittenFileBack) {
  Write(App("app.dll"), "old", Everything);
  Write(App("new.dll"), "new");
  const TTree Before = TreeOf(App());
  ASSERT_EQ(S_OK, Copy(true, "new.dll", "app.dll")) << ErrorText();
  EXPECT_EQ("new", Read(App("app.dll")));
  RollbackToStart();
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
}

TEST_F(CopyFiles, ANewNameIsCopiedInEveryModeAndTakenAwayByTheRollback) {
  Write(App("source"), "new", Everything);
  const TTree Before = TreeOf(App());
  for (const long Mode : {0, 1, 2, 3, 4, 5, 6, -1}) {
    const std::string Name = "dest" + std::to_string(Mode);
    ASSERT_EQ(S_OK, Copy(false, "source", Name + "plain", Mode));
    EXPECT_TRUE(Entries().empty());
    ASSERT_EQ(S_OK, Copy(true, "source", Name, Mode));
    EXPECT_TRUE(
        TreeOf(App()) ==
        (TTree{{"source", Before.at("source")}, {Name, Before.at("source")}, {Name + "plain", Before.at("source")}}));
    EXPECT_EQ(std::vector{"3 " + EndOf("CopySomeFile")}, Entries());
    RollbackToStart();
    SetFileAttributesA(App(Name + "plain").c_str(), FILE_ATTRIBUTE_NORMAL);
    DeleteFileA(App(Name + "plain").c_str());
    EXPECT_EQ("", Difference(Before, TreeOf(App())));
  }
  EXPECT_TRUE(Dialog().Boxes.empty());
}

TEST_F(CopyFiles, OnlyTheLoggedFormCreatesFolders) {
  const TNoPauses NoPauses;
  Write(App("source"), "new");
  EXPECT_EQ(NoFolder, Copy(false, "source", "new\\deep\\dest"));
  EXPECT_EQ("source", Names());
  ASSERT_EQ(S_OK, Copy(true, "source", "new\\deep\\dest"));
  EXPECT_EQ("new", Read(App("new\\deep\\dest")));
  RollbackToStart();
  EXPECT_EQ("new\\ new\\deep\\ source", Names());  // something else may use the folders by now
}

constexpr FILETIME Created = {0x12345678, 0x01C00000};
FILETIME CreationGiven;
decltype(&GetFileTime) RealGetFileTime;
decltype(&SetFileTime) RealSetFileTime;

BOOL WINAPI GetFileTimeCreated(HANDLE Handle, FILETIME* Creation, FILETIME* LastAccess, FILETIME* LastWrite) {
  const BOOL Result = RealGetFileTime(Handle, Creation, LastAccess, LastWrite);
  *Creation = Created;
  return Result;
}
BOOL WINAPI NoteCreation(HANDLE Handle, const FILETIME* Creation, const FILETIME* LastAccess,
                         const FILETIME* LastWrite) {
  CreationGiven = *Creation;
  return RealSetFileTime(Handle, Creation, LastAccess, LastWrite);
}

TEST_F(CopyFiles, AttributesAndTheThreeTimesComeAlong) {
  Write(App("source"), "new", Everything);
  Write(App("dest"), "old");
  // Not every platform keeps the creation time, so it is watched on its way.
  const TImportPatch Get(Module(), "GetFileTime", reinterpret_cast<void*>(GetFileTimeCreated));
  const TImportPatch Set(Module(), "SetFileTime", reinterpret_cast<void*>(NoteCreation));
  RealGetFileTime = Get.Original<decltype(&GetFileTime)>();
  RealSetFileTime = Set.Original<decltype(&SetFileTime)>();
  ASSERT_EQ(S_OK, Copy(false, "source", "dest"));
  TTree Tree = TreeOf(App());
  EXPECT_EQ(Tree["source"], Tree["dest"]);
  EXPECT_EQ(Everything, Tree["dest"].Attributes & Everything);
  EXPECT_EQ(0, CompareFileTime(&Created, &CreationGiven));
}

TEST_F(CopyFiles, AFileIsNotCopiedOntoItself) {
  Write(App("app.dll"), "content", Everything);
  const TTree Before = TreeOf(App());
  for (const char* Name : {"app.dll", "APP.DLL", ".\\app.dll", "..\\App\\app.dll"})
    for (const long Mode : {0, 4, 5}) {
      Dialog().Answer({IDYES, IDYES});
      EXPECT_EQ(E_INVALIDARG, Copy(false, "app.dll", Name, Mode)) << Name;
      EXPECT_EQ(E_INVALIDARG, Copy(true, Name, "app.dll", Mode)) << Name;
    }
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
  EXPECT_TRUE(Entries().empty());
}

TEST_F(CopyFiles, AMissingOrLockedSourceCostsNothing) {
  const TNoPauses NoPauses;
  Write(App("source"), "new");
  Write(App("dest"), "old", Everything);
  const TTree Before = TreeOf(App());
  for (const bool Logged : {false, true})
    for (const long Mode : {0, 2, 3, 4, 5, 6, -1}) {
      EXPECT_EQ(Missing, Copy(Logged, "missing", "dest", Mode)) << Mode;
      const TFileHandle Held = HoldAlone(App("source"));
      EXPECT_EQ(Locked, Copy(Logged, "source", "dest", Mode)) << Mode;
      EXPECT_EQ(SystemText(ERROR_SHARING_VIOLATION), ErrorText());
    }
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
  EXPECT_TRUE(Entries().empty());
}

TEST_F(CopyFiles, ALockedDestinationStaysAndIsFoundBeforeAnyChange) {
  const TNoPauses NoPauses;
  Write(App("dest"), "old");
  Write(App("source"), "new");
  const TTree Before = TreeOf(App());
  TFileHandle Held = HoldAlone(App("dest"));
  for (const long Mode : {0, 2, 3, 4, 5}) EXPECT_EQ(Locked, Copy(true, "source", "dest", Mode)) << Mode;
  EXPECT_TRUE(Entries().empty());
  Held.Reset();
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
}

TEST_F(CopyFiles, ACopyThatFailsHalfwayLeavesNothingOpenAndRollsBack) {
  Write(App("dest"), "old", Everything);
  Write(App("source"), "new");
  const TTree Before = TreeOf(App());
  {
    const TFault Fault("SetFileTime", FailsWith<decltype(&SetFileTime), FALSE>, {.Times = 1, .Code = 5});
    EXPECT_EQ(Denied, Copy(true, "source", "dest"));
  }
  EXPECT_EQ("<none>", EndOf("CopySomeFile"));
  EXPECT_TRUE(HoldAlone(App("source")));
  EXPECT_TRUE(HoldAlone(App("dest")));
  EXPECT_EQ(1u, Entries().size());
  RollbackToStart();
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
}

TEST_F(CopyFiles, TheLogTellsTheCopyAndItsItem) {
  Write(App("source"), "new");
  const std::string Names = App("source") + " " + App("dest");
  ASSERT_EQ(S_OK, Copy(false, "source", "dest"));
  ASSERT_EQ(S_OK, Copy(true, "source", "dest"));
  const std::string Item = EndOf("CopySomeFile");
  EXPECT_EQ((std::vector<std::string>{"Begin CopyFile " + Names, "Begin CopySomeFile " + Names + " 0",
                                      std::string("End CopySomeFile ") + NoItem, "End CopyFile",
                                      "Begin CopyFileLogged " + Names, "Begin CopySomeFile " + Names + " 1",
                                      "End CopySomeFile " + Item, "End CopyFileLogged"}),
            Log().Texts("UFile"));
}

TEST_F(CopyFiles, RollbackOfAVanishedFileAndOfOtherCodesDoesNothing) {
  const auto Backup = Make<IUBackup>(CLSID_UBackup);
  Write(App("other"), "other", Everything);
  const TTree Before = TreeOf(App());
  GUID Item{};
  ASSERT_EQ(S_OK, Backup->BackupString(Text(App("vanished")), &Item));
  for (const long Code : {3, 0, 4, -1}) {
    Log().Lines.clear();
    ASSERT_EQ(S_OK, File->Rollback(Code, Item)) << Code;
    const std::string Begin = "Begin Rollback " + std::to_string(Code) + " " + GuidText(Item);
    EXPECT_EQ((std::vector<std::string>{Begin, "End Rollback"}), Log().Texts("UFile"));
    EXPECT_EQ(Code != 3, Log().Lines.size() == 2);  // only the known code looks at the item
  }
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
  ASSERT_EQ(S_OK, Backup->BackupString(Text(App("other")), &Item));
  ASSERT_EQ(S_OK, File->Rollback(3, Item));
  EXPECT_EQ("", Names());
}

}  // namespace
