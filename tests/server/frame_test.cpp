#include "server/published.h"
#include "stories/story.h"

#include <set>

namespace {

class Frame : public TSandboxTest {
 protected:
  template <class... TArgs>
  HRESULT Export(const char* Name, TArgs... Args) const {
    return reinterpret_cast<HRESULT(WINAPI*)(TArgs...)>(reinterpret_cast<void*>(GetProcAddress(Loaded.Get(), Name)))(
        Args...);
  }
  HRESULT CanUnload() const { return Export("DllCanUnloadNow"); }
  HRESULT GetClassObject(const CLSID& ClassId, const IID& Iid, void** Result) const {
    return Export<const CLSID&, const IID&, void**>("DllGetClassObject", ClassId, Iid, Result);
  }
  TComRef<IClassFactory> Factory(const CLSID& ClassId) const {
    TComRef<IClassFactory> Result;
    EXPECT_EQ(S_OK, GetClassObject(ClassId, IID_IClassFactory, Result.OutVoid()));
    return Result;
  }
  static HRESULT Ask(IUnknown& Object, const IID& Iid) {
    TComRef<IUnknown> Found;
    return Object.QueryInterface(Iid, Found.OutVoid());
  }

  TModuleHandle Loaded{LoadLibraryA(BuiltModulePath().c_str())};
};

class Surface : public TStory {};

// What scripts and compiled clients rely on for ever: identifiers by their beginnings, methods in the order of theirs.
TEST_F(Surface, StaysAsPublished) {
  for (const TPublishedClass& Class : PublishedClasses()) {
    std::string Line = Class.Name;
    for (const GUID& Id : {Class.ClassId, Class.InterfaceId, Class.EventsId}) Line += " " + GuidText(Id).substr(1, 8);
    for (const auto& [Id, Method] : Class.Methods) Line += " " + std::to_string(Id) + " " + Method;
    Tell(Line);
  }
}

TEST_F(Frame, FindsClassObjectsByClassAndInterface) {
  const auto Files = Factory(CLSID_UFile);
  void* Results[] = {this, this, this, this};
  EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, GetClassObject(IID_IUFile, IID_IClassFactory, &Results[0]));
  EXPECT_EQ(E_NOINTERFACE, GetClassObject(CLSID_UFile, IID_IUFile, &Results[1]));
  EXPECT_EQ(CLASS_E_NOAGGREGATION, Files->CreateInstance(&Dialog(), IID_IUnknown, &Results[2]));
  EXPECT_EQ(E_NOINTERFACE, Files->CreateInstance(nullptr, IID_IUGarbage, &Results[3]));
  for (const void* Result : Results) EXPECT_EQ(nullptr, Result);
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
}

TEST_F(Frame, AnswersForTheInterfacesOfEveryClass) {
  const std::set<std::string> Undoing = {"UBackup", "UCanRollback", "UCom", "UFile", "URegistry"};
  for (const TPublishedClass& Class : PublishedClasses()) {
    SCOPED_TRACE(Class.Name);
    const auto Object = Make<IDispatch>(Class.ClassId);
    for (const IID& Iid :
         {IID_IUnknown, IID_IDispatch, Class.InterfaceId, IID_IConnectionPointContainer, IID_ISupportErrorInfo})
      EXPECT_EQ(S_OK, Ask(*Object, Iid)) << GuidText(Iid);
    const bool Undoes = Undoing.count(Class.Name) != 0;
    EXPECT_EQ(Undoes ? S_OK : E_NOINTERFACE, Ask(*Object, IID_IUCanRollback));
    EXPECT_EQ(E_NOINTERFACE, Ask(*Object, Class.EventsId));

    TComRef<ISupportErrorInfo> Errors;
    ASSERT_EQ(S_OK, Object->QueryInterface(IID_ISupportErrorInfo, Errors.OutVoid()));
    EXPECT_EQ(S_OK, Errors->InterfaceSupportsErrorInfo(Class.InterfaceId));
    EXPECT_EQ(Undoes ? S_OK : S_FALSE, Errors->InterfaceSupportsErrorInfo(IID_IUCanRollback));
    EXPECT_EQ(S_FALSE, Errors->InterfaceSupportsErrorInfo(IID_IConnectionPointContainer));

    // One object has one identity, whichever of its interfaces is asked.
    TComRef<IUnknown> One, Two;
    ASSERT_EQ(S_OK, Object->QueryInterface(IID_IUnknown, One.OutVoid()));
    ASSERT_EQ(S_OK, Errors->QueryInterface(IID_IUnknown, Two.OutVoid()));
    EXPECT_EQ(One.Get(), Two.Get());
  }
}

/// A client's sink for one class's events, of which there are none.
class TSink final : public TDouble<IDispatch> {
 public:
  explicit TSink(const IID& EventsId) : EventsId(EventsId) {}
  STDMETHOD(QueryInterface)(REFIID Iid, void** Result) override {
    return TDouble<IDispatch>::QueryInterface(Iid == EventsId ? IID_IDispatch : Iid, Result);
  }
  const IID EventsId;
};

TEST_F(Frame, ConnectsOneSinkToAnObject) {
  for (const TPublishedClass& Class : PublishedClasses()) {
    SCOPED_TRACE(Class.Name);
    const auto Container = Make<IConnectionPointContainer>(Class.ClassId);
    TComRef<IConnectionPoint> Point, Listed;
    TComRef<IEnumConnectionPoints> Points, Copy;
    TComRef<IEnumConnections> Connections;
    ASSERT_EQ(S_OK, Container->FindConnectionPoint(Class.EventsId, Point.Out()));
    EXPECT_EQ(CONNECT_E_NOCONNECTION, Container->FindConnectionPoint(Class.InterfaceId, Listed.Out()));
    ULONG Fetched = 9;
    ASSERT_EQ(S_OK, Container->EnumConnectionPoints(Points.Out()));
    EXPECT_EQ(S_OK, Points->Next(1, Listed.Out(), &Fetched));
    EXPECT_EQ(Point.Get(), Listed.Get());
    ASSERT_EQ(S_OK, Points->Clone(Copy.Out()));
    EXPECT_EQ(S_FALSE, Copy->Next(1, Listed.Out(), &Fetched));
    EXPECT_EQ(0u, Fetched);
    for (const HRESULT Outcome : {Copy->Reset(), Copy->Skip(1), Copy->Reset()}) EXPECT_EQ(S_OK, Outcome);
    EXPECT_EQ(S_FALSE, Copy->Skip(2));

    DWORD Cookie = 0, Second = 0;
    CONNECTDATA Connection{};
    const TComRef<TSink> Sink(new TSink(Class.EventsId)), Stranger(new TSink(IID_NULL));
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
  EXPECT_EQ(S_OK, CanUnload());  // what was still connected went with its object
}

TEST_F(Frame, TellsAboutAMissingBaseFolderAndKeepsTheFirstOne) {
  const auto BackupSomething = [] {
    GUID DataID{};
    return Make<IUBackup>(CLSID_UBackup)->BackupString(Text("something"), &DataID);
  };
  const auto SetBaseFolder = [](DWORD Type, const std::string& Data) {
    StoreValue(L"Software\\Orvane\\Core", L"", Type, Data);
  };
  const auto ExpectTold = [&](DWORD Code, const std::string& Why) {
    EXPECT_EQ(static_cast<HRESULT>(0x80040200 + Code), BackupSomething());
    const std::string Place = "the default value of the registry key 'HKEY_CURRENT_USER\\Software\\Orvane\\Core': ";
    EXPECT_EQ("Cannot read the base folder from " + Place + Why, ErrorText());
  };
  DeleteKeyTree(L"Software\\Orvane\\Core");
  for (const TPublishedClass& Class : PublishedClasses()) EXPECT_TRUE(Make<IDispatch>(Class.ClassId)) << Class.Name;
  ExpectTold(ERROR_FILE_NOT_FOUND, SystemText(ERROR_FILE_NOT_FOUND));
  SetBaseFolder(REG_BINARY, "C:\\Somewhere");
  ExpectTold(ERROR_INVALID_DATA, "It is not a string.");
  SetBaseFolder(REG_SZ, WideBytes(std::wstring(1, L'\0')));
  ExpectTold(ERROR_INVALID_DATA, "It is empty.");
  // Mended without a restart, by a text that ends with its bytes.
  SetEnvironmentVariableA("MENDWORK_BASE", Base().c_str());
  SetBaseFolder(REG_EXPAND_SZ, WideBytes(L"%MENDWORK_BASE%"));
  EXPECT_EQ(S_OK, BackupSomething());
  SetBaseFolder(REG_SZ, WideBytes(ToWide(App())));
  EXPECT_EQ(S_OK, BackupSomething());
  TWords Folders;
  for (const auto& [Name, Entry] : TreeOf(Base()))
    if (Name.ends_with("\\")) Folders.push_back(Name);
  EXPECT_EQ((TWords{"Updates\\", "Updates\\Log\\", "Updates\\Mendwork\\", "Updates\\Mendwork\\Backup\\",
                    "Updates\\Mendwork\\Garbage\\", "Updates\\Mendwork\\History\\"}),
            Folders);
  EXPECT_EQ(2u, TreeOf(Service("Backup")).size());
  EXPECT_TRUE(TreeOf(App()).empty());
}

}  // namespace
