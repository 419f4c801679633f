#include "rollback/backup_sandbox.h"
#include "rollback/records.h"
#include "support/process.h"

namespace {

class RegistryBackup : public TBackupSandbox {
 protected:
  GUID SaveValue(const std::string& Name) {
    GUID DataID{};
    EXPECT_EQ(S_OK, Backup->BackupRegKeyValue(User, Text(Key("Key")), Text(Name), &DataID)) << ErrorText();
    return DataID;
  }
  GUID SaveKey(VARIANT_BOOL Recurse = VARIANT_TRUE) {
    GUID DataID{};
    EXPECT_EQ(S_OK, Backup->BackupRegKey(User, Text(Key("Key")), Recurse, &DataID)) << ErrorText();
    return DataID;
  }
  /// The item of a value of the key.
  static std::string ValueItem(const std::string& Name, DWORD Type, const std::string& Data) {
    return EncodeItem(TRegistryValueItem{User, Key("Key"), Name, Type, {Data.begin(), Data.end()}});
  }
};

// ---- Items

TEST_F(RegistryBackup, AValueItemHoldsPlaceTypeAndData) {
  StoreValue(Wide(L"Key"), L"n\x00E4me", REG_BINARY, "\xFF\x01");
  StoreValue(Wide(L"Key"), L"", REG_SZ, WideBytes({L"d\x20AC\0", 3}));
  StoreValue(Wide(L"Key"), L"empty", REG_DWORD, "");
  EXPECT_EQ(ValueItem("n\xE4me", REG_BINARY, "\xFF\x01"), Item(SaveValue("n\xE4me")));
  EXPECT_EQ(ValueItem("", REG_SZ, {"d\x80\0", 3}), Item(SaveValue("")));
  EXPECT_EQ(ValueItem("empty", REG_DWORD, ""), Item(SaveValue("empty")));
}

TEST_F(RegistryBackup, AKeyItemListsItsParts) {
  StoreValue(Wide(L"Key"), L"Name", REG_DWORD, "1234");
  RegCreateKeyA(HKEY_CURRENT_USER, Key("Key\\Sub").c_str(), TRegistryKey().Out());
  const TRegistryTree Before = Tree();
  const GUID DataID = SaveKey();
  const std::string Saved = Item(DataID);
  TGuidBytes Value, Subkey;  // each behind its count
  ASSERT_LE(36u, Saved.size());
  std::memcpy(Value.data(), &Saved[Saved.size() - 36], Value.size());
  std::memcpy(Subkey.data(), &Saved[Saved.size() - 16], Subkey.size());
  EXPECT_EQ(EncodeItem(TRegistryKeyItem{User, Key("Key"), {Value}, {Subkey}}), Saved);
  EXPECT_EQ(ValueItem("Name", REG_DWORD, "1234"), Item(GuidOf(Value)));
  EXPECT_EQ(EncodeItem(TRegistryKeyItem{User, Key("Key\\Sub"), {}, {}}), Item(GuidOf(Subkey)));
  const GUID Alone = SaveKey(VARIANT_FALSE);

  DeleteKeyTree(Wide(L"Key"));
  ASSERT_EQ(S_OK, Backup->RestoreRegKey(Alone));
  EXPECT_EQ((TRegistryTree{{L"", {}}, {L"Key\\", {}}, {L"Key\\Name", {REG_DWORD, "1234"}}}), Tree());
  ASSERT_EQ(S_OK, Backup->RestoreRegKey(DataID));
  EXPECT_EQ("", Difference(Before, Tree()));
}

TEST_F(RegistryBackup, RestoringMergesAndMayBeRepeated) {
  StoreValue(Wide(L"Key"), L"Name", REG_DWORD, "1234");
  const GUID DataID = SaveKey();
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
  ASSERT_EQ(S_OK, Backup->BackupRegKeyValueLogged(User, Text(Key("Key")), Text("Name"), &ValueId));
  ASSERT_EQ(S_OK, Backup->BackupRegKeyLogged(User, Text(Key("Key\\Sub")), VARIANT_TRUE, &KeyId));
  EXPECT_EQ(RecordOf(CLSID_UBackup, 2, ValueId) + RecordOf(CLSID_UBackup, 3, KeyId), Read(Service("update.prt")));

  StoreValue(Wide(L"Key"), L"Name", REG_SZ, WideBytes({L"changed\0", 8}));
  DeleteKeyTree(Wide(L"Key\\Sub"));
  ASSERT_EQ(S_OK, RollBack()) << ErrorText();
  EXPECT_EQ("", Difference(Before, Tree()));
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
  ASSERT_EQ(S_OK, RollBack()) << ErrorText();
  EXPECT_EQ("", Difference(Before, Tree()));
  EXPECT_LT(size_t{1} << 21, HiveBefore.size());
  EXPECT_TRUE(HiveBefore == Exported());
}

}  // namespace
