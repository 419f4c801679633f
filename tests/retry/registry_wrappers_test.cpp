// The retry layer's wrappers for the registry, reached through public methods.

#include "support/fault.h"
#include "support/registry_tree.h"

#include <shlwapi.h>

#include <regex>

namespace {

/// A key with two values and a subkey, and the calls that reach the wrappers.
class RegistryWrappers : public TRegistrySandbox {
 protected:
  RegistryWrappers() {
    StoreValue(Wide(L"Key"), L"Name", REG_SZ, WideBytes({L"old", 4}));
    StoreValue(Wide(L"Key\\Sub"), L"", REG_DWORD, "1234");
    Log().Lines.clear();
  }

 public:
  HRESULT Save(const std::string& ValueName = "Name") {
    GUID DataID;
    return Backup->BackupRegKeyValue(User, Text(Key("Key")), Text(ValueName), &DataID);
  }
  HRESULT SaveKey() {
    GUID DataID;
    return Backup->BackupRegKey(User, Text(Key("Key")), VARIANT_TRUE, &DataID);
  }
  HRESULT Set() { return Registry->SetDwordValue(User, Text(Key("Key")), Text("New"), 5); }
  HRESULT DeleteValue(const std::string& KeyName = "Key", const std::string& ValueName = "Name") {
    return Registry->DeleteRegKeyValue(User, Text(Key(KeyName)), Text(ValueName));
  }
  HRESULT DeleteKey(const std::string& KeyName = "Key") { return Registry->DeleteRegKey(User, Text(Key(KeyName))); }

  TComRef<IURegistry> Registry = Make<IURegistry>(CLSID_URegistry);
  TComRef<IUBackup> Backup = Make<IUBackup>(CLSID_UBackup);
};

// ---- A system call that fails: one row a wrapper

HRESULT Save(RegistryWrappers& Test) { return Test.Save(); }
HRESULT SaveKey(RegistryWrappers& Test) { return Test.SaveKey(); }
HRESULT Set(RegistryWrappers& Test) { return Test.Set(); }
HRESULT DeleteValue(RegistryWrappers& Test) { return Test.DeleteValue(); }
HRESULT DeleteKey(RegistryWrappers& Test) { return Test.DeleteKey(); }

/// In texts, {Key} is the name of the key, {Path} its full path, {Handle} a handle's number.
struct TWrapperCase {
  const char* Name;
  const char* Import;
  void* Replacement;
  DWORD Status;
  int Skip;
  HRESULT (*Run)(RegistryWrappers&);
  const char* Message;
  const char* Begin;  ///< its arguments
};

std::ostream& operator<<(std::ostream& Out, const TWrapperCase& Case) { return Out << Case.Name; }

#define RETURNS(Function, Status) #Function, FailsWith < decltype(&Function), Status>, Status

// Statuses with a system text and without one; the code is written in hexadecimal digits.
constexpr DWORD NoText = 0x0000ABCD;

const TWrapperCase Cases[] = {
    {"RetryRegCreateKeyEx", RETURNS(RegCreateKeyExA, 5), 0, Set, "Cannot create registry key '{Path}'.",
     "2147483649 {Key} 983103"},
    {"RetryRegOpenKeyEx", RETURNS(RegOpenKeyExA, 2), 0, Save, "Cannot open registry key '{Path}'.",
     "2147483649 {Key} 983103"},
    {"RetryGetKeyInfo", RETURNS(RegQueryInfoKeyA, 1018), 0, SaveKey,
     "Cannot get information about registry key '{Path}'.", "{Path} {Handle}"},
    {"RetryGetDataSizeAndType", RETURNS(RegQueryValueExA, NoText), 0, Save,
     "Cannot get information about the type and data size of value in registry key '{Path}'.", "{Path} {Handle} Name"},
    {"RetryGetData", RETURNS(RegQueryValueExA, 1450), 1, Save, "Cannot get values of 'Name' in registry key '{Path}'.",
     "{Path} {Handle} Name 4"},
    {"RetryRegSetValueEx", RETURNS(RegSetValueExA, 14), 0, Set, "Cannot detect 'New' values of '{Path}' registry key.",
     "{Path} {Handle} New 4 4"},
    {"RetryRegEnumValue", RETURNS(RegEnumValueA, 259), 0, SaveKey,
     "Cannot get the value name of '{Path}' registry key.", "{Path} {Handle} 0"},
    {"RetryRegEnumKeyEx", RETURNS(RegEnumKeyExA, 234), 0, SaveKey,
     "Cannot find the name of key in registry key '{Path}'.", "{Path} {Handle} 0"},
    {"RetryRegCloseKey", RETURNS(RegCloseKey, 6), 0, Save, "Cannot close '{Path}' registry key.", "{Path} {Handle}"},
    {"RetryRegDeleteValue", RETURNS(RegDeleteValueA, 5), 0, DeleteValue,
     "Cannot delete 'Name' from '{Path}' registry key.", "2147483649 {Key} Name"},
    // Three tests open the key before.
    {"RetryRegDeleteValue_Open", RETURNS(RegOpenKeyExA, 1018), 3, DeleteValue,
     "Cannot delete 'Name' from '{Path}' registry key.", "2147483649 {Key} Name"},
    {"RetrySHDeleteKey", RETURNS(SHDeleteKeyA, 32), 0, DeleteKey, "Cannot delete registry key '{Key}'.",
     "2147483649 {Key}"},
};

class RegistryWrapperFailures : public RegistryWrappers, public testing::WithParamInterface<TWrapperCase> {
 protected:
  static std::string Fill(std::string Pattern) {
    const std::pair<std::string, std::string> Values[] = {{"{Key}", Key("Key")},
                                                          {"{Path}", "HKEY_CURRENT_USER\\" + Key("Key")}};
    for (const auto& [Word, Value] : Values)
      if (const size_t At = Pattern.find(Word); At != std::string::npos) Pattern.replace(At, Word.size(), Value);
    return Pattern;
  }
  std::string Wrapper() const { return std::string(Case.Name).substr(0, std::string(Case.Name).find('_')); }
  std::string Reason() const { return Case.Status == NoText ? "Unknown error." : SystemText(Case.Status); }
  TScriptedDialog::TBox Box() const {
    char Code[9];
    std::snprintf(Code, sizeof Code, "%lX", Case.Status);
    return {Fill(Case.Message) + "\r\n\r\nError: '" + Reason() + "' (Error code: " + Code + ").", "Error", 21};
  }
  /// The actions and texts under the call id of the wrapper's first call; handles are shown as {Handle}.
  std::vector<std::string> LinesOfCall() {
    std::vector<std::string> Result;
    long Id = 0;
    for (const auto& Line : Log().Lines) {
      if (Id == 0 && (Line.Text + " ").rfind(Wrapper() + " ", 0) == 0) Id = Line.Id;
      if (Id != 0 && Line.Id == Id) Result.push_back(Line.Name + " " + Line.Action + " " + Line.Text);
    }
    const std::string Path = "HKEY_CURRENT_USER\\" + Key("Key") + " ";
    if (!Result.empty())
      if (const size_t At = Result[0].find(Path); At != std::string::npos)
        Result[0] = Result[0].substr(0, At + Path.size()) +
                    std::regex_replace(Result[0].substr(At + Path.size()), std::regex("^[1-9][0-9]*"), "{Handle}");
    return Result;
  }
  std::string Begin() const { return "Common Begin " + Wrapper() + " " + Fill(Case.Begin); }

  const TWrapperCase& Case = GetParam();
  /// What the thread's last error says has no meaning here.
  static constexpr DWORD OtherError = ERROR_DISK_FULL;
};

TEST_P(RegistryWrapperFailures, RetryRepeatsUntilTheCallSucceeds) {
  Dialog().Answer({IDRETRY, IDRETRY});
  TFault Fault(Case.Import, Case.Replacement, {Case.Skip, 2, OtherError});
  ASSERT_EQ(S_OK, Case.Run(*this)) << ErrorText();
  EXPECT_EQ((std::vector{Box(), Box()}), Dialog().Boxes);
  EXPECT_EQ((std::vector{Begin(), "Common End " + Wrapper()}), LinesOfCall());
  for (const auto& Line : Log().Lines) EXPECT_NE("Exception", Line.Action) << Line.Text;
}

TEST_P(RegistryWrapperFailures, CancelRaisesTheStatus) {
  EXPECT_EQ(Case.Status == NoText, SystemText(Case.Status).empty());
  const TRegistryTree Before = Tree();
  {
    TFault Fault(Case.Import, Case.Replacement, {Case.Skip, 1, OtherError});
    EXPECT_EQ(static_cast<HRESULT>(0x80040200 + Case.Status), Case.Run(*this));
  }
  EXPECT_EQ(Reason(), ErrorText());
  EXPECT_EQ(std::vector{Box()}, Dialog().Boxes);
  EXPECT_EQ(std::vector{Begin()}, LinesOfCall());
  EXPECT_EQ("Common Exception " + std::to_string(Case.Status) + " " + Reason(), Log().Texts().back());
  EXPECT_EQ("", Difference(Before, Tree()));
}

INSTANTIATE_TEST_SUITE_P(Registry, RegistryWrapperFailures, testing::ValuesIn(Cases),
                         testing::PrintToStringParamName());

// ---- Everything else

TEST_F(RegistryWrappers, MessagesNameTheRootOfAKey) {
  const std::pair<unsigned long, std::string> Roots[] = {{0x80000000, "HKEY_CLASSES_ROOT"},
                                                         {0x80000001, "HKEY_CURRENT_USER"},
                                                         {0x80000002, "HKEY_LOCAL_MACHINE"},
                                                         {0x80000003, "HKEY_USERS"},
                                                         {0x80000004, ""},
                                                         {0x80000005, "HKEY_CURRENT_CONFIG"}};
  TFault Fault("RegOpenKeyExA", FailsWith<decltype(&RegOpenKeyExA), 2>, {0, 6, ERROR_SUCCESS});
  for (const auto& [Root, Name] : Roots) {
    GUID DataID;
    EXPECT_EQ(static_cast<HRESULT>(0x80040202),
              Backup->BackupRegKeyValue(Root, Text("Software\\X"), Text(""), &DataID));
    EXPECT_EQ(
        "Cannot open registry key '" + Name + "\\Software\\X'.\r\n\r\nError: '" + SystemText(2) + "' (Error code: 2).",
        Dialog().Boxes.back().Text);
  }
}

using TLines = std::vector<std::string>;

TEST_F(RegistryWrappers, DeletingAValueTestsForItFirst) {
  const std::string Place = "2147483649 " + Key("Key");
  ASSERT_EQ(S_OK, DeleteValue());
  EXPECT_EQ((TLines{"Begin RetryRegDeleteValue " + Place + " Name", "Begin RetryRegKeyExists " + Place,
                    "End RetryRegKeyExists 1", "Begin RetryRegKeyValueExists " + Place + " Name",
                    "Begin RetryRegKeyExists " + Place, "End RetryRegKeyExists 1", "End RetryRegKeyValueExists1",
                    "End RetryRegDeleteValue"}),
            Log().Texts("Common"));
  EXPECT_EQ(TRegistryEntry(), Value(L"Key", L"Name"));

  Log().Lines.clear();
  ASSERT_EQ(S_OK, DeleteValue());
  EXPECT_EQ("End RetryRegKeyValueExists0", Log().Texts("Common").at(6));
  Log().Lines.clear();
  ASSERT_EQ(S_OK, DeleteValue("Other"));
  EXPECT_EQ("End RetryRegKeyExists 0", Log().Texts("Common").at(2));
  EXPECT_EQ("End RetryRegDeleteValue", Log().Texts("Common").at(3));
}

TEST_F(RegistryWrappers, WhatIsMissingIsDeletedWithoutACall) {
  {
    TFault Fault("RegDeleteValueA", FailsWith<decltype(&RegDeleteValueA), 5>, {});
    EXPECT_EQ(S_OK, DeleteValue("Key", "Other"));
    EXPECT_EQ(S_OK, DeleteValue("Other", "Name"));
    EXPECT_EQ(0, TFault::Calls());
  }
  TFault Fault("SHDeleteKeyA", FailsWith<decltype(&SHDeleteKeyA), 5>, {});
  EXPECT_EQ(S_OK, DeleteKey("Other"));
  EXPECT_EQ(0, TFault::Calls());
}

TEST_F(RegistryWrappers, AKeyThatCannotBeOpenedForAllAccessCountsAsAbsent) {
  const TRegistryTree Before = Tree();
  TFault Fault("RegOpenKeyExA", FailsWith<decltype(&RegOpenKeyExA), 5>, {0, 100, 5});
  EXPECT_EQ(S_OK, DeleteValue());
  EXPECT_EQ(S_OK, DeleteKey());
  EXPECT_EQ(S_OK, Registry->DeleteRegKeyLogged(User, Text(Key("Key"))));
  EXPECT_TRUE(Dialog().Boxes.empty());
  EXPECT_EQ("", Difference(Before, Tree()));
  EXPECT_FALSE(Exists(Service("update.prt")));
}

}  // namespace
