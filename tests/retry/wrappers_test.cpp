// Every wrapper that a public method reaches: what the user reads when its system call fails, and what becomes of the
// call when he answers Retry or Cancel.

#include "stories/story.h"
#include "support/process.h"
#include "support/sandbox.h"

#include <algorithm>
#include <thread>

namespace {

/// Public calls on a small application.
class Wrappers : public TStory {
 public:
  /// old.txt and the later src.txt with three bytes each, an empty folder, a registry key with two values and a subkey,
  /// an item of raw data, one entry in the transaction log.
  void Prepare() {
    RollBack();
    RemoveTree(App());
    Put("old.txt", "old");
    Put("src.txt", "new");
    MakeFolders(App("empty"));
    StoreValue(Wide(L"Key"), L"Name", REG_SZ, WideBytes({L"old", 4}));
    StoreValue(Wide(L"Key\\Sub"), L"", REG_DWORD, "1234");
    Put("returns-0.dll", Read(BuiltFile("tests\\server.dll")));
    MakeTypeLibrary(App("Sample.TLB"));
    Put("Sample.TLB", Read(App("Sample.TLB")));
    RawItem = Stored(std::string("\3\0\0\0abc", 7));
    Transactions->Put(CLSID_UCanRollback, 7, NumberedGuid(1));
    Begin();
  }
  const Text Source{App("src.txt")}, Old{App("old.txt")}, New{App("new\\dest.txt")}, Library{App("Sample.TLB")},
      KeyName{Key("Key")};
  GUID Item{}, RawItem{};
  unsigned long Root = User;
  void* Buffer = nullptr;
  long Size = 0;
};

using TRun = HRESULT (*)(Wrappers&);
const TRun Copy = [](Wrappers& On) { return On.File->CopyFile(On.Source, Text(On.App("dest.txt")), 0); };
const TRun CopyIfLater = [](Wrappers& On) { return On.File->CopyFile(On.Source, On.Old, 3); };
const TRun CopyToNewFolder = [](Wrappers& On) { return On.File->CopyFileLogged(On.Source, On.New, 0); };
const TRun Delete = [](Wrappers& On) { return On.File->DeleteFiles(Text(On.App("src.*")), 0, 0, 0); };
const TRun DeleteFolder = [](Wrappers& On) { return On.File->DeleteFiles(Text(On.App("empty\\*.*")), 0, 0, -1); };
const TRun Put = [](Wrappers& On) { return On.Transactions->Put(CLSID_UCanRollback, 7, NumberedGuid(2)); };
const TRun RollBackAll = [](Wrappers&) { return RollBack(); };
const TRun RegServer = [](Wrappers& On) { return On.Com->RegServer(Text(On.App("returns-0.dll"))); };
const TRun RegLibrary = [](Wrappers& On) {
  const HRESULT Result = On.Com->RegTLB(On.Library);
  return SUCCEEDED(Result) ? On.Com->UnRegTLB(On.Library) : Result;
};
const TRun RestoreData = [](Wrappers& On) { return On.Backup->RestoreData(On.RawItem, &On.Buffer, &On.Size); };
const TRun SaveValue = [](Wrappers& On) {
  return On.Backup->BackupRegKeyValue(On.Root, On.KeyName, Text("Name"), &On.Item);
};
const TRun SaveKey = [](Wrappers& On) { return On.Backup->BackupRegKey(On.User, On.KeyName, -1, &On.Item); };
const TRun SetValue = [](Wrappers& On) { return On.Registry->SetDwordValue(On.User, On.KeyName, Text("New"), 5); };
const TRun DeleteValue = [](Wrappers& On) { return On.Registry->DeleteRegKeyValue(On.User, On.KeyName, Text("Name")); };
const TRun DeleteKey = [](Wrappers& On) { return On.Registry->DeleteRegKey(On.User, On.KeyName); };
const TRun DeleteKeyLogged = [](Wrappers& On) { return On.Registry->DeleteRegKeyLogged(On.User, On.KeyName); };

// Codes without a system text, with letters among their hexadecimal digits, and with the sign bit.
constexpr DWORD NoText = 0xA000FFFF, NoStatus = 0xABCD;

/// A call of `Import` that fails: the one after `Skip` others that `Run` makes.
const struct TRow {
  const char* Import;
  DWORD Code;
  int Skip;
  TRun Run;
} Rows[] = {{"GetFileAttributesA", 5, 0, Copy},
            {"SetFileAttributesA", NoText, 0, Delete},
            {"GetFileTime", 32, 0, Copy},
            {"SetFileTime", 5, 0, Copy},
            {"CreateDirectoryA", 112, 3, CopyToNewFolder},  // three folders are there already
            {"RemoveDirectoryA", 32, 0, DeleteFolder},
            {"FindFirstFileA", 5, 0, Delete},
            {"FindNextFileA", 112, 0, Delete},
            {"FindClose", 5, 1, Delete},  // the plain question for the stored names comes before
            {"FindClose", 5, 2, Delete},
            {"FindFirstFileW", 5, 0, Delete},
            {"FindNextFileW", 112, 0, Delete},
            {"CreateFileW", 32, 0, Delete},
            {"CreateFileA", 32, 0, Copy},
            {"CreateFileA", 183, 1, Copy},
            {"CreateFileA", NoText, 3, Put},  // before it, the log's copy is read and written
            {"ReadFile", 32, 2, RollBackAll},
            {"ReadFile", 112, 0, Copy},
            {"WriteFile", 112, 0, Copy},
            {"GetFileSize", 5, 0, CopyIfLater},
            {"SetFilePointer", 123, 0, RollBackAll},
            {"DeleteFileA", 32, 0, Delete},
            {"MoveFileA", 183, 0, Put},
            {"SetEndOfFile", 112, 0, RollBackAll},
            {"LoadLibraryA", 193, 0, RegServer},
            {"FreeLibrary", 126, 0, RegServer},
            {"GetProcAddress", 127, 0, RegServer},
            {"GetModuleHandleA", 126, 0, RegLibrary},
            {"LoadTypeLib", NoText, 0, RegLibrary},
            {"CoTaskMemAlloc", 0, 0, RestoreData},
            {"RegCreateKeyExA", 5, 0, SetValue},
            {"RegOpenKeyExA", 2, 0, SaveValue},
            {"RegOpenKeyExA", 3, 3, DeleteValue},  // three tests open the key before
            {"RegGetKeySecurity", 5, 1, DeleteKeyLogged},
            {"RegOpenKeyExW", 5, 3, SaveKey},  // three for the spelling of the path, which ask nobody
            {"RegQueryInfoKeyA", 5, 0, SaveKey},
            {"RegQueryInfoKeyW", 5, 0, SaveKey},
            {"RegQueryValueExW", 5, 1, SaveKey},
            {"RegEnumValueW", 5, 0, SaveKey},
            {"RegEnumKeyExW", 5, 0, SaveKey},
            {"RegQueryValueExA", NoStatus, 0, SaveValue},
            {"RegQueryValueExA", 5, 1, SaveValue},
            {"RegSetValueExA", 112, 0, SetValue},
            {"RegEnumValueA", 123, 0, SaveKey},
            {"RegEnumKeyExA", 123, 0, SaveKey},
            {"RegCloseKey", 5, 3, SaveValue},
            {"RegDeleteValueA", 5, 0, DeleteValue},
            {"SHDeleteKeyA", 32, 0, DeleteKey},
            {"CloseHandle", 5, 0, Copy}};  // the last one: the file stays open

TEST_F(Wrappers, AreAllInTheTable) {
  EXPECT_EQ("", ForgottenCalls());
  for (const TModuleCall& Call : ModuleCalls()) {
    const std::string Name = Call.Name;
    const bool Excused = Call.Failures == 0 || Name == "RegisterTypeLib";  // that one is told by its caller
    EXPECT_TRUE(Excused || std::ranges::find(Rows, Name, &TRow::Import) != std::end(Rows)) << Name;
  }
}

TEST_F(Wrappers, AskTheUserAndGoOnOrFail) {
  for (const TRow& Row : Rows)
    for (const bool Repeats : {true, false}) {
      Prepare();
      if (Repeats) Dialog().Answer({IDRETRY, IDRETRY});
      const int Failures = std::ranges::find(ModuleCalls(), std::string(Row.Import), &TModuleCall::Name)->Failures;
      const TFault Fault(Row.Import, {Row.Skip, std::max(1, Failures) + Repeats, Row.Code});
      const HRESULT Result = Row.Run(*this);
      for (const auto& Line : Log().Lines)
        if (Line.Action == "Exception") Tell(Line.Name + " " + Line.Text);
      // The silent repeats are not restored by a Retry.
      Brief(Row.Import + std::string(" after ") + std::to_string(TNoPauses::Count()) + " pauses", Result);
    }
  const TFault Fault("RegOpenKeyExA", {0, 6, ERROR_FILE_NOT_FOUND});
  for (Root = 0x80000000; Root <= 0x80000005; ++Root) Brief("root", ::SaveValue(*this));
}

/// What a test keeps open, so that a replaced function can let it go.
TFileHandle Held;
int Waits = 0;
HWND Listener = nullptr;

/// Ends the session during the third wait: whoever waits has to take the message.
DWORD WINAPI EndTheSessionAtTheThirdWait(DWORD Count, const HANDLE* Handles, BOOL All, DWORD Milliseconds, DWORD Wake) {
  EXPECT_EQ(1u, Milliseconds);
  if (++Waits != 3) return WAIT_TIMEOUT;
  constexpr DWORD LongEnough = 10000;
  static std::jthread System;
  System = std::jthread([] { SendMessageA(Listener, WM_ENDSESSION, TRUE, 0); });
  return MsgWaitForMultipleObjects(Count, Handles, All, LongEnough, Wake);
}

LRESULT CALLBACK LetGoAtTheEnd(HWND Window, UINT Message, WPARAM Parameter, LPARAM Data) {
  if (Message == WM_ENDSESSION) Held.Reset();
  return DefWindowProcA(Window, Message, Parameter, Data);
}

TEST_F(Wrappers, DeleteAFileThatIsGoneOrThatAProgramHoldsForAWhile) {
  Prepare();
  // The search for the mask finds the file; the test before its deletion does not.
  Step("gone", While(TFault("FindFirstFileA", {1, 1, ERROR_FILE_NOT_FOUND}), [&] { return Delete(*this); }));
  Held = Hold(App("src.txt"), FILE_SHARE_READ);
  Dialog().OnBox = [] { Held.Reset(); };
  Dialog().Answer({IDRETRY});
  Step("held", Delete(*this));
  Prepare();
  Held = Hold(App("src.txt"), FILE_SHARE_READ | FILE_SHARE_DELETE);
  Listener = CreateWindowA("STATIC", "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
  SetWindowLongPtrA(Listener, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(LetGoAtTheEnd));
  const TImportPatch Patch("MsgWaitForMultipleObjects", EndTheSessionAtTheThirdWait);
  Step("deleted, yet still open", Delete(*this));
}

TEST_F(Wrappers, PassOnTheResultOfAFailingDebugLogOrDialog) {
  constexpr HRESULT OwnFailure = static_cast<HRESULT>(0x80041234);
  Prepare();
  Log().Result = OwnFailure;
  Brief("no log", Copy(*this));
  Log().Result = S_OK;
  const TFault Fault("GetFileAttributesA", {.Times = 2, .Code = 5});
  Dialog().Result = OwnFailure;
  Step("no dialog", Copy(*this));
  Dialog().Result = S_OK;
  Dialog().OnBox = [this] { Log().Result = OwnFailure; };
  Step("no line about the failure", Copy(*this));
}

std::string Rooms;
/// As if the value had grown meanwhile: it says how much room it needs now.
LSTATUS WINAPI NeedMore(HKEY Key, LPCSTR Name, DWORD* Reserved, DWORD* Type, BYTE* Data, DWORD* Size) {
  if (!Data) return RegQueryValueExA(Key, Name, Reserved, Type, Data, Size);
  Rooms += std::to_string(std::exchange(*Size, 1000)) + " ";
  return ERROR_MORE_DATA;
}

TEST_F(Wrappers, NeverPromiseMoreRoomThanThereIs) {
  Prepare();
  Dialog().Answer({IDRETRY});
  Brief("grown", While(TImportPatch("RegQueryValueExA", NeedMore), [&] { return ::SaveValue(*this); }));
  Tell("room " + Rooms);
}

TEST_F(Wrappers, TakeAKeyThatCannotBeOpenedForAllAccessForAbsent) {
  Prepare();
  const TFault Fault("RegOpenKeyExA", {0, 100, 5});
  Step("value", DeleteValue(*this));
  Step("key", DeleteKey(*this));
  Step("key, logged", Registry->DeleteRegKeyLogged(User, KeyName));
}

}  // namespace
