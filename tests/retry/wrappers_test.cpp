// Every wrapper that a public method reaches: what it writes into the debug log, what the user reads when its system
// call fails, and what becomes of the call when he answers Retry or Cancel.

#include "support/expected.h"
#include "support/module_calls.h"
#include "support/sandbox_test.h"
#include "support/type_library.h"

#include <algorithm>
#include <regex>
#include <sstream>

namespace {

/// Public calls on a small application.
class Wrappers : public TSandboxTest {
 public:
  Wrappers() { Prepare(); }
  /// old.txt and the later src.txt with three bytes each, an empty folder, a registry key with two values and a subkey,
  /// an item of raw data, one entry in the transaction log.
  void Prepare() {
    RemoveTree(App());
    Write(App("old.txt"), "old", FILE_ATTRIBUTE_ARCHIVE);
    Write(App("src.txt"), "new", FILE_ATTRIBUTE_ARCHIVE);
    MakeFolders(App("empty"));
    StoreValue(Wide(L"Key"), L"Name", REG_SZ, WideBytes({L"old", 4}));
    StoreValue(Wide(L"Key\\Sub"), L"", REG_DWORD, "1234");
    CopyFileA(BuiltFile("tests\\server.dll").c_str(), App("returns-0.dll").c_str(), FALSE);
    MakeTypeLibrary(App("Sample.TLB"));
    RollBack();
    char Data[] = "abc";
    Backup->BackupData(Data, 3, &RawItem);
    PutEntry();
  }
  HRESULT PutEntry() { return TransactionLog->Put(CLSID_UCanRollback, 7, NumberedGuid(1)); }
  HRESULT SaveValue(unsigned long Root) {
    return Backup->BackupRegKeyValue(Root, Text(Key("Key")), Text("Name"), &Item);
  }

  /// A text without what differs from run to run.
  std::string Plain(std::string Text, const std::string& SystemText = "") {
    for (const auto& [Word, Name] : {std::pair{Root(), "{Root}"}, {SystemText, "{text}"}})
      for (size_t At; !Word.empty() && (At = Text.find(Word)) != std::string::npos;)
        Text.replace(At, Word.size(), Name);
    for (const auto& [Pattern, Name] : {std::pair{"\\{[0-9A-F]{8}-[0-9A-F-]+\\}", "{guid}"},
                                        {"(Retry\\w+ HKEY\\S+) \\d+", "$1 {handle}"},
                                        {"(Retry[GS]etFileTime)( \\{Root\\}\\S+)? \\d.*", "$1$2 {times}"},
                                        {"\r\n", "|"}})
      Text = std::regex_replace(Text, std::regex(Pattern), Name);
    return Text;
  }

  TComRef<IUFile> File = Make<IUFile>(CLSID_UFile);
  TComRef<IUCom> Com = Make<IUCom>(CLSID_UCom);
  TComRef<IURegistry> Registry = Make<IURegistry>(CLSID_URegistry);
  TComRef<IUBackup> Backup = Make<IUBackup>(CLSID_UBackup);
  TComRef<IUTransactionLog> TransactionLog = Make<IUTransactionLog>(CLSID_UTransactionLog);
  GUID Item{}, RawItem{};
};

using TRun = HRESULT (*)(Wrappers&);
const TRun Copy = [](Wrappers& On) { return On.File->CopyFile(Text(On.App("src.txt")), Text(On.App("dest.txt")), 0); };
const TRun CopyIfLater = [](Wrappers& On) {
  return On.File->CopyFile(Text(On.App("src.txt")), Text(On.App("old.txt")), 3);
};
const TRun CopyToNewFolder = [](Wrappers& On) {
  return On.File->CopyFileLogged(Text(On.App("src.txt")), Text(On.App("new\\dest.txt")), 0);
};
const TRun Delete = [](Wrappers& On) { return On.File->DeleteFiles(Text(On.App("src.*")), 0, 0, VARIANT_FALSE); };
const TRun DeleteFolder = [](Wrappers& On) {
  return On.File->DeleteFiles(Text(On.App("empty\\*.*")), 0, 0, VARIANT_TRUE);
};
const TRun Put = [](Wrappers& On) { return On.PutEntry(); };
const TRun RollBackAll = [](Wrappers&) { return RollBack(); };
const TRun RegServer = [](Wrappers& On) { return On.Com->RegServer(Text(On.App("returns-0.dll"))); };
const TRun RegLibrary = [](Wrappers& On) {
  const HRESULT Result = On.Com->RegTLB(Text(On.App("Sample.TLB")));
  return SUCCEEDED(Result) ? On.Com->UnRegTLB(Text(On.App("Sample.TLB"))) : Result;
};
const TRun RestoreData = [](Wrappers& On) {
  void* Buffer = nullptr;
  long Size = 0;
  const HRESULT Result = On.Backup->RestoreData(On.RawItem, &Buffer, &Size);
  EXPECT_EQ(FAILED(Result), !Buffer || std::string(static_cast<char*>(Buffer), static_cast<size_t>(Size)) != "abc");
  CoTaskMemFree(Buffer);
  return Result;
};
const TRun SaveValue = [](Wrappers& On) { return On.SaveValue(On.User); };
const TRun SaveKey = [](Wrappers& On) {
  return On.Backup->BackupRegKey(On.User, Text(On.Key("Key")), VARIANT_TRUE, &On.Item);
};
const TRun SetValue = [](Wrappers& On) {
  return On.Registry->SetDwordValue(On.User, Text(On.Key("Key")), Text("New"), 5);
};
const TRun DeleteValue = [](Wrappers& On) {
  return On.Registry->DeleteRegKeyValue(On.User, Text(On.Key("Key")), Text("Name"));
};
const TRun DeleteKey = [](Wrappers& On) { return On.Registry->DeleteRegKey(On.User, Text(On.Key("Key"))); };

/// A call of `Import` that fails: the one after `Skip` others that `Run` makes.
const struct TRow {
  const char* Import;
  DWORD Code;
  int Skip;
  TRun Run;
} Rows[] = {
    // Codes with and without a system text, with letters among their hexadecimal digits, and with the sign bit.
    {"GetFileAttributesA", 5, 0, Copy},
    {"SetFileAttributesA", 0xA000FFFF, 0, Delete},
    {"GetFileTime", 6, 0, Copy},
    {"SetFileTime", 5, 0, Copy},
    {"CreateDirectoryA", 112, 3, CopyToNewFolder},  // three folders are there already
    {"RemoveDirectoryA", 145, 0, DeleteFolder},
    {"FindFirstFileA", 5, 0, Delete},
    {"FindNextFileA", 1167, 0, Delete},
    {"FindClose", 6, 0, Delete},
    {"FindClose", 6, 1, Delete},
    {"CreateFileA", 32, 0, Copy},
    {"CreateFileA", 80, 1, Copy},
    {"CreateFileA", 0xA000FFFF, 2, Put},  // before it, the log's copy is read and written
    {"ReadFile", 30, 1, RollBackAll},
    {"ReadFile", 1117, 0, Copy},
    {"WriteFile", 112, 0, Copy},
    {"GetFileSize", 1, 0, CopyIfLater},
    {"SetFilePointer", 131, 0, RollBackAll},
    {"DeleteFileA", 32, 0, Delete},
    {"MoveFileA", 183, 0, Put},
    {"SetEndOfFile", 1224, 0, RollBackAll},
    {"LoadLibraryA", 14, 0, RegServer},
    {"FreeLibrary", 6, 0, RegServer},
    {"GetProcAddress", 127, 0, RegServer},
    {"GetModuleHandleA", 126, 0, RegLibrary},
    {"LoadTypeLib", 0xA000FFFF, 0, RegLibrary},
    {"CoTaskMemAlloc", 8, 0, RestoreData},
    {"RegCreateKeyExA", 5, 0, SetValue},
    {"RegOpenKeyExA", 2, 0, SaveValue},
    {"RegOpenKeyExA", 1018, 3, DeleteValue},  // three tests open the key before
    {"RegQueryInfoKeyA", 1018, 0, SaveKey},
    {"RegQueryValueExA", 0xABCD, 0, SaveValue},
    {"RegQueryValueExA", 1450, 1, SaveValue},
    {"RegSetValueExA", 14, 0, SetValue},
    {"RegEnumValueA", 259, 0, SaveKey},
    {"RegEnumKeyExA", 234, 0, SaveKey},
    {"RegCloseKey", 6, 0, SaveValue},
    {"RegDeleteValueA", 5, 0, DeleteValue},
    {"SHDeleteKeyA", 32, 0, DeleteKey},
    {"CloseHandle", 6, 0, Copy}};  // the last one: the file stays open

const TRun Story[] = {Copy,      CopyIfLater, CopyToNewFolder, DeleteFolder, Put,       SaveValue,
                      SaveKey,   SetValue,    DeleteValue,     DeleteValue,  DeleteKey, DeleteKey,
                      RegServer, RegLibrary,  RollBackAll,     Delete,       Delete,    RestoreData};

TEST_F(Wrappers, AreAllInTheTable) {
  EXPECT_EQ("", ForgottenCalls());
  for (const TModuleCall& Call : ModuleCalls()) {
    const std::string Name = Call.Name;
    const bool Listed = std::ranges::any_of(Rows, [&](const TRow& Row) { return Row.Import == Name; });
    EXPECT_TRUE(Listed || Call.Failures == 0 || Name == "RegisterTypeLib") << Name;  // that one is told by its caller
  }
}

// messages.txt has, for each row, what a Retry and then what a Cancel leads to: result, pauses, the caller's error
// text, the boxes, and the lines that tell of the failure. {text} is the system's for the code.
TEST_F(Wrappers, TellTheUserAndRepeatUntilTheCallSucceedsOrHeCancels) {
  const TNoPauses NoPauses;
  std::string Found;
  for (const TRow& Row : Rows)
    for (const int Answer : {IDRETRY, IDCANCEL}) {
      Prepare();
      Log().Lines.clear();
      Dialog().Boxes.clear();
      if (Answer == IDRETRY) Dialog().Answer({IDRETRY, IDRETRY});
      const int Failures = std::ranges::find(ModuleCalls(), std::string(Row.Import), &TModuleCall::Name)->Failures;
      const TRegistryTree Before = RegistryTreeOf(Wide(L"Key"));
      const HRESULT Result = [&] {
        const TFault Fault(Row.Import, {Row.Skip, std::max(1, Failures) + (Answer == IDRETRY), Row.Code});
        return Row.Run(*this);
      }();
      std::ostringstream Told;
      Told << Row.Import << ": " << std::hex << Result << ", " << std::dec << TNoPauses::Count() << " pauses so far, "
           << ErrorText() << "\n";
      for (const auto& Box : Dialog().Boxes) Told << Box << "\n";
      for (const auto& Line : Log().Lines)
        if (Line.Action == "Exception") Told << Line.Name << " Exception " << Line.Text << "\n";
      Found += Plain(Told.str(), SystemText(Row.Code));
      if (FAILED(Result)) {
        EXPECT_EQ("", Difference(Before, RegistryTreeOf(Wide(L"Key")))) << Row.Import;
      }
    }
  for (unsigned long Root = 0x80000000; Root <= 0x80000005; ++Root) {
    const TFault Fault("RegOpenKeyExA", {0, 1, ERROR_FILE_NOT_FOUND});
    SaveValue(Root);
    Found += Plain(Dialog().Boxes.back().Text, SystemText(ERROR_FILE_NOT_FOUND)) + "\n";
  }
  ExpectText("retry", "messages.txt", Found);
}

// lines.txt has all lines of one call after the other, with their call ids, which count the quiet calls, too.
TEST_F(Wrappers, WriteTheseLines) {
  std::string Found;
  Write(App("old.txt"), std::string(32768, 'o'));
  Write(App("src.txt"), std::string(65537, 's'));
  for (const TRun Run : Story) EXPECT_EQ(S_OK, Run(*this)) << ErrorText();
  EXPECT_TRUE(std::string(65537, 's') == Read(App("dest.txt")));
  for (const auto& Line : Log().Lines)
    Found += std::to_string(Line.Id) + " " + Line.Name + " " + Line.Action + " " + Line.Text + "\n";
  ExpectText("retry", "lines.txt", Plain(Found));
}

/// What a test keeps open, so that a replaced function can let it go.
TFileHandle Held;
int Waits = 0;

void WINAPI LetGoAtTheThirdWait(DWORD Milliseconds) {
  EXPECT_EQ(1u, Milliseconds);
  if (++Waits == 3) Held.Reset();
}

TEST_F(Wrappers, DeleteAFileThatIsGoneOrThatAProgramHoldsForAWhile) {
  const auto Hold = [&](DWORD Share) {
    Write(App("src.txt"), "new");
    Held.Reset(CreateFileA(App("src.txt").c_str(), GENERIC_READ, Share, nullptr, OPEN_EXISTING, 0, nullptr));
  };
  {
    // The search for the mask finds the file; the test before its deletion does not.
    const TFault Gone("FindFirstFileA", {1, 1, ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(S_OK, Delete(*this));
    EXPECT_EQ("new", Read(App("src.txt")));
  }
  {
    Hold(FILE_SHARE_READ | FILE_SHARE_DELETE);
    const TImportPatch Patch("Sleep", LetGoAtTheThirdWait);
    EXPECT_EQ(S_OK, Delete(*this));
    EXPECT_EQ(3, Waits);
    EXPECT_FALSE(Exists(App("src.txt")));
  }
  EXPECT_TRUE(Dialog().Boxes.empty());
  Hold(FILE_SHARE_READ);
  const TNoPauses NoPauses;
  const TFault Count("DeleteFileA");
  Dialog().OnBox = [] { Held.Reset(); };
  Dialog().Answer({IDRETRY});
  EXPECT_EQ(S_OK, Delete(*this));
  EXPECT_EQ(5, Count.Calls());
  EXPECT_FALSE(Exists(App("src.txt")));
}

TEST_F(Wrappers, PassOnTheResultOfAFailingDebugLogOrDialog) {
  constexpr HRESULT OwnFailure = static_cast<HRESULT>(0x80041234);
  Log().Result = OwnFailure;
  EXPECT_EQ(OwnFailure, Copy(*this));
  EXPECT_FALSE(Exists(App("dest.txt")));
  Log().Result = S_OK;
  const TFault Fault("GetFileAttributesA", {.Times = 2, .Code = 5});
  Dialog().Result = OwnFailure;
  EXPECT_EQ(OwnFailure, Copy(*this));
  EXPECT_NE("Exception", Log().Lines.back().Action);
  Dialog().Result = S_OK;
  Dialog().OnBox = [this] { Log().Result = OwnFailure; };  // at the line that tells of the failure
  EXPECT_EQ(OwnFailure, Copy(*this));
}

TEST_F(Wrappers, TakeAKeyThatCannotBeOpenedForAllAccessForAbsent) {
  const TRegistryTree Before = Tree();
  const TFault Fault("RegOpenKeyExA", {0, 100, 5});
  EXPECT_EQ(S_OK, DeleteValue(*this));
  EXPECT_EQ(S_OK, DeleteKey(*this));
  EXPECT_EQ(S_OK, Registry->DeleteRegKeyLogged(User, Text(Key("Key"))));
  EXPECT_TRUE(Dialog().Boxes.empty());
  EXPECT_EQ("", Difference(Before, Tree()));
}

}  // namespace
