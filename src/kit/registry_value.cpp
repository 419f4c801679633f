#include "kit/registry_value.h"

#include "base/handles.h"

LSTATUS ReadValue(HKEY Root, const std::wstring& Key, const std::wstring& Name, TRegistryData& Data) {
  TRegistryKey Open;
  DWORD Size = 0;
  LSTATUS Status = RegOpenKeyExW(Root, Key.c_str(), 0, KEY_QUERY_VALUE, Open.Out());
  if (Status != ERROR_SUCCESS) return Status;
  Status = RegQueryValueExW(Open.Get(), Name.c_str(), nullptr, &Data.Type, nullptr, &Size);
  if (Status != ERROR_SUCCESS) return Status;
  do {                                    // again when it has grown meanwhile
    Data.Bytes.resize(size_t{Size} + 1);  // never without an address
    Size = static_cast<DWORD>(Data.Bytes.size());
    Status = RegQueryValueExW(Open.Get(), Name.c_str(), nullptr, &Data.Type, Data.Bytes.data(), &Size);
  } while (Status == ERROR_MORE_DATA);
  Data.Bytes.resize(Status == ERROR_SUCCESS ? Size : 0);
  return Status;
}

LSTATUS LookAtKey(HKEY Root, const std::wstring& Key, bool& Empty) {
  TRegistryKey Open;
  DWORD Subkeys = 0, Values = 0;
  LSTATUS Status = RegOpenKeyExW(Root, Key.c_str(), 0, KEY_QUERY_VALUE, Open.Out());
  if (Status != ERROR_SUCCESS) return Status;
  Status = RegQueryInfoKeyW(Open.Get(), nullptr, nullptr, nullptr, &Subkeys, nullptr, nullptr, &Values, nullptr,
                            nullptr, nullptr, nullptr);
  Empty = Subkeys == 0 && Values == 0;
  return Status;
}
