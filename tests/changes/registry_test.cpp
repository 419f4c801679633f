#include "stories/story.h"

#include <sddl.h>

namespace {

/// The operations on values and keys, by the codes of their entries.
class Registry : public TStory {
 protected:
  Registry() {
    StoreValue(Wide(L"Key"), L"Text", REG_SZ, WideBytes({L"old\0", 4}));
    StoreValue(Wide(L"Key"), L"Number", REG_DWORD, "1234");
    StoreValue(Wide(L"Key"), L"Bytes", REG_BINARY, "old bytes");
    StoreValue(Wide(L"Key\\Sub"), L"Text", REG_EXPAND_SZ, WideBytes({L"%TEMP%\0", 7}));
    Begin();
  }
  static constexpr int Operations = 5;
  HRESULT Run(int Code, bool Logged, const std::wstring& KeyName, const std::wstring& Name, unsigned long Root = User) {
    char Bytes[] = "new";
    const Text Key(KeyName), Value(Name), New("n\xE4w \x80");
    const auto Do = [&](auto Plain, auto WithLog, auto... Args) {
      return (TStory::Registry.Get()->*(Logged ? WithLog : Plain))(Root, Key, Args...);
    };
    using R = IURegistry;
    if (Code == 0) return Do(&R::DeleteRegKey, &R::DeleteRegKeyLogged);
    if (Code == 1) return Do(&R::DeleteRegKeyValue, &R::DeleteRegKeyValueLogged, BSTR(Value));
    if (Code == 2) return Do(&R::SetBinaryValue, &R::SetBinaryValueLogged, BSTR(Value), Bytes, 3);
    if (Code == 3) return Do(&R::SetDwordValue, &R::SetDwordValueLogged, BSTR(Value), 0xFFFFFFFF);
    return Do(&R::SetStringValue, &R::SetStringValueLogged, BSTR(Value), BSTR(New));
  }
};
const wchar_t* const ValueNames[] = {L"", L"Text", L"Bytes", L"Number", L"Text"};

TEST_F(Registry, IsChangedAndComesBack) {
  for (int Code = Operations - 1; Code >= 0; --Code) {
    Brief("operation " + std::to_string(Code), Run(Code, true, Wide(L"Key"), ValueNames[Code]));
    Tell("now " + testing::PrintToString(Value(L"Key", ValueNames[Code])));
  }
  UndoAll();
  for (const bool Logged : {true, false})
    for (int Code = 0; Code < Operations; ++Code)
      Step("on nothing", Run(Code, Logged, Wide(L"New\\Deep"), ValueNames[Code]));
}

TEST_F(Registry, APlaceThatNoCallTakesIsRefused) {
  using TRow = std::tuple<unsigned long, std::wstring, std::wstring>;
  const TRow Rows[] = {
      {0, Wide(L"Key"), L"Text"},
      {0x7FFFFFFF, Wide(L"Key"), L"Text"},
      {0x80000006, Wide(L"Key"), L"Text"},
      {User, Wide(L"Key\\" + std::wstring(256, L'k') + L"\\x"), L"Text"},
      {User, Wide(std::wstring(255, L'k')), L"Text"},  // as long as Windows takes it; Wine wants one less
      {User, Wide(std::wstring(L"Key\0x", 5)), L"Text"},
      {User, Wide(L"Key\\\x0416"), L"Text"},
      {User, L"\\\\", L"Text"},
      {User, Wide(L"Key"), std::wstring(16384, L'v')},
      {User, Wide(L"Key"), L"T\x0113xt"}};
  for (const auto& [Root, KeyName, ValueName] : Rows)
    for (int Code = 0; Code < Operations; ++Code) {
      // The values of a root are no danger, and a deleted key has no value's name.
      if (Code == 0 ? ValueName != L"Text" : KeyName == L"\\\\") continue;
      for (const bool Logged : {false, true})
        Brief("operation " + std::to_string(Code), Run(Code, Logged, KeyName, ValueName, Root));
    }
  char Byte = 0;
  for (const auto& [Buffer, Size] : std::initializer_list<std::pair<void*, long>>{{&Byte, -1}, {nullptr, 1}}) {
    Brief("buffer", TStory::Registry->SetBinaryValue(User, Text(Key("Key")), Text("Bytes"), Buffer, Size));
    Brief("logged buffer", TStory::Registry->SetBinaryValueLogged(User, Text(Key("Key")), Text("Bytes"), Buffer, Size));
  }
  Brief("no buffer and no bytes", TStory::Registry->SetBinaryValue(User, Text(Key("A")), Text(""), nullptr, 0));
}

TEST_F(Registry, WhatTheCodePageLacksIsNotSavedAndSoNotDeleted) {
  using TRow = std::tuple<std::wstring, std::wstring, DWORD, std::string>;
  const TRow Rows[] = {{L"", L"Lost", REG_EXPAND_SZ, WideBytes(L"a\x0416")},
                       {L"", L"Lost", REG_MULTI_SZ, WideBytes(L"\x0113")},
                       {L"", L"Lost", REG_SZ, "odd"},
                       {L"", L"Lost\x0416", REG_DWORD, "1234"},
                       {L"\\Lost\x0416", L"", REG_DWORD, "1234"}};
  for (const auto& [Subkey, Name, Type, Data] : Rows) {
    StoreValue(Wide(L"Key") + Subkey, Name, Type, Data);
    Begin();
    Brief("not in the code page", Run(0, true, Wide(L"Key"), L""));
    RegDeleteTreeW(HKEY_CURRENT_USER, (Wide(L"Key") + (Subkey.empty() ? L"\\none" : Subkey)).c_str());
    RegDeleteKeyValueW(HKEY_CURRENT_USER, Wide(L"Key").c_str(), Name.c_str());
  }
}

TEST_F(Registry, ATreeOfEveryTypeComesBackAsItWas) {
  const std::wstring Top = Wide(L"Tree"), Deep = Top + L"\\\x00DC b e r \x20AC\\1\\2\\3\\" + std::wstring(200, L'k');
  for (const std::wstring& KeyName : {Top, Deep})
    for (const DWORD Type : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0x12345678}) {
      const std::wstring Name = L"type " + std::to_wstring(Type);
      StoreValue(KeyName, Name, Type, WideBytes({L"\x00E4\x20AC\x2122\0b\0", 6}));
      StoreValue(KeyName, Name + L" without terminator", Type, WideBytes(L"%PATH%"));
      StoreValue(KeyName, Name + L" empty", Type, "");
    }
  StoreValue(Top, L"", REG_SZ, WideBytes({L"the default value\0", 18}));
  StoreValue(Top, L" \x00E4\x20AC\\=\"\",\r\n", REG_LINK, "odd");
  StoreValue(Top, std::wstring(16383, L'n'), REG_BINARY, "long");
  StoreValue(Top, L"big text", REG_SZ, WideBytes(std::wstring(1 << 20, L'\x20AC')));
  Begin();
  EXPECT_EQ(S_OK, Run(0, true, Top, L""));
  EXPECT_EQ(TRegistryEntry{}, Value(L"Tree", L""));
  UndoAll();
}

// ---- What somebody else does to a key while it is saved or written

int Times = 0;  ///< how often a replacement below does something
LSTATUS WINAPI AddMeanwhile(HKEY Key, DWORD Index, LPSTR Name, DWORD* Size, DWORD* Reserved, LPSTR Class,
                            DWORD* ClassSize, FILETIME* Written) {
  const LSTATUS Status = RegEnumKeyExA(Key, Index, Name, Size, Reserved, Class, ClassSize, Written);
  if (Times-- > 0) StoreValue(L"Software\\MendworkTests\\Key\\Added" + std::to_wstring(Times), L"", REG_SZ, "");
  return Status;
}
LSTATUS WINAPI GrowMeanwhile(HKEY Key, LPCSTR Name, DWORD* Reserved, DWORD* Type, BYTE* Data, DWORD* Size) {
  const LSTATUS Status = RegQueryValueExA(Key, Name, Reserved, Type, Data, Size);
  if (!Data && Times-- > 0) StoreValue(L"Software\\MendworkTests\\Key", L"Text", REG_SZ, WideBytes({L"grown\0", 6}));
  return Status;
}
LSTATUS WINAPI FindItGone(HKEY Key, LPCSTR Name, DWORD Reserved, DWORD Type, const BYTE* Data, DWORD Size) {
  return Times-- > 0 ? ERROR_KEY_DELETED : RegSetValueExA(Key, Name, Reserved, Type, Data, Size);
}
/// As a 32-bit program's `%ProgramFiles%` is written.
LSTATUS WINAPI Rewrite(HKEY Key, LPCSTR Name, DWORD Reserved, DWORD Type, const BYTE* Data, DWORD Size) {
  constexpr char Other[] = "%Other%";
  return Type == REG_EXPAND_SZ ? RegSetValueExA(Key, Name, Reserved, Type, reinterpret_cast<const BYTE*>(Other), 8)
                               : RegSetValueExA(Key, Name, Reserved, Type, Data, Size);
}

/// As HKEY_CLASSES_ROOT shows the user's hive, too.
LSTATUS WINAPI OpenUsersClasses(HKEY Root, LPCSTR Name, DWORD Options, REGSAM Access, HKEY* Key) {
  const std::string Below = Root == HKEY_CLASSES_ROOT ? "Software\\Classes\\" : "";
  return RegOpenKeyExA(Below.empty() ? Root : HKEY_CURRENT_USER, (Below + Name).c_str(), Options, Access, Key);
}
LSTATUS WINAPI OpenUsersClassesWide(HKEY Root, LPCWSTR Name, DWORD Options, REGSAM Access, HKEY* Key) {
  return OpenUsersClasses(Root, LossyAnsi(Name).c_str(), Options, Access, Key);
}

TEST_F(Registry, IsWholeWhateverOthersDoMeanwhile) {
  const auto DeleteKey = [&] { return Run(0, true, Wide(L"Key"), L""); };
  for (const int Changes : {1, 100}) {
    Times = Changes;
    Brief("a key is added", While(TImportPatch("RegEnumKeyExA", AddMeanwhile), DeleteKey));
    Times = 0;
    UndoAll();
  }
  StoreValue(Wide(L"Key"), L"Text", REG_SZ, "");
  Times = 1;
  Brief("an empty value grows", While(TImportPatch("RegQueryValueExA", GrowMeanwhile), DeleteKey));
  UndoAll();
  const auto Undo = [&] { return RollBack(); };
  for (const int Deletions : {1, 100}) {
    Begin();
    Brief("deleted", DeleteKey());
    Times = Deletions;
    Brief("the key goes again", While(TImportPatch("RegSetValueExA", FindItGone), Undo));
    UndoAll();
  }
  Brief("deleted", DeleteKey());
  Step("rewritten", While(TImportPatch("RegSetValueExA", Rewrite), Undo));
}

TEST_F(Registry, ComesBackWhereAndAsItWasStored) {
  Brief("in another spelling", Run(0, true, L"software\\MENDWORKTESTS\\kEY", L""));
  UndoAll();
  Brief("value in another spelling", Run(1, true, L"software\\MENDWORKTESTS\\kEY", L"tEXT"));
  UndoAll();
  TRegistryKey Volatile, Below;
  RegCreateKeyExW(HKEY_CURRENT_USER, Wide(L"Volatile").c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS,
                  nullptr, Volatile.Out(), nullptr);
  RegCreateKeyExW(Volatile.Get(), L"Below", 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, Below.Out(),
                  nullptr);
  Below.Reset();
  Begin();
  Brief("below a volatile key", Run(0, true, Wide(L"Volatile\\Below"), L""));
  UndoAll();
  // A link in the tree; what it leads to is not touched.
  TRegistryKey Link;
  StoreValue(Wide(L"Tree"), L"", REG_SZ, "");
  RegCreateKeyExW(HKEY_CURRENT_USER, Wide(L"Tree\\Link").c_str(), 0, nullptr, REG_OPTION_CREATE_LINK, KEY_ALL_ACCESS,
                  nullptr, Link.Out(), nullptr);
  const std::wstring Target = L"\\Registry\\User\\S-1-5-21-0-0-0-1000\\" + Wide(L"Key");
  RegSetValueExW(Link.Get(), L"SymbolicLinkValue", 0, REG_LINK, reinterpret_cast<const BYTE*>(Target.data()),
                 static_cast<DWORD>(2 * Target.size()));
  for (const wchar_t* Name : {L"Tree", L"Tree\\Link"}) Brief("with a link", Run(0, true, Wide(Name), L""));
  EXPECT_EQ("", Difference(RegistryTreeOf(Wide(L"Key")), RegistryTreeOf(Wide(L"Tree\\Link"))));
  // Only this call deletes a link itself.
  using TDeleteKey = LONG(NTAPI*)(HANDLE);
  const FARPROC Delete = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtDeleteKey");
  EXPECT_EQ(0, reinterpret_cast<TDeleteKey>(reinterpret_cast<void*>(Delete))(Link.Get()));
  // One key in the hives of the user and of the machine, seen as one.
  constexpr unsigned long Classes = 0x80000000;
  TRegistryKey Machine;
  RegCreateKeyW(HKEY_LOCAL_MACHINE, L"Software\\Classes\\MendworkTest", Machine.Out());
  StoreValue(L"Software\\Classes\\MendworkTest", L"Text", REG_SZ, "");
  Brief("in two hives", Run(0, true, L"MendworkTest", L"", Classes));
  RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"Software\\Classes\\MendworkTest");
  GUID DataID{};
  const TImportPatch Opens("RegOpenKeyExW", OpenUsersClassesWide);
  const auto Save = [&] { return Backup->BackupRegKey(Classes, Text(L"MendworkTest"), 0, &DataID); };
  Brief("in the user's", While(TImportPatch("RegOpenKeyExA", OpenUsersClasses), Save));
  EXPECT_NE(std::string::npos, Read(ItemPath(DataID)).find("Software\\Classes\\MendworkTest"));
  DeleteKeyTree(L"Software\\Classes\\MendworkTest");
}

std::string RightsOf(const std::wstring& Name) {
  TRegistryKey Key;
  BYTE Bytes[1024];
  DWORD Size = sizeof Bytes;
  TOwned<char*, LocalFree> Text;
  RegOpenKeyW(HKEY_CURRENT_USER, Name.c_str(), Key.Out());
  RegGetKeySecurity(Key.Get(), DACL_SECURITY_INFORMATION, Bytes, &Size);
  ConvertSecurityDescriptorToStringSecurityDescriptorA(Bytes, 1, DACL_SECURITY_INFORMATION, Text.Out(), nullptr);
  return Text ? Text.Get() : "";
}

TEST_F(Registry, RightsOfItsOwnComeBackToAKey) {
  constexpr char Locked[] = "D:P(A;;KR;;;WD)(A;CI;KA;;;BA)";
  TRegistryKey Key;
  TOwned<PSECURITY_DESCRIPTOR, LocalFree> Rights;
  RegOpenKeyW(HKEY_CURRENT_USER, Wide(L"Key\\Sub").c_str(), Key.Out());
  ConvertStringSecurityDescriptorToSecurityDescriptorA(Locked, 1, Rights.Out(), nullptr);
  RegSetKeySecurity(Key.Get(), DACL_SECURITY_INFORMATION, Rights.Get());
  Key.Reset();
  const std::string Open = RightsOf(Wide(L"Key"));
  ASSERT_EQ(Locked, RightsOf(Wide(L"Key\\Sub")));
  Brief("deleted", Run(0, true, Wide(L"Key"), L""));
  Brief("undone", RollBack());
  EXPECT_EQ(Locked, RightsOf(Wide(L"Key\\Sub")));
  EXPECT_EQ(Open, RightsOf(Wide(L"Key")));
}

}  // namespace
