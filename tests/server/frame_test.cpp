#include "server/coclasses.h"
#include "support/process.h"
#include "support/sandbox_test.h"

#include <set>

namespace {

class Frame : public TSandboxTest {
 protected:
  using TGetClassObject = HRESULT(WINAPI*)(REFCLSID, REFIID, void**);
  using TCanUnloadNow = HRESULT(WINAPI*)();

  template <class TFunction>
  TFunction Export(const char* Name) const {
    return reinterpret_cast<TFunction>(reinterpret_cast<void*>(GetProcAddress(Loaded.Get(), Name)));
  }
  HRESULT CanUnload() const { return Export<TCanUnloadNow>("DllCanUnloadNow")(); }
  TComRef<IClassFactory> Factory(const CLSID& ClassId) const {
    TComRef<IClassFactory> Result;
    EXPECT_EQ(S_OK, Export<TGetClassObject>("DllGetClassObject")(ClassId, IID_IClassFactory, Result.OutVoid()));
    return Result;
  }
  static HRESULT Ask(IUnknown& Object, const IID& Iid) {
    TComRef<IUnknown> Found;
    return Object.QueryInterface(Iid, Found.OutVoid());
  }

  TModuleHandle Loaded{LoadLibraryA(BuiltModulePath().c_str())};
};

TEST_F(Frame, ClassObjectsAreFoundByClassAndInterface) {
  const auto GetClassObject = Export<TGetClassObject>("DllGetClassObject");
  const auto Files = Factory(CLSID_UFile);
  void* Result = this;
  const auto ExpectRefused = [&](HRESULT Refusal, HRESULT Outcome) {
    EXPECT_EQ(Refusal, Outcome);
    EXPECT_EQ(nullptr, Result);
    Result = this;
  };
  ExpectRefused(CLASS_E_CLASSNOTAVAILABLE, GetClassObject(IID_IUFile, IID_IClassFactory, &Result));
  ExpectRefused(E_NOINTERFACE, GetClassObject(CLSID_UFile, IID_IUFile, &Result));
  ExpectRefused(CLASS_E_NOAGGREGATION, Files->CreateInstance(&Dialog(), IID_IUnknown, &Result));
  ExpectRefused(E_NOINTERFACE, Files->CreateInstance(nullptr, IID_IUGarbage, &Result));
  EXPECT_EQ(S_OK, CanUnload());
}

TEST_F(Frame, ModuleStaysWhileAnObjectOrALockIsOutstanding) {
  EXPECT_EQ(S_OK, CanUnload());
  {
    const auto File = Make<IUFile>(CLSID_UFile);  // with collaborators of this module
    EXPECT_EQ(S_FALSE, CanUnload());
  }
  EXPECT_EQ(S_OK, CanUnload());
  const auto Locked = Factory(CLSID_UCanRollback), Other = Factory(CLSID_UInno);
  EXPECT_EQ(S_OK, Locked->LockServer(TRUE));
  EXPECT_EQ(S_OK, Other->LockServer(TRUE));
  EXPECT_EQ(S_OK, Locked->LockServer(FALSE));
  EXPECT_EQ(S_FALSE, CanUnload());
  EXPECT_EQ(S_OK, Other->LockServer(FALSE));
  EXPECT_EQ(S_OK, CanUnload());
}

TEST_F(Frame, EveryClassAnswersForItsInterfaces) {
  const std::set<std::string> Undoing = {"UBackup", "UCanRollback", "UCom", "UFile", "URegistry"};
  for (const TPublishedClass& Class : PublishedClasses) {
    SCOPED_TRACE(Class.Name);
    const auto Object = Make<IDispatch>(Class.ClassId);
    for (const IID& Iid :
         {IID_IUnknown, IID_IDispatch, Class.InterfaceId, IID_IConnectionPointContainer, IID_ISupportErrorInfo})
      EXPECT_EQ(S_OK, Ask(*Object, Iid)) << GuidText(Iid);
    EXPECT_EQ(Undoing.count(Class.Name) ? S_OK : E_NOINTERFACE, Ask(*Object, IID_IUCanRollback));
    EXPECT_EQ(E_NOINTERFACE, Ask(*Object, Class.EventsId));

    TComRef<ISupportErrorInfo> Errors;
    ASSERT_EQ(S_OK, Object->QueryInterface(IID_ISupportErrorInfo, Errors.OutVoid()));
    EXPECT_EQ(S_OK, Errors->InterfaceSupportsErrorInfo(Class.InterfaceId));
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

TEST_F(Frame, ConnectionPointTakesOneSink) {
  for (const TPublishedClass& Class : PublishedClasses) {
    SCOPED_TRACE(Class.Name);
    const auto Container = Make<IConnectionPointContainer>(Class.ClassId);
    TComRef<IConnectionPoint> Point, Listed;
    TComRef<IEnumConnectionPoints> Points;
    TComRef<IEnumConnections> Connections;
    ASSERT_EQ(S_OK, Container->FindConnectionPoint(Class.EventsId, Point.Out()));
    EXPECT_EQ(CONNECT_E_NOCONNECTION, Container->FindConnectionPoint(Class.InterfaceId, Listed.Out()));
    ULONG Fetched = 0;
    ASSERT_EQ(S_OK, Container->EnumConnectionPoints(Points.Out()));
    EXPECT_EQ(S_OK, Points->Next(1, Listed.Out(), &Fetched));
    EXPECT_EQ(Point.Get(), Listed.Get());
    EXPECT_EQ(S_FALSE, Points->Next(1, Listed.Out(), &Fetched));

    DWORD Cookie = 0, Second = 0;
    CONNECTDATA Connection{};
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

}  // namespace
