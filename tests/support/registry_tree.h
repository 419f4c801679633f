#pragma once

#include "support/tree.h"

#include <cstdint>

/// One value of a key. A key's own entry is its default value, without a type when it has none.
struct TRegistryEntry {
  int64_t Type = -1;
  std::string Data;  ///< the stored bytes
  bool operator==(const TRegistryEntry&) const = default;
};
std::ostream& operator<<(std::ostream& Out, const TRegistryEntry& Entry);

/// What the registry holds below a key (of HKEY_CURRENT_USER unless told otherwise), as it is stored: every key under
/// its path, which ends in "\", every value under its key's path and its name. Read with the functions for wide
/// characters, so that nothing is lost to the code page.
using TRegistryTree = std::map<std::wstring, TRegistryEntry>;
TRegistryTree RegistryTreeOf(const std::wstring& KeyName, HKEY Root = HKEY_CURRENT_USER);
std::string Differing(const TRegistryEntry& Before, const TRegistryEntry& After);

/// Writes a value of a key of HKEY_CURRENT_USER, byte for byte, and creates the key.
void StoreValue(const std::wstring& KeyName, const std::wstring& Name, DWORD Type, const std::string& Data);
/// The bytes of a text for wide characters.
std::string WideBytes(std::wstring_view Text);
void DeleteKeyTree(const std::wstring& KeyName);
