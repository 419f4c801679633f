#include "server/dispatch.h"

#include "base/failure.h"
#include "base/guid.h"
#include "base/handles.h"
#include "base/text.h"
#include "server/safe_call.h"

#include <cstddef>

namespace {

// ---- Reading the type library

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
  Method.VtableOffset = Function.oVft;
  TBstr Name;
  UINT Count = 0;
  CheckCall(Info.GetNames(Function.memid, Name.Out(), 1, &Count));
  Method.Name = ViewOf(Name.Get());
  for (SHORT At = 0; At < Function.cParams; ++At)
    Method.Parameters.push_back(DescribeParameter(Function.lprgelemdescParam[At]));
  return Method;
}

void CollectMethods(ITypeInfo& Info, std::vector<TMethod>& List) {
  TTypeAttributes Attributes(Info);
  CheckCall(Info.GetTypeAttr(&Attributes.Pointer));
  if (Attributes->guid == IID_IDispatch) return;
  for (WORD At = 0; At < Attributes->cImplTypes; ++At) {
    HREFTYPE Reference = 0;
    TComRef<ITypeInfo> Base;
    CheckCall(Info.GetRefTypeOfImplType(At, &Reference));
    CheckCall(Info.GetRefTypeInfo(Reference, Base.Out()));
    CollectMethods(*Base, List);
  }
  for (WORD At = 0; At < Attributes->cFuncs; ++At) {
    TFunction Function(Info);
    CheckCall(Info.GetFuncDesc(At, &Function.Pointer));
    List.push_back(DescribeMethod(Info, *Function.Pointer));
  }
}

/// The vtable view of a dual interface: the type library hands out its dispatch view.
TComRef<ITypeInfo> VtableView(ITypeInfo& Info) {
  TTypeAttributes Attributes(Info);
  CheckCall(Info.GetTypeAttr(&Attributes.Pointer));
  TComRef<ITypeInfo> View;
  if (Attributes->typekind == TKIND_INTERFACE) {
    Info.AddRef();
    return TComRef<ITypeInfo>(&Info);
  }
  HREFTYPE Reference = 0;
  CheckCall(Info.GetRefTypeOfImplType(static_cast<UINT>(-1), &Reference));
  CheckCall(Info.GetRefTypeInfo(Reference, View.Out()));
  return View;
}

// ---- One call

struct TVariant : VARIANT {
  TVariant() { VariantInit(this); }
  ~TVariant() { VariantClear(this); }
  TVariant(const TVariant&) = delete;
  TVariant& operator=(const TVariant&) = delete;
};

/// One argument between the caller's VARIANT and the vtable.
struct TSlot {
  VARIANT* Given = nullptr;  ///< the caller's, null for a return value that nobody wants
  TVariant Value;            ///< converted in argument, or the place an out argument points to
  GUID Guid{};               ///< its value when the parameter is a GUID
};

/// An argument's value behind all references: borrowed from the caller, or a copy of our own.
struct TArgumentValue : VARIANT {
  TArgumentValue() { VariantInit(this); }
  ~TArgumentValue() {
    if (Owned) VariantClear(this);
  }
  TArgumentValue(const TArgumentValue&) = delete;
  TArgumentValue& operator=(const TArgumentValue&) = delete;

  HRESULT Dereference(const VARIANT& Given);

 private:
  bool Owned = false;
};

HRESULT TArgumentValue::Dereference(const VARIANT& Given) {
  const VARIANT* Source = &Given;
  if (Given.vt == (VT_BYREF | VT_VARIANT)) Source = Given.pvarVal;
  if (!Source) return DISP_E_TYPEMISMATCH;
  if (Source->vt & VT_BYREF && Source->vt != (VT_BYREF | VT_RECORD)) {
    Owned = true;
    return VariantCopyInd(this, const_cast<VARIANT*>(Source));
  }
  // Records are never copied: the platform's copy leaves arrays inside them out, such as the last half of a GUID.
  static_cast<VARIANT&>(*this) = *Source;
  vt = static_cast<VARTYPE>(vt & ~VT_BYREF);
  return S_OK;
}

HRESULT GuidFromRecord(const VARIANT& Record, GUID& Guid) {
  ULONG Size = 0;
  if (!Record.pRecInfo || !Record.pvRecord) return DISP_E_TYPEMISMATCH;
  if (FAILED(Record.pRecInfo->GetSize(&Size)) || Size != sizeof Guid) return DISP_E_TYPEMISMATCH;
  std::memcpy(&Guid, Record.pvRecord, sizeof Guid);
  return S_OK;
}

HRESULT GuidFromText(const VARIANT& Text, GUID& Guid) {
  const std::wstring_view Wide = ViewOf(Text.bstrVal);
  std::string Narrow;
  for (const wchar_t Character : Wide) Narrow += Character < 128 ? static_cast<char>(Character) : '?';
  const auto Bytes = ParseGuid(Narrow);
  if (!Bytes) return DISP_E_TYPEMISMATCH;
  Guid = GuidOf(*Bytes);
  return S_OK;
}

/// A 32-bit number keeps its bits: scripts have no unsigned numbers, and write the root key 0x80000001 as a negative
/// one.
void SetUnsigned(VARIANT& Target, LONG Bits) {
  Target.vt = VT_UI4;
  Target.lVal = Bits;
}

HRESULT ConvertArgument(const TMethod::TParameter& Parameter, TSlot& Slot) {
  TArgumentValue Value;
  HRESULT Outcome = Value.Dereference(*Slot.Given);
  if (FAILED(Outcome)) return Outcome;
  if (Value.vt == VT_ERROR && Value.scode == DISP_E_PARAMNOTFOUND)
    Outcome = DISP_E_PARAMNOTOPTIONAL;
  else if (Parameter.Type == VT_UI4 && Value.vt == VT_I4)
    SetUnsigned(Slot.Value, Value.lVal);
  else if (Parameter.Type != VT_RECORD)
    Outcome = VariantChangeType(&Slot.Value, &Value, VARIANT_ALPHABOOL, Parameter.Type);
  else if (Value.vt == VT_RECORD)
    Outcome = GuidFromRecord(Value, Slot.Guid);
  else if (Value.vt == VT_BSTR)
    Outcome = GuidFromText(Value, Slot.Guid);
  else
    Outcome = DISP_E_TYPEMISMATCH;
  return Outcome;
}

/// Moves an out value into `Target`, a VARIANT of its own kind; a GUID becomes its text.
HRESULT TakeOut(const TMethod::TParameter& Parameter, TSlot& Slot, VARIANT& Target) {
  VariantInit(&Target);
  if (Parameter.Type != VT_RECORD) {
    std::swap(Target, static_cast<VARIANT&>(Slot.Value));
    return S_OK;
  }
  Target.bstrVal = MakeBstr(ToWide(GuidText(Slot.Guid))).Detach();
  Target.vt = VT_BSTR;
  return S_OK;
}

/// Stores `Value` behind a VT_BYREF variant of the type that the caller chose, as far as it converts.
HRESULT StoreThroughReference(VARIANT& Reference, VARIANT& Value) {
  const VARTYPE Type = static_cast<VARTYPE>(Reference.vt & ~VT_BYREF);
  if (Type == VT_VARIANT) {
    VariantClear(Reference.pvarVal);
    *Reference.pvarVal = Value;
    VariantInit(&Value);
    return S_OK;
  }
  const HRESULT Outcome = VariantChangeType(&Value, &Value, 0, Type);
  if (FAILED(Outcome)) return Outcome;
  switch (Type) {
    case VT_BSTR:
      SysFreeString(*Reference.pbstrVal);
      *Reference.pbstrVal = Value.bstrVal;
      VariantInit(&Value);
      return S_OK;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
      *Reference.plVal = Value.lVal;
      return S_OK;
    case VT_I2:
    case VT_UI2:
    case VT_BOOL:
      *Reference.piVal = Value.iVal;
      return S_OK;
    default:
      return DISP_E_TYPEMISMATCH;
  }
}

HRESULT GiveOut(const TMethod::TParameter& Parameter, TSlot& Slot) {
  VARIANT& Given = *Slot.Given;
  if (Given.vt == VT_RECORD || Given.vt == (VT_BYREF | VT_RECORD)) {
    GUID Unused;
    const HRESULT Fits = Parameter.Type == VT_RECORD ? GuidFromRecord(Given, Unused) : DISP_E_TYPEMISMATCH;
    if (SUCCEEDED(Fits)) std::memcpy(Given.pvRecord, &Slot.Guid, sizeof Slot.Guid);
    return Fits;
  }
  if (!(Given.vt & VT_BYREF)) return S_OK;  // a plain value: the caller cannot take the result
  TVariant Value;
  const HRESULT Outcome = TakeOut(Parameter, Slot, Value);
  return FAILED(Outcome) ? Outcome : StoreThroughReference(Given, Value);
}

/// The arguments of one call, in the order of the parameters.
class TCall {
 public:
  explicit TCall(const TMethod& Method) : Method(Method), Slots(Method.Parameters.size()) {}

  HRESULT Bind(DISPPARAMS& Arguments);
  HRESULT Convert(const DISPPARAMS& Arguments, UINT* BadArgument);
  HRESULT Run(IDispatch* Target);
  HRESULT GiveResults(const DISPPARAMS& Arguments, VARIANT* Result, UINT* BadArgument);

 private:
  void PushGuid(TSlot& Slot);
  void Push(VARTYPE Type, const VARIANT& Value) {
    Types.push_back(Type);
    Values.push_back(Value);
  }

  const TMethod& Method;
  std::vector<TSlot> Slots;
  std::vector<VARTYPE> Types;
  std::vector<VARIANT> Values;
};

/// Finds each parameter's argument: named ones by position identifier, the rest from the last to the first.
HRESULT TCall::Bind(DISPPARAMS& Arguments) {
  UINT Wanted = 0;
  for (const auto& Parameter : Method.Parameters) Wanted += Parameter.ReturnValue ? 0 : 1;
  if (Arguments.cArgs != Wanted || Arguments.cNamedArgs > Arguments.cArgs) return DISP_E_BADPARAMCOUNT;
  for (UINT At = 0; At < Arguments.cArgs; ++At) {
    const bool Named = At < Arguments.cNamedArgs;
    const DISPID Position = Named ? Arguments.rgdispidNamedArgs[At] : static_cast<DISPID>(Arguments.cArgs - 1 - At);
    if (Position < 0 || static_cast<UINT>(Position) >= Wanted) return DISP_E_PARAMNOTFOUND;
    TSlot& Slot = Slots[static_cast<size_t>(Position)];
    if (Slot.Given) return DISP_E_BADPARAMCOUNT;
    Slot.Given = &Arguments.rgvarg[At];
  }
  return S_OK;
}

UINT IndexOf(const DISPPARAMS& Arguments, const VARIANT* Given) { return static_cast<UINT>(Given - Arguments.rgvarg); }

HRESULT TCall::Convert(const DISPPARAMS& Arguments, UINT* BadArgument) {
  for (size_t At = 0; At < Slots.size(); ++At) {
    const auto& Parameter = Method.Parameters[At];
    if (Parameter.Out) continue;
    const HRESULT Outcome = ConvertArgument(Parameter, Slots[At]);
    if (FAILED(Outcome)) {
      if (BadArgument) *BadArgument = IndexOf(Arguments, Slots[At].Given);
      return Outcome;
    }
  }
  return S_OK;
}

/// A GUID by value, as the calling convention has it: 16 bytes on the stack in 32-bit code, a pointer to a copy in
/// 64-bit code.
void TCall::PushGuid(TSlot& Slot) {
  VARIANT Part;
  VariantInit(&Part);
  if constexpr (sizeof(void*) == sizeof(LONG)) {
    LONG Words[sizeof(GUID) / sizeof(LONG)];
    std::memcpy(Words, &Slot.Guid, sizeof Words);
    for (const LONG Word : Words) {
      Part.vt = VT_I4;
      Part.lVal = Word;
      Push(VT_I4, Part);
    }
  } else {
    Part.vt = VT_BYREF | VT_UI1;
    Part.pbVal = reinterpret_cast<BYTE*>(&Slot.Guid);
    Push(Part.vt, Part);
  }
}

HRESULT TCall::Run(IDispatch* Target) {
  for (size_t At = 0; At < Slots.size(); ++At) {
    const auto& Parameter = Method.Parameters[At];
    TSlot& Slot = Slots[At];
    if (Parameter.Out) {
      if (Parameter.Type != VT_RECORD) Slot.Value.vt = Parameter.Type;
      VARIANT Pointer;
      VariantInit(&Pointer);
      Pointer.vt = VT_BYREF | VT_UI1;
      Pointer.pbVal = reinterpret_cast<BYTE*>(Parameter.Type == VT_RECORD ? static_cast<void*>(&Slot.Guid)
                                                                          : static_cast<void*>(&Slot.Value.lVal));
      Push(Pointer.vt, Pointer);
    } else if (Parameter.Type == VT_RECORD) {
      PushGuid(Slot);
    } else {
      Push(Parameter.Type, Slot.Value);
    }
  }
  std::vector<VARIANTARG*> Pointers;
  for (VARIANT& Value : Values) Pointers.push_back(&Value);
  TVariant Returned;
  const HRESULT Outcome = DispCallFunc(Target, static_cast<ULONG_PTR>(Method.VtableOffset), CC_STDCALL, VT_ERROR,
                                       static_cast<UINT>(Values.size()), Types.data(), Pointers.data(), &Returned);
  return FAILED(Outcome) ? Outcome : Returned.scode;
}

HRESULT TCall::GiveResults(const DISPPARAMS& Arguments, VARIANT* Result, UINT* BadArgument) {
  for (size_t At = 0; At < Slots.size(); ++At) {
    const auto& Parameter = Method.Parameters[At];
    TSlot& Slot = Slots[At];
    HRESULT Outcome = S_OK;
    if (Parameter.ReturnValue && Result)
      Outcome = TakeOut(Parameter, Slot, *Result);
    else if (Parameter.Out && Slot.Given)
      Outcome = GiveOut(Parameter, Slot);
    if (FAILED(Outcome)) {
      if (BadArgument && Slot.Given) *BadArgument = IndexOf(Arguments, Slot.Given);
      return Outcome;
    }
  }
  return S_OK;
}

void DescribeFailure(HRESULT Failure, EXCEPINFO* Exception) {
  TComRef<IErrorInfo> Info;
  const bool Known = GetErrorInfo(0, Info.Out()) == S_OK && Info;
  if (!Exception) return;
  *Exception = EXCEPINFO{};
  Exception->scode = Failure;
  if (!Known) return;
  Info->GetSource(&Exception->bstrSource);
  Info->GetDescription(&Exception->bstrDescription);
}

bool HasBuffer(const TMethod& Method) {
  for (const auto& Parameter : Method.Parameters)
    if (Parameter.Type == VT_VOID) return true;
  return false;
}

HRESULT CallMethod(const TMethod& Method, IDispatch* Target, DISPPARAMS& Arguments, VARIANT* Result,
                   EXCEPINFO* Exception, UINT* BadArgument) {
  TCall Call(Method);
  HRESULT Outcome = Call.Bind(Arguments);
  if (FAILED(Outcome)) return Outcome;
  if (HasBuffer(Method))
    throw EFailure(E_NOTIMPL, L"'" + Method.Name +
                                  L"' takes a raw memory buffer, which cannot be passed late bound; call it through "
                                  L"the interface's vtable.");
  if (FAILED(Outcome = Call.Convert(Arguments, BadArgument))) return Outcome;
  SetErrorInfo(0, nullptr);
  if (FAILED(Outcome = Call.Run(Target))) {
    DescribeFailure(Outcome, Exception);
    return DISP_E_EXCEPTION;
  }
  return Call.GiveResults(Arguments, Result, BadArgument);
}

}  // namespace

TDispatchTable::TDispatchTable(ITypeInfo& DualInterface) { CollectMethods(*VtableView(DualInterface), List); }

HRESULT TDispatchTable::Invoke(IDispatch* Target, DISPID Id, REFIID Iid, WORD Flags, DISPPARAMS* Arguments,
                               VARIANT* Result, EXCEPINFO* Exception, UINT* BadArgument) const {
  if (Iid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
  if (!Arguments) return E_POINTER;
  if (Result) VariantInit(Result);
  for (const TMethod& Method : List) {
    if (Method.Id != Id) continue;
    if (!(Flags & DISPATCH_METHOD)) return DISP_E_MEMBERNOTFOUND;
    HRESULT Outcome = S_OK;
    const HRESULT Refused = RunSafely(IID_IDispatch, L"Mendwork", [&] {
      Outcome = CallMethod(Method, Target, *Arguments, Result, Exception, BadArgument);
    });
    if (SUCCEEDED(Refused)) return Outcome;
    DescribeFailure(Refused, Exception);
    return DISP_E_EXCEPTION;
  }
  return DISP_E_MEMBERNOTFOUND;
}
