#include "server/published.h"
#include "stories/story.h"

#include <set>

namespace {

class Frame : public TSandboxTest {
 protected:
  static HRESULT CanUnload() { return CallExport("DllCanUnloadNow"); }
  static HRESULT GetClassObject(const CLSID& ClassId, const IID& Iid, void** Result) {
    return CallExport<const CLSID&, const IID&, void**>("DllGetClassObject", ClassId, Iid, Result);
  }
  static TComRef<IClassFactory> Factory(const CLSID& ClassId) {
    TComRef<IClassFactory> Result;
    EXPECT_EQ(S_OK, GetClassObject(ClassId, IID_IClassFactory, Result.OutVoid()));
    return Result;
  }
  const TModuleHandle Kept{LoadLibraryA(BuiltModulePath().c_str())};
};

class Surface : public TStory {};

// What scripts and compiled clients rely on for ever: identifiers by their beginnings, methods in the order of theirs.
TEST_F(Surface, StaysAsPublished) {
  for (const std::string& Module : {BuiltModulePath(), BuiltFile("MendworkKit.dll")}) {
    for (const TPublishedClass& Class : PublishedClasses(Module)) {
      std::string Line = Class.Name;
      for (const GUID& Id : {Class.ClassId, Class.InterfaceId, Class.EventsId}) Line += " " + GuidText(Id).substr(1, 8);
      for (const auto& [Id, Method] : Class.Methods) Line += " " + std::to_string(Id) + " " + Method;
      Tell(Line);
    }
  }
}

TEST_F(Frame, FindsClassObjectsByClassAndInterface) {
  auto Files = Factory(CLSID_UFile);
  void* Results[] = {this, this, this, this};
  EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, GetClassObject(IID_IUFile, IID_IClassFactory, &Results[0]));
  EXPECT_EQ(E_NOINTERFACE, GetClassObject(CLSID_UFile, IID_IUFile, &Results[1]));
  EXPECT_EQ(CLASS_E_NOAGGREGATION, Files->CreateInstance(&Dialog(), IID_IUnknown, &Results[2]));
  EXPECT_EQ(E_NOINTERFACE, Files->CreateInstance(nullptr, IID_IUGarbage, &Results[3]));
  for (const void* Result : Results) EXPECT_EQ(nullptr, Result);
  Files = {};
  EXPECT_EQ(S_OK, CanUnload());
}

TEST_F(Frame, StaysWhileAnObjectOrALockIsOutstanding) {
  auto File = Make<IUFile>(CLSID_UFile);  // with collaborators of this module
  EXPECT_EQ(S_FALSE, CanUnload());
  File = {};
  EXPECT_EQ(S_OK, CanUnload());
  for (const auto& [ClassId, Lock, CanGo] : {std::tuple{CLSID_UCom, TRUE, S_FALSE},
                                             {CLSID_UInno, TRUE, S_FALSE},
                                             {CLSID_UCom, FALSE, S_FALSE},
                                             {CLSID_UInno, FALSE, S_OK}}) {
    EXPECT_EQ(S_OK, Factory(ClassId)->LockServer(Lock));
    EXPECT_EQ(CanGo, CanUnload());
  }
  auto Held = Factory(CLSID_UFile);
  EXPECT_EQ(S_FALSE, CanUnload());
  Held = {};
  EXPECT_EQ(S_OK, CanUnload());
}

LSTATUS WINAPI RefuseToDelete(HKEY, LPCSTR) { return ERROR_ACCESS_DENIED; }

TEST_F(Frame, SaysWhenItCannotBeUnregistered) {
  for (const char* Function : {"RegDeleteKeyA", "RegDeleteTreeA"}) {
    const TImportPatch Patch(Function, reinterpret_cast<void*>(RefuseToDelete));
    EXPECT_EQ(E_FAIL, CallExport("DllUnregisterServer")) << Function;
  }
  for (const char* Function : {"DllUnregisterServer", "DllUnregisterServer", "DllRegisterServer"})
    EXPECT_EQ(S_OK, CallExport(Function));
}

TEST_F(Frame, AnswersForTheInterfacesOfEveryClass) {
  const std::set<std::string> Undoing = {"UBackup", "UCanRollback", "UCom", "UFile", "URegistry"};
  for (const TPublishedClass& Class : PublishedClasses()) {
    SCOPED_TRACE(Class.Name);
    const auto Object = Make<IDispatch>(Class.ClassId);
    const auto Errors = Make<ISupportErrorInfo>(Class.ClassId);
    const auto Points = Make<IConnectionPointContainer>(Class.ClassId);
    const HRESULT Undoes = Undoing.count(Class.Name) ? S_OK : E_NOINTERFACE;
    // Whether there is an interface, and whether it sets error information. One object has one identity, whichever of
    // its interfaces is asked.
    for (const auto& [Iid, Found, SetsErrors] : {std::tuple{IID_IUnknown, S_OK, S_FALSE},
                                                 {Class.InterfaceId, S_OK, S_OK},
                                                 {IID_ISupportErrorInfo, S_OK, S_FALSE},
                                                 {IID_IConnectionPointContainer, S_OK, S_FALSE},
                                                 {IID_IUCanRollback, Undoes, Undoes == S_OK ? S_OK : S_FALSE},
                                                 {Class.EventsId, E_NOINTERFACE, S_FALSE}}) {
      TComRef<IUnknown> Interface, One, Two;
      EXPECT_EQ(Found, Object->QueryInterface(Iid, Interface.OutVoid())) << GuidText(Iid);
      EXPECT_EQ(SetsErrors, Errors->InterfaceSupportsErrorInfo(Iid)) << GuidText(Iid);
      if (!Interface) continue;
      Object->QueryInterface(IID_IUnknown, One.OutVoid());
      Interface->QueryInterface(IID_IUnknown, Two.OutVoid());
      EXPECT_EQ(One.Get(), Two.Get()) << GuidText(Iid);
    }
    EXPECT_EQ(S_OK, Points->FindConnectionPoint(Class.EventsId, TComRef<IConnectionPoint>().Out()));
    EXPECT_EQ(CONNECT_E_NOCONNECTION,
              Points->FindConnectionPoint(Class.InterfaceId, TComRef<IConnectionPoint>().Out()));
  }
}

TEST_F(Frame, ConnectsOneSinkToAnObject) {
  const auto Container = Make<IConnectionPointContainer>(CLSID_UFile);
  TComRef<IConnectionPoint> Point, Listed;
  TComRef<IEnumConnectionPoints> Points, Copy;
  ULONG Fetched = 9;
  ASSERT_EQ(S_OK, Container->EnumConnectionPoints(Points.Out()));
  EXPECT_EQ(S_OK, Points->Next(1, Point.Out(), &Fetched));
  ASSERT_EQ(S_OK, Points->Clone(Copy.Out()));
  EXPECT_EQ(S_FALSE, Copy->Next(1, Listed.Out(), &Fetched));
  EXPECT_EQ(0u, Fetched);
  for (const HRESULT Outcome : {Copy->Reset(), Copy->Skip(1), Copy->Reset()}) EXPECT_EQ(S_OK, Outcome);
  EXPECT_EQ(S_FALSE, Copy->Skip(2));

  DWORD Cookie = 0, Second = 0;
  CONNECTDATA Connection{};
  TComRef<IEnumConnections> Connections;
  const TComRef<IUnknown> Sink(new TDouble<IUFileEvents>), Stranger(new TDouble<IUComEvents>);
  EXPECT_EQ(CONNECT_E_CANNOTCONNECT, Point->Advise(Stranger.Get(), &Cookie));
  EXPECT_EQ(S_OK, Point->Advise(Sink.Get(), &Cookie));
  EXPECT_EQ(CONNECT_E_ADVISELIMIT, Point->Advise(Sink.Get(), &Second));
  ASSERT_EQ(S_OK, Point->EnumConnections(Connections.Out()));
  ASSERT_EQ(S_OK, Connections->Next(1, &Connection, &Fetched));
  EXPECT_EQ(Cookie, Connection.dwCookie);
  Connection.pUnk->Release();
  EXPECT_EQ(CONNECT_E_NOCONNECTION, Point->Unadvise(Cookie + 1));
  EXPECT_EQ(S_OK, Point->Unadvise(Cookie));
  EXPECT_EQ(S_OK, Point->Advise(Sink.Get(), &Cookie));
}

TEST_F(Frame, TellsAboutAMissingBaseFolderAndKeepsTheFirstOne) {
  const auto BackupSomething = [](DWORD Type, const std::wstring& Folder) {
    if (Type != REG_NONE) StoreValue(L"Software\\Orvane\\Core", L"", Type, WideBytes(Folder));
    GUID DataID{};
    return Make<IUBackup>(CLSID_UBackup)->BackupString(Text("something"), &DataID);
  };
  DeleteKeyTree(L"Software\\Orvane\\Core");
  for (const TPublishedClass& Class : PublishedClasses()) EXPECT_TRUE(Make<IDispatch>(Class.ClassId)) << Class.Name;
  for (const auto& [Type, Folder, Code, Why] : {std::tuple{REG_NONE, L"", 2, SystemText(2)},
                                                {REG_BINARY, L"C:\\Somewhere", 13, "It is not a string."},
                                                {REG_SZ, L"", 13, "It is empty."}}) {
    EXPECT_EQ(static_cast<HRESULT>(0x80040200 + Code), BackupSomething(Type, Folder));
    EXPECT_EQ(
        "Cannot read the base folder from the default value of the registry key "
        "'HKEY_CURRENT_USER\\Software\\Orvane\\Core': " +
            Why,
        ErrorText());
  }
  // Mended without a restart, by a text that ends with its bytes.
  SetEnvironmentVariableA("MENDWORK_BASE", Base().c_str());
  EXPECT_EQ(S_OK, BackupSomething(REG_EXPAND_SZ, L"%MENDWORK_BASE%"));
  EXPECT_EQ(S_OK, BackupSomething(REG_SZ, ToWide(App())));
  std::string Folders;
  for (const auto& [Name, Entry] : TreeOf(Service()))
    if (Name.ends_with("\\")) Folders += Name + " ";
  EXPECT_EQ("Backup\\ Garbage\\ History\\ ", Folders);
  EXPECT_TRUE(Exists(Updates("Log")));
  EXPECT_EQ(2u, TreeOf(Service("Backup")).size());
  EXPECT_TRUE(TreeOf(App()).empty());
}

}  // namespace
