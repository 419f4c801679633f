#include "base/text.h"
#include "server/coclasses.h"
#include "support/sandbox_test.h"

namespace {

class Environment : public TSandboxTest {
 protected:
  static void SetBaseFolder(DWORD Type, const std::string& Data) {
    StoreValue(L"Software\\Orvane\\Core", L"", Type, Data);
  }
  static HRESULT BackupSomething() {
    GUID DataID{};
    return Make<IUBackup>(CLSID_UBackup)->BackupString(Text("something"), &DataID);
  }
};

TEST_F(Environment, FoldersAreMadeOnceAndKept) {
  ASSERT_EQ(S_OK, BackupSomething());
  std::vector<std::string> Folders;
  for (const auto& [Name, Entry] : TreeOf(Base()))
    if (Name.ends_with("\\")) Folders.push_back(Name);
  EXPECT_EQ(
      (std::vector<std::string>{"Updates\\", "Updates\\Log\\", "Updates\\Mendwork\\", "Updates\\Mendwork\\Backup\\",
                                "Updates\\Mendwork\\Garbage\\", "Updates\\Mendwork\\History\\"}),
      Folders);
  const size_t Items = TreeOf(Service("Backup")).size();
  const std::string Elsewhere = Root() + "\\Elsewhere";
  MakeFolders(Elsewhere);
  SetBaseFolder(REG_SZ, WideBytes(ToWide(Elsewhere)));
  EXPECT_EQ(S_OK, BackupSomething());
  EXPECT_EQ(Items + 1, TreeOf(Service("Backup")).size());
  EXPECT_TRUE(TreeOf(Elsewhere).empty());
}

TEST_F(Environment, MissingBaseFolderIsToldByTheFirstCallThatNeedsIt) {
  const auto ExpectTold = [](DWORD Code, const std::string& Why) {
    EXPECT_EQ(static_cast<HRESULT>(0x80040200 + Code), BackupSomething());
    EXPECT_EQ(
        "Cannot read the base folder from the default value of the registry key "
        "'HKEY_CURRENT_USER\\Software\\Orvane\\Core': " +
            Why,
        ErrorText());
  };
  DeleteKeyTree(L"Software\\Orvane\\Core");
  for (const TPublishedClass& Class : PublishedClasses) EXPECT_TRUE(Make<IDispatch>(Class.ClassId)) << Class.Name;
  ExpectTold(ERROR_FILE_NOT_FOUND, SystemText(ERROR_FILE_NOT_FOUND));
  SetBaseFolder(REG_BINARY, "C:\\Somewhere");
  ExpectTold(ERROR_INVALID_DATA, "It is not a string.");
  SetBaseFolder(REG_SZ, WideBytes(std::wstring(1, L'\0')));
  ExpectTold(ERROR_INVALID_DATA, "It is empty.");
  // Mended without a restart, by a text that ends with its bytes.
  SetBaseFolder(REG_SZ, WideBytes(ToWide(Base())));
  EXPECT_EQ(S_OK, BackupSomething());
  EXPECT_TRUE(Exists(Service("Backup")));
}

}  // namespace
