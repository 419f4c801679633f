#include "server/coclasses.h"
#include "support/program.h"
#include "support/sandbox.h"

namespace {

constexpr char Key[] = "Software\\Orvane\\Core";

class Environment : public TSandbox {
 protected:
  static void SetBaseFolder(DWORD Type, const void* Value, size_t Size) {
    RegSetKeyValueA(HKEY_CURRENT_USER, Key, nullptr, Type, Value, static_cast<DWORD>(Size));
  }
  static void SetBaseFolder(const std::string& Path) { SetBaseFolder(REG_SZ, Path.c_str(), Path.size() + 1); }
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
  SetBaseFolder(Root() + "\\Elsewhere");
  MakeFolders(Root() + "\\Elsewhere");
  EXPECT_EQ(S_OK, BackupSomething());
  EXPECT_EQ(Items + 1, TreeOf(Service("Backup")).size());
  EXPECT_TRUE(TreeOf(Root() + "\\Elsewhere").empty());
}

TEST_F(Environment, BaseFolderIsTakenAsItStands) {
  SetBaseFolder(Base() + "\\");
  ASSERT_EQ(S_OK, BackupSomething());
  bool Doubled = false;
  const std::string Start = "RetryCreateFile " + Base() + "\\\\Updates\\Mendwork\\Backup\\{";
  for (const auto& Line : Log().Lines) Doubled = Doubled || Line.Text.starts_with(Start);
  EXPECT_TRUE(Doubled);
}

TEST_F(Environment, UnterminatedBaseFolderEndsWithItsBytes) {
  SetBaseFolder(REG_SZ, Base().c_str(), Base().size());
  EXPECT_EQ(S_OK, BackupSomething());
  EXPECT_TRUE(Exists(Service("Backup")));
}

struct TMissing {
  const char* Name;
  DWORD Type;  ///< REG_NONE: no key at all
  std::string Value;
  DWORD Code;
  const char* Why;  ///< null for the system's text
};

void PrintTo(const TMissing& Row, std::ostream* Out) { *Out << Row.Name; }

class MissingBaseFolder : public Environment, public testing::WithParamInterface<TMissing> {};

TEST_P(MissingBaseFolder, IsToldByTheFirstCallThatNeedsIt) {
  const TMissing& Row = GetParam();
  RegDeleteTreeA(HKEY_CURRENT_USER, Key);
  if (Row.Type != REG_NONE) SetBaseFolder(Row.Type, Row.Value.data(), Row.Value.size());
  for (const TPublishedClass& Class : PublishedClasses) EXPECT_TRUE(Make<IDispatch>(Class.ClassId)) << Class.Name;

  EXPECT_EQ(static_cast<HRESULT>(0x80040200 + Row.Code), BackupSomething());
  EXPECT_EQ(
      "Cannot read the base folder from the default value of the registry key "
      "'HKEY_CURRENT_USER\\Software\\Orvane\\Core'"
      ": " +
          (Row.Why ? Row.Why : SystemText(Row.Code)),
      ErrorText());
  SetBaseFolder(Base());
  EXPECT_EQ(S_OK, BackupSomething());  // mended without a restart
}

INSTANTIATE_TEST_SUITE_P(
    Rows, MissingBaseFolder,
    testing::Values(TMissing{"no_key", REG_NONE, "", ERROR_FILE_NOT_FOUND, nullptr},
                    TMissing{"number", REG_DWORD, std::string(4, 'C'), ERROR_INVALID_DATA, "It is not a string."},
                    TMissing{"bytes", REG_BINARY, "C:\\Somewhere", ERROR_INVALID_DATA, "It is not a string."},
                    TMissing{"empty", REG_SZ, std::string(1, '\0'), ERROR_INVALID_DATA, "It is empty."}),
    [](const auto& Info) { return std::string(Info.param.Name); });

TEST_F(Environment, FileVersionsAreShownInFourParts) {
  Write(App("without.dll"), "no resource");
  ASSERT_TRUE(CopyFileA(BuiltModulePath().c_str(), App("with.dll").c_str(), FALSE));
  constexpr long AskUnlessNewer = 4;
  const auto File = Make<IUFile>(CLSID_UFile);
  EXPECT_EQ(S_OK, File->CopyFile(Text(App("without.dll")), Text(App("with.dll")), AskUnlessNewer));
  ASSERT_EQ(1u, Dialog().Boxes.size());
  EXPECT_EQ(0u, Dialog().Boxes[0].Text.find("Overwrite '" + App("with.dll") + "'\r\n       version 6.0.0.0\r\n"));
  EXPECT_NE(std::string::npos,
            Dialog().Boxes[0].Text.find("With file '" + App("without.dll") + "'\r\n       version 0.0.0.0\r\n"));
}

TEST_F(Environment, EveryCallTakesTheNextId) {
  ASSERT_EQ(S_OK, BackupSomething());
  ASSERT_FALSE(Log().Lines.empty());
  EXPECT_EQ(1, Log().Lines.front().Id);
  long Highest = 0;
  for (const auto& Line : Log().Lines) {
    if (Line.Action == "Begin") {
      EXPECT_GT(Line.Id, Highest) << Line.Text;
    }
    Highest = std::max(Highest, Line.Id);
  }
}

}  // namespace
