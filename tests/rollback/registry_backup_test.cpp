#include "support/program.h"
#include "support/registry_tree.h"

#include <algorithm>
#include <cstring>

namespace {

class RegistryBackup : public TRegistrySandbox {
 protected:
  GUID SaveValue(const std::string& KeyName, const std::string& Name) {
    GUID DataID{};
    EXPECT_EQ(S_OK, Backup->BackupRegKeyValue(User, Text(Key(KeyName)), Text(Name), &DataID)) << ErrorText();
    return DataID;
  }
  GUID SaveKey(const std::string& KeyName, VARIANT_BOOL Recurse = VARIANT_TRUE) {
    GUID DataID{};
    EXPECT_EQ(S_OK, Backup->BackupRegKey(User, Text(Key(KeyName)), Recurse, &DataID)) << ErrorText();
    return DataID;
  }
  std::string ItemPath(const GUID& DataID) const { return Service("Backup\\" + GuidText(DataID)); }
  std::string Item(const GUID& DataID) const { return Read(ItemPath(DataID)); }
  /// A handmade item.
  GUID Put(const std::string& Bytes) {
    const GUID DataID = NumberedGuid(++Handmade);
    Write(ItemPath(DataID), Bytes);
    return DataID;
  }

  TComRef<IUBackup> Backup = Make<IUBackup>(CLSID_UBackup);
  int Handmade = 0;
};

std::string Number(size_t Value) {
  std::string Bytes;
  for (int At = 0; At < 4; ++At) Bytes += static_cast<char>(Value >> 8 * At);
  return Bytes;
}
std::string Counted(const std::string& Text) { return Number(Text.size()) + Text; }
std::string Bytes(const GUID& Guid) { return std::string(reinterpret_cast<const char*>(&Guid), sizeof Guid); }

/// The beginning of an item: kind, root, key path.
std::string Place(int Kind, const std::string& KeyName) {
  return Number(Kind) + Number(0x80000001) + Counted(RegistryBackup::Key(KeyName));
}
std::string ValueItem(const std::string& KeyName, const std::string& Name, DWORD Type, const std::string& Data) {
  return Place(2, KeyName) + Counted(Name) + Number(Type) + Counted(Data);
}
std::string KeyItem(const std::string& KeyName, const std::string& Values, const std::string& Subkeys) {
  return Place(3, KeyName) + Number(Values.size() / 16) + Values + Number(Subkeys.size() / 16) + Subkeys;
}

// ---- Items

TEST_F(RegistryBackup, AValueItemHoldsPlaceTypeAndData) {
  StoreValue(Wide(L"Key"), L"n\x00E4me", REG_BINARY, "\xFF\x01");
  StoreValue(Wide(L"Key"), L"", REG_SZ, WideBytes({L"d\x20AC\0", 3}));
  StoreValue(Wide(L"Key"), L"empty", REG_DWORD, "");
  EXPECT_EQ(ValueItem("Key", "n\xE4me", 3, "\xFF\x01"), Item(SaveValue("Key", "n\xE4me")));
  EXPECT_EQ(ValueItem("Key", "", 1, {"d\x80\0", 3}), Item(SaveValue("Key", "")));
  EXPECT_EQ(ValueItem("Key", "empty", 4, ""), Item(SaveValue("Key", "empty")));
}

/// The names of a key's values and subkeys, by index.
std::pair<std::vector<std::string>, std::vector<std::string>> PartsOf(const std::string& KeyName) {
  std::pair<std::vector<std::string>, std::vector<std::string>> Result;
  TRegistryKey Key;
  RegOpenKeyExA(HKEY_CURRENT_USER, KeyName.c_str(), 0, KEY_READ, Key.Out());
  char Name[64];
  DWORD Size = sizeof Name;
  for (DWORD At = 0; !RegEnumValueA(Key.Get(), At, Name, &Size, nullptr, nullptr, nullptr, nullptr); Size = sizeof Name)
    Result.first.push_back(Name), ++At;
  for (DWORD At = 0; !RegEnumKeyA(Key.Get(), At, Name, sizeof Name); ++At) Result.second.push_back(Name);
  return Result;
}

TEST_F(RegistryBackup, AKeyItemListsItsPartsFromTheLastIndexToTheFirst) {
  for (const wchar_t* Name : {L"one", L"two", L"three"}) {
    StoreValue(Wide(L"Key"), Name, REG_DWORD, "1234");
    StoreValue(Wide(L"Key\\of " + std::wstring(Name)), L"", REG_NONE, "");
  }
  auto [Values, Subkeys] = PartsOf(Key("Key"));
  std::reverse(Values.begin(), Values.end());
  std::reverse(Subkeys.begin(), Subkeys.end());

  const GUID DataID = SaveKey("Key");
  const std::string Saved = Item(DataID);
  const size_t List = Place(3, "Key").size() + 4;
  ASSERT_EQ(List + 3 * 16 + 4 + 3 * 16, Saved.size());
  const auto PartAt = [&](size_t Index) {
    GUID Part;
    std::memcpy(&Part, Saved.data() + List + Index / 3 * 4 + Index * 16, sizeof Part);
    return Part;
  };
  std::string ValueIds, SubkeyIds;
  for (size_t At = 0; At < 3; ++At) {
    EXPECT_EQ(ValueItem("Key", Values[At], REG_DWORD, "1234"), Item(PartAt(At)));
    EXPECT_EQ(Place(3, "Key\\" + Subkeys[At]), Item(PartAt(3 + At)).substr(0, Place(3, "Key\\" + Subkeys[At]).size()));
    ValueIds += Bytes(PartAt(At)), SubkeyIds += Bytes(PartAt(3 + At));
  }
  EXPECT_EQ(KeyItem("Key", ValueIds, SubkeyIds), Saved);

  // Written back in that order too, the values before the subkeys.
  Log().Lines.clear();
  ASSERT_EQ(S_OK, Backup->RestoreRegKey(DataID));
  std::vector<std::string> Ends = Log().Texts("UBackup"), Expected;
  std::erase_if(Ends, [](const std::string& Line) { return Line[0] != 'E'; });
  const std::string Root = " 2147483649 " + Key("Key");
  for (const std::string& Name : Values) Expected.push_back("End RestoreRegKeyValue" + Root + " " + Name);
  for (const std::string& Name : Subkeys) {
    Expected.push_back("End RestoreRegKeyValue" + Root + "\\" + Name + " ");
    Expected.push_back("End RestoreRegKey" + Root + "\\" + Name);
  }
  Expected.push_back("End RestoreRegKey" + Root);
  EXPECT_EQ(Expected, Ends);
}

TEST_F(RegistryBackup, AnEmptyKeyIsSavedAndMadeAnew) {
  RegCreateKeyA(HKEY_CURRENT_USER, Key("Key").c_str(), TRegistryKey().Out());
  const TRegistryTree Before = Tree();
  const GUID DataID = SaveKey("Key");
  EXPECT_EQ(KeyItem("Key", "", ""), Item(DataID));
  DeleteKeyTree(Wide(L"Key"));
  ASSERT_EQ(S_OK, Backup->RestoreRegKey(DataID));
  EXPECT_EQ("", Difference(Before, Tree()));
}

TEST_F(RegistryBackup, WithoutRecursionSubkeysAreNotSaved) {
  StoreValue(Wide(L"Key"), L"Name", REG_DWORD, "1234");
  StoreValue(Wide(L"Key\\Sub"), L"", REG_DWORD, "5678");
  const GUID DataID = SaveKey("Key", VARIANT_FALSE);
  EXPECT_EQ(Number(0), Item(DataID).substr(Item(DataID).size() - 4));
  DeleteKeyTree(Wide(L"Key"));
  ASSERT_EQ(S_OK, Backup->RestoreRegKey(DataID));
  EXPECT_EQ((TRegistryTree{{L"", {}}, {L"Key\\", {}}, {L"Key\\Name", {REG_DWORD, "1234"}}}), Tree());
}

TEST_F(RegistryBackup, RestoringMergesAndMayBeRepeated) {
  StoreValue(Wide(L"Key"), L"Name", REG_DWORD, "1234");
  const GUID DataID = SaveKey("Key");
  StoreValue(Wide(L"Key"), L"Name", REG_SZ, WideBytes({L"changed\0", 8}));
  StoreValue(Wide(L"Key"), L"Added", REG_DWORD, "9999");
  StoreValue(Wide(L"Key\\Added"), L"", REG_DWORD, "9999");
  TRegistryTree Expected = Tree();
  Expected[L"Key\\Name"] = {REG_DWORD, "1234"};
  for (int Times = 0; Times < 2; ++Times) {
    ASSERT_EQ(S_OK, Backup->RestoreRegKey(DataID));
    EXPECT_EQ("", Difference(Expected, Tree()));
  }
}

TEST_F(RegistryBackup, ARollbackWritesWhatALoggedBackupSaved) {
  StoreValue(Wide(L"Key"), L"Name", REG_DWORD, "1234");
  StoreValue(Wide(L"Key"), L"", REG_QWORD, "12345678");
  StoreValue(Wide(L"Key\\Sub"), L"Low", REG_BINARY, "bytes");
  const TRegistryTree Before = Tree();
  GUID ValueId, KeyId;
  Log().Lines.clear();
  ASSERT_EQ(S_OK, Backup->BackupRegKeyValueLogged(User, Text(Key("Key")), Text("Name"), &ValueId));
  ASSERT_EQ(S_OK, Backup->BackupRegKeyLogged(User, Text(Key("Key\\Sub")), VARIANT_TRUE, &KeyId));
  const std::string OfUBackup = Bytes(CLSID_UBackup);
  EXPECT_EQ(OfUBackup + Number(2) + Bytes(ValueId) + OfUBackup + Number(3) + Bytes(KeyId), Read(Service("update.prt")));

  const std::string Value = "2147483649 " + Key("Key") + " Name", SubKey = "2147483649 " + Key("Key\\Sub");
  const std::vector<std::string> Lines = Log().Texts("UBackup");
  ASSERT_EQ(10u, Lines.size());
  EXPECT_EQ("Begin BackupRegKeyValueLogged " + Value, Lines[0]);
  EXPECT_EQ("Begin BackupRegKeyValue " + Value, Lines[1]);
  EXPECT_EQ("End BackupRegKeyValue " + GuidText(ValueId), Lines[2]);
  EXPECT_EQ("End BackupRegKeyValueLogged " + GuidText(ValueId), Lines[3]);
  EXPECT_EQ("Begin BackupRegKeyLogged " + SubKey + " -1", Lines[4]);
  EXPECT_EQ("Begin BackupRegKey " + SubKey + " -1", Lines[5]);
  EXPECT_EQ("End BackupRegKey " + GuidText(KeyId), Lines[8]);
  EXPECT_EQ("End BackupRegKeyLogged " + GuidText(KeyId), Lines[9]);

  StoreValue(Wide(L"Key"), L"Name", REG_SZ, WideBytes({L"changed\0", 8}));
  DeleteKeyTree(Wide(L"Key\\Sub"));
  ASSERT_EQ(S_OK, RollbackAll()) << ErrorText();
  EXPECT_EQ("", Difference(Before, Tree()));
}

// ---- Items that cannot be

/// What becomes of every item that is not as it was written.
template <class TRestore>
void ExpectRefused(const std::vector<std::string>& Items, const char* Message, TScriptedDialog& Dialog,
                   TRestore Restore) {
  constexpr HRESULT WrongKind = static_cast<HRESULT>(0x800403FF);
  const TRegistryTree Before = RegistryBackup::Tree();
  for (const std::string& Item : Items) {
    SCOPED_TRACE(testing::PrintToString(Item));
    Dialog.Boxes.clear();
    EXPECT_EQ(WrongKind, Restore(Item));
    EXPECT_EQ(Message, ErrorText());
    EXPECT_EQ((std::vector<TScriptedDialog::TBox>{{Message, "Error", 16}}), Dialog.Boxes);
  }
  EXPECT_EQ("", Difference(Before, RegistryBackup::Tree()));
}

/// Every beginning of an item, and the item with its tag, root, path length or trailing bytes changed.
std::vector<std::string> Damaged(const std::string& Item) {
  std::vector<std::string> Result = {Item + '\0'};
  for (size_t Length = 0; Length < Item.size(); ++Length) Result.push_back(Item.substr(0, Length));
  const std::pair<size_t, size_t> Changes[] = {{0, 1},          {0, 0x01000003},      {4, 0},
                                               {4, 0x7FFFFFFF}, {4, 0x80000006},      {8, 0xFFFFFFFF},
                                               {8, 0x7FFFFFFF}, {8, Item.size() - 11}};
  for (const auto& [At, NewNumber] : Changes) Result.push_back(std::string(Item).replace(At, 4, Number(NewNumber)));
  Result.push_back(std::string(Item).replace(12 + 8, 1, 1, '\0'));  // a shorter key path: "Software"
  return Result;
}

TEST_F(RegistryBackup, NothingIsRestoredFromADamagedValueItem) {
  const std::string Good = ValueItem("Key", "Name", REG_BINARY, "data");
  std::vector<std::string> Items = Damaged(Good);
  const size_t NameAt = Place(2, "Key").size();
  Items.push_back(std::string(Good).replace(NameAt, 4, Number(0xFFFFFFF0)));
  Items.push_back(std::string(Good).replace(NameAt + 4 + 2, 1, 1, '\0'));
  Items.push_back(std::string(Good).replace(Good.size() - 8, 4, Number(0xFFFFFFFF)));
  Items.push_back(std::string(Good).replace(Good.size() - 8, 4, Number(3)));
  Items.push_back(KeyItem("Key", "", ""));
  const auto Restore = [&](const std::string& Item) { return Backup->RestoreRegKeyValue(Put(Item)); };
  ExpectRefused(Items, "Internal error #3.", Dialog(), Restore);
  EXPECT_EQ("Exception -2147220993 Internal error #3.", Log().Texts("Common").back());
  EXPECT_EQ(S_OK, Restore(Good)) << "only the damage was refused";
}

TEST_F(RegistryBackup, NothingIsRestoredFromADamagedKeyItem) {
  const std::string Value = Bytes(Put(ValueItem("Key", "Name", REG_BINARY, "data")));
  const std::string Good = KeyItem("Key", Value, Bytes(Put(KeyItem("Key\\Sub", "", ""))));
  std::vector<std::string> Items = Damaged(Good);
  const size_t ValuesAt = Place(3, "Key").size(), SubkeysAt = ValuesAt + 4 + 16;
  for (size_t Count : {0u, 2u, 3u, 0x10000001u, 0xFFFFFFFFu}) {
    Items.push_back(std::string(Good).replace(ValuesAt, 4, Number(Count)));
    Items.push_back(std::string(Good).replace(SubkeysAt, 4, Number(Count)));
  }
  Items.push_back(ValueItem("Key", "Name", REG_BINARY, "data"));
  const auto Restore = [&](const std::string& Item) { return Backup->RestoreRegKey(Put(Item)); };
  ExpectRefused(Items, "Internal error #4.", Dialog(), Restore);
  EXPECT_EQ(S_OK, Restore(Good)) << "only the damage was refused";
}

TEST_F(RegistryBackup, AKeyItemInsideItselfEndsInAFailure) {
  const GUID Outer = NumberedGuid(901), Inner = NumberedGuid(902);
  Write(ItemPath(Outer), KeyItem("Key", "", Bytes(Inner)));
  Write(ItemPath(Inner), KeyItem("Key\\Sub", "", Bytes(Outer)));
  ExpectRefused({Item(Outer)}, "Internal error #4.", Dialog(), [&](auto&) { return Backup->RestoreRegKey(Outer); });
}

TEST_F(RegistryBackup, ADamagedPartOfAKeyLeavesTheWholeKeyAsItIs) {
  const std::string Good = Bytes(Put(ValueItem("Key", "Name", REG_BINARY, "data")));
  const std::string Damaged = Bytes(Put(ValueItem("Key\\Sub", "Name", REG_BINARY, "data") + "?"));
  const std::string Outer = KeyItem("Key", Good, Bytes(Put(KeyItem("Key\\Sub", Damaged, ""))));
  ExpectRefused({Outer}, "Internal error #3.", Dialog(), [&](auto& Item) { return Backup->RestoreRegKey(Put(Item)); });
}

// ---- What cannot be saved

/// A key holds this beside what is well.
struct TLost {
  const char* Name;
  std::wstring Subkey, ValueName;
  DWORD Type;
  std::string Data;
  std::string Message;
};

class LostInTheCodePage : public RegistryBackup, public testing::WithParamInterface<TLost> {};

TEST_P(LostInTheCodePage, IsNotSavedAndSoNotDeleted) {
  StoreValue(Wide(L"Key"), L"Name", REG_SZ, WideBytes({L"\x20AC\0", 2}));
  StoreValue(Wide(L"Key") + GetParam().Subkey, GetParam().ValueName, GetParam().Type, GetParam().Data);
  const TRegistryTree Before = Tree();
  constexpr HRESULT NotInTheCodePage = static_cast<HRESULT>(0x80040200 + ERROR_NO_UNICODE_TRANSLATION);
  EXPECT_EQ(NotInTheCodePage, Make<IURegistry>(CLSID_URegistry)->DeleteRegKeyLogged(User, Text(Key("Key"))));
  EXPECT_EQ(GetParam().Message + " of the registry key 'HKEY_CURRENT_USER\\" + Key("Key") +
                "' cannot be saved: the system's code page does not hold it.",
            ErrorText());
  EXPECT_EQ("", Difference(Before, Tree()));
  EXPECT_FALSE(Exists(Service("update.prt")));
}

INSTANTIATE_TEST_SUITE_P(
    Registry, LostInTheCodePage,
    testing::Values(TLost{"text", L"", L"Lost", REG_EXPAND_SZ, WideBytes(L"a\x0416"), "The value 'Lost'"},
                    TLost{"best_fit", L"", L"Lost", REG_MULTI_SZ, WideBytes(L"\x0113"), "The value 'Lost'"},
                    TLost{"half_a_character", L"", L"Lost", REG_SZ, "odd", "The value 'Lost'"},
                    TLost{"value_name", L"", L"Lost\x0416", REG_DWORD, "1234", "The name 'Lost?'"},
                    TLost{"key_name", L"\\Lost\x0416", L"", REG_DWORD, "1234", "The name 'Lost?'"}),
    [](const auto& Info) { return std::string(Info.param.Name); });

// ---- What comes back

/// One key with a value of every type that the registry knows and one that it does not, well formed and not.
void FillWithEveryType(const std::wstring& KeyName) {
  const std::string Bytes("\0\x01\x80\xFF\r\n", 6);
  for (DWORD Type = REG_NONE; Type <= REG_QWORD; ++Type) {
    const std::wstring Name = L"type " + std::to_wstring(Type);
    StoreValue(KeyName, Name, Type, WideBytes({L"text\0", 5}));
    StoreValue(KeyName, Name + L" empty", Type, "");
  }
  StoreValue(KeyName, L"bytes", REG_BINARY, Bytes);
  StoreValue(KeyName, L"of a program's own type", 0x12345678, Bytes);
  StoreValue(KeyName, L"odd link", REG_LINK, "odd");
  StoreValue(KeyName, L"list", REG_MULTI_SZ, WideBytes({L"one\0two\0\0", 9}));
  StoreValue(KeyName, L"list ends early", REG_MULTI_SZ, WideBytes({L"one\0two\0", 8}));
  for (DWORD Type : {REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ}) {
    const std::wstring Name = L"type " + std::to_wstring(Type);
    StoreValue(KeyName, Name + L" without terminator", Type, WideBytes(L"%PATH%"));
    StoreValue(KeyName, Name + L" with two", Type, WideBytes({L"a\0\0", 3}));
    StoreValue(KeyName, Name + L" goes on", Type, WideBytes({L"a\0b\0c", 5}));
    StoreValue(KeyName, Name + L" high", Type, WideBytes({L"\x00E4\x00F6\x00FC\x00DF\x20AC\x2122\0", 7}));
  }
}

TEST_F(RegistryBackup, ADeletedTreeComesBackAsItWas) {
  // The user's whole hive, as the system's own program writes it.
  const auto Exported = [this] {
    const std::string Name = App("hive.reg");
    EXPECT_EQ(0u, RunSystemProgram("reg.exe", "export HKCU \"" + Name + "\" /y").Status);
    return Read(Name);
  };
  const std::wstring Top = Wide(L"Tree");
  FillWithEveryType(Top);
  StoreValue(Top, L"", REG_SZ, WideBytes({L"the default value\0", 18}));
  StoreValue(Top, L" blanks  around ", REG_DWORD, "1234");
  StoreValue(Top, L"back\\slash=\"quote\",\r\n", REG_DWORD, "1234");
  StoreValue(Top, L"\x00E4\x00F6\x00FC\x00DF\x20AC", REG_QWORD, "12345678");
  StoreValue(Top, std::wstring(16383, L'n'), REG_BINARY, "long");
  StoreValue(Top, L"big", REG_BINARY, std::string(1 << 20, '\x5A'));
  StoreValue(Top, L"big text", REG_SZ, WideBytes(std::wstring(1 << 20, L'\x20AC')));
  StoreValue(Top + L"\\\x00DC b e r \x20AC", L"in it", REG_SZ, "");
  StoreValue(Top + L"\\" + std::wstring(200, L'k'), L"", REG_NONE, "");
  std::wstring Deep = Top;
  for (int Level = 1; Level <= 12; ++Level) Deep += L"\\Level" + std::to_wstring(Level);
  FillWithEveryType(Deep);

  const TRegistryTree Before = Tree();
  const std::string HiveBefore = Exported();
  ASSERT_EQ(S_OK, Make<IURegistry>(CLSID_URegistry)->DeleteRegKeyLogged(User, Text(Key("Tree")))) << ErrorText();
  ASSERT_EQ((TRegistryTree{{L"", {}}}), Tree());
  ASSERT_NE(HiveBefore, Exported());
  ASSERT_EQ(S_OK, RollbackAll()) << ErrorText();
  EXPECT_EQ("", Difference(Before, Tree()));
  EXPECT_LT(size_t{1} << 21, HiveBefore.size());
  EXPECT_TRUE(HiveBefore == Exported());
}

}  // namespace
