// A server and a type library that the platform ships: what a rollback brings back is compared in the whole registry,
// as the platform's own editor exports it.

#include "base/text.h"
#include "changes/changes_test.h"
#include "support/process.h"

#include <algorithm>
#include <set>
#include <sstream>

namespace {

class Platform : public TComTest {
 protected:
  static std::string InSystemFolder(const std::string& Name) {
    char System[MAX_PATH] = "";
    GetSystemDirectoryA(System, sizeof System);
    return std::string(System) + "\\" + Name;
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
    std::vector<std::string> OnlyInOne;
    std::set_symmetric_difference(Old.begin(), Old.end(), New.begin(), New.end(), std::back_inserter(OnlyInOne));
    return testing::PrintToString(OnlyInOne);
  }
};

TEST_F(Platform, ServersAndTypeLibrariesAreBroughtBackWithEveryKey) {
  for (const auto& [Name, RegisteredCode] : {std::pair{"scrrun.dll", 0}, std::pair{"ACTIVEDS.TLB", 2}}) {
    SCOPED_TRACE(Name);
    const Text File(InSystemFolder(Name));
    // The other bitness may have been registered last; from here on only this one counts.
    ASSERT_EQ(S_OK, Com->Reg(File)) << ErrorText();
    const std::string Registered = WholeRegistry();
    ASSERT_EQ(S_OK, Com->UnRegLogged(File)) << ErrorText();
    EXPECT_EQ(std::vector{RegisteredCode + 1}, Codes());
    const std::string Unregistered = WholeRegistry();
    EXPECT_NE(Registered, Unregistered);
    RollbackToStart();
    EXPECT_EQ("", Difference(Registered, WholeRegistry()));

    ASSERT_EQ(S_OK, Com->UnReg(File));
    ASSERT_EQ(S_OK, Com->RegLogged(File)) << ErrorText();
    EXPECT_EQ(std::vector{RegisteredCode}, Codes());
    RollbackToStart();
    EXPECT_EQ("", Difference(Unregistered, WholeRegistry()));
    ASSERT_EQ(S_OK, Com->Reg(File)) << "other tests need it";
    EXPECT_EQ(nullptr, GetModuleHandleA(Name));
  }
}

}  // namespace
