#include "server/published.h"
#include "support/sandbox_test.h"

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
  HRESULT BackupSomething() const {
    GUID DataID{};
    return Make<IUBackup>(CLSID_UBackup)->BackupString(Text("something"), &DataID);
  }
  static void SetBaseFolder(DWORD Type, const std::string& Data) {
    StoreValue(L"Software\\Orvane\\Core", L"", Type, Data);
  }

  TModuleHandle Loaded{LoadLibraryA(BuiltModulePath().c_str())};
};

TEST_F(Frame, FindsClassObjectsByClassAndInterface) {
  const auto Files = Factory(CLSID_UFile);
  for (const auto& [Refusal, Make] : std::initializer_list<std::pair<HRESULT, std::function<HRESULT(void**)>>>{
           {CLASS_E_CLASSNOTAVAILABLE, [&](void** R) { return GetClassObject(IID_IUFile, IID_IClassFactory, R); }},
           {E_NOINTERFACE, [&](void** R) { return GetClassObject(CLSID_UFile, IID_IUFile, R); }},
           {CLASS_E_NOAGGREGATION, [&](void** R) { return Files->CreateInstance(&Dialog(), IID_IUnknown, R); }},
           {E_NOINTERFACE, [&](void** R) { return Files->CreateInstance(nullptr, IID_IUGarbage, R); }}}) {
    void* Result = this;
    EXPECT_EQ(Refusal, Make(&Result));
    EXPECT_EQ(nullptr, Result);
  }
  EXPECT_EQ(S_OK, CanUnload());
}

TEST_F(Frame, StaysWhileAnObjectOrALockIsOutstanding) {
  {
    const auto File = Make<IUFile>(CLSID_UFile);  // with collaborators of this module
    EXPECT_EQ(S_FALSE, CanUnload());
  }
  EXPECT_EQ(S_OK, CanUnload());
  const auto Locked = Factory(CLSID_UCanRollback), Other = Factory(CLSID_UInno);
  for (const auto& [Which, Lock, CanGo] :
       {std::tuple{Locked, TRUE, S_FALSE}, {Other, TRUE, S_FALSE}, {Locked, FALSE, S_FALSE}, {Other, FALSE, S_OK}}) {
    EXPECT_EQ(S_OK, Which->LockServer(Lock));
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

 private:
  const IID EventsId;
};

TEST_F(Frame, ConnectsOneSinkToAnObject) {
  for (const TPublishedClass& Class : PublishedClasses()) {
    SCOPED_TRACE(Class.Name);
    const auto Container = Make<IConnectionPointContainer>(Class.ClassId);
    TComRef<IConnectionPoint> Point, Listed;
    TComRef<IEnumConnectionPoints> Points, Copy;
    ASSERT_EQ(S_OK, Container->FindConnectionPoint(Class.EventsId, Point.Out()));
    EXPECT_EQ(CONNECT_E_NOCONNECTION, Container->FindConnectionPoint(Class.InterfaceId, Listed.Out()));
    ULONG Fetched = 0;
    ASSERT_EQ(S_OK, Container->EnumConnectionPoints(Points.Out()));
    EXPECT_EQ(S_OK, Points->Next(1, Listed.Out(), &Fetched));
    EXPECT_EQ(Point.Get(), Listed.Get());
    ASSERT_EQ(S_OK, Points->Clone(Copy.Out()));
    EXPECT_EQ(S_FALSE, Copy->Next(1, Listed.Out(), &Fetched));
    EXPECT_EQ(0u, Fetched);
    EXPECT_EQ(S_OK, Copy->Reset());
    EXPECT_EQ(S_OK, Copy->Skip(1));
    EXPECT_EQ(S_FALSE, Copy->Skip(1));

    DWORD Cookie = 0, Second = 0;
    CONNECTDATA Connection{};
    TComRef<IEnumConnections> Connections;
    const TComRef<TSink> Sink(new TSink(Class.EventsId)), Stranger(new TSink(IID_NULL));
    EXPECT_EQ(CONNECT_E_CANNOTCONNECT, Point->Advise(Stranger.Get(), &Cookie));
    ASSERT_EQ(S_OK, Point->Advise(Sink.Get(), &Cookie));
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

TEST_F(Frame, MakesTheDataFoldersOnceAndKeepsThem) {
  ASSERT_EQ(S_OK, BackupSomething());
  TWords Folders;
  for (const auto& [Name, Entry] : TreeOf(Base()))
    if (Name.ends_with("\\")) Folders.push_back(Name);
  EXPECT_EQ((TWords{"Updates\\", "Updates\\Log\\", "Updates\\Mendwork\\", "Updates\\Mendwork\\Backup\\",
                    "Updates\\Mendwork\\Garbage\\", "Updates\\Mendwork\\History\\"}),
            Folders);
  SetBaseFolder(REG_SZ, WideBytes(ToWide(App())));
  EXPECT_EQ(S_OK, BackupSomething());
  EXPECT_EQ(2u, TreeOf(Service("Backup")).size());
  EXPECT_TRUE(TreeOf(App()).empty());
}

TEST_F(Frame, TellsAboutAMissingBaseFolderInTheFirstCallThatNeedsIt) {
  const auto ExpectTold = [&](DWORD Code, const std::string& Why) {
    EXPECT_EQ(static_cast<HRESULT>(0x80040200 + Code), BackupSomething());
    EXPECT_EQ(
        "Cannot read the base folder from the default value of the registry key "
        "'HKEY_CURRENT_USER\\Software\\Orvane\\Core': " +
            Why,
        ErrorText());
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
  EXPECT_TRUE(Exists(Service("Backup")));
}

}  // namespace
