// Every wrapper that a public method reaches, one row each: what the user reads when its system call fails, and what
// becomes of the call when he answers Retry or Cancel.

#include "retry/retry_layer.h"

namespace {

/// In messages, {App} is the application's folder, {Log} the transaction log's file, {Key} the name of the registry
/// key.
struct TWrapperCase {
  const char* Name;
  const char* Import;
  DWORD Code;  ///< what the user is told
  int Skip;
  HRESULT (*Run)(TRetryLayer&);
  const char* Message;
  int Pauses = 0;
};

std::ostream& operator<<(std::ostream& Out, const TWrapperCase& Case) { return Out << Case.Name; }

// Codes with and without a system text, with letters among their hexadecimal digits, and with the sign bit.
constexpr DWORD SharingViolation = 32, DiskFull = 112, UserMappedFile = 1224, NoText = 0xA000FFFF, NoStatus = 0xABCD;

HRESULT Copy(TRetryLayer& Test) { return Test.Copy(); }
HRESULT CopyIfLater(TRetryLayer& Test) { return Test.Copy("old.txt", 3); }
HRESULT CopyToNewFolder(TRetryLayer& Test) { return Test.CopyLogged("new\\dest.txt"); }
HRESULT Delete(TRetryLayer& Test) { return Test.Delete("src.*"); }
HRESULT DeleteFolder(TRetryLayer& Test) { return Test.Delete("empty\\*.*", VARIANT_TRUE); }
HRESULT Put(TRetryLayer& Test) { return Test.PutEntry(); }
HRESULT Rollback(TRetryLayer& Test) { return Test.Rollback(); }
HRESULT RegServer(TRetryLayer& Test) { return Test.RegServer(); }
HRESULT RegLibrary(TRetryLayer& Test) { return Test.RegAndUnRegTLB(); }
HRESULT SaveValue(TRetryLayer& Test) { return Test.SaveValue(); }
HRESULT SaveKey(TRetryLayer& Test) { return Test.SaveKey(); }
HRESULT SetValue(TRetryLayer& Test) { return Test.SetValue(); }
HRESULT DeleteValue(TRetryLayer& Test) { return Test.DeleteValue(); }
HRESULT DeleteKey(TRetryLayer& Test) { return Test.DeleteKey(); }

const TWrapperCase Files[] = {
    {"GetFileAttributes", "GetFileAttributesA", 5, 0, Copy, "Cannot get attributes of '{App}\\src.txt'."},
    {"SetFileAttributes", "SetFileAttributesA", NoText, 0, Delete, "Cannot set attributes of '{App}\\src.txt'."},
    {"GetFileTime", "GetFileTime", 6, 0, Copy, "Cannot get date and time of '{App}\\src.txt'."},
    {"SetFileTime", "SetFileTime", 5, 0, Copy, "Cannot set date and time of '{App}\\dest.txt'."},
    // C:\mendwork-tests, the sandbox and the application are there already.
    {"CreateDirectory", "CreateDirectoryA", DiskFull, 3, CopyToNewFolder, "Cannot create folder '{App}\\new'."},
    {"DeleteDirectory", "RemoveDirectoryA", 145, 0, DeleteFolder, "Cannot delete folder '{App}\\empty'."},
    {"FindFirstFile", "FindFirstFileA", 5, 0, Delete, "Cannot start searching for files with '{App}\\src.*' mask."},
    {"FindNextFile", "FindNextFileA", 1167, 0, Delete, "Cannot continue searching for files with '{App}\\src.*' mask."},
    // The search for the file to be deleted is closed first.
    {"FindClose", "FindClose", 6, 1, Delete, "Cannot finish searching for files with '{App}\\src.*' masks."},
    {"CreateFile_OpenExisting", "CreateFileA", SharingViolation, 0, Copy, "Cannot open '{App}\\src.txt'.", 3},
    {"CreateFile_CreateNew", "CreateFileA", 80, 1, Copy, "Cannot create '{App}\\dest.txt'.", 3},
    // Before it, the log's copy is read and written.
    {"CreateFile_OpenAlways", "CreateFileA", NoText, 2, Put, "Cannot open or create '{Log}'.", 3},
    {"ReadFile", "ReadFile", 30, 1, Rollback, "Cannot read data from '{Log}' file."},
    {"ReadFile_Quiet", "ReadFile", 1117, 0, Copy, "Cannot read data from '{App}\\src.txt' file."},
    {"WriteFile", "WriteFile", DiskFull, 0, Copy, "Cannot write data to '{App}\\dest.txt'."},
    {"CloseHandle", "CloseHandle", 6, 0, Copy, "Cannot close '{App}\\src.txt'."},
    {"GetFileSize", "GetFileSize", 1, 0, CopyIfLater, "Cannot get the file size for '{App}\\src.txt' ."},
    {"SetFilePointer", "SetFilePointer", 131, 0, Rollback, "Cannot set pointer in '{Log}' ."},
    {"DeleteFile", "DeleteFileA", SharingViolation, 0, Delete, "Cannot delete '{App}\\src.txt'.", 3},
    {"MoveFile", "MoveFileA", 183, 0, Put, "Cannot move file '{Log}' to '{Log}.bkp'.", 3},
    {"SetEndOfFile", "SetEndOfFile", UserMappedFile, 0, Rollback, "Cannot truncate '{Log}'."},
    {"LoadLibrary", "LoadLibraryA", 14, 0, RegServer, "Cannot load library '{App}\\returns-0.dll'."},
    {"FreeLibrary", "FreeLibrary", 6, 0, RegServer, "Cannot unload library '{App}\\returns-0.dll'."},
    {"GetProcAddress", "GetProcAddress", 127, 0, RegServer,
     "Cannot get the address of 'DllRegisterServer' function in library '{App}\\returns-0.dll'."},
    {"GetModuleHandle", "GetModuleHandleA", 126, 0, RegLibrary, "Cannot get 'OLEAUT32.DLL' module handle."},
    // It reports by its result, which must be negative.
    {"LoadTypeLib", "LoadTypeLib", NoText, 0, RegLibrary, "Cannot load '{App}\\Sample.TLB' type library."},
};

const TWrapperCase Keys[] = {
    {"RegCreateKeyEx", "RegCreateKeyExA", 5, 0, SetValue, "Cannot create registry key 'HKEY_CURRENT_USER\\{Key}'."},
    {"RegOpenKeyEx", "RegOpenKeyExA", 2, 0, SaveValue, "Cannot open registry key 'HKEY_CURRENT_USER\\{Key}'."},
    {"GetKeyInfo", "RegQueryInfoKeyA", 1018, 0, SaveKey,
     "Cannot get information about registry key 'HKEY_CURRENT_USER\\{Key}'."},
    {"GetDataSizeAndType", "RegQueryValueExA", NoStatus, 0, SaveValue,
     "Cannot get information about the type and data size of value in registry key 'HKEY_CURRENT_USER\\{Key}'."},
    {"GetData", "RegQueryValueExA", 1450, 1, SaveValue,
     "Cannot get values of 'Name' in registry key 'HKEY_CURRENT_USER\\{Key}'."},
    {"RegSetValueEx", "RegSetValueExA", 14, 0, SetValue,
     "Cannot detect 'New' values of 'HKEY_CURRENT_USER\\{Key}' registry key."},
    {"RegEnumValue", "RegEnumValueA", 259, 0, SaveKey,
     "Cannot get the value name of 'HKEY_CURRENT_USER\\{Key}' registry key."},
    {"RegEnumKeyEx", "RegEnumKeyExA", 234, 0, SaveKey,
     "Cannot find the name of key in registry key 'HKEY_CURRENT_USER\\{Key}'."},
    {"RegCloseKey", "RegCloseKey", 6, 0, SaveValue, "Cannot close 'HKEY_CURRENT_USER\\{Key}' registry key."},
    {"RegDeleteValue", "RegDeleteValueA", 5, 0, DeleteValue,
     "Cannot delete 'Name' from 'HKEY_CURRENT_USER\\{Key}' registry key."},
    // Three tests open the key before.
    {"RegDeleteValue_Open", "RegOpenKeyExA", 1018, 3, DeleteValue,
     "Cannot delete 'Name' from 'HKEY_CURRENT_USER\\{Key}' registry key."},
    {"SHDeleteKey", "SHDeleteKeyA", 32, 0, DeleteKey, "Cannot delete registry key '{Key}'."},
};

class WrapperFailures : public TRetryLayer, public testing::WithParamInterface<TWrapperCase> {
 protected:
  std::string Fill(std::string Pattern) const {
    const std::pair<std::string, std::string> Values[] = {
        {"{App}", App()}, {"{Log}", Service("update.prt")}, {"{Key}", Key("Key")}};
    for (const auto& [Word, Value] : Values)
      for (size_t At; (At = Pattern.find(Word)) != std::string::npos;) Pattern.replace(At, Word.size(), Value);
    return Pattern;
  }
  bool HasText() const { return Case.Code != NoText && Case.Code != NoStatus; }
  std::string Reason() const { return HasText() ? SystemText(Case.Code) : "Unknown error."; }
  TScriptedDialog::TBox Box() const {
    char Code[9];
    std::snprintf(Code, sizeof Code, "%lX", Case.Code);
    return {Fill(Case.Message) + "\r\n\r\nError: '" + Reason() + "' (Error code: " + Code + ").", "Error", 21};
  }

  const TWrapperCase& Case = GetParam();
  TNoPauses NoPauses;
};

TEST_P(WrapperFailures, RetryRepeatsUntilTheCallSucceeds) {
  Dialog().Answer({IDRETRY, IDRETRY});
  TFault Fault(Case.Import, {Case.Skip, Case.Pauses + 2, Case.Code});
  ASSERT_EQ(S_OK, Case.Run(*this)) << ErrorText();
  // The silent repeats are not restored by a Retry.
  EXPECT_EQ(Case.Pauses, TNoPauses::Count());
  EXPECT_EQ((std::vector{Box(), Box()}), Dialog().Boxes);
  EXPECT_EQ(std::vector<std::string>(), Exceptions());
}

TEST_P(WrapperFailures, CancelRaisesTheFailureWithTheSystemsText) {
  EXPECT_EQ(HasText(), !SystemText(Case.Code).empty());
  const auto Untouched = [] { return RegistryTreeOf(Wide(L"Key")); };
  const TRegistryTree Before = Untouched();
  {
    TFault Fault(Case.Import, {Case.Skip, Case.Pauses + 1, Case.Code});
    EXPECT_EQ(static_cast<HRESULT>(0x80040000 + ((Case.Code + 0x200) & 0xFFFF)), Case.Run(*this));
  }
  EXPECT_EQ(Reason(), ErrorText());
  EXPECT_EQ(Case.Pauses, TNoPauses::Count());
  EXPECT_EQ(std::vector{Box()}, Dialog().Boxes);
  EXPECT_EQ("Exception " + std::to_string(static_cast<int>(Case.Code)) + " " + Reason(), Exceptions().at(0));
  EXPECT_EQ("", Difference(Before, Untouched()));
}

INSTANTIATE_TEST_SUITE_P(Files, WrapperFailures, testing::ValuesIn(Files), testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Registry, WrapperFailures, testing::ValuesIn(Keys), testing::PrintToStringParamName());

}  // namespace
