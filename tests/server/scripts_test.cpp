#include "server/published.h"
#include "support/sandbox_test.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace {

/// Presses Cancel in message boxes and "Yes" in custom ones: the user of scripts, which run in a process of their own.
void PressButtons() {
  if (const HWND Box = FindWindowA("#32770", nullptr)) PostMessageA(Box, WM_COMMAND, IDCANCEL, 0);
  const HWND Custom = FindWindowA("MendworkCustomMsgBox", nullptr);
  const HWND Yes = Custom ? FindWindowExA(Custom, nullptr, "Button", "Yes") : nullptr;
  if (Yes) PostMessageA(Custom, WM_COMMAND, 0, reinterpret_cast<LPARAM>(Yes));
}

std::string FileText(const std::string& Name) {
  std::string Path = "Z:" MENDWORK_TEST_FILES "/server/scripts/" + Name;
  std::replace(Path.begin(), Path.end(), '/', '\\');
  return Read(Path);
}

class Script : public TSandboxTest {
 protected:
  Script() : TSandboxTest(NoDoubles) {}
};

// Each does its work, or fails with a failure or refusal of its own, in words of its own. The calls are written out
// into one script because the platform's VBScript cannot execute a text.
TEST_F(Script, ReachesEveryMethodByName) {
  const std::vector<TPublishedClass> Classes = PublishedClasses();
  std::string Program = FileText("before.vbs");
  for (const auto& Class : Classes)
    Program += "Dim " + Class.Name + ": Set " + Class.Name + " = CreateObject(\"Mendwork." + Class.Name + ".6\")\n";
  Program += "On Error Resume Next\n";
  std::istringstream Calls(FileText("calls.txt"));
  for (std::string Line; std::getline(Calls, Line);) {
    const size_t Start = Line.find('U');
    Program += (Start == 0 ? "Call " : "") + Line + "\nReach \"" + Line.substr(Start, Line.find('(') - Start) + "\"\n";
  }
  Write(App("file.txt"), "content");
  Write(App("program.vbs"), Program);
  const auto Ran =
      RunSystemProgram("cscript.exe", "//nologo \"" + App("program.vbs") + "\" \"" + App() + "\"", PressButtons);
  EXPECT_EQ(0u, Ran.Status);
  std::map<std::string, std::string> Outcomes;
  std::istringstream Lines(Ran.Output);
  for (std::string Line; std::getline(Lines, Line);)
    if (const size_t Colon = Line.find(": "); Colon != std::string::npos)
      Outcomes[Line.substr(0, Colon)] = Line.substr(Colon + 2, Line.find_last_not_of("\r ") - Colon - 1);
  for (const auto& Class : Classes)
    for (const auto& [Id, Method] : Class.Methods) {
      const std::string& Outcome = Outcomes[Class.Name + "." + Method];
      const std::string OfBuffers = "80004001 '" + Method + "' takes a raw memory buffer, which cannot be passed late ";
      EXPECT_TRUE(Outcome.starts_with("ok") || Outcome.starts_with("8004") || Outcome.starts_with(OfBuffers))
          << Class.Name << "." << Method << ": " << Outcome;
    }
  EXPECT_EQ("ok kept text", Outcomes["UBackup.RestoreString"]);
  EXPECT_EQ("ok {0B5C1F7E-3C55-4B1A-9C11-0123456789AB}", Outcomes["UTransactionLog.Rollback"]);
  EXPECT_EQ("ok 2", Outcomes["UDialog.ShowMsgBox"]);
  EXPECT_EQ("ok Yes", Outcomes["UDialog.ShowCustomMsgBox"]);
  EXPECT_EQ("ok", Outcomes["UFile.CopyFileLogged"]);
  EXPECT_TRUE(Outcomes["UBackup.RestoreData"].starts_with("80004001 'RestoreData'"));
}

}  // namespace
