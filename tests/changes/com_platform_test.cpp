// A server and a type library that the platform ships: what a rollback brings back is compared in the whole registry,
// as the platform's own editor exports it.

#include "changes/com_test.h"
#include "server/text.h"
#include "support/program.h"

#include <set>
#include <sstream>

namespace {

class Platform : public TComTest {
 protected:
  Platform() {
    char System[MAX_PATH] = "";
    GetSystemDirectoryA(System, sizeof System);
    SystemFolder = System;
  }
  std::string WholeRegistry() const {
    const std::string File = App("export.reg");
    RunSystemProgram("..\\regedit.exe", "/E \"" + File + "\"");
    const std::string Content = Read(File);
    DeleteFileA(File.c_str());
    EXPECT_LT(1000000u, Content.size());
    return Content;
  }
  /// The lines of an export, each with its key.
  static std::set<std::string> LinesOf(const std::string& Export) {
    const std::wstring_view Content(reinterpret_cast<const wchar_t*>(Export.data()), Export.size() / sizeof(wchar_t));
    std::istringstream Lines(ToAnsi(Content));
    std::set<std::string> Result;
    std::string Key;
    for (std::string Line; std::getline(Lines, Line);) {
      if (Line.starts_with("[")) Key = Line;
      Result.insert(Key + " " + Line);
    }
    return Result;
  }
  static std::string Difference(const std::string& Before, const std::string& After) {
    if (Before == After) return "";
    const std::set<std::string> Old = LinesOf(Before), New = LinesOf(After);
    std::string Result = "differs\n";
    for (const std::string& Line : Old) Result += New.count(Line) ? "" : "missing: " + Line + "\n";
    for (const std::string& Line : New) Result += Old.count(Line) ? "" : "new: " + Line + "\n";
    return Result;
  }
  /// What a script gets that uses the server.
  std::string ScriptSays() const {
    Write(App("use.vbs"),
          "Set Words = CreateObject(\"Scripting.Dictionary\")\r\nWords.Add \"one\", 1\r\nWords.Add \"two\", 2\r\n"
          "WScript.Echo Words.Count & Words.Item(\"two\")\r\n");
    return RunSystemProgram("cscript.exe", "//nologo \"" + App("use.vbs") + "\"").Output;
  }

  std::string SystemFolder;
};

constexpr char Works[] = "22\r\n";

TEST_F(Platform, ServerIsBroughtBackWithEveryKeyAndServesAScript) {
  const std::string Server = SystemFolder + "\\scrrun.dll";
  // The script host registers itself when it runs, and takes an interface of the server's for its own.
  ScriptSays();
  // The other bitness may have been registered last; from here on only this one counts.
  ASSERT_EQ(S_OK, Com->RegServer(Text(Server))) << ErrorText();
  const std::string Registered = WholeRegistry();

  ASSERT_EQ(S_OK, Com->UnRegServerLogged(Text(Server))) << ErrorText();
  const std::string Unregistered = WholeRegistry();
  EXPECT_NE(Registered, Unregistered);
  EXPECT_NE(Works, ScriptSays());
  ASSERT_EQ(S_OK, RollbackAll()) << ErrorText();
  EXPECT_EQ("", Difference(Registered, WholeRegistry()));
  EXPECT_EQ(Works, ScriptSays());

  ASSERT_EQ(S_OK, Com->Reg(Text(Server)));
  ASSERT_EQ(S_OK, Com->UnReg(Text(Server)));
  ASSERT_EQ(S_OK, Com->RegLogged(Text(Server))) << ErrorText();
  ASSERT_EQ(S_OK, RollbackAll()) << ErrorText();
  EXPECT_EQ("", Difference(Unregistered, WholeRegistry()));
  EXPECT_NE(Works, ScriptSays());

  ASSERT_EQ(S_OK, Com->RegServer(Text(Server))) << "other tests need it";
  EXPECT_EQ(nullptr, GetModuleHandleA("scrrun.dll"));
}

TEST_F(Platform, TypeLibraryIsBroughtBackWithEveryKey) {
  const std::string Library = SystemFolder + "\\ACTIVEDS.TLB";
  ASSERT_EQ(S_OK, Com->Reg(Text(Library))) << ErrorText();
  const std::string Registered = WholeRegistry();
  ASSERT_EQ(S_OK, Com->UnRegLogged(Text(Library))) << ErrorText();
  EXPECT_EQ(std::vector{3}, Codes());
  const std::string Unregistered = WholeRegistry();
  EXPECT_NE(Registered, Unregistered);
  ASSERT_EQ(S_OK, RollbackAll()) << ErrorText();
  EXPECT_EQ("", Difference(Registered, WholeRegistry()));

  ASSERT_EQ(S_OK, Com->UnReg(Text(Library)));
  ASSERT_EQ(S_OK, Com->RegLogged(Text(Library)));
  EXPECT_EQ(std::vector{2}, Codes());
  ASSERT_EQ(S_OK, RollbackAll()) << ErrorText();
  EXPECT_EQ("", Difference(Unregistered, WholeRegistry()));

  ASSERT_EQ(S_OK, Com->Reg(Text(Library))) << "as it was found";
}

TEST_F(Platform, TypeLibraryOfTheirsThatIsCutOffIsNotRegistered) {
  // It is a module, with the library inside.
  const std::string Whole = Read(SystemFolder + "\\activeds.tlb"), Path = App("activeds.tlb");
  for (size_t Part = 0; Part < 10; ++Part) {
    SCOPED_TRACE(Part);
    Write(Path, Whole.substr(0, Whole.size() * Part / 10));
    EXPECT_EQ(static_cast<HRESULT>(0x80049E4A), Com->RegTLB(Text(Path)));
    ExpectUnloaded(Path);
  }
}

}  // namespace
