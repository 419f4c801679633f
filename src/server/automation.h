#pragma once

#include "base/text.h"
#include "server/class_factory.h"
#include "server/connection_point.h"
#include "server/interfaces.h"
#include "server/safe_call.h"

#include <type_traits>

/// What a class factory needs of a new automation object.
class TAutoObjectBase {
 public:
  virtual ~TAutoObjectBase() = default;
  /// Run once, right after construction. Raises what keeps the object from starting.
  virtual void Initialize() {}
  virtual IUnknown* Identity() = 0;
};

/// The base of every coclass: IUnknown, IDispatch from the type library, ISupportErrorInfo, the events connection point
/// and the counting. A coclass derives from TAutoObject<IUName>, adds its methods and, in Initialize, takes its
/// collaborators. `TOthers` are further dual interfaces that it implements, of other libraries.
template <class TInterface, class... TOthers>
class TAutoObject : public TAutoObjectBase,
                    public TInterface,
                    public TOthers...,
                    public ISupportErrorInfo,
                    public IConnectionPointContainer {
 public:
  explicit TAutoObject(TVersionedAutoObjectFactory& Factory)
      : Factory(Factory), Events(*this, Factory.Class().EventsIid) {
    Factory.Server().CountObject(+1);
  }
  ~TAutoObject() override { Factory.Server().CountObject(-1); }

  IUnknown* Identity() override { return static_cast<TInterface*>(this); }

  STDMETHOD(QueryInterface)(REFIID Iid, void** Result) override {
    if (!Result) return E_POINTER;
    *Result = Find(Iid);
    if (*Result) this->AddRef();
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
    *Result = &Factory.InterfaceInfo();
    (*Result)->AddRef();
    return S_OK;
  }
  STDMETHOD(GetIDsOfNames)(REFIID Iid, LPOLESTR* Names, UINT Count, LCID, DISPID* Ids) override {
    if (Iid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
    return Factory.InterfaceInfo().GetIDsOfNames(Names, Count, Ids);
  }
  STDMETHOD(Invoke)
  (DISPID Id, REFIID Iid, LCID, WORD Flags, DISPPARAMS* Arguments, VARIANT* Result, EXCEPINFO* Exception,
   UINT* BadArgument) override {
    return Factory.Dispatch().Invoke(static_cast<TInterface*>(this), Id, Iid, Flags, Arguments, Result, Exception,
                                     BadArgument);
  }

  STDMETHOD(InterfaceSupportsErrorInfo)(REFIID Iid) override {
    const bool Known = Iid == __uuidof(TInterface) || IsRollbackInterface(Iid) || ((Iid == __uuidof(TOthers)) || ...);
    return Known ? S_OK : S_FALSE;
  }

  STDMETHOD(EnumConnectionPoints)(IEnumConnectionPoints** Result) override {
    return EnumerateConnectionPoints(Events, Result);
  }
  STDMETHOD(FindConnectionPoint)(REFIID Iid, IConnectionPoint** Result) override {
    if (!Result) return E_POINTER;
    const bool Known = Iid == Events.GetEventsIid();
    *Result = Known ? &Events : nullptr;
    if (Known) this->AddRef();
    return Known ? S_OK : CONNECT_E_NOCONNECTION;
  }

 protected:
  /// The boundary of every method: what leaves the body becomes an HRESULT with error information.
  template <class TBody>
  HRESULT SafeCall(TBody&& Body) noexcept {
    return RunSafely(__uuidof(TInterface), Factory.WideProgId(), Body);
  }
  /// The same for a method that gives one result: refuses a null pointer for it, and stores what the body gives when
  /// all else has succeeded; a text becomes a BSTR. After a failure the result is empty, or for a GUID what it was.
  template <class TOut, class TBody>
  HRESULT Give(TOut* Out, TBody&& Body) noexcept {
    if (!Out) return RefuseNullPointer();
    if constexpr (!std::is_same_v<TOut, GUID>) *Out = {};
    return SafeCall([&] {
      if constexpr (std::is_same_v<TOut, BSTR>)
        *Out = MakeBstr(Body()).Detach();
      else
        *Out = Body();
    });
  }
  const TCoClass& Class() const { return Factory.Class(); }
  TComServer& Server() const { return Factory.Server(); }

 private:
  static constexpr bool CanRollback = std::is_base_of_v<IUCanRollback, TInterface>;

  static bool IsRollbackInterface(REFIID Iid) { return CanRollback && Iid == __uuidof(IUCanRollback); }

  void* Find(REFIID Iid) {
    if (Iid == IID_IUnknown || Iid == IID_IDispatch || Iid == __uuidof(TInterface) || IsRollbackInterface(Iid))
      return static_cast<TInterface*>(this);
    void* Other = nullptr;
    ((Iid == __uuidof(TOthers) ? void(Other = static_cast<TOthers*>(this)) : void()), ...);
    if (Other) return Other;
    if (Iid == IID_ISupportErrorInfo) return static_cast<ISupportErrorInfo*>(this);
    if (Iid == IID_IConnectionPointContainer) return static_cast<IConnectionPointContainer*>(this);
    return nullptr;
  }

  TVersionedAutoObjectFactory& Factory;
  TConnectionPoint Events;
  LONG References = 1;
};
