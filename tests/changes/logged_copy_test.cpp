#include "changes/changes_test.h"

namespace {

constexpr DWORD Everything = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
constexpr HRESULT Missing = static_cast<HRESULT>(0x80040202), NoFolder = static_cast<HRESULT>(0x80040203),
                  Denied = static_cast<HRESULT>(0x80040205), Locked = static_cast<HRESULT>(0x80040220);

TFileHandle HoldAlone(const std::string& Path) {
  return TFileHandle(CreateFileA(Path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

using CopyFiles = TFileTest;

TEST_F(CopyFiles, ANewNameIsCopiedInEveryModeAndTakenAwayByTheRollback) {
  Write(App("source"), "new", Everything);
  const TTree Before = TreeOf(App());
  for (const long Mode : {0, 1, 2, 3, 4, 5, 6, -1}) {
    SCOPED_TRACE(Mode);
    const TTree After = {{"source", Before.at("source")}, {"dest", Before.at("source")}};
    ASSERT_EQ(S_OK, Copy(false, "source", "dest", Mode));
    EXPECT_EQ("", Difference(After, TreeOf(App())));
    EXPECT_EQ(std::vector<int>(), Codes());
    Plant(App(), Before);
    ASSERT_EQ(S_OK, Copy(true, "source", "dest", Mode));
    EXPECT_EQ("", Difference(After, TreeOf(App())));
    EXPECT_EQ(std::vector{3}, Codes());
    RollbackToStart();
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

BOOL WINAPI GetFileTimeCreated(HANDLE Handle, FILETIME* Creation, FILETIME* LastAccess, FILETIME* LastWrite) {
  const BOOL Result = GetFileTime(Handle, Creation, LastAccess, LastWrite);
  *Creation = Created;
  return Result;
}
BOOL WINAPI NoteCreation(HANDLE Handle, const FILETIME* Creation, const FILETIME* LastAccess,
                         const FILETIME* LastWrite) {
  CreationGiven = *Creation;
  return SetFileTime(Handle, Creation, LastAccess, LastWrite);
}

TEST_F(CopyFiles, AttributesAndTheThreeTimesComeAlongAndTheRollbackBringsTheOldFileBack) {
  Write(App("source"), "new", Everything);
  Write(App("dest"), "old", FILE_ATTRIBUTE_READONLY);
  TTree Before = TreeOf(App());
  {
    // Not every platform keeps the creation time, so it is watched on its way.
    const TImportPatch Get("GetFileTime", GetFileTimeCreated);
    const TImportPatch Set("SetFileTime", NoteCreation);
    ASSERT_EQ(S_OK, Copy(true, "source", "dest")) << ErrorText();
  }
  TTree Tree = TreeOf(App());
  EXPECT_EQ(Before["source"], Tree["dest"]);
  EXPECT_EQ(Everything, Tree["dest"].Attributes & Everything);
  EXPECT_EQ(0, CompareFileTime(&Created, &CreationGiven));
  RollbackToStart();
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
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
  EXPECT_EQ(std::vector<int>(), Codes());
}

TEST_F(CopyFiles, AMissingOrLockedFileIsFoundBeforeAnyChange) {
  const TNoPauses NoPauses;
  Write(App("source"), "new");
  Write(App("dest"), "old", Everything);
  const TTree Before = TreeOf(App());
  for (const long Mode : {0, 2, 3, 4, 5, 6, -1}) {
    SCOPED_TRACE(Mode);
    for (const bool Logged : {false, true}) {
      EXPECT_EQ(Missing, Copy(Logged, "missing", "dest", Mode));
      const TFileHandle Held = HoldAlone(App("source"));
      EXPECT_EQ(Locked, Copy(Logged, "source", "dest", Mode));
      EXPECT_EQ(SystemText(ERROR_SHARING_VIOLATION), ErrorText());
    }
    const TFileHandle Held = HoldAlone(App("dest"));
    EXPECT_EQ(Locked, Copy(true, "source", "dest", Mode));
  }
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
  EXPECT_EQ(std::vector<int>(), Codes());
}

TEST_F(CopyFiles, ACopyThatFailsHalfwayLeavesNothingOpenAndRollsBack) {
  Write(App("dest"), "old", Everything);
  Write(App("source"), "new");
  const TTree Before = TreeOf(App());
  {
    const TFault Fault("SetFileTime", {.Times = 1, .Code = 5});
    EXPECT_EQ(Denied, Copy(true, "source", "dest"));
  }
  EXPECT_TRUE(HoldAlone(App("source")));
  EXPECT_TRUE(HoldAlone(App("dest")));
  EXPECT_EQ(std::vector{1}, Codes());
  RollbackToStart();
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
}

TEST_F(CopyFiles, RollbackOfAVanishedFileAndOfOtherCodesDoesNothing) {
  const auto Backup = Make<IUBackup>(CLSID_UBackup);
  Write(App("other"), "other", Everything);
  GUID Vanished{}, Other{};
  ASSERT_EQ(S_OK, Backup->BackupString(Text(App("vanished")), &Vanished));
  ASSERT_EQ(S_OK, Backup->BackupString(Text(App("other")), &Other));
  EXPECT_EQ(S_OK, File->Rollback(3, Vanished));
  for (const long Code : {0, 4, -1}) EXPECT_EQ(S_OK, File->Rollback(Code, Other)) << Code;
  EXPECT_EQ("other", Names());
  EXPECT_EQ(S_OK, File->Rollback(3, Other));
  EXPECT_EQ("", Names());
}

}  // namespace
