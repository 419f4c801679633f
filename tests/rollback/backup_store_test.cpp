#include "rollback/backup_sandbox.h"

namespace {

std::string Bytes(const void* Data, size_t Size) { return std::string(static_cast<const char*>(Data), Size); }

/// An item's beginnings of some lengths, behind other items.
std::vector<std::string> WithCuts(std::vector<std::string> Others, const std::string& Whole) {
  for (const size_t Size : {size_t{0}, size_t{3}, size_t{4}, Whole.size() - 1}) Others.push_back(Whole.substr(0, Size));
  return Others;
}

class BackupStore : public TBackupSandbox {
 protected:
  GUID SaveString(const std::wstring& Str) {
    GUID DataID{};
    EXPECT_EQ(S_OK, Backup->BackupString(Text(Str), &DataID));
    return DataID;
  }
  GUID SaveData(std::string Data) {
    GUID DataID{};
    EXPECT_EQ(S_OK, Backup->BackupData(Data.data(), static_cast<long>(Data.size()), &DataID));
    return DataID;
  }
  HRESULT RestoreString(const GUID& DataID) {
    TBstr Str;
    const HRESULT Result = Backup->RestoreString(DataID, Str.Out());
    Restored = Take(Str);
    return Result;
  }
  HRESULT RestoreData(const GUID& DataID) {
    void* Buffer = &Buffer;
    long Size = 0;
    const HRESULT Result = Backup->RestoreData(DataID, &Buffer, &Size);
    EXPECT_EQ(SUCCEEDED(Result), Buffer != nullptr);
    const TTaskMemory Memory(Buffer);
    Restored = Buffer ? Bytes(Buffer, static_cast<size_t>(Size)) : "";
    return Result;
  }
  HRESULT RestoreSet(const TFileSetItem& Set) { return Backup->RestoreFiles(Stored(EncodeItem(Set))); }

  /// The call showed this message once, in a box without a choice, and failed with it.
  void ExpectRefusal(HRESULT Result, const std::string& Message) {
    EXPECT_EQ(static_cast<HRESULT>(0x800403FF), Result);
    EXPECT_EQ(Message, ErrorText());
    EXPECT_EQ((std::vector{TScriptedDialog::TBox{Message, "Error", 16}}), Dialog().Boxes);
    EXPECT_EQ("Exception -2147220993 " + Message, Log().Texts("Common").back());
    Dialog().Boxes.clear();
  }

  std::string Restored;
};

TEST_F(BackupStore, KeepsStringsInTheCodePage) {
  const std::pair<std::wstring, std::string> Rows[] = {{L"", ""},
                                                       {L"C:\\App", "C:\\App"},
                                                       {L"\u00E4\u20AC", "\xE4\x80"},
                                                       {L"a\u4E2Db", "a?b"},
                                                       {{L"a\0b", 3}, {"a\0b", 3}}};
  for (const auto& [Str, Ansi] : Rows) {
    const GUID DataID = SaveString(Str);
    EXPECT_EQ(std::string("\1\0\0\0", 4) + Ansi, Item(DataID));
    for (int Time = 0; Time < 2; ++Time) {
      EXPECT_EQ(S_OK, RestoreString(DataID));
      EXPECT_EQ(Ansi, Restored);
    }
  }
}

TEST_F(BackupStore, KeepsRawData) {
  for (const std::string& Data : {std::string(), std::string("\0\xFF\r\n", 4), std::string(100000, 'x')}) {
    const GUID DataID = SaveData(Data);
    EXPECT_EQ(std::string("\3\0\0\0", 4) + Data, Item(DataID));
    EXPECT_EQ(S_OK, RestoreData(DataID));
    EXPECT_EQ(Data, Restored);
  }
  GUID DataID = NumberedGuid(77);
  char Byte = 0;
  EXPECT_EQ(E_INVALIDARG, Backup->BackupData(&Byte, -1, &DataID));
  EXPECT_EQ(E_INVALIDARG, Backup->BackupData(nullptr, 1, &DataID));
  EXPECT_EQ(GuidText(NumberedGuid(77)), GuidText(DataID));
}

TEST_F(BackupStore, ItemsOfAnotherKindAreRefused) {
  const GUID Str = SaveString(L"C:\\x"), Data = SaveData("data");
  ExpectRefusal(RestoreString(Data), "Internal error #1.");
  ExpectRefusal(RestoreData(Str), "Internal error #2.");
  ExpectRefusal(Backup->RestoreFiles(Data), "Internal error #6.");
  constexpr long Files = 4;
  ExpectRefusal(Backup->Rollback(Files, Str), "Internal error #6.");
  ExpectRefusal(RestoreSet({{BytesOf(Str)}, {}, {}}), "Internal error #4.");
  ExpectRefusal(RestoreSet({{}, {BytesOf(Data)}, {}}), "Internal error #1.");
  ExpectRefusal(RestoreSet({{}, {}, {BytesOf(Str)}}), "Internal error #6.");
  ExpectRefusal(Backup->RestoreRegKeyValue(Data), "Internal error #3.");
  ExpectRefusal(Backup->RestoreRegKey(Str), "Internal error #4.");
  EXPECT_TRUE(DeleteFileA(ItemPath(Data).c_str())) << "a refused item is closed again";
}

TEST_F(BackupStore, DamagedItemsAreRefusedAndChangeNothing) {
  Write(App("app.dll"), "precious", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  const TTree FilesBefore = TreeOf(App());
  const std::string Beyond(1, '\0'), CutShort("\0.bak", 5);
  constexpr uint64_t Time = 0x01C0000000000000;

  const TSingleFileItem File{App("app.dll"), FILE_ATTRIBUTE_NORMAL, Time, Time, Time};
  const TSingleFileItem OtherFlags{App("app.dll"), FILE_FLAG_DELETE_ON_CLOSE, Time, Time, Time};
  const TSingleFileItem OtherPath{App("app.dll") + CutShort, FILE_ATTRIBUTE_NORMAL, Time, Time, Time};
  for (const std::string& Content : WithCuts({EncodeItem(OtherFlags), EncodeItem(OtherPath)}, EncodeItem(File)))
    ExpectRefusal(RestoreSet({{BytesOf(Stored(Content))}, {}, {}}), "Internal error #4.");
  const TFileSetItem Set{{Part(File)}, {}, {}};
  for (const std::string& Content : WithCuts({EncodeItem(Set) + Beyond}, EncodeItem(Set)))
    ExpectRefusal(Backup->RestoreFiles(Stored(Content)), "Internal error #6.");

  const TRegistryValueItem Value{User, Key("Key"), "Name", REG_BINARY, {'d'}};
  const TRegistryValueItem OtherName{User, Key("Key"), "Name" + CutShort, REG_BINARY, {'d'}};
  for (const std::string& Content : WithCuts({EncodeItem(OtherName), EncodeItem(Value) + Beyond}, EncodeItem(Value)))
    ExpectRefusal(Backup->RestoreRegKeyValue(Stored(Content)), "Internal error #3.");
  const TRegistryKeyItem Saved{User, Key("Key"), {Part(Value)}, {}}, OtherRoot{1, Key("Key"), {Part(Value)}, {}};
  for (const std::string& Content : WithCuts({EncodeItem(OtherRoot), EncodeItem(Saved) + Beyond}, EncodeItem(Saved)))
    ExpectRefusal(Backup->RestoreRegKey(Stored(Content)), "Internal error #4.");
  // Of a key whose last part is damaged, nothing is written.
  const TGuidBytes Damaged = BytesOf(Stored(EncodeItem(Value) + Beyond));
  const TRegistryKeyItem Outer{
      User, Key("Key"), {Part(Value)}, {Part(TRegistryKeyItem{User, Key("Sub"), {Damaged}, {}})}};
  ExpectRefusal(Backup->RestoreRegKey(GuidOf(Part(Outer))), "Internal error #3.");

  EXPECT_EQ("", Difference(FilesBefore, TreeOf(App())));
  EXPECT_TRUE(Tree().empty());
  EXPECT_EQ(S_OK, Backup->RestoreRegKey(GuidOf(Part(Saved)))) << "only the damage was refused";
  EXPECT_EQ(S_OK, RestoreSet(Set));
}

TEST_F(BackupStore, AnItemThatContainsItselfEndsInAFailure) {
  const GUID Inner = NumberedGuid(1001), Outer = NumberedGuid(1002);
  Write(ItemPath(Inner), EncodeItem(TFileSetItem{{}, {}, {BytesOf(Outer)}}));
  Write(ItemPath(Outer), EncodeItem(TFileSetItem{{}, {}, {BytesOf(Inner)}}));
  ExpectRefusal(Backup->RestoreFiles(Outer), "Internal error #6.");
  // The same set twice, one beside the other, is no circle.
  const TGuidBytes Empty = Part(TFileSetItem{});
  EXPECT_EQ(S_OK, RestoreSet({{}, {}, {Empty, Empty}}));

  Write(ItemPath(Inner), EncodeItem(TRegistryKeyItem{User, Key("Key\\Sub"), {}, {BytesOf(Outer)}}));
  Write(ItemPath(Outer), EncodeItem(TRegistryKeyItem{User, Key("Key"), {}, {BytesOf(Inner)}}));
  ExpectRefusal(Backup->RestoreRegKey(Outer), "Internal error #4.");
  EXPECT_TRUE(Tree().empty());
}

}  // namespace
