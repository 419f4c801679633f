#include "server/published.h"
#include "stories/story.h"

#include <sstream>

namespace {

/// Presses Cancel in message boxes and "Yes" in custom ones: the user of scripts, which run in a process of their own.
void PressButtons() {
  if (const HWND Box = FindWindowA("#32770", nullptr)) PostMessageA(Box, WM_COMMAND, IDCANCEL, 0);
  const HWND Custom = FindWindowA("MendworkCustomMsgBox", nullptr);
  const HWND Yes = Custom ? FindWindowExA(Custom, nullptr, "Button", "Yes") : nullptr;
  if (Yes) PostMessageA(Custom, WM_COMMAND, 0, reinterpret_cast<LPARAM>(Yes));
}

std::string FileText(const std::string& Name) { return Read("Z:" MENDWORK_TEST_FILES "/server/scripts/" + Name); }

class Script : public TSandboxTest {
 protected:
  Script() : TSandboxTest(NoDoubles) {}
};

// What becomes of each is in outcomes.txt. The calls are written out into one script because the platform's VBScript
// cannot execute a text.
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
  auto [Status, Output] =
      RunSystemProgram("cscript.exe", "//nologo \"" + App("program.vbs") + "\" \"" + App() + "\"", PressButtons);
  EXPECT_EQ(0u, Status);
  std::erase(Output, '\r');
  ExpectText("server\\scripts", "outcomes.txt", Output);
  for (const auto& Class : Classes)
    for (const auto& [Id, Method] : Class.Methods)
      EXPECT_NE(std::string::npos, Output.find(Class.Name + "." + Method + ": ")) << Class.Name << "." << Method;
}

}  // namespace
