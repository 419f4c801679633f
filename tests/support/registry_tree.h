#pragma once

#include "support/sandbox.h"

#include <cstdint>
#include <map>
#include <string>

/// One value of a key. A key's own entry is its default value, without a type when it has none.
struct TRegistryEntry {
  int64_t Type = -1;
  std::string Data;  ///< the stored bytes
  bool operator==(const TRegistryEntry&) const = default;
};
std::ostream& operator<<(std::ostream& Out, const TRegistryEntry& Entry);

/// What the registry holds below a key (of HKEY_CURRENT_USER unless told otherwise), as it is stored: every key under
/// its path, which ends in
/// "\", every value under its key's path and its name. Read with the functions for wide characters, so that nothing is
/// lost to the code page.
using TRegistryTree = std::map<std::wstring, TRegistryEntry>;
TRegistryTree RegistryTreeOf(const std::wstring& KeyName, HKEY Root = HKEY_CURRENT_USER);
/// One line for each entry that differs; "" when none does.
std::string Difference(const TRegistryTree& Before, const TRegistryTree& After);

/// Writes a value of a key of HKEY_CURRENT_USER, byte for byte, and creates the key.
void StoreValue(const std::wstring& KeyName, const std::wstring& Name, DWORD Type, const std::string& Data);
/// The bytes of a text for wide characters.
std::string WideBytes(std::wstring_view Text);
void DeleteKeyTree(const std::wstring& KeyName);

/// A sandbox with a part of the registry: HKEY_CURRENT_USER\Software\MendworkTests, empty at first.
class TRegistrySandbox : public TSandbox {
 protected:
  explicit TRegistrySandbox(TLogChoice Choice = LogInMemory) : TSandbox(Choice) { DeleteKeyTree(TestKey); }
  ~TRegistrySandbox() override { DeleteKeyTree(TestKey); }

 public:
  static constexpr wchar_t TestKey[] = L"Software\\MendworkTests";
  static constexpr unsigned long User = 0x80000001;

  static std::wstring Wide(const std::wstring& Name) { return TestKey + (Name.empty() ? Name : L"\\" + Name); }
  /// The name of a key below the root, as callers pass it.
  static std::string Key(const std::string& Name = "") {
    return "Software\\MendworkTests" + (Name.empty() ? Name : "\\" + Name);
  }
  static TRegistryTree Tree() { return RegistryTreeOf(TestKey); }
  /// One value as it is stored.
  static TRegistryEntry Value(const std::wstring& KeyName, const std::wstring& Name) {
    return RegistryTreeOf(Wide(KeyName))[Name];
  }
  /// The transaction log back to its beginning.
  static HRESULT RollbackAll() {
    GUID CheckPoint{};
    return Make<IUTransactionLog>(CLSID_UTransactionLog)->Rollback(VARIANT_FALSE, &CheckPoint);
  }
};
