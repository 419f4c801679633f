#include "kit/stand_in.h"

#include "base/failure.h"
#include "base/text.h"
#include "kit/kit_messages.h"

namespace {

/// The name of a class of Mendwork, as people know it; its identifier when it is not registered.
std::wstring ProgIdOf(const CLSID& ClassId) {
  TTaskMemory Text;
  if (SUCCEEDED(ProgIDFromCLSID(ClassId, reinterpret_cast<LPOLESTR*>(Text.Out()))))
    return static_cast<const wchar_t*>(Text.Get());
  CheckSystemCall(StringFromCLSID(ClassId, reinterpret_cast<LPOLESTR*>(Text.Out())));
  return static_cast<const wchar_t*>(Text.Get());
}

bool IsActive(IUnknown& Object, const CLSID& ClassId) {
  TComRef<IUnknown> Active, Found, Own;
  if (FAILED(GetActiveObject(ClassId, nullptr, Active.Out())) || !Active) return false;
  // Only this interface tells one object from another.
  CheckSystemCall(Active->QueryInterface(IID_IUnknown, Found.OutVoid()));
  CheckSystemCall(Object.QueryInterface(IID_IUnknown, Own.OutVoid()));
  return Found.Get() == Own.Get();
}

}  // namespace

TComRef<ITypeInfo> MendworkInterface(const IID& Iid) {
  TComRef<IDispatch> Object;
  TComRef<ITypeInfo> Own, Info;
  TComRef<ITypeLib> Library;
  UINT Place = 0;
  CheckCall(CoCreateInstance(CLSID_UDialog, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, Object.OutVoid()));
  CheckSystemCall(Object->GetTypeInfo(0, LOCALE_NEUTRAL, Own.Out()));
  CheckSystemCall(Own->GetContainingTypeLib(Library.Out(), &Place));
  CheckSystemCall(Library->GetTypeInfoOfGuid(Iid, Info.Out()));
  return Info;
}

TActivePlace::TActivePlace(IUnknown& Object, const CLSID& ClassId) {
  CheckSystemCall(RegisterActiveObject(&Object, ClassId, ACTIVEOBJECT_STRONG, &Entry));
  if (IsActive(Object, ClassId)) return;
  RevokeActiveObject(Entry, nullptr);
  throw EFailure(E_UNEXPECTED, FormatWideMessage(MsgKitNotActive, ProgIdOf(ClassId)));
}
