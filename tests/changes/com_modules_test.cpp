// Modules of every kind, well-behaved or not: what the caller is told, what the user sees, what the log says, and that
// the module is let go.

#include "changes/com_test.h"

namespace {

using TLines = std::vector<std::string>;

enum TOrigin {
  TestServer,    ///< our own module, which does what its name says
  NoFunctions,   ///< a module that exports nothing
  OtherBitness,  ///< a module for programs of the other bitness
  TextFile,
};

constexpr HRESULT NoFunction = static_cast<HRESULT>(0x8004027F), NoModule = static_cast<HRESULT>(0x800402C1),
                  Refused = static_cast<HRESULT>(0x800401FE);

/// In texts, {File} is the module's path, {Function} the function's name, {Reason} the system's text for the failure.
struct TModuleCase {
  const char* Name;
  TOrigin Origin;
  const char* FileName;
  HRESULT Registered;
  const char* Message;
  const char* Box;        ///< what the user sees, without the system's reason; null when nothing
  const char* Exception;  ///< the line of UnRegServer about a failure that it swallows; null when there is none
};
std::ostream& operator<<(std::ostream& Out, const TModuleCase& Case) { return Out << Case.Name; }

#if defined(__i386__)
#define THROWN "E06D7363"
#else
#define THROWN "20474343"
#endif
constexpr char CannotLoad[] = "Cannot load library '{File}'.",
               CannotFind[] = "Cannot get the address of '{Function}' function in library '{File}'.",
               CallFailed[] = "Call of DllRegisterServer in '{File}' library failed.";
#define ENDED(Code) "'{Function}' ended with exception " Code "."

const TModuleCase Cases[] = {
    {"good", TestServer, "returns-0.dll", S_OK, "", nullptr, nullptr},
    {"gives_s_false", TestServer, "returns-1.dll", Refused, CallFailed, nullptr, nullptr},
    {"gives_failure", TestServer, "returns-80070005.dll", Refused, CallFailed, nullptr, nullptr},
    {"crashes", TestServer, "crash.dll", E_UNEXPECTED, ENDED("C0000005"), nullptr, ENDED("C0000005")},
    {"throws", TestServer, "throw.dll", E_UNEXPECTED, ENDED(THROWN), nullptr, ENDED(THROWN)},
    {"exports_nothing", NoFunctions, "empty.dll", NoFunction, "{Reason}", CannotFind, nullptr},
    {"other_bitness", OtherBitness, "other.dll", NoModule, "{Reason}", CannotLoad, nullptr},
    {"text", TextFile, "text.dll", NoModule, "{Reason}", CannotLoad, nullptr},
};

class Module : public TComTest, public testing::WithParamInterface<TModuleCase> {
 protected:
  Module() {
    char Own[MAX_PATH] = "";
    GetModuleFileNameA(nullptr, Own, sizeof Own);
    const std::string Build(Own, std::string(Own).rfind('\\'));
    const std::string Other = sizeof(void*) == 4 ? "C:\\windows\\sysnative" : "C:\\windows\\syswow64";
    if (Case.Origin == TextFile) Write(Path, "MZ, but no module");
    if (Case.Origin == TestServer) Take(Build + "\\server.dll");
    if (Case.Origin == NoFunctions) Take(Build + "\\versioned\\first.dll");
    if (Case.Origin == OtherBitness) Take(Other + "\\scrrun.dll");
  }
  void Take(const std::string& Source) const {
    ASSERT_TRUE(CopyFileA(Source.c_str(), Path.c_str(), TRUE)) << Source << ": " << GetLastError();
  }
  std::string Fill(std::string Pattern, const std::string& Function) {
    const DWORD Code = Case.Registered == NoFunction ? ERROR_PROC_NOT_FOUND : ERROR_BAD_EXE_FORMAT;
    const std::pair<const char*, std::string> Values[] = {
        {"{File}", Path}, {"{Function}", Function}, {"{Reason}", SystemText(Code)}};
    for (const auto& [Key, Value] : Values)
      for (size_t At; (At = Pattern.find(Key)) != std::string::npos;)
        Pattern.replace(At, std::string(Key).size(), Value);
    return Pattern;
  }
  /// What the user saw since the last look.
  TLines Boxes() {
    TLines Result;
    for (const auto& Box : Dialog().Boxes) Result.push_back(Box.Text.substr(0, Box.Text.find("\r\n")));
    Dialog().Boxes.clear();
    return Result;
  }
  TLines ExpectedBoxes(const std::string& Function) { return Case.Box ? TLines{Fill(Case.Box, Function)} : TLines(); }
  /// How often the module's function was called.
  static int Calls(const std::wstring& Function) {
    const TRegistryEntry Count = Value(L"", Function);
    return Count.Type < 0 ? 0 : Count.Data[0];
  }

  const TModuleCase& Case = GetParam();
  const std::string Path = App(Case.FileName);
  const int CallsExpected = Case.Origin == TestServer;
};

TEST_P(Module, IsRegisteredOrTellsWhyNotAndIsUnregisteredWithoutAFailure) {
  EXPECT_EQ(Case.Registered, Com->RegServer(Text(Path)));
  EXPECT_EQ(Fill(Case.Message, "DllRegisterServer"), ErrorText());
  EXPECT_EQ(ExpectedBoxes("DllRegisterServer"), Boxes());
  TLines Expected = {"0 Begin RegServer " + Path};
  if (Case.Registered == S_OK) Expected.push_back("0 End RegServer");
  EXPECT_EQ(Expected, NumberedLines());
  EXPECT_EQ(CallsExpected, Calls(L"DllRegisterServer"));
  ExpectUnloaded(Path);

  Log().Lines.clear();
  EXPECT_EQ(S_OK, Com->UnRegServer(Text(Path))) << ErrorText();
  EXPECT_EQ(ExpectedBoxes("DllUnregisterServer"), Boxes());
  Expected = {"0 Begin UnRegServer " + Path};
  if (Case.Exception) Expected.push_back("0 Exception UnRegServer " + Fill(Case.Exception, "DllUnregisterServer"));
  Expected.push_back("0 End UnRegServer 1");
  EXPECT_EQ(Expected, NumberedLines());
  EXPECT_EQ(CallsExpected, Calls(L"DllUnregisterServer"));
  ExpectUnloaded(Path);
}

TEST_P(Module, RollsBackWhateverBecameOfIt) {
  EXPECT_EQ(Case.Registered, Com->RegServerLogged(Text(Path)));
  EXPECT_EQ(std::vector{0}, Codes());
  ASSERT_EQ(S_OK, RollbackAll()) << ErrorText();
  EXPECT_EQ(CallsExpected, Calls(L"DllUnregisterServer"));
  EXPECT_EQ(std::vector<int>(), Codes());
  ExpectUnloaded(Path);

  // The undoing of an unregistration is a registration, and stops the rollback as that fails.
  EXPECT_EQ(S_OK, Com->UnRegServerLogged(Text(Path)));
  EXPECT_EQ(std::vector{1}, Codes());
  EXPECT_EQ(Case.Registered, RollbackAll());
  EXPECT_EQ(2 * CallsExpected, Calls(L"DllRegisterServer"));
  EXPECT_EQ(Case.Registered == S_OK ? std::vector<int>() : std::vector{1}, Codes());
  ExpectUnloaded(Path);
}

INSTANTIATE_TEST_SUITE_P(Servers, Module, testing::ValuesIn(Cases), testing::PrintToStringParamName());

// ---- The log and the routing, on the module that behaves

class GoodModule : public TComTest {
 protected:
  GoodModule() {
    char Own[MAX_PATH] = "";
    GetModuleFileNameA(nullptr, Own, sizeof Own);
    const std::string Source = std::string(Own, std::string(Own).rfind('\\')) + "\\server.dll";
    for (const std::string& Path : {Server, Library, NoExtension})
      EXPECT_TRUE(CopyFileA(Source.c_str(), Path.c_str(), TRUE)) << GetLastError();
  }
  // Only the upper-case extension of the name's own part makes a type library.
  const std::string Server = App("returns-0.tlb"), Library = App("returns-0.x.TLB"), NoExtension = App("returns-0");
};

TEST_F(GoodModule, WritesTheLinesOfItsLoggedOperations) {
  const std::string Path = Server;
  ASSERT_EQ(S_OK, Com->RegLogged(Text(Path)));
  const std::string First = DataID();
  ASSERT_EQ(S_OK, Com->UnRegLogged(Text(Path)));
  const std::string Second = DataID();
  EXPECT_EQ((std::vector{0, 1}), Codes());
  EXPECT_EQ((TLines{"0 Begin RegLogged " + Path, "1 Begin RegServerLogged " + Path, "2 Begin RegServer " + Path,
                    "2 End RegServer", "1 End RegServerLogged", "0 End RegLogged", "3 Begin UnRegLogged " + Path,
                    "4 Begin UnRegServerLogged " + Path, "5 Begin UnRegServer " + Path, "5 End UnRegServer 1",
                    "4 End UnRegServerLogged", "3 End UnRegLogged"}),
            NumberedLines());
  Log().Lines.clear();
  ASSERT_EQ(S_OK, RollbackAll());
  EXPECT_EQ(
      (TLines{"0 Begin Rollback 1 " + Second, "1 Begin RegServer " + Path, "1 End RegServer", "0 End Rollback",
              "2 Begin Rollback 0 " + First, "3 Begin UnRegServer " + Path, "3 End UnRegServer 1", "2 End Rollback"}),
      NumberedLines());
}

TEST_F(GoodModule, IsTakenAsATypeLibraryByItsUpperCaseExtensionOnly) {
  const auto FirstLines = [this](TMethod Method, const std::string& Path) {
    Log().Lines.clear();
    Run(Method, Path);
    std::string Result;
    for (const std::string& Line : NumberedLines())
      if (Line.find(" Begin ") != std::string::npos) Result += Line.substr(8, Line.rfind(' ') - 8) + " ";
    return Result;
  };
  for (const std::string& Path : {Server, NoExtension, App("no.TLB\\missing")}) {
    EXPECT_EQ("Reg RegServer ", FirstLines(&IUCom::Reg, Path)) << Path;
    EXPECT_EQ("UnReg UnRegServer ", FirstLines(&IUCom::UnReg, Path)) << Path;
    EXPECT_EQ("RegLogged RegServerLogged RegServer ", FirstLines(&IUCom::RegLogged, Path)) << Path;
    EXPECT_EQ("UnRegLogged UnRegServerLogged UnRegServer ", FirstLines(&IUCom::UnRegLogged, Path)) << Path;
  }
  EXPECT_EQ("Reg RegTLB ", FirstLines(&IUCom::Reg, Library));
  EXPECT_EQ("UnReg UnRegTLB ", FirstLines(&IUCom::UnReg, Library));
  EXPECT_EQ("RegLogged RegTLBLogged RegTLB ", FirstLines(&IUCom::RegLogged, Library));
  EXPECT_EQ("UnRegLogged UnRegTLBLogged UnRegTLB ", FirstLines(&IUCom::UnRegLogged, Library));
}

TEST_F(GoodModule, IsNotTouchedWhenItCannotBeRecorded) {
  TFault Fault("WriteFile", FailsWith<decltype(&WriteFile), 0>, {0, 1, ERROR_DISK_FULL});
  EXPECT_EQ(static_cast<HRESULT>(0x80040270), Com->RegServerLogged(Text(Server)));
  EXPECT_EQ(SystemText(ERROR_DISK_FULL), ErrorText());
  EXPECT_EQ(TLines{"0 Begin RegServerLogged " + Server}, NumberedLines());
  EXPECT_EQ(-1, Value(L"", L"DllRegisterServer").Type);
  EXPECT_EQ(std::vector<int>(), Codes());
}

TEST_F(GoodModule, IsUnloadedWhereverTheDebugLogFails) {
  constexpr int AllLines = 8;
  for (TMethod Method : {&IUCom::RegServer, &IUCom::UnRegServer})
    for (int Lines = 0; Lines <= AllLines; ++Lines) {
      SCOPED_TRACE(Lines);
      Log().LinesLeft = Lines;
      EXPECT_EQ(Lines < AllLines ? E_ACCESSDENIED : S_OK, Run(Method, Server));
      ExpectUnloaded(Server);
    }
}

// ---- Files that are not there

TEST_F(GoodModule, OnceGoneIsUnregisteredInSilenceAndStopsWhatNeedsIt) {
  const std::string Path = App("gone.dll");
  EXPECT_EQ(S_OK, Com->UnRegServer(Text(Path)));
  EXPECT_EQ((TLines{"0 Begin UnRegServer " + Path, "0 End UnRegServer 0"}), NumberedLines());
  EXPECT_TRUE(Dialog().Boxes.empty());
  Log().Lines.clear();

  ASSERT_EQ(S_OK, Com->RegServerLogged(Text(Server)));
  ASSERT_TRUE(MoveFileA(Server.c_str(), Path.c_str()));
  ASSERT_EQ(S_OK, RollbackAll()) << "nothing is left to unregister";
  ASSERT_TRUE(MoveFileA(Path.c_str(), Server.c_str()));
  ASSERT_EQ(S_OK, Com->UnRegServerLogged(Text(Server)));
  ASSERT_TRUE(MoveFileA(Server.c_str(), Path.c_str()));
  EXPECT_EQ(static_cast<HRESULT>(0x8004027E), RollbackAll()) << "126: there is no module to register again";
  EXPECT_EQ(SystemText(ERROR_MOD_NOT_FOUND), ErrorText());
  EXPECT_EQ(std::vector{1}, Codes());
  ASSERT_TRUE(MoveFileA(Path.c_str(), Server.c_str()));
  ASSERT_EQ(S_OK, RollbackAll());
}

TEST_F(GoodModule, WithANameThatCouldNotBeGivenBackIsRefusedUnrecorded) {
  const Text Name(std::wstring(L"C:\\\x0416.dll"));
  EXPECT_EQ(E_INVALIDARG, Com->RegServerLogged(Name));
  EXPECT_EQ(E_INVALIDARG, Com->UnRegTLBLogged(Name));
  EXPECT_EQ(E_INVALIDARG, Com->Reg(Name));
  EXPECT_EQ(std::vector<int>(), Codes());
  EXPECT_TRUE(TreeOf(Service("Backup")).empty());
}

TEST_F(GoodModule, RollbackIgnoresCodesOfNobody) {
  for (long Code : {4L, -1L, 0x7FFFFFFFL}) ASSERT_EQ(S_OK, Com->Rollback(Code, NumberedGuid(1)));
  const std::string Id = GuidText(NumberedGuid(1));
  EXPECT_EQ((TLines{"0 Begin Rollback 4 " + Id, "0 End Rollback", "1 Begin Rollback -1 " + Id, "1 End Rollback",
                    "2 Begin Rollback 2147483647 " + Id, "2 End Rollback"}),
            NumberedLines());
  // A known code needs its item.
  EXPECT_TRUE(FAILED(Com->Rollback(0, NumberedGuid(1))));
}

}  // namespace
