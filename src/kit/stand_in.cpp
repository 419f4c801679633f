#include "kit/stand_in.h"

#include "base/failure.h"
#include "base/text.h"
#include "kit/kit_messages.h"

namespace {

constexpr WORD MendworkMajor = 2, MendworkMinor = 0;

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
  TComRef<ITypeLib> Library;
  TComRef<ITypeInfo> Info;
  CheckSystemCall(LoadRegTypeLib(LIBID_Mendwork, MendworkMajor, MendworkMinor,
                                 MAKELCID(MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), SORT_DEFAULT), Library.Out()));
  CheckSystemCall(Library->GetTypeInfoOfGuid(Iid, Info.Out()));
  return Info;
}

TActivePlace::TActivePlace(IUnknown& Object, const CLSID& ClassId) {
  CheckSystemCall(RegisterActiveObject(&Object, ClassId, ACTIVEOBJECT_STRONG, &Entry));
  if (IsActive(Object, ClassId)) return;
  RevokeActiveObject(Entry, nullptr);
  throw EFailure(E_UNEXPECTED, FormatWideMessage(MsgKitNotActive, ProgIdOf(ClassId)));
}
