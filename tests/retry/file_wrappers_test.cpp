#include "retry/retry_layer.h"
#include "server/handles.h"

namespace {

constexpr HRESULT OwnFailure = static_cast<HRESULT>(0x80041234);

TFileHandle Hold(const std::string& Path, DWORD Share) {
  return TFileHandle(CreateFileA(Path.c_str(), GENERIC_READ, Share, nullptr, OPEN_EXISTING, 0, nullptr));
}
/// What a test keeps open, so that a replaced function can let it go.
TFileHandle Held;
int Waits = 0;

void WINAPI LetGoAtTheThirdWait(DWORD Milliseconds) {
  EXPECT_EQ(1u, Milliseconds);
  if (++Waits == 3) Held.Reset();
}

class FileWrappers : public TRetryLayer {};

TEST_F(FileWrappers, ACopyTakesAndLogsItsCallIdsInOrder) {
  ASSERT_EQ(S_OK, Copy());
  const long First = Log().Lines.front().Id;
  std::vector<std::string> Lines;
  for (const auto& Line : Log().Lines)
    Lines.push_back(std::to_string(Line.Id - First) + " " + Line.Action + " " +
                    Line.Text.substr(0, Line.Text.find(' ')));
  // Without lines, but with ids: 2 looks for the destination, 8 reads, 9 and 11 close. The write takes none.
  EXPECT_EQ((std::vector<std::string>{
                "0 Begin CopyFile", "1 Begin CopySomeFile", "3 Begin RetryGetFileAttributes",
                "3 End RetryGetFileAttributes", "4 Begin RetryCreateFile", "4 End RetryCreateFile",
                "5 Begin RetryGetFileTime", "5 End RetryGetFileTime", "6 Begin RetryCreateFile",
                "6 End RetryCreateFile", "7 Begin RetryReadAndAppendFile", "7 End RetryReadAndAppendFile",
                "10 Begin RetrySetFileTime", "10 End RetrySetFileTime", "1 End CopySomeFile", "0 End CopyFile"}),
            Lines);
}

TEST_F(FileWrappers, AFileIsAppendedInBlocksOf32768BytesUntilAShortRead) {
  struct {
    size_t Size;
    int Reads, Writes;
  } const Rows[] = {{0, 1, 0}, {32767, 1, 1}, {32768, 2, 1}, {65536, 3, 2}};
  for (const auto& Row : Rows) {
    std::string Content(Row.Size, 'x');
    if (Row.Size) Content.front() = 'a', Content.back() = 'z';
    Write(App("src.txt"), Content);
    {
      const TFault Count("ReadFile", FailsWith<decltype(&ReadFile), FALSE>, {});
      ASSERT_EQ(S_OK, Copy());
      EXPECT_EQ(Row.Reads, TFault::Calls()) << Row.Size;
    }
    const TFault Count("WriteFile", FailsWith<decltype(&WriteFile), FALSE>, {});
    ASSERT_EQ(S_OK, Copy());
    EXPECT_EQ(Row.Writes, TFault::Calls()) << Row.Size;
    EXPECT_TRUE(Content == Read(App("dest.txt"))) << Row.Size;
  }
}

TEST_F(FileWrappers, ForceDirectoriesGoesUpToTheDriveAndCreatesOnTheWayBack) {
  ASSERT_EQ(S_OK, CopyLogged("new\\deep\\dest.txt"));
  std::vector<std::string> Expected, Folders = {"C:\\mendwork-tests", Root(), App(), App("new"), App("new\\deep")};
  Expected.push_back("Begin RetryForceDirectories " + Folders.back());
  for (size_t At = Folders.size() - 1; At-- > 0;)
    Expected.push_back("Begin RetryForceDirectories " + Folders[At] + "\\");
  Expected.push_back("Begin RetryForceDirectories C:\\");  // too short to create, and without an End line
  for (const std::string& Folder : Folders)
    Expected.insert(Expected.end(),
                    {"Begin RetryCreateDirectory " + Folder, "End RetryCreateDirectory", "End RetryForceDirectories"});
  std::vector<std::string> Lines = Log().Texts("Common");
  std::erase_if(Lines, [](const std::string& Line) { return Line.find("Director") == std::string::npos; });
  EXPECT_EQ(Expected, Lines);
}

TEST_F(FileWrappers, AFileThatVanishedMeanwhileCountsAsDeleted) {
  // The search for the mask finds the file; the test before its deletion does not.
  const TFault Fault("FindFirstFileA", FailsWith<decltype(&FindFirstFileA), -1>,
                     {.Skip = 1, .Times = 1, .Code = ERROR_FILE_NOT_FOUND});
  ASSERT_EQ(S_OK, Delete("src.*"));
  EXPECT_EQ("new", Read(App("src.txt")));
  EXPECT_EQ((std::vector{"Begin RetryDeleteFile " + App("src.txt"), std::string("End RetryDeleteFile")}),
            Log().Texts("Common"));
}

TEST_F(FileWrappers, AFileThatAProgramHoldsIsDeletedWhenTheUserHasClosedIt) {
  const TNoPauses NoPauses;
  const TFault Count("DeleteFileA", FailsWith<decltype(&DeleteFileA), FALSE>, {});
  Held = Hold(App("src.txt"), FILE_SHARE_READ);
  Dialog().OnBox = [] { Held.Reset(); };
  Dialog().Answer({IDRETRY});
  ASSERT_EQ(S_OK, Delete("src.*"));
  EXPECT_EQ(1u, Dialog().Boxes.size());
  EXPECT_EQ(5, TFault::Calls());
  EXPECT_EQ(3, TNoPauses::Count());
  EXPECT_FALSE(Exists(App("src.txt")));
}

TEST_F(FileWrappers, ADeletedFileThatSomebodyStillHasOpenIsWaitedFor) {
  Held = Hold(App("src.txt"), FILE_SHARE_READ | FILE_SHARE_DELETE);
  const TImportPatch Patch(Module(), "Sleep", reinterpret_cast<void*>(LetGoAtTheThirdWait));
  ASSERT_EQ(S_OK, Delete("src.*"));
  EXPECT_EQ(3, Waits);
  EXPECT_FALSE(Exists(App("src.txt")));
  const std::string Wait = "RetryDeleteWait RetryDeleteWait";
  EXPECT_EQ((std::vector<std::string>{Wait, Wait, Wait, "End RetryDeleteFile"}),
            Following(Find("Begin", "RetryDeleteFile")->Id));
}

TEST_F(FileWrappers, WithoutMemoryTheUserIsAskedToClosePrograms) {
  const auto Backup = Make<IUBackup>(CLSID_UBackup);
  char Data[] = "abc";
  GUID DataID{};
  ASSERT_EQ(S_OK, Backup->BackupData(Data, 3, &DataID));
  Dialog().Answer({IDRETRY, IDCANCEL});
  const TFault Fault("CoTaskMemAlloc", FailsWith<decltype(&CoTaskMemAlloc), 0>, {.Times = 2});
  void* Buffer = Data;
  long Size = 0;
  EXPECT_EQ(static_cast<HRESULT>(0x800401FD), Backup->RestoreData(DataID, &Buffer, &Size));
  EXPECT_EQ("Out of memory.", ErrorText());
  EXPECT_EQ(nullptr, Buffer);
  const TScriptedDialog::TBox Box = {"Out of memory.\r\n\r\nPlease close running applications and press 'Retry'.",
                                     "Error", 21};
  EXPECT_EQ((std::vector{Box, Box}), Dialog().Boxes);
  EXPECT_EQ(std::vector<std::string>{"Begin RetryCoTaskMemAlloc 3"}, LinesOf("RetryCoTaskMemAlloc"));
  ASSERT_NE(nullptr, Find("Exception", ""));
  EXPECT_EQ("-3 Out of memory.", Find("Exception", "")->Text);

  ASSERT_EQ(S_OK, Backup->RestoreData(DataID, &Buffer, &Size));
  EXPECT_EQ("abc", std::string(static_cast<char*>(Buffer), static_cast<size_t>(Size)));
  CoTaskMemFree(Buffer);
}

TEST_F(FileWrappers, AFailingDebugLogPassesItsOwnResult) {
  Log().Result = OwnFailure;
  EXPECT_EQ(OwnFailure, Copy());
  EXPECT_FALSE(Exists(App("dest.txt")));
}

TEST_F(FileWrappers, ADebugLogThatFailsInTheFailureStepPassesItsOwnResult) {
  static TMemoryLog* FailingLog;
  FailingLog = &Log();
  Dialog().OnBox = [] { FailingLog->Result = OwnFailure; };
  const TFault Fault("GetFileAttributesA", FailsWith<decltype(&GetFileAttributesA), -1>, {.Times = 1, .Code = 5});
  EXPECT_EQ(OwnFailure, Copy());
}

TEST_F(FileWrappers, AFailingDialogPassesItsOwnResult) {
  Dialog().Result = OwnFailure;
  Dialog().Answer({IDRETRY});
  const TFault Fault("GetFileAttributesA", FailsWith<decltype(&GetFileAttributesA), -1>, {.Times = 1, .Code = 5});
  EXPECT_EQ(OwnFailure, Copy());
  EXPECT_EQ(nullptr, Find("Exception", ""));
}

}  // namespace
