#pragma once

#include "base/handles.h"
#include "base/registry_place.h"
#include "base/windows_api.h"

#include <string>

/// The retry layer's wrappers for the registry, in the engine's status-code form: the error is what the registry
/// function returned. None repeats silently. Names are ANSI.

/// An open key, with its whole path as messages and lines show it.
using TOpenKey = TNamed<TRegistryKey>;

/// Never fail and show nothing. They open the key with all access, so a key that this user may not change counts as
/// absent.
bool RetryRegKeyExists(const TKeyPlace& Place);
bool RetryRegKeyValueExists(const TValuePlace& Place);

/// Creates every missing part of the path.
TOpenKey RetryRegCreateKeyEx(const TKeyPlace& Place, DWORD Access);
TOpenKey RetryRegOpenKeyEx(const TKeyPlace& Place, DWORD Access);

/// Lengths are in characters without terminator, the data size in bytes.
struct TKeyInfo {
  DWORD SubkeyCount = 0, LongestSubkeyName = 0;
  DWORD ValueCount = 0, LongestValueName = 0, LongestValueData = 0;
  FILETIME LastWrite{};
};
TKeyInfo RetryGetKeyInfo(const TOpenKey& Key);
void RetryGetDataSizeAndType(const TOpenKey& Key, const std::string& ValueName, DWORD& Type, DWORD& Size);
/// `Size` is the room in the buffer, and then the size of the data.
void RetryGetData(const TOpenKey& Key, const std::string& ValueName, void* Buffer, DWORD& Size, DWORD& Type);
void RetryRegSetValueEx(const TOpenKey& Key, const std::string& ValueName, const void* Data, DWORD Size, DWORD Type);
/// The name at an index; `Longest` is the longest name's length from RetryGetKeyInfo.
std::string RetryRegEnumValue(const TOpenKey& Key, DWORD Index, DWORD Longest);
std::string RetryRegEnumKeyEx(const TOpenKey& Key, DWORD Index, DWORD Longest);
/// Leaves the key empty.
void RetryRegCloseKey(TOpenKey& Key);
/// Does nothing, like its counterpart for files.
inline void RetryRegFlushKey(const TOpenKey&) {}

/// A missing key or value is deleted already.
void RetryRegDeleteValue(const TValuePlace& Place);
/// Deletes a key with all it holds; a missing key is deleted already.
void RetrySHDeleteKey(const TKeyPlace& Place);
