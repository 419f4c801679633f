#include "support/process.h"
#include "support/sandbox_test.h"

namespace {

/// An updater that dies after its last change.
const TRole DyingUpdater(
    "dying updater",
    [](const TWords& Words, TScriptedDialog&) {
      const std::string& App = Words.at(0);
      const auto Log = Make<IUTransactionLog>(CLSID_UTransactionLog);
      const auto File = Make<IUFile>(CLSID_UFile);
      HRESULT Result = Log->PutCheckPoint(NumberedGuid(7));
      for (const char* Name : {"one", "two", "three"})
        Result |= File->CopyFileLogged(Text(App + "\\new"), Text(App + "\\" + Name), 0);
      Result |= Make<IURegistry>(CLSID_URegistry)
                    ->SetStringValueLogged(TSandboxTest::User, Text(TSandboxTest::Key()), Text("Version"), Text("2"));
      TerminateProcess(GetCurrentProcess(), Result == S_OK ? 0 : 1);
      return 1;
    },
    TRole::WithoutDoubles);

class Mendctl : public TSandboxTest {
 protected:
  Mendctl() : TSandboxTest(NoDoubles) {
    for (const char* Name : {"new", "one", "two", "three"}) Write(App(Name), std::string("this is ") + Name);
    RegSetKeyValueA(HKEY_CURRENT_USER, Key().c_str(), "Version", REG_SZ, "1", 2);
    Before = TreeOf(App());
    EXPECT_EQ(0u, TChild({"dying updater", App()}).Wait());
  }
  /// Runs the console; gives what it prints.
  std::string Run(const std::string& Arguments) {
    const TProgramResult Result = RunProgram(BuiltFile("mendctl.exe"), Arguments);
    Status = Result.Status;
    return Result.Output;
  }
  static bool Tells(const std::string& Told, const std::string& What) { return Told.find(What) != std::string::npos; }

  TTree Before;
  DWORD Status = 0;
};

TEST_F(Mendctl, RollsBackWithTheLibraryAndLeavesOutTheOneChangeThatCannotBeUndone) {
  std::string Told = Run("status");
  EXPECT_TRUE(Status == 1 && Tells(Told, "interrupted, or never committed: 4 changes since check point") &&
              Tells(Told, "none is alive"))
      << Told;
  Told = Run("diff 5");
  EXPECT_TRUE(Status == 1 && Tells(Told, "data: \"1\" saved, \"2\" now")) << Told;
  {
    const TFileHandle Held(CreateFileA(App("two").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    Told = Run("plan");
    EXPECT_TRUE(Status == 1 && Tells(Told, App("two") + " is in use by") && Tells(Told, "1 of 4 steps would fail"))
        << Told;
  }
  // The item of the change that cannot be undone any more.
  EXPECT_EQ(0u, (Run("extract 3 " + App("saved")), Status));
  Told = Run("show 3 --json");
  const size_t Item = Told.find("\"item\": \"") + 9;
  DeleteFileA(Service("Backup\\" + Told.substr(Item, 38)).c_str());
  Told = Run("plan");
  EXPECT_TRUE(Status == 1 && Tells(Told, "cannot be used: it is missing")) << Told;
  Told = Run("rollback --silent");
  EXPECT_TRUE(Status == 1 && Tells(Told, "2 changes undone") && Tells(Told, App("two")) &&
              Tells(Told, "rollback --skip 3"))
      << Told;
  EXPECT_EQ("this is three", Read(App("three")));
  EXPECT_EQ("this is new", Read(App("one")));
  Told = Run("rollback --silent --skip 3");
  EXPECT_TRUE(Status == 0 && Tells(Told, "1 change undone") && Tells(Told, "update.prt.skipped1")) << Told;
  EXPECT_EQ("this is one", Read(App("one")));
  EXPECT_EQ(TRegistryEntry({REG_SZ, std::string("1\0\0\0", 4)}), Value(L"", L"Version"));
}

TEST_F(Mendctl, WaitsForNobodyAndTouchesNothingWhileAnUpdaterLives) {
  const auto Log = Make<IUTransactionLog>(CLSID_UTransactionLog);
  EXPECT_TRUE(Tells(Run("status"), "in progress")) << "the library is loaded";
  for (const char* Words : {"commit --yes", "prune", "rollback --skip 3"}) {
    const std::string Told = Run(Words);
    EXPECT_TRUE(Status == 3 && Tells(Told, "an updater has it in use")) << Words << Told;
  }
  EXPECT_EQ(S_OK, RollBack());
  EXPECT_EQ(Before, TreeOf(App()));
}

}  // namespace
