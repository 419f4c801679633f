#include "stories/story.h"
#include "support/process.h"
#include "support/sandbox.h"

namespace {

const std::string OtherBitness =
    OwnKind == SYS_WIN32 ? "C:\\windows\\sysnative\\scrrun.dll" : "C:\\windows\\syswow64\\scrrun.dll";
const char* const OwnPath = OwnKind == SYS_WIN32 ? "0\\win32" : "0\\win64";
constexpr char Server[] = "tests\\server.dll";  ///< does what its name says and counts its calls in the test's key

class Modules : public TStory {
 protected:
  // The system unregisters only a library whose file it can load, so what a test left may need a harder hand.
  Modules() {
    UnRegisterTypeLib(Guid(MadeLibraryId), MadeLibraryMajor, MadeLibraryMinor, 0, OwnKind);
    RegDeleteTreeA(HKEY_CLASSES_ROOT, ("TypeLib\\" + std::string(MadeLibraryId)).c_str());
  }
  /// The default value of a key below the made library's own.
  static std::string Registered(const std::string& Name) {
    char Data[300] = "none";
    DWORD Size = sizeof Data;
    const std::string Key = "TypeLib\\" + std::string(MadeLibraryId) + "\\3.7\\" + Name;
    RegGetValueA(HKEY_CLASSES_ROOT, Key.c_str(), nullptr, RRF_RT_ANY, nullptr, Data, &Size);
    return Data;
  }
  /// Runs a method on a file of the application, which nobody has in hand afterwards.
  HRESULT Run(HRESULT (STDMETHODCALLTYPE IUCom::*Method)(BSTR), const std::string& Name) {
    const HRESULT Result = (Com.Get()->*Method)(Text(App(Name)));
    const bool Moved = !Exists(App(Name)) || (MoveFileA(App(Name).c_str(), App("moved").c_str()) &&
                                              MoveFileA(App("moved").c_str(), App(Name).c_str()));
    EXPECT_TRUE(Moved && !GetModuleHandleA(Name.c_str())) << Name << " is still loaded";
    return Result;
  }
  void Bring(const std::string& File, const std::string& Name) {
    ASSERT_TRUE(Exists(File)) << File;
    Write(App(Name), Read(File));
  }
};

std::string FolderSeen;
DWORD ModeSeen = 0;
HMODULE WINAPI NoteSurroundings(LPCSTR Name) {
  char Folder[MAX_PATH] = "";
  GetDllDirectoryA(MAX_PATH, Folder);
  FolderSeen = Folder, ModeSeen = GetThreadErrorMode();
  return LoadLibraryA(Name);
}

TEST_F(Modules, FindTheirDependenciesBesideThemselvesAndShowNoBox) {
  constexpr DWORD NoBoxes = SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX;
  Bring(BuiltFile(Server), "returns-0.dll");
  SetDllDirectoryA("C:\\windows");
  const TImportPatch Loads("LoadLibraryA", NoteSurroundings);
  EXPECT_EQ(S_OK, Run(&IUCom::RegServer, "returns-0.dll"));
  EXPECT_EQ(App(), FolderSeen);
  EXPECT_EQ(NoBoxes, ModeSeen & NoBoxes);
  char After[MAX_PATH] = "";
  GetDllDirectoryA(MAX_PATH, After);
  EXPECT_EQ("C:\\windows", std::string(After));
  EXPECT_EQ(0u, GetThreadErrorMode() & NoBoxes);
  SetDllDirectoryA(nullptr);
}

TEST_F(Modules, OfEveryKindAreRegisteredOrToldWhyNot) {
  const std::pair<std::string, const char*> Rows[] = {{BuiltFile(Server), "returns-0.dll"},
                                                      {BuiltFile(Server), "returns-1.dll"},
                                                      {BuiltFile(Server), "crash.dll"},
                                                      {BuiltFile(Server), "throw.dll"},
                                                      {BuiltFile("tests\\versioned\\first.dll"), "empty.dll"},
                                                      {OtherBitness, "other.dll"}};
  for (const auto& [File, Name] : Rows) {
    Bring(File, Name);
    Begin();
    Step(std::string("register ") + Name, Run(&IUCom::RegServer, Name));
    Step("unregister", Run(&IUCom::UnRegServer, Name));
    Brief("register, logged", Run(&IUCom::RegServerLogged, Name));
    UndoAll();
    // The undoing of an unregistration is a registration, and stops the rollback as that fails.
    Brief("unregister, logged", Run(&IUCom::UnRegServerLogged, Name));
    UndoAll();
    DeleteFileA(Service("update.prt").c_str());
    DeleteFileA(Service("update.prt.bkp").c_str());
  }
}

TEST_F(Modules, AreTakenAsTypeLibrariesByTheUpperCaseExtensionOnly) {
  Bring(BuiltFile(Server), "returns-0.tlb");
  Begin();
  for (const char* Name : {"returns-0.tlb", "no.TLB\\missing", "none.x.TLB"})
    for (const auto Method : {&IUCom::Reg, &IUCom::RegLogged, &IUCom::UnReg, &IUCom::UnRegLogged})
      Step(Name, Run(Method, Name));
  // The code page could not give this name back.
  for (const auto Method : {&IUCom::RegServerLogged, &IUCom::UnRegTLBLogged, &IUCom::Reg, &IUCom::RegTLB})
    Brief("outside the code page", (Com.Get()->*Method)(Text(std::wstring(L"C:\\\x0416.dll"))));
}

TEST_F(Modules, AreLetGoWhereverTheDebugLogFails) {
  constexpr int AllLines = 8;
  Bring(BuiltFile(Server), "returns-0.dll");
  for (const auto Method : {&IUCom::RegServer, &IUCom::UnRegServer})
    for (int Lines = 0; Lines <= AllLines; ++Lines) {
      Log().LinesLeft = Lines;
      EXPECT_EQ(Lines < AllLines ? E_ACCESSDENIED : S_OK, Run(Method, "returns-0.dll")) << Lines;
    }
}

TEST_F(Modules, OfTypesAreRegisteredWithTheFolderOfTheirHelpFile) {
  for (const char* Help : {"", "C:\\Help\\English\\sample.hlp", "C:sample.hlp", "sample.hlp"}) {
    MakeTypeLibrary(App("Sample.TLB"), Help);
    Bring(App("Sample.TLB"), "Sample.TLB");
    Begin();
    Brief(std::string("help file ") + Help, Run(&IUCom::RegTLBLogged, "Sample.TLB"));
    Tell("library " + Registered(OwnPath) + ", help " + Registered("HELPDIR"));
    UndoAll();
    Tell("library " + Registered(OwnPath));
  }
  // Another file is registered under the same identity.
  Bring(App("Sample.TLB"), "other.tlb");
  Brief("register the other", Run(&IUCom::RegTLB, "other.tlb"));
  Step("unregister", Run(&IUCom::UnRegTLB, "Sample.TLB"));
  Tell("library " + Registered(OwnPath));
  // The text is this call's, whatever an earlier one left behind.
  TellError("stale");
  Step("unregister again", Run(&IUCom::UnRegTLB, "Sample.TLB"));
  const std::string Whole = Read(App("Sample.TLB"));
  for (const std::string& Content :
       {std::string(), std::string("no type library"), Whole.substr(0, Whole.size() - 1)}) {
    Write(App("Sample.TLB"), Content);
    Begin();
    Step("register what is none", Run(&IUCom::RegTLB, "Sample.TLB"));
    Step("unregister", Run(&IUCom::UnRegTLB, "Sample.TLB"));
  }
}

}  // namespace
