#include "stories/story.h"

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

}  // namespace
