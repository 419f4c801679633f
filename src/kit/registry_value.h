#pragma once

#include "base/windows_api.h"

#include <cstdint>
#include <string>
#include <vector>

/// Plain questions to the registry; they show nothing and ask nobody.

/// A value as it is stored.
struct TRegistryData {
  DWORD Type = 0;
  std::vector<uint8_t> Bytes;
  bool operator==(const TRegistryData&) const = default;
};

/// ERROR_SUCCESS, ERROR_FILE_NOT_FOUND when there is no such value or key, or what keeps it from being read.
LSTATUS ReadValue(HKEY Root, const std::wstring& Key, const std::wstring& Name, TRegistryData& Data);

/// The same for a key, and whether it holds nothing.
LSTATUS LookAtKey(HKEY Root, const std::wstring& Key, bool& Empty);
