#include "support/fault.h"
#include "support/registry_tree.h"

namespace {

using TLines = std::vector<std::string>;

/// A key with one value of each type that the object writes, and a subkey.
class RegistryOperations : public TRegistrySandbox {
 protected:
  RegistryOperations() {
    StoreValue(Wide(L"Key"), L"Text", REG_SZ, WideBytes({L"old\0", 4}));
    StoreValue(Wide(L"Key"), L"Number", REG_DWORD, "1234");
    StoreValue(Wide(L"Key"), L"Bytes", REG_BINARY, "old bytes");
    StoreValue(Wide(L"Key\\Sub"), L"Text", REG_EXPAND_SZ, WideBytes({L"%TEMP%\0", 7}));
    Before = Tree();
    Log().Lines.clear();
  }

 public:
  /// The URegistry lines, each with its call id's rank among those ids: "0 Begin ...".
  TLines NumberedLines() {
    TLines Result;
    std::vector<long> Ids;
    for (const auto& Line : Log().Lines) {
      if (Line.Name != "URegistry") continue;
      const auto Found = std::find(Ids.begin(), Ids.end(), Line.Id);
      Result.push_back(std::to_string(Found - Ids.begin()) + " " + Line.Action + " " + Line.Text);
      if (Found == Ids.end()) Ids.push_back(Line.Id);
    }
    return Result;
  }
  std::string Entries() const { return Exists(Service("update.prt")) ? Read(Service("update.prt")) : ""; }
  size_t ItemCount() const { return TreeOf(Service("Backup")).size(); }

  TComRef<IURegistry> Registry = Make<IURegistry>(CLSID_URegistry);
  TRegistryTree Before;
};

// ---- Every operation, plain and logged, on what exists and on what does not

char NewBytes[] = "new";

struct TOperation {
  const char* Name;
  int Code;
  const wchar_t* Target;  ///< the entry of the tree that it changes
  const char* Arguments;  ///< as its Begin line has them, behind the key and the root
  TRegistryEntry Result;  ///< what the target is afterwards
  HRESULT (*Plain)(IURegistry&, const std::string& Key, const std::string& Value);
  HRESULT (*Logged)(IURegistry&, const std::string& Key, const std::string& Value);
  std::string ValueName() const {
    return *Arguments ? std::string(Arguments + 1).substr(0, std::string(Arguments + 1).find(' ')) : "";
  }
};

std::ostream& operator<<(std::ostream& Out, const TOperation& Operation) { return Out << Operation.Name; }

constexpr unsigned long User = TRegistrySandbox::User;
const TRegistryEntry Gone;

const TOperation Operations[] = {
    {"DeleteRegKey", 0, L"Key\\", "", Gone, [](auto& R, auto& K, auto&) { return R.DeleteRegKey(User, Text(K)); },
     [](auto& R, auto& K, auto&) { return R.DeleteRegKeyLogged(User, Text(K)); }},
    {"DeleteRegKeyValue", 1, L"Key\\Text", " Text", Gone,
     [](auto& R, auto& K, auto& V) { return R.DeleteRegKeyValue(User, Text(K), Text(V)); },
     [](auto& R, auto& K, auto& V) { return R.DeleteRegKeyValueLogged(User, Text(K), Text(V)); }},
    {"SetBinaryValue",
     2,
     L"Key\\Bytes",
     " Bytes 3",
     {REG_BINARY, "new"},
     [](auto& R, auto& K, auto& V) { return R.SetBinaryValue(User, Text(K), Text(V), NewBytes, 3); },
     [](auto& R, auto& K, auto& V) { return R.SetBinaryValueLogged(User, Text(K), Text(V), NewBytes, 3); }},
    {"SetDwordValue",
     3,
     L"Key\\Number",
     " Number 4294967295",
     {REG_DWORD, "\xFF\xFF\xFF\xFF"},
     [](auto& R, auto& K, auto& V) { return R.SetDwordValue(User, Text(K), Text(V), 0xFFFFFFFF); },
     [](auto& R, auto& K, auto& V) { return R.SetDwordValueLogged(User, Text(K), Text(V), 0xFFFFFFFF); }},
    {"SetStringValue",
     4,
     L"Key\\Text",
     " Text n\xE4w \x80",
     {REG_SZ, WideBytes({L"n\x00E4w \x20AC\0", 6})},
     [](auto& R, auto& K, auto& V) { return R.SetStringValue(User, Text(K), Text(V), Text("n\xE4w \x80")); },
     [](auto& R, auto& K, auto& V) { return R.SetStringValueLogged(User, Text(K), Text(V), Text("n\xE4w \x80")); }},
};

class EveryOperation : public RegistryOperations, public testing::WithParamInterface<TOperation> {
 protected:
  const TOperation& Operation = GetParam();
  std::string Name = Operation.Name;
  std::string Arguments(const std::string& KeyName) const {
    return " " + Key(KeyName) + " 2147483649" + Operation.Arguments;
  }
};

TEST_P(EveryOperation, PlainLeavesNothingToRollBack) {
  ASSERT_EQ(S_OK, Operation.Plain(*Registry, Key("Key"), Operation.ValueName())) << ErrorText();
  EXPECT_EQ(Operation.Result, Tree()[Operation.Target]);
  EXPECT_EQ((TLines{"0 Begin " + Name + Arguments("Key"), "0 End " + Name}), NumberedLines());
  EXPECT_EQ("", Entries());
}

TEST_P(EveryOperation, LoggedRollsBack) {
  ASSERT_EQ(S_OK, Operation.Logged(*Registry, Key("Key"), Operation.ValueName())) << ErrorText();
  EXPECT_EQ(Operation.Result, Tree()[Operation.Target]);
  EXPECT_EQ((TLines{"0 Begin " + Name + "Logged" + Arguments("Key"), "1 Begin " + Name + Arguments("Key"),
                    "1 End " + Name, "0 End " + Name + "Logged"}),
            NumberedLines());
  const std::string Entry = Entries();
  ASSERT_EQ(36u, Entry.size());
  EXPECT_EQ(0, std::memcmp(Entry.data(), &CLSID_URegistry, sizeof(GUID)));
  EXPECT_EQ((std::string{static_cast<char>(Operation.Code), 0, 0, 0}), Entry.substr(16, 4));
  GUID DataID;
  std::memcpy(&DataID, Entry.data() + 20, sizeof DataID);
  EXPECT_TRUE(Exists(Service("Backup\\" + GuidText(DataID))));

  Log().Lines.clear();
  ASSERT_EQ(S_OK, RollbackAll()) << ErrorText();
  EXPECT_EQ("", Difference(Before, Tree()));
  EXPECT_EQ((TLines{"0 Begin Rollback " + std::to_string(Operation.Code) + " " + GuidText(DataID), "0 End Rollback"}),
            NumberedLines());
}

TEST_P(EveryOperation, LoggedWithoutATargetSavesNothingAndStillRuns) {
  ASSERT_EQ(S_OK, Operation.Logged(*Registry, Key("New\\Deep\\Key"), Operation.ValueName())) << ErrorText();
  EXPECT_EQ(0u, ItemCount());
  EXPECT_EQ("", Entries());
  TRegistryTree Expected = Before;
  if (Operation.Result != Gone) {
    Expected[L"New\\"], Expected[L"New\\Deep\\"], Expected[L"New\\Deep\\Key\\"];
    Expected[std::wstring(L"New\\Deep\\") + Operation.Target] = Operation.Result;
  }
  EXPECT_EQ("", Difference(Expected, Tree()));
  EXPECT_EQ((TLines{"0 Begin " + Name + "Logged" + Arguments("New\\Deep\\Key"),
                    "1 Begin " + Name + Arguments("New\\Deep\\Key"), "1 End " + Name, "0 End " + Name + "Logged"}),
            NumberedLines());
}

TEST_P(EveryOperation, NothingIsChangedWhenItCannotBeRecorded) {
  // The item's first write goes through; the log's entry cannot be written.
  const int ItemWrites = Operation.Code == 0 ? 6 : 1;
  TFault Fault("WriteFile", FailsWith<decltype(&WriteFile), 0>, {ItemWrites, 1, ERROR_DISK_FULL});
  EXPECT_EQ(static_cast<HRESULT>(0x80040270), Operation.Logged(*Registry, Key("Key"), Operation.ValueName()));
  ASSERT_EQ(1u, Dialog().Boxes.size());
  EXPECT_EQ(0u, Dialog().Boxes[0].Text.find("Cannot write data to '" + Service("update.prt") + "'."));
  EXPECT_EQ("", Difference(Before, Tree()));
  EXPECT_EQ((TLines{"0 Begin " + Name + "Logged" + Arguments("Key")}), NumberedLines());
}

INSTANTIATE_TEST_SUITE_P(Registry, EveryOperation, testing::ValuesIn(Operations), testing::PrintToStringParamName());

// ---- Details

TEST_F(RegistryOperations, ValuesAreStoredByteForByte) {
  ASSERT_EQ(S_OK, Registry->SetStringValue(User, Text(Key("A\\B\\C")), Text(""), Text("")));
  ASSERT_EQ(S_OK, Registry->SetBinaryValue(User, Text(Key("A")), Text("Empty"), nullptr, 0));
  EXPECT_EQ((TRegistryEntry{REG_SZ, WideBytes({L"\0", 1})}), Tree()[L"A\\B\\C\\"]);
  EXPECT_EQ((TRegistryEntry{REG_BINARY, ""}), Tree()[L"A\\Empty"]);
  EXPECT_EQ("0 Begin SetStringValue " + Key("A\\B\\C") + " 2147483649  ", NumberedLines()[0]);
  EXPECT_EQ("1 Begin SetBinaryValue " + Key("A") + " 2147483649 Empty 0", NumberedLines()[2]);
}

TEST_F(RegistryOperations, RollbackIgnoresCodesOfNobody) {
  for (long Code : {5L, -1L, 0x7FFFFFFFL}) ASSERT_EQ(S_OK, Registry->Rollback(Code, NumberedGuid(1)));
  const std::string Id = GuidText(NumberedGuid(1));
  EXPECT_EQ((TLines{"0 Begin Rollback 5 " + Id, "0 End Rollback", "1 Begin Rollback -1 " + Id, "1 End Rollback",
                    "2 Begin Rollback 2147483647 " + Id, "2 End Rollback"}),
            NumberedLines());
  EXPECT_EQ(6u, Log().Lines.size());
}

TEST_F(RegistryOperations, AChangeThatFailsKeepsItsEntryAndRollsBack) {
  {
    TFault Fault("RegSetValueExA", FailsWith<decltype(&RegSetValueExA), 5>, {0, 1, ERROR_SUCCESS});
    EXPECT_EQ(static_cast<HRESULT>(0x80040205),
              Registry->SetStringValueLogged(User, Text(Key("Key")), Text("Text"), Text("new")));
  }
  EXPECT_EQ(SystemText(5), ErrorText());
  EXPECT_EQ(36u, Entries().size());
  ASSERT_EQ(S_OK, RollbackAll());
  EXPECT_EQ("", Difference(Before, Tree()));
}

TEST_F(RegistryOperations, TheKeyIsClosedWhateverHappensToTheValue) {
  // The object closes it by itself: no retry, no message, no line.
  TFault Fault("RegCloseKey", FailsWith<decltype(&RegCloseKey), 6>, {0, 1, ERROR_SUCCESS});
  EXPECT_EQ(S_OK, Registry->SetDwordValue(User, Text(Key("Key")), Text("Number"), 1));
  EXPECT_EQ(1, TFault::Calls());
  EXPECT_TRUE(Dialog().Boxes.empty());
  for (const auto& Line : Log().Lines) EXPECT_EQ(std::string::npos, Line.Text.find("RetryRegCloseKey"));
}

TEST_F(RegistryOperations, SeveralChangesRollBackInReverse) {
  ASSERT_EQ(S_OK, Registry->SetStringValueLogged(User, Text(Key("Key")), Text("Text"), Text("first")));
  ASSERT_EQ(S_OK, Registry->SetDwordValueLogged(User, Text(Key("Key")), Text("Text"), 2));
  ASSERT_EQ(S_OK, Registry->DeleteRegKeyValueLogged(User, Text(Key("Key")), Text("Bytes")));
  ASSERT_EQ(S_OK, Registry->DeleteRegKeyLogged(User, Text(Key("Key"))));
  ASSERT_EQ(S_OK, RollbackAll()) << ErrorText();
  EXPECT_EQ("", Difference(Before, Tree()));
}

// ---- What is refused

/// A place that no call takes. With a value's name it is about that name, so for the calls on values only.
struct TRefused {
  const char* Name;
  unsigned long Root;
  std::wstring KeyName, ValueName;
  std::string Message;
};

void ExpectRefused(RegistryOperations& Test, const TRefused& Case, const std::string& Call, HRESULT Result) {
  EXPECT_EQ(E_INVALIDARG, Result) << Call;
  EXPECT_EQ(Case.Message, ErrorText()) << Call;
  EXPECT_EQ("", Difference(Test.Before, Test.Tree())) << Call;
}

class RefusedPlaces : public RegistryOperations, public testing::WithParamInterface<TRefused> {};

TEST_P(RefusedPlaces, FailWithAMessageAndChangeNothing) {
  const TRefused& Case = GetParam();
  const Text KeyName(Case.KeyName), ValueName(Case.ValueName);
  const auto Expect = [&](const char* Call, HRESULT Result) { ExpectRefused(*this, Case, Call, Result); };
  char Byte = 0;
  if (Case.ValueName.empty()) {
    Expect("DeleteRegKey", Registry->DeleteRegKey(Case.Root, KeyName));
    Expect("DeleteRegKeyLogged", Registry->DeleteRegKeyLogged(Case.Root, KeyName));
  }
  if (Case.KeyName.find_first_not_of(L'\\') != std::wstring::npos) {
    Expect("DeleteRegKeyValue", Registry->DeleteRegKeyValue(Case.Root, KeyName, ValueName));
    Expect("DeleteRegKeyValueLogged", Registry->DeleteRegKeyValueLogged(Case.Root, KeyName, ValueName));
    Expect("SetStringValue", Registry->SetStringValue(Case.Root, KeyName, ValueName, Text("")));
    Expect("SetStringValueLogged", Registry->SetStringValueLogged(Case.Root, KeyName, ValueName, Text("")));
    Expect("SetDwordValue", Registry->SetDwordValue(Case.Root, KeyName, ValueName, 0));
    Expect("SetDwordValueLogged", Registry->SetDwordValueLogged(Case.Root, KeyName, ValueName, 0));
    Expect("SetBinaryValue", Registry->SetBinaryValue(Case.Root, KeyName, ValueName, &Byte, 1));
    Expect("SetBinaryValueLogged", Registry->SetBinaryValueLogged(Case.Root, KeyName, ValueName, &Byte, 1));
  }
  EXPECT_TRUE(Dialog().Boxes.empty());
  EXPECT_EQ("", Entries());
  EXPECT_EQ(0u, ItemCount());
}

const std::wstring Place = L"Software\\MendworkTests\\Key";
const std::string Nameless = "The registry key to be deleted must have a name.";
std::string NoRoot(const std::string& Root) { return "The root key " + Root + " is not a predefined registry root."; }

INSTANTIATE_TEST_SUITE_P(
    Registry, RefusedPlaces,
    testing::Values(
        TRefused{"root_zero", 0, Place, L"", NoRoot("0")},
        TRefused{"root_below", 0x7FFFFFFF, Place, L"", NoRoot("2147483647")},
        TRefused{"root_above", 0x80000006, Place, L"", NoRoot("2147483654")},
        TRefused{
            "part_of_256", User, Place + L"\\" + std::wstring(256, L'k') + L"\\x", L"",
            "A part of the registry key 'Software\\MendworkTests\\Key\\" + std::string(256, 'k') + "\\x' is too long."},
        TRefused{"key_with_nul",
                 User,
                 {L"Software\\MendworkTests\\Key\0x", 28},
                 L"",
                 "The name 'Software\\MendworkTests\\Key' goes on behind a NUL character."},
        // The message, too, is shown in the code page here.
        TRefused{"key_outside_code_page", User, Place + L"\\\x0416", L"",
                 "The name 'Software\\MendworkTests\\Key\\?' has characters that the system's code page lacks."},
        TRefused{"no_key", User, L"", L"", Nameless}, TRefused{"only_backslashes", User, L"\\\\", L"", Nameless},
        TRefused{"value_of_16384", User, Place, std::wstring(16384, L'v'),
                 "The name of the registry value is too long."},
        TRefused{"value_with_nul", User, Place, {L"Text\0x", 6}, "The name 'Text' goes on behind a NUL character."},
        TRefused{"value_best_fit", User, Place, L"T\x0113xt",
                 "The name 'Text' has characters that the system's code page lacks."}),
    [](const auto& Info) { return std::string(Info.param.Name); });

TEST_F(RegistryOperations, ABufferAndItsSizeMustFit) {
  const TRefused Case{"", 0, L"", L"", "A buffer and the number of its bytes are needed, which is not negative."};
  for (const auto& [Buffer, Size] : std::initializer_list<std::pair<void*, long>>{{NewBytes, -1}, {nullptr, 1}}) {
    ExpectRefused(*this, Case, "plain", Registry->SetBinaryValue(User, Text(Key("Key")), Text("Bytes"), Buffer, Size));
    ExpectRefused(*this, Case, "logged",
                  Registry->SetBinaryValueLogged(User, Text(Key("Key")), Text("Bytes"), Buffer, Size));
  }
  EXPECT_EQ("", Entries());
}

}  // namespace
