#pragma once

#include "base/handles.h"
#include "kit/interfaces.h"
#include "server/coclass_table.h"
#include "server/com_server.h"
#include "server/dispatch.h"
#include "server/safe_call.h"

#include <memory>
#include <utility>

/// One of Mendwork's interfaces as its type library describes it, the one that its objects have: where nothing is
/// registered, only they know it. Raises the COM failure.
TComRef<ITypeInfo> MendworkInterface(const IID& Iid);

/// An object of the kit that takes the place of one of Mendwork's own, early and late bound. It is no class that a
/// client could create. The description of its interface is Mendwork's, in whose place it stands.
template <class TInterface>
class TStandIn : public TInterface, public ISupportErrorInfo {
 public:
  /// `Server` counts it, and so stays in memory as long as it is held.
  explicit TStandIn(TComServer& Server) : Server(Server) { Server.CountObject(+1); }
  virtual ~TStandIn() { Server.CountObject(-1); }
  TStandIn(const TStandIn&) = delete;
  TStandIn& operator=(const TStandIn&) = delete;

  IUnknown& Identity() { return static_cast<TInterface&>(*this); }

  STDMETHOD(QueryInterface)(REFIID Iid, void** Result) override {
    if (!Result) return E_POINTER;
    const bool Own = Iid == IID_IUnknown || Iid == IID_IDispatch || Iid == __uuidof(TInterface);
    *Result = Own ? static_cast<TInterface*>(this) : nullptr;
    if (Iid == IID_ISupportErrorInfo) *Result = static_cast<ISupportErrorInfo*>(this);
    if (*Result) AddRef();
    return *Result ? S_OK : E_NOINTERFACE;
  }
  STDMETHOD_(ULONG, AddRef)() override { return static_cast<ULONG>(InterlockedIncrement(&References)); }
  STDMETHOD_(ULONG, Release)() override {
    const LONG Left = InterlockedDecrement(&References);
    if (Left == 0) delete this;
    return static_cast<ULONG>(Left);
  }

  STDMETHOD(GetTypeInfoCount)(UINT* Count) override {
    if (!Count) return E_POINTER;
    *Count = 1;
    return S_OK;
  }
  STDMETHOD(GetTypeInfo)(UINT Index, LCID, ITypeInfo** Result) override {
    if (!Result) return E_POINTER;
    *Result = nullptr;
    if (Index != 0) return DISP_E_BADINDEX;
    return SafeCall([&] { *Result = TComRef<ITypeInfo>(LateBound().Info).Detach(); });
  }
  STDMETHOD(GetIDsOfNames)(REFIID Iid, LPOLESTR* Names, UINT Count, LCID, DISPID* Ids) override {
    if (Iid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
    HRESULT Found = S_OK;
    const HRESULT Known = SafeCall([&] { Found = LateBound().Info->GetIDsOfNames(Names, Count, Ids); });
    return FAILED(Known) ? Known : Found;
  }
  STDMETHOD(Invoke)
  (DISPID Id, REFIID Iid, LCID, WORD Flags, DISPPARAMS* Arguments, VARIANT* Result, EXCEPINFO* Exception,
   UINT* BadArgument) override {
    const TLateBinding* Late = nullptr;
    const HRESULT Known = SafeCall([&] { Late = &LateBound(); });
    if (FAILED(Known)) return Known;
    return Late->Table.Invoke(static_cast<TInterface*>(this), Id, Iid, Flags, Arguments, Result, Exception,
                              BadArgument);
  }

  STDMETHOD(InterfaceSupportsErrorInfo)(REFIID Iid) override { return Iid == __uuidof(TInterface) ? S_OK : S_FALSE; }

 protected:
  template <class TBody>
  HRESULT SafeCall(TBody&& Body) noexcept {
    return RunSafely(__uuidof(TInterface), OwnModule.Name, Body);
  }

 private:
  struct TLateBinding {
    explicit TLateBinding(TComRef<ITypeInfo> Found) : Info(std::move(Found)), Table(*Info) {}
    TComRef<ITypeInfo> Info;
    TDispatchTable Table;
  };
  /// Looked up by the first late-bound call. Raises the COM failure.
  const TLateBinding& LateBound() {
    if (!Late) Late = std::make_unique<TLateBinding>(MendworkInterface(__uuidof(TInterface)));
    return *Late;
  }

  TComServer& Server;
  std::unique_ptr<TLateBinding> Late;
  LONG References = 1;
};

/// The running object table's entry of an object that stands in for Mendwork's own, for as long as this object lives.
/// While it is there, Mendwork's objects take that one.
class TActivePlace {
 public:
  /// Registers the object, which the table then holds. Fails with E_UNEXPECTED when somebody else's stands there
  /// already and would be taken instead.
  TActivePlace(IUnknown& Object, const CLSID& ClassId);
  ~TActivePlace() { RevokeActiveObject(Entry, nullptr); }
  TActivePlace(const TActivePlace&) = delete;
  TActivePlace& operator=(const TActivePlace&) = delete;

 private:
  DWORD Entry = 0;
};
