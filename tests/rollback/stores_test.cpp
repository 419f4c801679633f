#include "formats/backup_items.h"
#include "stories/story.h"

#include <thread>

namespace {

// ---- The transaction log

const GUID UndoClass = Guid("{6E1C0B5A-92D4-4F0B-8C57-3B1D0A9E7F42}"), Late = NumberedGuid(0x1A7E);

/// An object of a class that undoes changes, the active one of that class for as long as it lives: it notes what it is
/// called back with and answers as told.
struct TUndoTarget final : TDouble<IUCanRollback> {
  explicit TUndoTarget(const GUID& ClassId) : Entry(RegisterActive(this, ClassId)) {}
  ~TUndoTarget() override { RevokeActive(Entry); }
  STDMETHOD(Rollback)(long Code, GUID DataID) override {
    Noted += std::to_string(Code) + " " + std::to_string(DataID.Data4[7]) + ", ";
    return Answer ? Answer() : S_OK;
  }
  std::string Calls() { return "undone " + std::exchange(Noted, ""); }
  std::string Noted;
  std::function<HRESULT()> Answer;
  const DWORD Entry;
};

class TransactionLog : public TStory {
 protected:
  HRESULT Put(int Code) { return Transactions->Put(UndoClass, Code, NumberedGuid(Code)); }
  /// Entries of the undoing class, each a digit, its code; "~" is a torn end, "0" one of zeros, "-" no file.
  void Plant(const std::string& File, const std::string& Digits) {
    std::string Content;
    for (const char Digit : Digits)
      Content += Digit == '~'   ? "torn"
                 : Digit == '0' ? std::string(36, '\0')
                                : RecordOf(UndoClass, Digit - '0', NumberedGuid(Digit - '0'));
    DeleteFileA(Service(File).c_str());
    if (Digits != "-") Write(Service(File), Content);
  }

  TUndoTarget Target{UndoClass};
};

TEST_F(TransactionLog, IsWalkedBackToTheCheckPointAndToTheBeginning) {
  Step("put", Transactions->Put(Guid("{00112233-4455-6677-8899-AABBCCDDEEFF}"), -2, NumberedGuid(0x01020304)));
  EXPECT_EQ(std::string("\x33\x22\x11\x00\x55\x44\x77\x66\x88\x99\xAA\xBB\xCC\xDD\xEE\xFF\xFE\xFF\xFF\xFF"
                        "\0\0\0\0\0\0\0\0\0\0\0\0\x01\x02\x03\x04",
                        36),
            Read(Service("update.prt")));
  Plant("update.prt", "12");
  Step("check point", Transactions->PutCheckPoint(NumberedGuid(9)));
  for (const int Code : {3, 4}) Brief("put", Put(Code));
  for (const VARIANT_BOOL OnlyToCheckPoint : {VARIANT_TRUE, VARIANT_TRUE, VARIANT_FALSE, VARIANT_FALSE}) {
    GUID Reached = NumberedGuid(77);
    Step("rollback " + std::to_string(OnlyToCheckPoint), Transactions->Rollback(OnlyToCheckPoint, &Reached));
    Tell(Target.Calls() + "reached " + GuidText(Reached));
  }
  Brief("put", Put(5));
  Brief("nowhere to tell", Transactions->Rollback(VARIANT_FALSE, nullptr));
}

TEST_F(TransactionLog, ALeftOverCopyIsPutBackFirst) {
  const std::pair<const char*, const char*> Rows[] = {{"-", "12"}, {"", "1"},   {"", "-"},   {"", "~"},   {"12", "1~"},
                                                      {"12", ""},  {"1", "12"}, {"12", "-"}, {"-", "1~"}, {"-", "100~"},
                                                      {"-", "00"}, {"10~", ""}, {"-", "102"}};
  for (const auto& [Copy, Log] : Rows)
    for (const bool Puts : {true, false}) {
      Plant("update.prt", Log), Plant("update.prt.bkp", Copy), DeleteFileA(Service("update.prt.damaged1").c_str());
      Begin();
      Brief("copy '" + std::string(Copy) + "' log '" + Log + (Puts ? "' put" : "' rollback"),
            Puts ? Put(7) : RollBack());
      Tell(Target.Calls());
    }
}

TEST_F(TransactionLog, ACopyThatADeadProcessIsStillDeletingIsNotPutBack) {
  Plant("update.prt", "12"), Plant("update.prt.bkp", "1");
  constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, Moment = 150;
  const HANDLE Going = CreateFileA(Service("update.prt.bkp").c_str(), DELETE, ShareAll, nullptr, OPEN_EXISTING,
                                   FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  std::thread Closing([&] { Sleep(Moment), CloseHandle(Going); });
  EXPECT_EQ(S_OK, Put(7));
  Closing.join();
  EXPECT_EQ(size_t{3 * 36}, Read(Service("update.prt")).size());
}

TEST_F(TransactionLog, AnEntryThatCannotBeUndoneStaysUntilItCan) {
  for (const GUID& Id : {CLSID_UTransactionLog, Late}) {
    Write(Service("update.prt"), RecordOf(UndoClass, 1, NumberedGuid(1)) + RecordOf(CLSID_UCanRollback, 5, GUID{}) +
                                     RecordOf(Id, 5, GUID{}) + RecordOf(UndoClass, 2, NumberedGuid(2)));
    DeleteFileA(Service("update.prt.bkp").c_str());
    for (int Time = 0; Time < 2; ++Time) {
      if (Id == CLSID_UTransactionLog) TellError("stale");
      Brief("stuck", RollBack());
    }
  }
  Tell(Target.Calls());
  TUndoTarget Now(Late);
  Target.Answer = [] {
    TellError("The thing is in use, \xE4h.");
    return static_cast<HRESULT>(0x80040ABC);
  };
  Brief("a failure of the target's own", RollBack());
  Tell(Now.Calls() + Target.Calls());
  // It would wait for itself.
  Target.Answer = [this] { return Put(8) == E_UNEXPECTED && RollBack() == E_UNEXPECTED ? S_OK : E_FAIL; };
  Brief("called back from an undo", RollBack());
  Tell(Target.Calls());
  Brief("the lock is free again", Put(3));
}

// ---- An entry of the updater's own

std::string Messages;
LRESULT CALLBACK NoteMessage(HWND Window, UINT Message, WPARAM WParam, LPARAM LParam) {
  constexpr UINT RollbackMessage = 0x7EB;
  if (Message == RollbackMessage) Messages += std::to_string(WParam) + " " + std::to_string(LParam) + ", ";
  return DefWindowProcA(Window, Message, WParam, LParam);
}

TEST_F(TransactionLog, TheUpdatersEntryGoesToItsWindowOrToItsClass) {
  constexpr int Code = -3;
  const GUID Updater = Guid("{E39B3518-306A-4B3F-9095-5A3226FF60C9}");
  const WNDCLASSA Class{0, NoteMessage, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, "TMainForm"};
  RegisterClassA(&Class);
  const auto Window = [](const char* ClassName) {
    return CreateWindowA(ClassName, "Orvane Updater - Update progress", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr,
                         nullptr);
  };
  Transactions->Put(Updater, Code, NumberedGuid(4));
  Window("STATIC");
  EXPECT_EQ(REGDB_E_CLASSNOTREG, RollBack());
  TUndoTarget Object(Updater);
  const HWND Main = Window("TMainForm");
  EXPECT_EQ(S_OK, RollBack());
  // A negative code arrives as the signed number that it is, whatever the width of a message parameter.
  EXPECT_EQ(std::to_string(static_cast<WPARAM>(Code)) + " 0, ", Messages);
  EXPECT_EQ("undone ", Object.Calls());
  DestroyWindow(Main);
  Transactions->Put(Updater, Code, NumberedGuid(4));
  EXPECT_EQ(S_OK, RollBack());
  EXPECT_EQ("undone -3 4, ", Object.Calls());
}

// ---- The history

class HistoryGroups : public TStory {
 protected:
  const GUID Group = NumberedGuid(1), Other = NumberedGuid(2);
  HRESULT Get(const GUID& Id) {
    long Code = 99;
    GUID DataID = NumberedGuid(99);
    VARIANT_BOOL NoMore = 99, CheckPoint = 99;
    const HRESULT Result = History->Get(Id, &Code, &DataID, &NoMore, &CheckPoint);
    Tell("got " + std::to_string(Code) + " " + std::to_string(DataID.Data4[7]) + ", no more " + std::to_string(NoMore) +
         ", check point " + std::to_string(CheckPoint));
    return Result;
  }
};

TEST_F(HistoryGroups, GiveBackLastInFirstOut) {
  Step("put", History->Put(Group, 7, NumberedGuid(11)));
  Step("check point", History->PutCheckPoint(Group, NumberedGuid(12)));
  Brief("a code of 0 alone", History->Put(Group, 0, NumberedGuid(13)));
  Brief("another group", History->Put(Other, -5, NumberedGuid(14)));
  EXPECT_EQ(RecordOf(Group, 7, NumberedGuid(11)) + RecordOf(CLSID_UHistory, 0, NumberedGuid(12)) +
                RecordOf(Group, 0, NumberedGuid(13)),
            Read(Service("History\\" + GuidText(Group))));
  for (int Time = 0; Time < 4; ++Time) {
    Step("get", Get(Group));
    Step("delete", History->DeleteLastRecord(Group));
  }
  Brief("get", Get(Group));
  Brief("another group", Get(Other));
  // The first write makes the group's file anew from the copy.
  const TFault Fault("WriteFile", {1, 1, ERROR_DISK_FULL});
  Brief("put fails", History->Put(Other, 8, NumberedGuid(15)));
  Brief("get", Get(Other));
  Step("clear", History->ClearAll(Other));
  Brief("clear again", History->ClearAll(Other));
  Brief("a group of the class's own name", History->Put(CLSID_UHistory, 7, NumberedGuid(16)));
  Brief("is no check point", Get(CLSID_UHistory));
}

// ---- The backup store

class BackupStore : public TStory {
 protected:
  HRESULT RestoreString(const GUID& DataID) {
    TBstr Str;
    const HRESULT Result = Backup->RestoreString(DataID, Str.Out());
    Tell("restored " + testing::PrintToString(Take(Str)));
    return Result;
  }
  HRESULT RestoreData(const GUID& DataID) {
    void* Buffer = &Buffer;
    long Size = 0;
    const HRESULT Result = Backup->RestoreData(DataID, &Buffer, &Size);
    Tell("restored " + (Buffer ? std::to_string(Size) + " bytes" : "nothing"));
    if (Buffer) Restored.assign(static_cast<char*>(Buffer), static_cast<size_t>(Size));
    CoTaskMemFree(Buffer);
    return Result;
  }
  std::string Restored;
};

TEST_F(BackupStore, KeepsTextsAndBytes) {
  GUID Str{}, Data = NumberedGuid(77);
  for (const std::wstring& Value : {std::wstring(), std::wstring(L"\u00E4\u20ACa\u4E2Db\0c", 7)}) {
    Step("string", Backup->BackupString(Text(Value), &Str));
    Tell(testing::PrintToString(Read(ItemPath(Str))));
    for (int Time = 0; Time < 2; ++Time) Step("restored", RestoreString(Str));
  }
  for (std::string Bytes : {std::string(), std::string(100000, 'x') + '\0'}) {
    Step("data", Backup->BackupData(Bytes.data(), static_cast<long>(Bytes.size()), &Data));
    EXPECT_TRUE(std::string("\3\0\0\0", 4) + Bytes == Read(ItemPath(Data)));
    Step("restored", RestoreData(Data));
    EXPECT_TRUE(Bytes == Restored);
  }
  char Byte = 0;
  Brief("negative size", Backup->BackupData(&Byte, -1, &Data));
  Brief("no buffer", Backup->BackupData(nullptr, 1, &Data));
  Brief("string as data", RestoreData(Str));
  Brief("data as string", RestoreString(Data));
}

TEST_F(BackupStore, KeepsFilesAsTheFlagsSay) {
  Put("a.txt", "a", FILE_ATTRIBUTE_READONLY);
  Put("b.bin", "not saved");
  Put("sub\\c.txt", "", FILE_ATTRIBUTE_HIDDEN);
  Put("sub\\deep.er\\d.txt", std::string(70000, 'd'), FILE_ATTRIBUTE_SYSTEM);
  MakeFolders(App("void"));
  const TTree All = TreeOf(App());
  GUID DataID{};
  for (const std::string Flags : {"", "DU", "R", "RU", "RD", "RDU"}) {
    Plant(App(), All);
    Begin();
    Brief("flags " + Flags,
          Backup->BackupFilesLogged(Text(App("*.txt")), Is(Flags, 'R'), Is(Flags, 'D'), Is(Flags, 'U'), &DataID));
    RemoveTree(App());
    if (Flags == "RD") Write(App("a.txt"), "changed since");
    UndoAll();
    const HRESULT Restored = Backup->RestoreFiles(DataID);
    Flags == "RDU" ? Step("again", Restored) : Brief("again", Restored);
  }
  const std::string Name = "C:\\mendwork-root-test";
  Write(Name, "");
  Begin();
  Step("a drive's root", Backup->BackupFiles(Text(Name + "*"), 0, 0, -1, &DataID));
  EXPECT_TRUE(DeleteFileA(Name.c_str()));
  Step("nothing", Backup->BackupFiles(Text(App("missing\\*.*")), -1, -1, 0, &DataID));
  Brief("which folder would that be", Backup->BackupFiles(Text("*.txt"), 0, 0, 0, &DataID));
}

TEST_F(BackupStore, KeepsValuesAndKeys) {
  StoreValue(Wide(L"Key"), L"n\x00E4me", REG_BINARY, "\xFF\x01");
  StoreValue(Wide(L"Key"), L"", REG_SZ, WideBytes({L"d\x20AC\0", 3}));
  StoreValue(Wide(L"Key\\Sub\\Deep"), L"empty", REG_DWORD, "");
  Begin();
  GUID Value{}, All{}, Alone{};
  Step("value", Backup->BackupRegKeyValueLogged(User, Text(Key("Key")), Text("n\xE4me"), &Value));
  Step("key", Backup->BackupRegKeyLogged(User, Text(Key("Key")), VARIANT_TRUE, &All));
  Brief("key without subkeys", Backup->BackupRegKey(User, Text(Key("Key")), VARIANT_FALSE, &Alone));
  DeleteKeyTree(Wide(L"Key"));
  Step("without subkeys", Backup->RestoreRegKey(Alone));
  StoreValue(Wide(L"Key"), L"", REG_DWORD, "9999");
  StoreValue(Wide(L"Key\\Added"), L"", REG_DWORD, "9999");
  Begin();
  Step("merged", Backup->RestoreRegKey(All));
  Brief("again", Backup->RestoreRegKey(All));
  Brief("value", Backup->RestoreRegKeyValue(Value));
  DeleteKeyTree(Wide(L"Key"));
  UndoAll();
  Brief("no such value", Backup->BackupRegKeyValue(User, Text(Key("Key")), Text("none"), &Value));
}

TEST_F(BackupStore, RefusesDamagedItemsAndChangesNothing) {
  Put("app.dll", "precious", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  Begin();
  const auto Part = [&](const auto& Fields) { return BytesOf(Stored(EncodeItem(Fields))); };
  const auto SetOf = [&](const TGuidBytes& Id) { return Stored(EncodeItem(TFileSetItem{{Id}, {}, {}})); };
  const std::string Beyond(1, '\0'), CutShort("\0.bak", 5);
  const TSingleFileItem Single{App("app.dll"), FILE_ATTRIBUTE_NORMAL, 0, 0, 0},
      OtherPath{App("app.dll") + CutShort, FILE_ATTRIBUTE_NORMAL, 0, 0, 0};
  const TRegistryValueItem Value{User, Key("Key"), "Name", REG_BINARY, {'d'}},
      OtherName{User, Key("Key"), "Name" + CutShort, REG_BINARY, {'d'}};
  const TGuidBytes Good = Part(Value), Damaged = BytesOf(Stored(EncodeItem(Value) + Beyond));
  const TRegistryKeyItem Saved{User, Key("Key"), {Good}, {}}, OtherRoot{1, Key("Key"), {}, {}},
      Sub{User, Key("Sub"), {Damaged}, {}}, Outer{User, Key("Key"), {Good}, {Part(Sub)}};
  // Each as everything but what it is; the last ones are damaged in their last part only.
  for (const std::string& Content :
       {std::string(), EncodeItem(Single).substr(0, 4), EncodeItem(OtherPath), EncodeItem(Value) + Beyond,
        EncodeItem(OtherName), EncodeItem(TFileSetItem{}).substr(0, 15), EncodeItem(TFileSetItem{}) + Beyond,
        EncodeItem(Saved) + Beyond, EncodeItem(OtherRoot), EncodeItem(Outer)}) {
    const GUID Id = Stored(Content);
    Brief("file", Backup->RestoreFiles(SetOf(BytesOf(Id))));
    Brief("set", Backup->RestoreFiles(Id));
    Brief("value", Backup->RestoreRegKeyValue(Id));
    Brief("key", Backup->RestoreRegKey(Id));
  }
  Brief("value as key", Backup->RestoreRegKey(GuidOf(Good)));
  Brief("key as value", Backup->RestoreRegKeyValue(GuidOf(Part(Saved))));
  // Items that contain themselves; the same one twice, side by side, is no circle.
  const GUID Circle = NumberedGuid(1001), Ring = NumberedGuid(1002);
  Write(ItemPath(Circle), EncodeItem(TFileSetItem{{}, {}, {BytesOf(Circle)}}));
  Write(ItemPath(Ring), EncodeItem(TRegistryKeyItem{User, Key("Key"), {}, {BytesOf(Ring)}}));
  Log().LinesLeft = 500;  // who follows it for ever ends here
  Brief("set in itself", Backup->RestoreFiles(Circle));
  Brief("key in itself", Backup->RestoreRegKey(Ring));
  Log().LinesLeft = -1;
  const TGuidBytes Empty = Part(TFileSetItem{});
  Brief("set twice", Backup->RestoreFiles(GuidOf(Part(TFileSetItem{{}, {}, {Empty, Empty}}))));
  Brief("good key", Backup->RestoreRegKey(GuidOf(Part(Saved))));
  Brief("good file", Backup->RestoreFiles(SetOf(Part(Single))));
}

class Undo : public TStory {};

TEST_F(Undo, LooksAtTheCodesAndItemsOfItsClassOnly) {
  IUCanRollback* const Objects[] = {File.Get(), Registry.Get(), Com.Get(), Backup.Get()};
  GUID Path{};
  Backup->BackupString(Text(App("other")), &Path);
  for (IUCanRollback* const Object : Objects)
    for (const long Code : {-1, 0, 1, 2, 3, 4, 5, 0x7FFFFFFF}) {
      Put("other", "other", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
      Begin();
      Brief("code " + std::to_string(Code) + ", text", Object->Rollback(Code, Path));
      Brief("again", Object->Rollback(Code, Path));
      Brief("no item", Object->Rollback(Code, NumberedGuid(1)));
    }
}

}  // namespace
