#include "support/registry_tree.h"

#include "base/handles.h"
#include "base/text.h"
#include "support/must.h"

namespace {

constexpr size_t LongestName = 16384;

void Collect(HKEY Parent, const std::wstring& KeyName, const std::wstring& Prefix, TRegistryTree& Tree) {
  TRegistryKey Key;
  if (RegOpenKeyExW(Parent, KeyName.c_str(), 0, KEY_READ, Key.Out()) != ERROR_SUCCESS) return;
  Tree[Prefix] = {};
  std::wstring Name(LongestName, L'\0');
  DWORD Length = LongestName, Type = 0, Size = 0;
  for (DWORD At = 0; !RegEnumValueW(Key.Get(), At, Name.data(), &Length, nullptr, &Type, nullptr, &Size); ++At) {
    std::string Data(Size, '\0');
    RegQueryValueExW(Key.Get(), Name.c_str(), nullptr, &Type, reinterpret_cast<BYTE*>(Data.data()), &Size);
    Tree[Prefix + Name.c_str()] = {Type, Data};
    Length = LongestName;
  }
  Length = LongestName;
  for (DWORD At = 0; !RegEnumKeyExW(Key.Get(), At, Name.data(), &Length, nullptr, nullptr, nullptr, nullptr); ++At) {
    Collect(Key.Get(), Name.c_str(), Prefix + Name.c_str() + L"\\", Tree);
    Length = LongestName;
  }
}

}  // namespace

std::ostream& operator<<(std::ostream& Out, const TRegistryEntry& Entry) {
  Out << "type " << Entry.Type << std::hex;
  for (const char Byte : Entry.Data) Out << ' ' << (Byte & 0xFF);
  return Out << std::dec;
}

TRegistryTree RegistryTreeOf(const std::wstring& KeyName, HKEY Root) {
  TRegistryTree Tree;
  Collect(Root, KeyName, L"", Tree);
  return Tree;
}

std::string Differing(const TRegistryEntry& Before, const TRegistryEntry& After) {
  return std::string(After.Type != Before.Type ? " type" : "") + (After.Data != Before.Data ? " data" : "");
}

void StoreValue(const std::wstring& KeyName, const std::wstring& Name, DWORD Type, const std::string& Data) {
  TRegistryKey Key;
  RegCreateKeyExW(HKEY_CURRENT_USER, KeyName.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, Key.Out(), nullptr);
  // The byte behind the data is no zero: the system would add a terminator to a string without one.
  const std::string Guarded = Data + '\xFF' + '\xFF';
  const LSTATUS Status = RegSetValueExW(Key.Get(), Name.c_str(), 0, Type, reinterpret_cast<const BYTE*>(Guarded.data()),
                                        static_cast<DWORD>(Data.size()));
  Must(Status == ERROR_SUCCESS, "cannot store the value " + ToAnsi(Name));
}

std::string WideBytes(std::wstring_view Text) {
  return std::string(reinterpret_cast<const char*>(Text.data()), Text.size() * sizeof(wchar_t));
}

void DeleteKeyTree(const std::wstring& KeyName) { RegDeleteTreeW(HKEY_CURRENT_USER, KeyName.c_str()); }
