// Modules of every kind, well-behaved or not: what the caller is told, what the user sees, what the log says, and that
// the module is let go.

#include "changes/changes_test.h"

#include <set>

namespace {

using TLines = std::vector<std::string>;

constexpr HRESULT NoFunction = static_cast<HRESULT>(0x8004027F), NoModule = static_cast<HRESULT>(0x800402C1),
                  Refused = static_cast<HRESULT>(0x800401FE);

#if defined(__i386__)
#define THROWN "E06D7363"
#define OTHER_BITNESS "C:\\windows\\sysnative\\scrrun.dll"
#else
#define THROWN "20474343"
#define OTHER_BITNESS "C:\\windows\\syswow64\\scrrun.dll"
#endif

struct TModuleCase {
  const char* Name;
  const char* Source;  ///< server.dll is our own module, which does what its name says; first.dll exports nothing
  const char* FileName;
  HRESULT Registered;
  const char* Exception;  ///< what its functions end with; null when they return
};
std::ostream& operator<<(std::ostream& Out, const TModuleCase& Case) { return Out << Case.Name; }

const TModuleCase Cases[] = {
    {"good", "server.dll", "returns-0.dll", S_OK, nullptr},
    {"gives_s_false", "server.dll", "returns-1.dll", Refused, nullptr},
    {"crashes", "server.dll", "crash.dll", E_UNEXPECTED, "C0000005"},
    {"throws", "server.dll", "throw.dll", E_UNEXPECTED, THROWN},
    {"exports_nothing", "versioned\\first.dll", "empty.dll", NoFunction, nullptr},
    {"other_bitness", OTHER_BITNESS, "other.dll", NoModule, nullptr},
};

/// How often the function of our own module was called.
int Calls(const std::wstring& Function) {
  const TRegistryEntry Count = TSandboxTest::Value(L"", Function);
  return Count.Type < 0 ? 0 : Count.Data[0];
}

class Module : public TComTest, public testing::WithParamInterface<TModuleCase> {
 protected:
  Module() {
    const std::string Source = *Case.Source == 'C' ? Case.Source : BuiltFile(std::string("tests\\") + Case.Source);
    EXPECT_TRUE(CopyFileA(Source.c_str(), Path.c_str(), TRUE)) << Source << ": " << GetLastError();
  }
  std::string Ended(const std::string& Function) const {
    return "'" + Function + "' ended with exception " + Case.Exception + ".";
  }
  /// What a caller is told who registers it.
  std::string Message() const {
    if (Case.Exception) return Ended("DllRegisterServer");
    if (Case.Registered == NoFunction) return SystemText(ERROR_PROC_NOT_FOUND);
    if (Case.Registered == NoModule) return SystemText(ERROR_BAD_EXE_FORMAT);
    return Case.Registered == Refused ? "Call of DllRegisterServer in '" + Path + "' library failed." : "";
  }

  const TModuleCase& Case = GetParam();
  const std::string Path = App(Case.FileName);
  const int CallsExpected = Case.Source == std::string("server.dll");
  /// Only what the wrappers of system calls tell is shown.
  const size_t BoxesExpected = CallsExpected ? 0 : 1;
};

TEST_P(Module, IsRegisteredOrTellsWhyNotAndIsUnregisteredWithoutAFailure) {
  EXPECT_EQ(Case.Registered, Com->RegServer(Text(Path)));
  EXPECT_EQ(Message(), ErrorText());
  EXPECT_EQ(BoxesExpected, Dialog().Boxes.size());
  TLines Expected = {"Begin RegServer " + Path};
  if (Case.Registered == S_OK) Expected.push_back("End RegServer");
  EXPECT_EQ(Expected, Log().Texts("UCom"));
  EXPECT_EQ(CallsExpected, Calls(L"DllRegisterServer"));
  ExpectUnloaded(Path);

  Log().Lines.clear();
  EXPECT_EQ(S_OK, Com->UnRegServer(Text(Path))) << ErrorText();
  EXPECT_EQ(2 * BoxesExpected, Dialog().Boxes.size());
  Expected = {"Begin UnRegServer " + Path, "End UnRegServer 1"};
  if (Case.Exception) Expected.insert(Expected.begin() + 1, "Exception UnRegServer " + Ended("DllUnregisterServer"));
  EXPECT_EQ(Expected, Log().Texts("UCom"));
  std::set<long> Ids;
  for (const auto& Line : Log().Lines)
    if (Line.Name == "UCom") Ids.insert(Line.Id);
  EXPECT_EQ(1u, Ids.size()) << "the lines of one call";
  EXPECT_EQ(CallsExpected, Calls(L"DllUnregisterServer"));
  ExpectUnloaded(Path);
}

TEST_P(Module, RollsBackWhateverBecameOfIt) {
  EXPECT_EQ(Case.Registered, Com->RegServerLogged(Text(Path)));
  EXPECT_EQ(std::vector{0}, Codes());
  RollbackToStart();
  EXPECT_EQ(CallsExpected, Calls(L"DllUnregisterServer"));
  ExpectUnloaded(Path);

  // The undoing of an unregistration is a registration, and stops the rollback as that fails.
  EXPECT_EQ(S_OK, Com->UnRegServerLogged(Text(Path)));
  EXPECT_EQ(std::vector{1}, Codes());
  EXPECT_EQ(Case.Registered, RollBack());
  EXPECT_EQ(2 * CallsExpected, Calls(L"DllRegisterServer"));
  EXPECT_EQ(Case.Registered == S_OK ? std::vector<int>() : std::vector{1}, Codes());
  ExpectUnloaded(Path);
}

INSTANTIATE_TEST_SUITE_P(Servers, Module, testing::ValuesIn(Cases), testing::PrintToStringParamName());

class GoodModule : public TComTest {
 protected:
  GoodModule() {
    for (const std::string& Path : {Server, Library})
      EXPECT_TRUE(CopyFileA(BuiltFile("tests\\server.dll").c_str(), Path.c_str(), TRUE)) << GetLastError();
  }
  // Only the upper-case extension of the name's own part makes a type library.
  const std::string Server = App("returns-0.tlb"), Library = App("returns-0.x.TLB");
};

TEST_F(GoodModule, IsTakenAsATypeLibraryByItsUpperCaseExtensionOnly) {
  for (const std::string& Path : {Server, App("no.TLB\\missing"), Library})
    for (const auto Method : {&IUCom::Reg, &IUCom::RegLogged, &IUCom::UnReg, &IUCom::UnRegLogged})
      (Com.Get()->*Method)(Text(Path));
  EXPECT_EQ((std::vector{0, 1, 0, 1, 2, 3}), Codes());
  EXPECT_EQ(2, Calls(L"DllRegisterServer"));
  EXPECT_EQ(2, Calls(L"DllUnregisterServer"));
}

TEST_F(GoodModule, IsNotTouchedWhenItCannotBeRecorded) {
  {
    TFault Fault("WriteFile", {0, 1, ERROR_DISK_FULL});
    EXPECT_EQ(static_cast<HRESULT>(0x80040270), Com->RegServerLogged(Text(Server)));
    EXPECT_EQ(SystemText(ERROR_DISK_FULL), ErrorText());
  }
  EXPECT_EQ(-1, Value(L"", L"DllRegisterServer").Type);
  // The code page could not give this name back.
  const Text Name(std::wstring(L"C:\\\x0416.dll"));
  for (const auto Method : {&IUCom::RegServerLogged, &IUCom::UnRegTLBLogged, &IUCom::Reg})
    EXPECT_EQ(E_INVALIDARG, (Com.Get()->*Method)(Name));
  EXPECT_EQ(std::vector<int>(), Codes());
}

TEST_F(GoodModule, IsUnloadedWhereverTheDebugLogFails) {
  constexpr int AllLines = 8;
  for (const auto Method : {&IUCom::RegServer, &IUCom::UnRegServer})
    for (int Lines = 0; Lines <= AllLines; ++Lines) {
      SCOPED_TRACE(Lines);
      Log().LinesLeft = Lines;
      EXPECT_EQ(Lines < AllLines ? E_ACCESSDENIED : S_OK, (Com.Get()->*Method)(Text(Server)));
      ExpectUnloaded(Server);
    }
}

TEST_F(GoodModule, OnceGoneIsUnregisteredInSilenceAndStopsWhatNeedsIt) {
  const std::string Path = App("gone.dll");
  EXPECT_EQ(S_OK, Com->UnRegServer(Text(Path)));
  EXPECT_EQ((TLines{"Begin UnRegServer " + Path, "End UnRegServer 0"}), Log().Texts("UCom"));
  EXPECT_TRUE(Dialog().Boxes.empty());

  ASSERT_EQ(S_OK, Com->RegServerLogged(Text(Server)));
  ASSERT_TRUE(MoveFileA(Server.c_str(), Path.c_str()));
  RollbackToStart();  // nothing is left to unregister
  ASSERT_TRUE(MoveFileA(Path.c_str(), Server.c_str()));
  ASSERT_EQ(S_OK, Com->UnRegServerLogged(Text(Server)));
  ASSERT_TRUE(MoveFileA(Server.c_str(), Path.c_str()));
  EXPECT_EQ(static_cast<HRESULT>(0x8004027E), RollBack()) << "126: there is no module to register again";
  EXPECT_EQ(SystemText(ERROR_MOD_NOT_FOUND), ErrorText());
  EXPECT_EQ(std::vector{1}, Codes());
  ASSERT_TRUE(MoveFileA(Path.c_str(), Server.c_str()));
  RollbackToStart();
}

TEST_F(GoodModule, RollbackIgnoresCodesOfNobody) {
  for (long Code : {4L, -1L, 0x7FFFFFFFL}) EXPECT_EQ(S_OK, Com->Rollback(Code, NumberedGuid(1))) << Code;
  EXPECT_TRUE(FAILED(Com->Rollback(0, NumberedGuid(1)))) << "a known code needs its item";
}

}  // namespace
