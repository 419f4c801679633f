#pragma once

#include "base/handles.h"
#include "base/windows_api.h"

/// The answer of an object with one interface beside IUnknown to QueryInterface.
template <class TInterface>
HRESULT AnswerQuery(TInterface* Object, REFIID Iid, void** Result) {
  if (!Result) return E_POINTER;
  const bool Known = Iid == IID_IUnknown || Iid == __uuidof(TInterface);
  *Result = Known ? Object : nullptr;
  if (Known) Object->AddRef();
  return Known ? S_OK : E_NOINTERFACE;
}

/// The events connection point of one automation object, in single-sink mode: a second Advise fails with
/// CONNECT_E_ADVISELIMIT. No events interface has a member, so nothing is ever fired; the point is there for clients
/// that demand one. Part of its owner, whose reference count it shares.
class TConnectionPoint : public IConnectionPoint {
 public:
  /// `Container` outlives this object; `EventsIid` is the events dispinterface.
  TConnectionPoint(IConnectionPointContainer& Container, const IID& EventsIid)
      : Container(Container), EventsIid(EventsIid) {}

  const IID& GetEventsIid() const { return EventsIid; }

  STDMETHOD(QueryInterface)(REFIID Iid, void** Result) override {
    return AnswerQuery<IConnectionPoint>(this, Iid, Result);
  }
  STDMETHOD_(ULONG, AddRef)() override { return Container.AddRef(); }
  STDMETHOD_(ULONG, Release)() override { return Container.Release(); }
  STDMETHOD(GetConnectionInterface)(IID* Iid) override;
  STDMETHOD(GetConnectionPointContainer)(IConnectionPointContainer** Result) override;
  STDMETHOD(Advise)(IUnknown* NewSink, DWORD* Cookie) override;
  STDMETHOD(Unadvise)(DWORD Cookie) override;
  STDMETHOD(EnumConnections)(IEnumConnections** Result) override;

 private:
  IConnectionPointContainer& Container;
  const IID EventsIid;
  TComRef<IUnknown> Connected;
};

/// Makes the enumeration of a container's only connection point.
HRESULT EnumerateConnectionPoints(IConnectionPoint& Point, IEnumConnectionPoints** Result);
