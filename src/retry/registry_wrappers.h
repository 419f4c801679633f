#pragma once

#include "retry/engine.h"

#include <string>
#include <vector>

/// The retry layer's wrappers for the registry, in the engine's status-code form: the error is what the registry
/// function returned. None repeats silently. Names are ANSI. A key text is the display path of an open key, for
/// messages and log lines only.

/// The full path of a key as messages show it. A root that has no name there (HKEY_PERFORMANCE_DATA) is left out, so
/// that the path begins with the backslash.
std::string KeyText(DWORD RootKey, const std::string& KeyName);

/// Never fail and show nothing. They open the key with all access, so a key that this user may not change counts as
/// absent.
bool RetryRegKeyExists(DWORD RootKey, const std::string& KeyName);
bool RetryRegKeyValueExists(DWORD RootKey, const std::string& KeyName, const std::string& ValueName);

/// Creates every missing part of the path.
TRegistryKey RetryRegCreateKeyEx(DWORD RootKey, const std::string& KeyName, DWORD Access);
TRegistryKey RetryRegOpenKeyEx(DWORD RootKey, const std::string& KeyName, DWORD Access);

/// Lengths are in characters without terminator, the data size in bytes.
struct TKeyInfo {
  DWORD SubkeyCount = 0, LongestSubkeyName = 0;
  DWORD ValueCount = 0, LongestValueName = 0, LongestValueData = 0;
  FILETIME LastWrite{};
};
TKeyInfo RetryGetKeyInfo(const std::string& Key, HKEY Handle);
void RetryGetDataSizeAndType(const std::string& Key, HKEY Handle, const std::string& ValueName, DWORD& Type,
                             DWORD& Size);
void RetryGetData(const std::string& Key, HKEY Handle, const std::string& ValueName, void* Buffer, DWORD& Size,
                  DWORD& Type);
void RetryRegSetValueEx(const std::string& Key, HKEY Handle, const std::string& ValueName, const void* Data, DWORD Size,
                        DWORD Type);
/// The name at an index; `Longest` is the longest name's length from RetryGetKeyInfo.
std::string RetryRegEnumValue(const std::string& Key, HKEY Handle, DWORD Index, DWORD Longest);
std::string RetryRegEnumKeyEx(const std::string& Key, HKEY Handle, DWORD Index, DWORD Longest);
/// Leaves `Handle` empty.
void RetryRegCloseKey(const std::string& Key, TRegistryKey& Handle);
/// Does nothing, like its counterpart for files.
inline void RetryRegFlushKey(const std::string&) {}

/// A missing key or value is deleted already.
void RetryRegDeleteValue(DWORD RootKey, const std::string& KeyName, const std::string& ValueName);
/// Deletes a key with all it holds; a missing key is deleted already.
void RetrySHDeleteKey(DWORD RootKey, const std::string& KeyName);
