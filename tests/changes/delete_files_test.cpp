#include "changes/changes_test.h"

#include <sstream>

namespace {

constexpr DWORD Everything = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

struct TDeleteCase {
  const char* Name;
  const char* Mask;
  int RecurseSubDir, DeleteEmptyDir, DeleteUpperDir;
  const char* Gone;
};
std::ostream& operator<<(std::ostream& Out, const TDeleteCase& Case) { return Out << Case.Name; }

class DeleteFiles : public TFileTest, public testing::WithParamInterface<TDeleteCase> {
 protected:
  DeleteFiles() {
    for (const char* Name : {"a.log", "b.log\\c.log", "b.log\\deep\\d.log", "mixed\\e.log", "mixed\\keep.txt"})
      Write(App(Name), Name, Everything);
    MakeFolders(App("hollow"));
    Before = TreeOf(App());
  }
  HRESULT Delete(bool Logged, const std::string& Mask, int Recurse = 0, int Empty = 0, int Upper = 0) {
    const auto Method = Logged ? &IUFile::DeleteFilesLogged : &IUFile::DeleteFiles;
    return (File.Get()->*Method)(Text(Mask), static_cast<VARIANT_BOOL>(Recurse), static_cast<VARIANT_BOOL>(Empty),
                                 static_cast<VARIANT_BOOL>(Upper));
  }
  void ExpectUntouched() const {
    EXPECT_EQ("", Difference(Before, TreeOf(App())));
    EXPECT_EQ(std::vector<int>(), Codes());
  }

  TTree Before;
};

TEST_P(DeleteFiles, TakesWhatTheFlagsSayAndTheRollbackBringsItBack) {
  const TDeleteCase& Case = GetParam();
  TTree Expected = Before;
  std::istringstream Gone(Case.Gone);
  for (std::string Name; Gone >> Name;) EXPECT_EQ(1u, Expected.erase(Name)) << Name;
  ASSERT_EQ(S_OK, Delete(true, App(Case.Mask), Case.RecurseSubDir, Case.DeleteEmptyDir, Case.DeleteUpperDir))
      << ErrorText();
  EXPECT_EQ("", Difference(Expected, TreeOf(App())));
  EXPECT_EQ(std::vector{2}, Codes());
  RollbackToStart();
  ExpectUntouched();
  // The plain form does the same, and leaves nothing to roll back.
  ASSERT_EQ(S_OK, Delete(false, App(Case.Mask), Case.RecurseSubDir, Case.DeleteEmptyDir, Case.DeleteUpperDir));
  EXPECT_EQ("", Difference(Expected, TreeOf(App())));
  EXPECT_EQ(std::vector<int>(), Codes());
}

// A folder that the mask matches is no file: b.log stays in the first rows.
const TDeleteCase Cases[] = {
    {"FilesOnly", "*.log", 0, 0, 0, "a.log"},
    {"EmptyFoldersOnlyInTheRecursion", "*.log", 0, -1, 0, "a.log"},
    {"UpperFolderThatIsEmpty", "b.log\\deep\\*", 0, 0, -1, "b.log\\deep\\ b.log\\deep\\d.log"},
    {"UpperFolderWithASubfolder", "b.log\\*", 0, 0, -1, "b.log\\c.log"},
    {"UpperFolderThatWasEmpty", "hollow\\*.log", 0, 0, 1, "hollow\\"},
    {"Recursion", "*.log", -1, 0, 0, "a.log b.log\\c.log b.log\\deep\\d.log mixed\\e.log"},
    {"RecursionThatEmptiesFolders", "*.log", 1, 2, 0,
     "a.log b.log\\ b.log\\c.log b.log\\deep\\ b.log\\deep\\d.log hollow\\ mixed\\e.log"},
    {"AllFlags", "b.log\\*.log", -1, -1, -1, "b.log\\ b.log\\c.log b.log\\deep\\ b.log\\deep\\d.log"},
    {"AllFlagsWithAFileLeft", "mixed\\*.log", -1, -1, -1, "mixed\\e.log"},
};
INSTANTIATE_TEST_SUITE_P(Flags, DeleteFiles, testing::ValuesIn(Cases), testing::PrintToStringParamName());

class DeleteFilesOnce : public DeleteFiles {};

TEST_F(DeleteFilesOnce, AMissingFolderIsEmptyButCannotBeDeleted) {
  ASSERT_EQ(S_OK, Delete(true, App("missing\\*.*"), -1, -1, 0));
  ASSERT_EQ(S_OK, Delete(false, App("missing\\*.*"), -1, -1, 0));
  EXPECT_TRUE(Dialog().Boxes.empty());
  EXPECT_EQ(static_cast<HRESULT>(0x80040202), Delete(false, App("missing\\*.*"), 0, 0, -1));
  EXPECT_EQ(SystemText(ERROR_FILE_NOT_FOUND), ErrorText());
}

TEST_F(DeleteFilesOnce, AMaskWhoseFolderIsNotCertainIsRefused) {
  SetCurrentDirectoryA(App().c_str());
  std::string Slashes = App("*.log");
  for (char& Character : Slashes)
    if (Character == '\\') Character = '/';
  for (const std::string& Mask : {std::string("*.log"), std::string("C:*.log"), std::string(), Slashes,
                                  App("b.log/*.log"), App("*.log") + std::string(1, '\0') + "x"}) {
    EXPECT_EQ(E_INVALIDARG, Delete(false, Mask, -1, -1, -1)) << Mask;
    EXPECT_EQ(E_INVALIDARG, Delete(true, Mask, -1, -1, -1)) << Mask;
  }
  ExpectUntouched();
  SetCurrentDirectoryA("C:\\");
}

TEST_F(DeleteFilesOnce, CharactersOutsideTheCodePageReachNoOtherFile) {
  // As '?' the first would find every one-letter name, and as the nearest letter the second finds A.log.
  const std::wstring Folder = L"C:\\mendwork-tests\\" + std::to_wstring(GetCurrentProcessId()) + L"\\App\\";
  for (const wchar_t* Name : {L"\x4E2D.log", L"\x0100.log"}) {
    EXPECT_EQ(E_INVALIDARG, File->DeleteFiles(Text(Folder + Name), 0, 0, 0));
    EXPECT_EQ(E_INVALIDARG, File->DeleteFilesLogged(Text(Folder + Name), 0, 0, 0));
    EXPECT_EQ(E_INVALIDARG, File->CopyFile(Text(Folder + L"mixed\\keep.txt"), Text(Folder + Name), 0));
    EXPECT_EQ(E_INVALIDARG, File->CopyFileLogged(Text(Folder + Name), Text(Folder + L"a.log"), 0));
  }
  ExpectUntouched();
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
  EXPECT_EQ(std::vector<int>(), Codes());
  EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(Odd.c_str()));
  SetFileAttributesW(Odd.c_str(), FILE_ATTRIBUTE_NORMAL);
  DeleteFileW(Odd.c_str());  // the sandbox cannot name it
}

TEST_F(DeleteFilesOnce, WhatTheUserGivesUpIsSafeInTheLog) {
  constexpr HRESULT Locked = static_cast<HRESULT>(0x80040220);
  const TNoPauses NoPauses;
  {
    // A file that somebody else has open cannot be saved, so nothing is begun.
    const TFileHandle Held(CreateFileA(App("b.log\\deep\\d.log").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                       OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(Locked, Delete(true, App("b.log\\*.log"), -1, -1, -1));
    ExpectUntouched();
  }
  {
    // The transaction log's backup copy and c.log go; d.log, whose attributes are cleared by then, does not.
    const TFault Fault("DeleteFileA", {.Skip = 2, .Times = 4, .Code = 32});
    EXPECT_EQ(Locked, Delete(true, App("b.log\\*.log"), -1, -1, -1));
  }
  EXPECT_EQ("a.log b.log\\ b.log\\deep\\ b.log\\deep\\d.log hollow\\ mixed\\ mixed\\e.log mixed\\keep.txt", Names());
  EXPECT_EQ(std::vector{2}, Codes());
  RollbackToStart();
  ExpectUntouched();
}

}  // namespace
