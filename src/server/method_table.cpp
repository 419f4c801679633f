#include "server/method_table.h"

#include "base/failure.h"
#include "base/handles.h"
#include "base/text.h"

namespace {

/// Releases a description that ITypeInfo handed out.
template <class T, void (STDMETHODCALLTYPE ITypeInfo::*Release)(T*)>
struct TDescription {
  ITypeInfo& Owner;
  T* Pointer = nullptr;
  explicit TDescription(ITypeInfo& Owner) : Owner(Owner) {}
  ~TDescription() {
    if (Pointer) (Owner.*Release)(Pointer);
  }
  T* operator->() const { return Pointer; }
};
using TTypeAttributes = TDescription<TYPEATTR, &ITypeInfo::ReleaseTypeAttr>;
using TFunction = TDescription<FUNCDESC, &ITypeInfo::ReleaseFuncDesc>;

TMethod::TParameter DescribeParameter(const ELEMDESC& Element) {
  const TYPEDESC* Type = &Element.tdesc;
  const USHORT Flags = Element.paramdesc.wParamFlags;
  const bool Out = (Flags & PARAMFLAG_FOUT) != 0;
  if (Out && Type->vt == VT_PTR) Type = Type->lptdesc;
  // Of user-defined types the library has the GUID record only, of inner pointers buffers only.
  VARTYPE Kind = Type->vt;
  if (Kind == VT_USERDEFINED) Kind = VT_RECORD;
  if (Kind == VT_PTR) Kind = VT_VOID;
  return {Kind, Out, (Flags & PARAMFLAG_FRETVAL) != 0};
}

TMethod DescribeMethod(ITypeInfo& Info, const FUNCDESC& Function) {
  TMethod Method;
  Method.Id = Function.memid;
  Method.Kind = static_cast<WORD>(Function.invkind);  // the flags of a call have the same numbers
  Method.VtableOffset = Function.oVft;
  TBstr Name;
  UINT Count = 0;
  CheckCall(Info.GetNames(Function.memid, Name.Out(), 1, &Count));
  Method.Name = ViewOf(Name.Get());
  for (SHORT At = 0; At < Function.cParams; ++At)
    Method.Parameters.push_back(DescribeParameter(Function.lprgelemdescParam[At]));
  return Method;
}

/// The vtable view of a dual interface: the type library hands out its dispatch view.
TComRef<ITypeInfo> VtableView(ITypeInfo& Info) {
  TTypeAttributes Attributes(Info);
  CheckCall(Info.GetTypeAttr(&Attributes.Pointer));
  if (Attributes->typekind == TKIND_INTERFACE) {
    Info.AddRef();
    return TComRef<ITypeInfo>(&Info);
  }
  HREFTYPE Reference = 0;
  TComRef<ITypeInfo> View;
  CheckCall(Info.GetRefTypeOfImplType(static_cast<UINT>(-1), &Reference));
  CheckCall(Info.GetRefTypeInfo(Reference, View.Out()));
  return View;
}

}  // namespace

TMethodTable::TMethodTable(ITypeInfo& DualInterface) { Collect(*VtableView(DualInterface)); }

/// Base interfaces first.
void TMethodTable::Collect(ITypeInfo& Info) {
  TTypeAttributes Attributes(Info);
  CheckCall(Info.GetTypeAttr(&Attributes.Pointer));
  if (Attributes->guid == IID_IDispatch) return;
  for (WORD At = 0; At < Attributes->cImplTypes; ++At) {
    HREFTYPE Reference = 0;
    TComRef<ITypeInfo> Base;
    CheckCall(Info.GetRefTypeOfImplType(At, &Reference));
    CheckCall(Info.GetRefTypeInfo(Reference, Base.Out()));
    Collect(*Base);
  }
  for (WORD At = 0; At < Attributes->cFuncs; ++At) {
    TFunction Function(Info);
    CheckCall(Info.GetFuncDesc(At, &Function.Pointer));
    Methods.push_back(DescribeMethod(Info, *Function.Pointer));
  }
}

const TMethod* TMethodTable::Find(DISPID Id, WORD Kinds) const {
  for (const TMethod& Method : Methods)
    if (Method.Id == Id && (Method.Kind & Kinds)) return &Method;
  return nullptr;
}
