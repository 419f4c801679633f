#include "server/coclasses.h"
#include "support/program.h"
#include "support/sandbox.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

namespace {

/// Presses Cancel in message boxes and "Yes" in custom ones: the user of scripts, which run in a process of their own.
void PressButtons() {
  if (const HWND Box = FindWindowA("#32770", nullptr)) PostMessageA(Box, WM_COMMAND, IDCANCEL, 0);
  const HWND Custom = FindWindowA("MendworkCustomMsgBox", nullptr);
  const HWND Yes = Custom ? FindWindowExA(Custom, nullptr, "Button", "Yes") : nullptr;
  if (Yes) PostMessageA(Custom, WM_COMMAND, 0, reinterpret_cast<LPARAM>(Yes));
}

/// "UFile.CopyFile" and so on for every method of the twelve classes, as the objects describe themselves.
std::set<std::string> AllMethods() {
  std::set<std::string> Methods;
  for (const TPublishedClass& Class : PublishedClasses) {
    const auto Object = Make<IDispatch>(Class.ClassId);
    TComRef<ITypeInfo> Info;
    TYPEATTR* Attributes = nullptr;
    Object->GetTypeInfo(0, LOCALE_USER_DEFAULT, Info.Out());
    Info->GetTypeAttr(&Attributes);
    for (DISPID Id = 1; Id <= Attributes->cFuncs; ++Id) {
      TBstr Name;
      if (SUCCEEDED(Info->GetDocumentation(Id, Name.Out(), nullptr, nullptr, nullptr)))
        Methods.insert(Class.Name + "." + Take(Name));
    }
    Info->ReleaseTypeAttr(Attributes);
  }
  return Methods;
}

std::string FilePath(const std::string& Name) {
  std::string Path = "Z:" MENDWORK_TEST_FILES "/server/scripts/" + Name;
  std::replace(Path.begin(), Path.end(), '/', '\\');
  return Path;
}

class Script : public TSandbox {
 protected:
  Script() : TSandbox(NoDoubles) { Write(App("file.txt"), "content"); }

  /// Runs a script and gives what it says became of each method.
  std::map<std::string, std::string> OutcomesOf(const std::string& Arguments) {
    const TProgramResult Ran = RunSystemProgram("cscript.exe", "//nologo " + Arguments, PressButtons);
    EXPECT_EQ(0u, Ran.Status);
    std::map<std::string, std::string> Outcomes;
    std::istringstream Lines(Ran.Output);
    for (std::string Line; std::getline(Lines, Line);) {
      if (Line.find_first_not_of("\r ") == std::string::npos) continue;  // a line break of a system text
      const size_t Colon = Line.find(": "), End = Line.find_last_not_of("\r ");
      EXPECT_NE(std::string::npos, Colon) << Line;
      if (Colon != std::string::npos) Outcomes[Line.substr(0, Colon)] = Line.substr(Colon + 2, End - Colon - 1);
    }
    return Outcomes;
  }

  /// Every method was reached: it did its work, or failed with a failure or refusal of its own, in words of its own.
  static void ExpectReached(const std::map<std::string, std::string>& Outcomes) {
    std::set<std::string> Reached;
    for (const auto& [Method, Outcome] : Outcomes) {
      const std::string Class = Method.substr(0, Method.find('.')), Name = Method.substr(Class.size() + 1);
      const std::string OfBuffers = "80004001 '" + Name + "' takes a raw memory buffer";
      const std::string NotYet = "80004001 Mendwork." + Class + ": this method is not available";
      if (Outcome.starts_with("ok") || Outcome.starts_with("8004") || Outcome.starts_with(OfBuffers) ||
          Outcome.starts_with(NotYet))
        Reached.insert(Method);
      else
        ADD_FAILURE() << Method << ": " << Outcome;
    }
    EXPECT_EQ(AllMethods(), Reached);
    EXPECT_EQ("ok kept text", Outcomes.at("UBackup.RestoreString"));
    EXPECT_EQ("ok {0B5C1F7E-3C55-4B1A-9C11-0123456789AB}", Outcomes.at("UTransactionLog.Rollback"));
    EXPECT_EQ("ok 2", Outcomes.at("UDialog.ShowMsgBox"));
    EXPECT_EQ("ok Yes", Outcomes.at("UDialog.ShowCustomMsgBox"));
    EXPECT_EQ("ok", Outcomes.at("UFile.CopyFileLogged"));
    EXPECT_TRUE(Outcomes.at("UBackup.RestoreData").starts_with("80004001 'RestoreData'"));
  }
};

TEST_F(Script, InJScriptReachesEveryMethodByName) {
  ExpectReached(OutcomesOf("\"" + FilePath("calls.js") + "\" \"" + App() + "\" \"" + FilePath("calls.txt") + "\""));
}

TEST_F(Script, InVBScriptReachesEveryMethodByName) {
  // The platform's VBScript cannot execute a text, so the calls are written out.
  std::string Program = Read(FilePath("calls.vbs"));
  std::istringstream Calls(Read(FilePath("calls.txt")));
  for (std::string Line; std::getline(Calls, Line);) {
    const size_t Name = Line.find('U');
    Program += (Line.find(" = ") == std::string::npos ? "Call " : "") + Line + "\nReach \"" +
               Line.substr(Name, Line.find('(') - Name) + "\"\n";
  }
  Write(App("program.vbs"), Program);
  ExpectReached(OutcomesOf("\"" + App("program.vbs") + "\" \"" + App() + "\""));
}

}  // namespace
