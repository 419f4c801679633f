#include "server/connection_point.h"

#include <new>
#include <optional>

namespace {

constexpr DWORD OnlyCookie = 1;

void AddReference(IConnectionPoint*& Point) { Point->AddRef(); }
void AddReference(CONNECTDATA& Connection) { Connection.pUnk->AddRef(); }
void DropReference(IConnectionPoint*& Point) { Point->Release(); }
void DropReference(CONNECTDATA& Connection) { Connection.pUnk->Release(); }

/// A COM enumeration of at most one element; both enumerations of a connection point are that.
template <class TInterface, class TElement>
class TEnumOne final : public TInterface {
 public:
  TEnumOne(std::optional<TElement> Element, bool Passed) : Element(Element), Passed(Passed) {
    if (this->Element) AddReference(*this->Element);
  }
  virtual ~TEnumOne() {
    if (Element) DropReference(*Element);
  }

  STDMETHOD(QueryInterface)(REFIID Iid, void** Result) override { return AnswerQuery<TInterface>(this, Iid, Result); }
  STDMETHOD_(ULONG, AddRef)() override { return static_cast<ULONG>(InterlockedIncrement(&References)); }
  STDMETHOD_(ULONG, Release)() override {
    const LONG Left = InterlockedDecrement(&References);
    if (Left == 0) delete this;
    return static_cast<ULONG>(Left);
  }
  STDMETHOD(Next)(ULONG Count, TElement* Elements, ULONG* Fetched) override {
    if (!Elements || (!Fetched && Count != 1)) return E_POINTER;
    const ULONG Given = Count > 0 && Element && !Passed ? 1 : 0;
    if (Given) {
      *Elements = *Element;
      AddReference(*Elements);
      Passed = true;
    }
    if (Fetched) *Fetched = Given;
    return Given == Count ? S_OK : S_FALSE;
  }
  STDMETHOD(Skip)(ULONG Count) override {
    const ULONG Left = Element && !Passed ? 1 : 0;
    if (Count > 0) Passed = true;
    return Count <= Left ? S_OK : S_FALSE;
  }
  STDMETHOD(Reset)() override {
    Passed = false;
    return S_OK;
  }
  STDMETHOD(Clone)(TInterface** Result) override {
    if (!Result) return E_POINTER;
    *Result = new (std::nothrow) TEnumOne(Element, Passed);
    return *Result ? S_OK : E_OUTOFMEMORY;
  }

 private:
  std::optional<TElement> Element;
  bool Passed;
  LONG References = 1;
};

}  // namespace

HRESULT TConnectionPoint::GetConnectionInterface(IID* Iid) {
  if (!Iid) return E_POINTER;
  *Iid = EventsIid;
  return S_OK;
}

HRESULT TConnectionPoint::GetConnectionPointContainer(IConnectionPointContainer** Result) {
  if (!Result) return E_POINTER;
  Container.AddRef();
  *Result = &Container;
  return S_OK;
}

HRESULT TConnectionPoint::Advise(IUnknown* NewSink, DWORD* Cookie) {
  if (!NewSink || !Cookie) return E_POINTER;
  *Cookie = 0;
  if (Connected) return CONNECT_E_ADVISELIMIT;
  if (FAILED(NewSink->QueryInterface(EventsIid, Connected.OutVoid()))) return CONNECT_E_CANNOTCONNECT;
  *Cookie = OnlyCookie;
  return S_OK;
}

HRESULT TConnectionPoint::Unadvise(DWORD Cookie) {
  if (!Connected || Cookie != OnlyCookie) return CONNECT_E_NOCONNECTION;
  Connected.Reset();
  return S_OK;
}

HRESULT TConnectionPoint::EnumConnections(IEnumConnections** Result) {
  if (!Result) return E_POINTER;
  std::optional<CONNECTDATA> Connection;
  if (Connected) Connection = CONNECTDATA{Connected.Get(), OnlyCookie};
  *Result = new (std::nothrow) TEnumOne<IEnumConnections, CONNECTDATA>(Connection, false);
  return *Result ? S_OK : E_OUTOFMEMORY;
}

HRESULT EnumerateConnectionPoints(IConnectionPoint& Point, IEnumConnectionPoints** Result) {
  if (!Result) return E_POINTER;
  *Result = new (std::nothrow) TEnumOne<IEnumConnectionPoints, IConnectionPoint*>(&Point, false);
  return *Result ? S_OK : E_OUTOFMEMORY;
}
