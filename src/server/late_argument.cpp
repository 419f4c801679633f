#include "server/late_argument.h"

#include "base/guid.h"
#include "base/handles.h"
#include "base/text.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

/// An argument's value behind all references: borrowed from the caller, or a copy of our own.
struct TArgumentValue : VARIANT {
  TArgumentValue() : VARIANT{} {}
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
    if (!Source->byref) return DISP_E_TYPEMISMATCH;
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

bool IsRecord(const VARIANT& Given) { return Given.vt == VT_RECORD || Given.vt == (VT_BYREF | VT_RECORD); }

/// The types of number that a result is stored as.
bool IsNumber(VARTYPE Type) {
  constexpr VARTYPE Numbers[] = {VT_I4, VT_UI4, VT_INT, VT_UINT, VT_I2, VT_UI2, VT_BOOL};
  return std::ranges::find(Numbers, Type) != std::end(Numbers);
}

VARIANT PointerTo(void* Target) {
  VARIANT Pointer;
  VariantInit(&Pointer);
  Pointer.vt = VT_BYREF | VT_UI1;
  Pointer.pbVal = static_cast<BYTE*>(Target);
  return Pointer;
}

}  // namespace

HRESULT TLateArgument::Convert() {
  TArgumentValue Argument;
  const HRESULT Outcome = Argument.Dereference(*Given);
  if (FAILED(Outcome)) return Outcome;
  if (Argument.vt == VT_ERROR && Argument.scode == DISP_E_PARAMNOTFOUND) return DISP_E_PARAMNOTOPTIONAL;
  // A signed number keeps its bits: scripts have no unsigned ones, and write the root key 0x80000001 as a negative
  // number, and -1, or &HFFFFFFFF, as a short one.
  if (Parameter.Type == VT_UI4 && Argument.vt == VT_I2) Argument.lVal = Argument.iVal, Argument.vt = VT_I4;
  if (Parameter.Type == VT_UI4 && Argument.vt == VT_I4) Argument.vt = VT_UI4;
  if (Parameter.Type != VT_RECORD) return VariantChangeType(&Value, &Argument, VARIANT_ALPHABOOL, Parameter.Type);
  if (Argument.vt == VT_RECORD) return GuidFromRecord(Argument, Guid);
  return Argument.vt == VT_BSTR ? GuidFromText(Argument, Guid) : DISP_E_TYPEMISMATCH;
}

void TLateArgument::Pass(TVtableArguments& Arguments) {
  if (Parameter.Out) {
    if (Parameter.Type != VT_RECORD) Value.vt = Parameter.Type;
    const VARIANT Pointer = PointerTo(Parameter.Type == VT_RECORD ? static_cast<void*>(&Guid) : &Value.lVal);
    Arguments.Add(Pointer.vt, Pointer);
  } else if (Parameter.Type == VT_RECORD) {
    PassGuid(Arguments);
  } else {
    Arguments.Add(Parameter.Type, Value);
  }
}

/// A GUID by value, as the calling convention has it: 16 bytes on the stack in 32-bit code, a pointer to a copy in
/// 64-bit code.
void TLateArgument::PassGuid(TVtableArguments& Arguments) {
  if constexpr (sizeof(void*) == sizeof(LONG)) {
    LONG Words[sizeof(GUID) / sizeof(LONG)];
    std::memcpy(Words, &Guid, sizeof Words);
    for (const LONG Word : Words) {
      VARIANT Part;
      VariantInit(&Part);
      Part.vt = VT_I4;
      Part.lVal = Word;
      Arguments.Add(VT_I4, Part);
    }
  } else {
    const VARIANT Pointer = PointerTo(&Guid);
    Arguments.Add(Pointer.vt, Pointer);
  }
}

void TLateArgument::TakeOut(VARIANT& Target) {
  VariantInit(&Target);
  if (Parameter.Type != VT_RECORD) {
    std::swap(Target, static_cast<VARIANT&>(Value));
    return;
  }
  Target.bstrVal = MakeBstr(ToWide(GuidText(Guid))).Detach();
  Target.vt = VT_BSTR;
}

HRESULT TLateArgument::CheckPlace() const {
  if (IsRecord(*Given)) {
    GUID Unused;
    return Parameter.Type == VT_RECORD ? GuidFromRecord(*Given, Unused) : DISP_E_TYPEMISMATCH;
  }
  if (!(Given->vt & VT_BYREF)) return S_OK;
  const bool IsText = Parameter.Type == VT_BSTR || Parameter.Type == VT_RECORD;
  const VARTYPE Place = static_cast<VARTYPE>(Given->vt & ~VT_BYREF);
  const bool Takes = Place == VT_VARIANT || Place == VT_BSTR || (!IsText && IsNumber(Place));
  return Takes && Given->byref ? S_OK : DISP_E_TYPEMISMATCH;
}

HRESULT TLateArgument::GiveOut() {
  if (IsRecord(*Given)) {
    std::memcpy(Given->pvRecord, &Guid, sizeof Guid);
    return S_OK;
  }
  if (!(Given->vt & VT_BYREF)) return S_OK;  // a plain value: the caller cannot take the result
  TVariant Result;
  TakeOut(Result);
  return StoreThroughReference(*Given, Result);
}
