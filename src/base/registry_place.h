#pragma once

#include "base/windows_api.h"

#include <string>

/// Where a registry key is: below which root, and under which name. Names are ANSI.
struct TKeyPlace {
  DWORD Root;        ///< see IsRegistryRoot
  std::string Name;  ///< the path below the root, without a backslash at its begin; empty for the root itself

  /// The whole path as messages show it. A root that has no name there (HKEY_PERFORMANCE_DATA) is left out, so that the
  /// path begins with the backslash.
  std::string Text() const;
  /// The predefined handle of the root.
  HKEY RootHandle() const;
  /// The place of a subkey.
  TKeyPlace Below(const std::string& Subkey) const;
  /// Whether the name has any part: without one it is the root itself, however many backslashes there are.
  bool IsBelowRoot() const { return Name.find_first_not_of('\\') != std::string::npos; }
};

/// Where a registry value is.
struct TValuePlace {
  TKeyPlace Key;
  std::string Name;  ///< empty for the key's default value
};
