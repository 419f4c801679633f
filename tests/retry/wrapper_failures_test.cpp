// Every wrapper that a public method reaches, one row each: what the user reads when its system call fails, and what
// becomes of the call when he answers Retry or Cancel.

#include "retry/retry_layer.h"

namespace {

/// In texts, {App} is the application's folder, {Log} the transaction log's file, {Times} the times of src.txt.
struct TWrapperCase {
  const char* Name;
  const char* Import;
  void* Replacement;
  int Skip;
  DWORD Code;
  HRESULT (*Run)(TRetryLayer&);
  const char* Message;
  int Pauses;
  const char* BeginArguments;  ///< null for wrappers that write no lines
  const char* EndResult;
};

std::ostream& operator<<(std::ostream& Out, const TWrapperCase& Case) { return Out << Case.Name; }

#define IMPORT(Function, Failed) #Function, FailsWith < decltype(&Function), Failed>

// Codes with and without a system text, with letters among their hexadecimal digits, and with the sign bit.
constexpr DWORD SharingViolation = 32, DiskFull = 112, UserMappedFile = 1224, NoText = 0xA000FFFF;
constexpr int Handle = -1;  // what a failed search or open gives

HRESULT Copy(TRetryLayer& Test) { return Test.Copy(); }
HRESULT CopyIfLater(TRetryLayer& Test) { return Test.Copy("old.txt", 3); }
HRESULT CopyToNewFolder(TRetryLayer& Test) { return Test.CopyLogged("new\\dest.txt"); }
HRESULT Delete(TRetryLayer& Test) { return Test.Delete("src.*"); }
HRESULT DeleteFolder(TRetryLayer& Test) { return Test.Delete("empty\\*.*", VARIANT_TRUE); }
HRESULT Put(TRetryLayer& Test) { return Test.PutEntry(); }
HRESULT Rollback(TRetryLayer& Test) { return Test.Rollback(); }
HRESULT RegServer(TRetryLayer& Test) { return Test.RegServer(); }
HRESULT RegLibrary(TRetryLayer& Test) { return Test.RegAndUnRegTLB(); }

const TWrapperCase Cases[] = {
    {"RetryGetFileAttributes", IMPORT(GetFileAttributesA, -1), 0, 5, Copy, "Cannot get attributes of '{App}\\src.txt'.",
     0, " {App}\\src.txt", " 32"},
    {"RetrySetFileAttributes", IMPORT(SetFileAttributesA, 0), 0, NoText, Delete,
     "Cannot set attributes of '{App}\\src.txt'.", 0, " {App}\\src.txt 128", ""},
    {"RetryGetFileTime", IMPORT(GetFileTime, 0), 0, 6, Copy, "Cannot get date and time of '{App}\\src.txt'.", 0,
     " {App}\\src.txt", " {Times}"},
    {"RetrySetFileTime", IMPORT(SetFileTime, 0), 0, 5, Copy, "Cannot set date and time of '{App}\\dest.txt'.", 0,
     " {App}\\dest.txt {Times}", ""},
    // C:\mendwork-tests, the sandbox and the application are there already.
    {"RetryCreateDirectory", IMPORT(CreateDirectoryA, 0), 3, DiskFull, CopyToNewFolder,
     "Cannot create folder '{App}\\new'.", 0, " {App}\\new", ""},
    {"RetryDeleteDirectory", IMPORT(RemoveDirectoryA, 0), 0, 145, DeleteFolder, "Cannot delete folder '{App}\\empty'.",
     0, " {App}\\empty", ""},
    {"RetryFindFirstFile", IMPORT(FindFirstFileA, Handle), 0, 5, Delete,
     "Cannot start searching for files with '{App}\\src.*' mask.", 0, nullptr, nullptr},
    {"RetryFindNextFile", IMPORT(FindNextFileA, 0), 0, 1167, Delete,
     "Cannot continue searching for files with '{App}\\src.*' mask.", 0, nullptr, nullptr},
    // The search for the file to be deleted is closed first.
    {"RetryFindClose", IMPORT(FindClose, 0), 1, 6, Delete,
     "Cannot finish searching for files with '{App}\\src.*' masks.", 0, nullptr, nullptr},
    {"RetryCreateFile_OpenExisting", IMPORT(CreateFileA, Handle), 0, SharingViolation, Copy,
     "Cannot open '{App}\\src.txt'.", 3, " {App}\\src.txt 2147483648 0 3 32", ""},
    {"RetryCreateFile_CreateNew", IMPORT(CreateFileA, Handle), 1, 80, Copy, "Cannot create '{App}\\dest.txt'.", 3,
     " {App}\\dest.txt 1073741824 0 1 32", ""},
    // Before it, the log's copy is read and written.
    {"RetryCreateFile_OpenAlways", IMPORT(CreateFileA, Handle), 2, NoText, Put, "Cannot open or create '{Log}'.", 3,
     " {Log} 1073741824 0 4 128", ""},
    {"RetryReadFile", IMPORT(ReadFile, 0), 1, 30, Rollback, "Cannot read data from '{Log}' file.", 0, " {Log} 36", ""},
    {"RetryReadFile_Quiet", IMPORT(ReadFile, 0), 0, 1117, Copy, "Cannot read data from '{App}\\src.txt' file.", 0,
     nullptr, nullptr},
    {"RetryWriteFile", IMPORT(WriteFile, 0), 0, DiskFull, Copy, "Cannot write data to '{App}\\dest.txt'.", 0, nullptr,
     nullptr},
    {"RetryCloseHandle", IMPORT(CloseHandle, 0), 0, 6, Copy, "Cannot close '{App}\\src.txt'.", 0, nullptr, nullptr},
    {"RetryGetFileSize", IMPORT(GetFileSize, -1), 0, 1, CopyIfLater, "Cannot get the file size for '{App}\\src.txt' .",
     0, " {App}\\src.txt 0", " 3"},
    {"RetrySetFilePointer", IMPORT(SetFilePointer, -1), 0, 131, Rollback, "Cannot set pointer in '{Log}' .", 0,
     " {Log} -36 2", ""},
    {"RetryDeleteFile", IMPORT(DeleteFileA, 0), 0, SharingViolation, Delete, "Cannot delete '{App}\\src.txt'.", 3,
     " {App}\\src.txt", ""},
    {"RetryMoveFile", IMPORT(MoveFileA, 0), 0, 183, Put, "Cannot move file '{Log}' to '{Log}.bkp'.", 3,
     " {Log} {Log}.bkp", ""},
    {"RetrySetEndOfFile", IMPORT(SetEndOfFile, 0), 0, UserMappedFile, Rollback, "Cannot truncate '{Log}'.", 0, " {Log}",
     ""},
    {"RetryLoadLibrary", IMPORT(LoadLibraryA, 0), 0, 14, RegServer, "Cannot load library '{App}\\returns-0.dll'.", 0,
     " {App}\\returns-0.dll", ""},
    {"RetryFreeLibrary", IMPORT(FreeLibrary, 0), 0, 6, RegServer, "Cannot unload library '{App}\\returns-0.dll'.", 0,
     " {App}\\returns-0.dll", ""},
    {"RetryGetProcAddress", IMPORT(GetProcAddress, 0), 0, 127, RegServer,
     "Cannot get the address of 'DllRegisterServer' function in library '{App}\\returns-0.dll'.", 0,
     " {App}\\returns-0.dll DllRegisterServer", ""},
    {"RetryGetModuleHandle", IMPORT(GetModuleHandleA, 0), 0, 126, RegLibrary,
     "Cannot get 'OLEAUT32.DLL' module handle.", 0, " OLEAUT32.DLL", ""},
    // It reports by its result, which must be negative.
    {"RetryLoadTypeLib", IMPORT(LoadTypeLib, static_cast<int>(NoText)), 0, NoText, RegLibrary,
     "Cannot load '{App}\\Sample.TLB' type library.", 0, " {App}\\Sample.TLB", ""},
};

class WrapperFailures : public TRetryLayer, public testing::WithParamInterface<TWrapperCase> {
 protected:
  WrapperFailures() { WriteTime = TreeOf(App())["src.txt"].LastWrite, Access = TreeOf(App())["src.txt"].LastAccess; }

  std::string Fill(std::string Pattern) {
    const std::pair<const char*, std::string> Values[] = {
        {"{App}", App()},
        {"{Log}", Service("update.prt")},
        {"{Times}", TimeText(WriteTime) + " " + TimeText(Access) + " " + TimeText(WriteTime)}};
    for (const auto& [Key, Value] : Values)
      for (size_t At; (At = Pattern.find(Key)) != std::string::npos;)
        Pattern.replace(At, std::string(Key).size(), Value);
    return Pattern;
  }
  std::string Wrapper() { return std::string(Case.Name).substr(0, std::string(Case.Name).find('_')); }
  std::string Reason() { return Case.Code == NoText ? "Unknown error." : SystemText(Case.Code); }
  TScriptedDialog::TBox Box() {
    char Code[9];
    std::snprintf(Code, sizeof Code, "%lX", Case.Code);
    return {Fill(Case.Message) + "\r\n\r\nError: '" + Reason() + "' (Error code: " + Code + ").", "Error", 21};
  }
  /// The Begin line of the call that the row is about.
  const TMemoryLog::TLine* Begin() { return Find("Begin", Fill(Wrapper() + Case.BeginArguments)); }

  const TWrapperCase& Case = GetParam();
  uint64_t WriteTime, Access;
  TNoPauses NoPauses;
};

TEST_P(WrapperFailures, RetryRepeatsUntilTheCallSucceeds) {
  Dialog().Answer({IDRETRY, IDRETRY});
  TFault Fault(Case.Import, Case.Replacement, {Case.Skip, Case.Pauses + 2, Case.Code});
  ASSERT_EQ(S_OK, Case.Run(*this)) << ErrorText();
  // The silent repeats are not restored by a Retry.
  EXPECT_EQ(Case.Pauses, TNoPauses::Count());
  EXPECT_EQ((std::vector{Box(), Box()}), Dialog().Boxes);
  EXPECT_EQ(nullptr, Find("Exception", ""));
  if (!Case.BeginArguments) {
    EXPECT_EQ(std::vector<std::string>(), LinesOf(Wrapper() + " "));
  } else {
    ASSERT_NE(nullptr, Begin()) << testing::PrintToString(Log().Texts("Common"));
    EXPECT_EQ(Fill(Wrapper() + Case.BeginArguments), Begin()->Text);
    EXPECT_EQ(std::vector{Fill("End " + Wrapper() + Case.EndResult)}, Following(Begin()->Id));
  }
}

TEST_P(WrapperFailures, CancelRaisesTheFailureWithTheSystemsText) {
  EXPECT_EQ(Case.Code == NoText, SystemText(Case.Code).empty());
  TFault Fault(Case.Import, Case.Replacement, {Case.Skip, Case.Pauses + 1, Case.Code});
  EXPECT_EQ(static_cast<HRESULT>(0x80040000 + ((Case.Code + 0x200) & 0xFFFF)), Case.Run(*this));
  EXPECT_EQ(Reason(), ErrorText());
  EXPECT_EQ(Case.Pauses, TNoPauses::Count());
  EXPECT_EQ(std::vector{Box()}, Dialog().Boxes);

  const auto* Exception = Find("Exception", "");
  ASSERT_NE(nullptr, Exception);
  EXPECT_EQ(std::to_string(static_cast<int>(Case.Code)) + " " + Reason(), Exception->Text);
  for (const auto& Line : Log().Lines) EXPECT_EQ(&Line == Exception, Line.Id == Exception->Id) << Line.Text;
  if (Case.BeginArguments) {
    ASSERT_NE(nullptr, Begin());
    EXPECT_EQ(std::vector<std::string>(), Following(Begin()->Id));
  }
}

INSTANTIATE_TEST_SUITE_P(Files, WrapperFailures, testing::ValuesIn(Cases), testing::PrintToStringParamName());

}  // namespace
