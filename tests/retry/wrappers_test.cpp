// What single wrappers do beside failing: see wrapper_failures_test.cpp for that.

#include "base/handles.h"
#include "retry/retry_layer.h"

#include <shlwapi.h>

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

TEST_F(FileWrappers, AFileIsAppendedInBlocksOf32768BytesUntilAShortRead) {
  const struct {
    size_t Size;
    int Reads, Writes;
  } Rows[] = {{0, 1, 0}, {32767, 1, 1}, {32768, 2, 1}, {65536, 3, 2}};
  for (const auto& Row : Rows) {
    std::string Content(Row.Size, 'x');
    if (Row.Size) Content.front() = 'a', Content.back() = 'z';
    Write(App("src.txt"), Content);
    {
      const TFault Count("ReadFile", {});
      ASSERT_EQ(S_OK, Copy());
      EXPECT_EQ(Row.Reads, Count.Calls()) << Row.Size;
    }
    const TFault Count("WriteFile", {});
    ASSERT_EQ(S_OK, Copy());
    EXPECT_EQ(Row.Writes, Count.Calls()) << Row.Size;
    EXPECT_TRUE(Content == Read(App("dest.txt"))) << Row.Size;
  }
}

TEST_F(FileWrappers, AFileThatVanishedMeanwhileCountsAsDeleted) {
  // The search for the mask finds the file; the test before its deletion does not.
  const TFault Fault("FindFirstFileA", {.Skip = 1, .Times = 1, .Code = ERROR_FILE_NOT_FOUND});
  ASSERT_EQ(S_OK, Delete("src.*"));
  EXPECT_EQ("new", Read(App("src.txt")));
  EXPECT_TRUE(Dialog().Boxes.empty());
}

TEST_F(FileWrappers, AFileThatAProgramHoldsIsDeletedWhenTheUserHasClosedIt) {
  const TNoPauses NoPauses;
  const TFault Count("DeleteFileA", {});
  Held = Hold(App("src.txt"), FILE_SHARE_READ);
  Dialog().OnBox = [] { Held.Reset(); };
  Dialog().Answer({IDRETRY});
  ASSERT_EQ(S_OK, Delete("src.*"));
  EXPECT_EQ(1u, Dialog().Boxes.size());
  EXPECT_EQ(5, Count.Calls());
  EXPECT_EQ(3, TNoPauses::Count());
  EXPECT_FALSE(Exists(App("src.txt")));
}

TEST_F(FileWrappers, ADeletedFileThatSomebodyStillHasOpenIsWaitedFor) {
  Held = Hold(App("src.txt"), FILE_SHARE_READ | FILE_SHARE_DELETE);
  const TImportPatch Patch("Sleep", LetGoAtTheThirdWait);
  ASSERT_EQ(S_OK, Delete("src.*"));
  EXPECT_EQ(3, Waits);
  EXPECT_FALSE(Exists(App("src.txt")));
}

TEST_F(FileWrappers, WithoutMemoryTheUserIsAskedToClosePrograms) {
  char Data[] = "abc";
  GUID DataID{};
  ASSERT_EQ(S_OK, Backup->BackupData(Data, 3, &DataID));
  Dialog().Answer({IDRETRY, IDCANCEL});
  const TFault Fault("CoTaskMemAlloc", {.Times = 2});
  void* Buffer = Data;
  long Size = 0;
  EXPECT_EQ(static_cast<HRESULT>(0x800401FD), Backup->RestoreData(DataID, &Buffer, &Size));
  EXPECT_EQ("Out of memory.", ErrorText());
  EXPECT_EQ(nullptr, Buffer);
  const TScriptedDialog::TBox Box = {"Out of memory.\r\n\r\nPlease close running applications and press 'Retry'.",
                                     "Error", 21};
  EXPECT_EQ((std::vector{Box, Box}), Dialog().Boxes);
  EXPECT_EQ("Exception -3 Out of memory.", Exceptions().at(0));

  ASSERT_EQ(S_OK, Backup->RestoreData(DataID, &Buffer, &Size));
  EXPECT_EQ("abc", std::string(static_cast<char*>(Buffer), static_cast<size_t>(Size)));
  CoTaskMemFree(Buffer);
}

TEST_F(FileWrappers, AFailingDebugLogOrDialogPassesItsOwnResult) {
  static TMemoryLog* FailingLog;
  FailingLog = &Log();
  Log().Result = OwnFailure;
  EXPECT_EQ(OwnFailure, Copy());
  EXPECT_FALSE(Exists(App("dest.txt")));
  Log().Result = S_OK;
  Log().Lines.clear();
  {
    Dialog().Result = OwnFailure;
    const TFault Fault("GetFileAttributesA", {.Times = 1, .Code = 5});
    EXPECT_EQ(OwnFailure, Copy());
    EXPECT_EQ(std::vector<std::string>(), Exceptions());
    Dialog().Result = S_OK;
  }
  Dialog().OnBox = [] { FailingLog->Result = OwnFailure; };  // at the line that tells of the failure
  const TFault Fault("GetFileAttributesA", {.Times = 1, .Code = 5});
  EXPECT_EQ(OwnFailure, Copy());
}

class RegistryWrappers : public TRetryLayer {};

TEST_F(RegistryWrappers, MessagesNameTheRootOfAKey) {
  const std::pair<unsigned long, std::string> Roots[] = {{0x80000000, "HKEY_CLASSES_ROOT"},
                                                         {0x80000001, "HKEY_CURRENT_USER"},
                                                         {0x80000002, "HKEY_LOCAL_MACHINE"},
                                                         {0x80000003, "HKEY_USERS"},
                                                         {0x80000004, ""},
                                                         {0x80000005, "HKEY_CURRENT_CONFIG"}};
  TFault Fault("RegOpenKeyExA", {0, 6, 2});
  for (const auto& [Root, Name] : Roots) {
    EXPECT_EQ(static_cast<HRESULT>(0x80040202), SaveValue(Root, "Software\\X"));
    EXPECT_EQ(0u, Dialog().Boxes.back().Text.find("Cannot open registry key '" + Name + "\\Software\\X'.\r\n"));
  }
}

TEST_F(RegistryWrappers, WhatIsMissingIsDeletedWithoutACall) {
  {
    TFault Fault("RegDeleteValueA", {});
    EXPECT_EQ(S_OK, DeleteValue("Key", "Other"));
    EXPECT_EQ(S_OK, DeleteValue("Other", "Name"));
    EXPECT_EQ(0, Fault.Calls());
  }
  TFault Fault("SHDeleteKeyA", {});
  EXPECT_EQ(S_OK, DeleteKey("Other"));
  EXPECT_EQ(0, Fault.Calls());
}

TEST_F(RegistryWrappers, AKeyThatCannotBeOpenedForAllAccessCountsAsAbsent) {
  const TRegistryTree Before = Tree();
  const std::string Entries = Read(Service("update.prt"));
  TFault Fault("RegOpenKeyExA", {0, 100, 5});
  EXPECT_EQ(S_OK, DeleteValue());
  EXPECT_EQ(S_OK, DeleteKey());
  EXPECT_EQ(S_OK, Registry->DeleteRegKeyLogged(User, Text(Key("Key"))));
  EXPECT_TRUE(Dialog().Boxes.empty());
  EXPECT_EQ("", Difference(Before, Tree()));
  EXPECT_EQ(Entries, Read(Service("update.prt")));
}

}  // namespace
