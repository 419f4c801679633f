#include "server/class_factory.h"

#include "base/failure.h"
#include "base/guid.h"
#include "base/text.h"
#include "server/automation.h"

#include <algorithm>
#include <charconv>

namespace {

void RequireStatus(LSTATUS Status) { CheckSystemCall(HRESULT_FROM_WIN32(static_cast<DWORD>(Status))); }

/// To write a key is to create it and to set its default value, or the named one.
void WriteKey(const std::string& Name, const std::wstring& Value, const wchar_t* ValueName = nullptr) {
  TRegistryKey Key;
  RequireStatus(
      RegCreateKeyExA(HKEY_CLASSES_ROOT, Name.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, Key.Out(), nullptr));
  RequireStatus(RegSetValueExW(Key.Get(), ValueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(Value.c_str()),
                               static_cast<DWORD>(sizeof(wchar_t) * (Value.size() + 1))));
}
void WriteKey(const std::string& Name, const std::string& Value) { WriteKey(Name, ToWide(Value)); }

/// The default value of a key; empty when there is none.
std::string ReadKey(const std::string& Name) {
  char Value[512];
  DWORD Size = sizeof Value;
  const LSTATUS Status = RegGetValueA(HKEY_CLASSES_ROOT, Name.c_str(), nullptr, RRF_RT_REG_SZ, nullptr, Value, &Size);
  return Status == ERROR_SUCCESS ? Value : "";
}

/// A key that is not there is what was wanted.
void RequireGone(LSTATUS Status) {
  if (Status != ERROR_FILE_NOT_FOUND) RequireStatus(Status);
}
void DeleteKey(const std::string& Name) { RequireGone(RegDeleteKeyA(HKEY_CLASSES_ROOT, Name.c_str())); }

}  // namespace

TVersionedAutoObjectFactory::TVersionedAutoObjectFactory(TComServer& Server, const TCoClass& Row, int Version)
    : Owner(Server), Row(Row), Version(Version), WideId(ToWide(GetVersionIndependentProgID())) {
  TComRef<ITypeInfo> CoClassInfo;
  TBstr Help;
  CheckCall(Owner.TypeLibrary().GetTypeInfoOfGuid(Row.ClassId, CoClassInfo.Out()));
  CheckCall(CoClassInfo->GetDocumentation(MEMBERID_NIL, nullptr, Help.Out(), nullptr, nullptr));
  Description = LossyAnsi(ViewOf(Help.Get()));
  CheckCall(Owner.TypeLibrary().GetTypeInfoOfGuid(Row.InterfaceId, Interface.Out()));
  Table = std::make_unique<TDispatchTable>(*Interface);
}

std::string TVersionedAutoObjectFactory::GetVersionIndependentProgID() const {
  const std::string Server = Owner.Name();
  return Server.empty() ? "" : Server + "." + Row.Name;
}

std::string TVersionedAutoObjectFactory::GetProgID() const {
  const std::string Base = GetVersionIndependentProgID();
  return Base.empty() ? "" : Base + "." + std::to_string(Version);
}

std::string TVersionedAutoObjectFactory::ClassKey() const { return "CLSID\\" + GuidText(Row.ClassId); }

void TVersionedAutoObjectFactory::UpdateRegistry(bool Register) {
  const std::string Independent = GetVersionIndependentProgID();
  if (Register) {
    RegisterClass();
    if (!Independent.empty() && RegisteredVersion() < Version) RegisterVersionIndependent();
    return;
  }
  if (!Independent.empty() && ReadKey(Independent + "\\CurVer") == GetProgID()) {
    DeleteKey(ClassKey() + "\\VersionIndependentProgID");
    DeleteKey(Independent + "\\CurVer");
    DeleteKey(Independent + "\\Clsid");
    DeleteKey(Independent);
  }
  UnregisterClass();
}

void TVersionedAutoObjectFactory::RegisterClass() const {
  const std::string Class = ClassKey(), ProgId = GetProgID(), ClassId = GuidText(Row.ClassId);
  const TLIBATTR Library = Owner.LibraryAttributes();
  WriteKey(Class, Description);
  WriteKey(Class + "\\" + Owner.ServerKey(), Owner.FileName());
  WriteKey(Class + "\\" + Owner.ServerKey(), L"Apartment", L"ThreadingModel");
  WriteKey(ProgId, Description);
  WriteKey(ProgId + "\\Clsid", ClassId);
  WriteKey(Class + "\\ProgID", ProgId);
  WriteKey(Class + "\\TypeLib", GuidText(Library.guid));
  WriteKey(Class + "\\Version", std::to_string(Library.wMajorVerNum) + "." + std::to_string(Library.wMinorVerNum));
}

void TVersionedAutoObjectFactory::UnregisterClass() const {
  const std::string Class = ClassKey(), ProgId = GetProgID();
  DeleteKey(ProgId + "\\Clsid");
  DeleteKey(ProgId);
  // With all subkeys, a newer version's VersionIndependentProgID too, which has no meaning without the class.
  RequireGone(RegDeleteTreeA(HKEY_CLASSES_ROOT, Class.c_str()));
}

void TVersionedAutoObjectFactory::RegisterVersionIndependent() const {
  const std::string Independent = GetVersionIndependentProgID();
  WriteKey(Independent, Description);
  WriteKey(Independent + "\\Clsid", GuidText(Row.ClassId));
  WriteKey(Independent + "\\CurVer", GetProgID());
  WriteKey(ClassKey() + "\\VersionIndependentProgID", Independent);
}

/// The version that CurVer names: "Mendwork.UFile.6.1" reads as 61. 0 without CurVer; the factory's own version when
/// CurVer is no version of this ProgID, so that a stranger's entry stays.
int TVersionedAutoObjectFactory::RegisteredVersion() const {
  const std::string Independent = GetVersionIndependentProgID();
  const std::string Current = ReadKey(Independent + "\\CurVer");
  if (Current.empty()) return 0;
  std::string Digits = Current.substr(std::min(Current.size(), Independent.size() + 1));
  Digits.erase(std::remove(Digits.begin(), Digits.end(), '.'), Digits.end());
  int Number = 0;
  const char* const End = Digits.data() + Digits.size();
  const auto Parsed = std::from_chars(Digits.data(), End, Number);
  return Parsed.ec == std::errc() && Parsed.ptr == End ? Number : Version;
}

HRESULT TVersionedAutoObjectFactory::CreateInstance(IUnknown* Outer, REFIID Iid, void** Result) {
  if (!Result) return E_POINTER;
  *Result = nullptr;
  if (Outer) return CLASS_E_NOAGGREGATION;
  HRESULT Found = E_NOINTERFACE;
  const HRESULT Made = RunSafely(Row.InterfaceId, WideProgId(), [&] {
    TAutoObjectBase* const Object = Row.Create(*this);
    const TComRef<IUnknown> Reference(Object->Identity());
    Object->Initialize();
    Found = Reference->QueryInterface(Iid, Result);
  });
  return FAILED(Made) ? Made : Found;
}

HRESULT TVersionedAutoObjectFactory::LockServer(BOOL Lock) {
  Owner.CountFactory(Lock ? +1 : -1);
  return S_OK;
}
