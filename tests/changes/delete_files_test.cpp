#include "changes/file_test.h"
#include "server/handles.h"

namespace {

constexpr DWORD Everything = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

struct TDeleteCase {
  const char* Name;
  const char* Mask;
  int RecurseSubDir, DeleteEmptyDir, DeleteUpperDir;
  const char* Remaining;
};
std::ostream& operator<<(std::ostream& Out, const TDeleteCase& Case) { return Out << Case.Name; }

class DeleteFiles : public TFileTest, public testing::WithParamInterface<TDeleteCase> {
 protected:
  DeleteFiles() {
    for (const char* Name : {"a.log", "b.log\\c.log", "b.log\\deep\\d.log", "mixed\\e.log", "mixed\\keep.txt"})
      Write(App(Name), Name, Everything);
    MakeFolders(App("hollow"));
  }
  HRESULT Delete(bool Logged, const std::string& Mask, int Recurse = 0, int Empty = 0, int Upper = 0) {
    const auto Method = Logged ? &IUFile::DeleteFilesLogged : &IUFile::DeleteFiles;
    return (File.Get()->*Method)(Text(Mask), static_cast<VARIANT_BOOL>(Recurse), static_cast<VARIANT_BOOL>(Empty),
                                 static_cast<VARIANT_BOOL>(Upper));
  }
};

TEST_P(DeleteFiles, TakesWhatTheFlagsSayAndTheRollbackBringsItBack) {
  const TDeleteCase& Case = GetParam();
  const TTree Before = TreeOf(App());
  ASSERT_EQ(S_OK, Delete(true, App(Case.Mask), Case.RecurseSubDir, Case.DeleteEmptyDir, Case.DeleteUpperDir))
      << ErrorText();
  EXPECT_EQ(Case.Remaining, Names());
  EXPECT_EQ(std::vector{"2 " + EndOf("DeleteFilesLogged")}, Entries());
  RollbackToStart();
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
  // The plain form does the same, and leaves nothing to roll back.
  ASSERT_EQ(S_OK, Delete(false, App(Case.Mask), Case.RecurseSubDir, Case.DeleteEmptyDir, Case.DeleteUpperDir));
  EXPECT_EQ(Case.Remaining, Names());
  EXPECT_TRUE(Entries().empty());
}

// A folder that the mask matches is no file: b.log stays in the first rows.
const TDeleteCase Cases[] = {
    {"FilesOnly", "*.log", 0, 0, 0,
     "b.log\\ b.log\\c.log b.log\\deep\\ b.log\\deep\\d.log hollow\\ mixed\\ mixed\\e.log mixed\\keep.txt"},
    {"EmptyFoldersOnlyInTheRecursion", "*.log", 0, -1, 0,
     "b.log\\ b.log\\c.log b.log\\deep\\ b.log\\deep\\d.log hollow\\ mixed\\ mixed\\e.log mixed\\keep.txt"},
    {"UpperFolderThatIsEmpty", "b.log\\deep\\*", 0, 0, -1,
     "a.log b.log\\ b.log\\c.log hollow\\ mixed\\ mixed\\e.log mixed\\keep.txt"},
    {"UpperFolderWithASubfolder", "b.log\\*", 0, 0, -1,
     "a.log b.log\\ b.log\\deep\\ b.log\\deep\\d.log hollow\\ mixed\\ mixed\\e.log mixed\\keep.txt"},
    {"UpperFolderThatWasEmpty", "hollow\\*.log", 0, 0, 1,
     "a.log b.log\\ b.log\\c.log b.log\\deep\\ b.log\\deep\\d.log mixed\\ mixed\\e.log mixed\\keep.txt"},
    {"Recursion", "*.log", -1, 0, 0, "b.log\\ b.log\\deep\\ hollow\\ mixed\\ mixed\\keep.txt"},
    {"RecursionThatEmptiesFolders", "*.log", 1, 2, 0, "mixed\\ mixed\\keep.txt"},
    {"RecursionWithUpperFolderOnly", "b.log\\*.log", -1, 0, -1,
     "a.log b.log\\ b.log\\deep\\ hollow\\ mixed\\ mixed\\e.log mixed\\keep.txt"},
    {"AllFlags", "b.log\\*.log", -1, -1, -1, "a.log hollow\\ mixed\\ mixed\\e.log mixed\\keep.txt"},
    {"AllFlagsWithAFileLeft", "mixed\\*.log", -1, -1, -1,
     "a.log b.log\\ b.log\\c.log b.log\\deep\\ b.log\\deep\\d.log hollow\\ mixed\\ mixed\\keep.txt"},
    {"OneFile", "mixed\\keep.txt", 0, 0, 0,
     "a.log b.log\\ b.log\\c.log b.log\\deep\\ b.log\\deep\\d.log hollow\\ mixed\\ mixed\\e.log"},
    {"NothingMatches", "*.dll", -1, 0, 0,
     "a.log b.log\\ b.log\\c.log b.log\\deep\\ b.log\\deep\\d.log hollow\\ mixed\\ mixed\\e.log mixed\\keep.txt"},
};
INSTANTIATE_TEST_SUITE_P(Flags, DeleteFiles, testing::ValuesIn(Cases), testing::PrintToStringParamName());

class DeleteFilesOnce : public DeleteFiles {};

TEST_F(DeleteFilesOnce, TheLogTellsTheWalk) {
  ASSERT_EQ(S_OK, Delete(true, App("b.log\\*.log"), -1, 1, -1));
  const std::string Folder = App("b.log"), Mask = Folder + "\\*.log", Deep = Folder + "\\deep";
  EXPECT_EQ((std::vector<std::string>{
                "Begin DeleteFilesLogged " + Mask + " -1 1 -1", "Begin DeleteFiles " + Mask + " -1 1 -1",
                "Begin DeleteSomeFiles " + Mask + " -1 1", "Begin DeleteSomeFiles " + Deep + "\\*.log -1 1",
                "End DeleteSomeFiles", "Begin DeleteEmptyDirectory " + Deep, "End DeleteEmptyDirectory",
                "End DeleteSomeFiles", "Begin DeleteEmptyDirectory " + Folder, "End DeleteEmptyDirectory",
                "End DeleteFiles", "End DeleteFilesLogged " + EndOf("DeleteFilesLogged")}),
            Log().Texts("UFile"));
}

TEST_F(DeleteFilesOnce, AMissingFolderIsEmptyButCannotBeDeleted) {
  ASSERT_EQ(S_OK, Delete(true, App("missing\\*.*"), -1, -1, 0));
  ASSERT_EQ(S_OK, Delete(false, App("missing\\*.*"), -1, -1, 0));
  EXPECT_TRUE(Dialog().Boxes.empty());
  EXPECT_EQ(static_cast<HRESULT>(0x80040202), Delete(false, App("missing\\*.*"), 0, 0, -1));
  EXPECT_EQ((std::vector<TScriptedDialog::TBox>{{"Cannot delete folder '" + App("missing") + "'.\r\n\r\nError: '" +
                                                     SystemText(2) + "' (Error code: 2).",
                                                 "Error", 21}}),
            Dialog().Boxes);
}

TEST_F(DeleteFilesOnce, ADriveRootHasOneBackslash) {
  const std::string Name = "C:\\mendwork-root." + std::to_string(GetCurrentProcessId());
  Write(Name, "root", Everything);
  ASSERT_EQ(S_OK, Delete(true, Name)) << ErrorText();
  EXPECT_FALSE(Exists(Name));
  const auto Lines = Log().Texts("Common");
  EXPECT_EQ(1, std::count(Lines.begin(), Lines.end(), "Begin RetryDeleteFile " + Name));
  RollbackToStart();
  EXPECT_EQ("root", Read(Name));
  RemoveTree(Name);
  SetFileAttributesA(Name.c_str(), FILE_ATTRIBUTE_NORMAL);
  DeleteFileA(Name.c_str());
}

TEST_F(DeleteFilesOnce, AMaskWhoseFolderIsNotCertainIsRefused) {
  SetCurrentDirectoryA(App().c_str());
  std::string Slashes = App("*.log");
  for (char& Character : Slashes)
    if (Character == '\\') Character = '/';
  const TTree Before = TreeOf(App());
  for (const std::string& Mask : {std::string("*.log"), std::string("C:*.log"), std::string(), Slashes,
                                  App("b.log/*.log"), App("*.log") + std::string(1, '\0') + "x"}) {
    EXPECT_EQ(E_INVALIDARG, Delete(false, Mask, -1, -1, -1)) << Mask;
    EXPECT_EQ(E_INVALIDARG, Delete(true, Mask, -1, -1, -1)) << Mask;
  }
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
  EXPECT_TRUE(Entries().empty());
  SetCurrentDirectoryA("C:\\");
}

TEST_F(DeleteFilesOnce, CharactersOutsideTheCodePageReachNoOtherFile) {
  // As '?' the first would find every one-letter name, and as the nearest letter the second finds A.log.
  const std::wstring Folder = L"C:\\mendwork-tests\\" + std::to_wstring(GetCurrentProcessId()) + L"\\App\\";
  const TTree Before = TreeOf(App());
  for (const wchar_t* Name : {L"\x4E2D.log", L"\x0100.log"}) {
    EXPECT_EQ(E_INVALIDARG, File->DeleteFiles(Text(Folder + Name), 0, 0, 0));
    EXPECT_EQ(E_INVALIDARG, File->DeleteFilesLogged(Text(Folder + Name), 0, 0, 0));
    EXPECT_EQ(E_INVALIDARG, File->CopyFile(Text(Folder + L"mixed\\keep.txt"), Text(Folder + Name), 0));
    EXPECT_EQ(E_INVALIDARG, File->CopyFileLogged(Text(Folder + Name), Text(Folder + L"a.log"), 0));
  }
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
  EXPECT_TRUE(Entries().empty());
}

TEST_F(DeleteFilesOnce, AFoundNameOutsideTheCodePageIsReportedAndReachesNoOtherFile) {
  const std::wstring Folder = L"C:\\mendwork-tests\\" + std::to_wstring(GetCurrentProcessId()) + L"\\App\\";
  const std::wstring Odd = Folder + L"odd\\\x4E2D.log";
  Write(App("odd\\x.log"), "x");
  ASSERT_TRUE(CopyFileW((Folder + L"a.log").c_str(), Odd.c_str(), TRUE));
  constexpr HRESULT InvalidName = static_cast<HRESULT>(0x8004027B);
  EXPECT_EQ(InvalidName, Delete(true, App("odd\\*.log")));
  EXPECT_EQ(InvalidName, Delete(false, App("odd\\?.log")));
  EXPECT_EQ(2u, Dialog().Boxes.size());
  EXPECT_TRUE(Entries().empty());
  EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(Odd.c_str()));
  SetFileAttributesW(Odd.c_str(), FILE_ATTRIBUTE_NORMAL);
  DeleteFileW(Odd.c_str());  // the sandbox cannot name it
}

TEST_F(DeleteFilesOnce, WhatTheUserGivesUpIsSafeInTheLog) {
  constexpr HRESULT Locked = static_cast<HRESULT>(0x80040220);
  const TNoPauses NoPauses;
  const TTree Before = TreeOf(App());
  {
    // A file that somebody else has open cannot be saved, so nothing is begun.
    const TFileHandle Held(CreateFileA(App("b.log\\deep\\d.log").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                       OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(Locked, Delete(true, App("b.log\\*.log"), -1, -1, -1));
    EXPECT_EQ("", Difference(Before, TreeOf(App())));
    EXPECT_TRUE(Entries().empty());
  }
  {
    // The transaction log's backup copy and c.log go; d.log, whose attributes are cleared by then, does not.
    const TFault Fault("DeleteFileA", FailsWith<decltype(&DeleteFileA), FALSE>, {.Skip = 2, .Times = 4, .Code = 32});
    EXPECT_EQ(Locked, Delete(true, App("b.log\\*.log"), -1, -1, -1));
  }
  EXPECT_EQ("a.log b.log\\ b.log\\deep\\ b.log\\deep\\d.log hollow\\ mixed\\ mixed\\e.log mixed\\keep.txt", Names());
  EXPECT_EQ("<none>", EndOf("DeleteFilesLogged"));
  EXPECT_EQ(1u, Entries().size());
  RollbackToStart();
  EXPECT_EQ("", Difference(Before, TreeOf(App())));
}

}  // namespace
