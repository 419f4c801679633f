#include "changes/changes_test.h"

namespace {

/// A key with one value of each type that the object writes, and a subkey.
class RegistryOperations : public TChangesTest {
 protected:
  RegistryOperations() : TChangesTest(CLSID_URegistry) {
    StoreValue(Wide(L"Key"), L"Text", REG_SZ, WideBytes({L"old\0", 4}));
    StoreValue(Wide(L"Key"), L"Number", REG_DWORD, "1234");
    StoreValue(Wide(L"Key"), L"Bytes", REG_BINARY, "old bytes");
    StoreValue(Wide(L"Key\\Sub"), L"Text", REG_EXPAND_SZ, WideBytes({L"%TEMP%\0", 7}));
    Before = Tree();
  }
  void ExpectUntouched() const {
    EXPECT_EQ("", Difference(Before, Tree()));
    EXPECT_EQ(std::vector<int>(), Codes());
  }

  TComRef<IURegistry> Registry = Make<IURegistry>(CLSID_URegistry);
  TRegistryTree Before;
};

// ---- Every operation, plain and logged, on what exists and on what does not

char NewBytes[] = "new";
constexpr unsigned long User = TSandboxTest::User;

struct TOperation {
  const char* Name;
  int Code;
  const wchar_t* Target;  ///< the entry of the tree that it changes
  const char* ValueName;  ///< "" for an operation on keys
  TRegistryEntry Result;  ///< what the target is afterwards
};
std::ostream& operator<<(std::ostream& Out, const TOperation& Operation) { return Out << Operation.Name; }

const TOperation Operations[] = {
    {"DeleteRegKey", 0, L"Key\\", "", {}},
    {"DeleteRegKeyValue", 1, L"Key\\Text", "Text", {}},
    {"SetBinaryValue", 2, L"Key\\Bytes", "Bytes", {REG_BINARY, "new"}},
    {"SetDwordValue", 3, L"Key\\Number", "Number", {REG_DWORD, "\xFF\xFF\xFF\xFF"}},
    {"SetStringValue", 4, L"Key\\Text", "Text", {REG_SZ, WideBytes({L"n\x00E4w \x20AC\0", 6})}},
};

HRESULT RunOperation(int Code, IURegistry& R, bool Logged, unsigned long Root, BSTR Key, BSTR Value) {
  const Text New("n\xE4w \x80");
  switch (Code) {
    case 0:
      return Logged ? R.DeleteRegKeyLogged(Root, Key) : R.DeleteRegKey(Root, Key);
    case 1:
      return Logged ? R.DeleteRegKeyValueLogged(Root, Key, Value) : R.DeleteRegKeyValue(Root, Key, Value);
    case 2:
      return Logged ? R.SetBinaryValueLogged(Root, Key, Value, NewBytes, 3)
                    : R.SetBinaryValue(Root, Key, Value, NewBytes, 3);
    case 3:
      return Logged ? R.SetDwordValueLogged(Root, Key, Value, 0xFFFFFFFF)
                    : R.SetDwordValue(Root, Key, Value, 0xFFFFFFFF);
    default:
      return Logged ? R.SetStringValueLogged(Root, Key, Value, New) : R.SetStringValue(Root, Key, Value, New);
  }
}

class EveryOperation : public RegistryOperations, public testing::WithParamInterface<TOperation> {
 protected:
  HRESULT Run(bool Logged, const std::string& KeyName) {
    return RunOperation(Operation.Code, *Registry, Logged, User, Text(Key(KeyName)),
                        Text(std::string(Operation.ValueName)));
  }
  const TOperation& Operation = GetParam();
};

TEST_P(EveryOperation, RollsBackWhenItIsLogged) {
  ASSERT_EQ(S_OK, Run(true, "Key")) << ErrorText();
  EXPECT_EQ(Operation.Result, Tree()[Operation.Target]);
  EXPECT_EQ(std::vector{Operation.Code}, Codes());
  RollbackToStart();
  ExpectUntouched();

  ASSERT_EQ(S_OK, Run(false, "Key")) << ErrorText();
  EXPECT_EQ(Operation.Result, Tree()[Operation.Target]);
  EXPECT_EQ(std::vector<int>(), Codes());
}

TEST_P(EveryOperation, LoggedWithoutATargetSavesNothingAndStillRuns) {
  ASSERT_EQ(S_OK, Run(true, "New\\Deep\\Key")) << ErrorText();
  EXPECT_EQ(0u, TreeOf(Service("Backup")).size());
  EXPECT_EQ(std::vector<int>(), Codes());
  TRegistryTree Expected = Before;
  if (Operation.Result != TRegistryEntry()) {
    Expected[L"New\\"], Expected[L"New\\Deep\\"], Expected[L"New\\Deep\\Key\\"];
    Expected[std::wstring(L"New\\Deep\\") + Operation.Target] = Operation.Result;
  }
  EXPECT_EQ("", Difference(Expected, Tree()));
}

TEST_P(EveryOperation, NothingIsChangedWhenItCannotBeRecorded) {
  // The item's first write goes through; the log's entry cannot be written.
  const int ItemWrites = Operation.Code == 0 ? 6 : 1;
  TFault Fault("WriteFile", {ItemWrites, 1, ERROR_DISK_FULL});
  EXPECT_EQ(static_cast<HRESULT>(0x80040270), Run(true, "Key"));
  ASSERT_EQ(1u, Dialog().Boxes.size());
  EXPECT_EQ(0u, Dialog().Boxes[0].Text.find("Cannot write data to '" + Service("update.prt") + "'."));
  EXPECT_EQ("", Difference(Before, Tree()));
}

INSTANTIATE_TEST_SUITE_P(Registry, EveryOperation, testing::ValuesIn(Operations), testing::PrintToStringParamName());

// ---- Details

TEST_F(RegistryOperations, EmptyNamesAndDataAreStored) {
  ASSERT_EQ(S_OK, Registry->SetStringValue(User, Text(Key("A\\B\\C")), Text(""), Text("")));
  ASSERT_EQ(S_OK, Registry->SetBinaryValue(User, Text(Key("A")), Text("Empty"), nullptr, 0));
  EXPECT_EQ((TRegistryEntry{REG_SZ, WideBytes({L"\0", 1})}), Tree()[L"A\\B\\C\\"]);
  EXPECT_EQ((TRegistryEntry{REG_BINARY, ""}), Tree()[L"A\\Empty"]);
}

TEST_F(RegistryOperations, RollbackIgnoresCodesOfNobody) {
  for (long Code : {5L, -1L, 0x7FFFFFFFL}) EXPECT_EQ(S_OK, Registry->Rollback(Code, NumberedGuid(1))) << Code;
  EXPECT_TRUE(FAILED(Registry->Rollback(4, NumberedGuid(1)))) << "a known code needs its item";
}

TEST_F(RegistryOperations, AChangeThatFailsKeepsItsEntryAndRollsBack) {
  {
    TFault Fault("RegSetValueExA", {0, 1, 5});
    EXPECT_EQ(static_cast<HRESULT>(0x80040205),
              Registry->SetStringValueLogged(User, Text(Key("Key")), Text("Text"), Text("new")));
  }
  EXPECT_EQ(SystemText(5), ErrorText());
  EXPECT_EQ(std::vector{4}, Codes());
  RollbackToStart();
  ExpectUntouched();
}

TEST_F(RegistryOperations, SeveralChangesRollBackInReverse) {
  ASSERT_EQ(S_OK, Registry->SetStringValueLogged(User, Text(Key("Key")), Text("Text"), Text("first")));
  ASSERT_EQ(S_OK, Registry->SetDwordValueLogged(User, Text(Key("Key")), Text("Text"), 2));
  ASSERT_EQ(S_OK, Registry->DeleteRegKeyValueLogged(User, Text(Key("Key")), Text("Bytes")));
  ASSERT_EQ(S_OK, Registry->DeleteRegKeyLogged(User, Text(Key("Key"))));
  EXPECT_EQ((std::vector{4, 3, 1, 0}), Codes());
  RollbackToStart();
  ExpectUntouched();
}

// ---- What is refused

/// A place that no call takes. With a value's name it is about that name, so for the calls on values only.
struct TRefused {
  unsigned long Root;
  std::wstring KeyName, ValueName;
  std::string Message;
};

const std::wstring Place = L"Software\\MendworkTests\\Key";
const TRefused RefusedPlaces[] = {
    {0, Place, L"", "The root key 0 is not a predefined registry root."},
    {0x80000006, Place, L"", "The root key 2147483654 is not a predefined registry root."},
    {User, Place + L"\\" + std::wstring(256, L'k') + L"\\x", L"",
     "A part of the registry key 'Software\\MendworkTests\\Key\\" + std::string(256, 'k') + "\\x' is too long."},
    {User,
     {L"Software\\MendworkTests\\Key\0x", 28},
     L"",
     "The name 'Software\\MendworkTests\\Key' goes on behind a NUL character."},
    // The message, too, is shown in the code page here.
    {User, Place + L"\\\x0416", L"",
     "The name 'Software\\MendworkTests\\Key\\?' has characters that the system's code page lacks."},
    {User, L"\\\\", L"", "The registry key to be deleted must have a name."},
    {User, Place, std::wstring(16384, L'v'), "The name of the registry value is too long."},
    {User, Place, L"T\x0113xt", "The name 'Text' has characters that the system's code page lacks."},
};

TEST_F(RegistryOperations, PlacesThatNoCallTakesAreRefusedAndUntouched) {
  for (const TRefused& Case : RefusedPlaces)
    for (const TOperation& Operation : Operations) {
      // The values of a root are no danger, and a deleted key has no value's name.
      if (Operation.Code == 0 ? !Case.ValueName.empty() : Case.KeyName == L"\\\\") continue;
      for (const bool Logged : {false, true}) {
        SCOPED_TRACE(Case.Message + " " + Operation.Name + (Logged ? "Logged" : ""));
        EXPECT_EQ(E_INVALIDARG,
                  RunOperation(Operation.Code, *Registry, Logged, Case.Root, Text(Case.KeyName), Text(Case.ValueName)));
        EXPECT_EQ(Case.Message, ErrorText());
        ExpectUntouched();
      }
    }
  EXPECT_TRUE(Dialog().Boxes.empty());
  EXPECT_EQ(0u, TreeOf(Service("Backup")).size());
}

TEST_F(RegistryOperations, ABufferAndItsSizeMustFit) {
  const Text Name(Key("Key")), Bytes("Bytes");
  for (const auto& [Buffer, Size] : std::initializer_list<std::pair<void*, long>>{{NewBytes, -1}, {nullptr, 1}})
    for (const bool Logged : {false, true}) {
      EXPECT_EQ(E_INVALIDARG, Logged ? Registry->SetBinaryValueLogged(User, Name, Bytes, Buffer, Size)
                                     : Registry->SetBinaryValue(User, Name, Bytes, Buffer, Size));
      EXPECT_EQ("A buffer and the number of its bytes are needed, which is not negative.", ErrorText());
    }
  ExpectUntouched();
}

}  // namespace
