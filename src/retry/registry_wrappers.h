#pragma once

#include "base/handles.h"
#include "base/registry_place.h"
#include "base/windows_api.h"

#include <optional>
#include <string>

/// The retry layer's wrappers for the registry, in the engine's status-code form: the error is what the registry
/// function returned. None repeats silently. Names are ANSI.

/// An open key, with its whole path as messages and lines show it.
using TOpenKey = TNamed<TRegistryKey>;

/// Never fail and show nothing. They open the key with all access, so a key that this user may not change counts as
/// absent.
bool RetryRegKeyExists(const TKeyPlace& Place);
bool RetryRegKeyValueExists(const TValuePlace& Place);

/// Creates every missing part of the path; below a volatile key, which takes no other, as a volatile key.
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
/// `Size` is the room in the buffer, and then the size of the data. False when the data needs more room by now, which
/// is no failure unless `LastTry`: the size is to be asked for again.
bool RetryGetData(const TOpenKey& Key, const std::string& ValueName, void* Buffer, DWORD& Size, DWORD& Type,
                  bool LastTry);
/// False when the key has been deleted meanwhile, which is no failure unless `LastTry`: it is to be opened again.
bool RetryRegSetValueEx(const TOpenKey& Key, const std::string& ValueName, const void* Data, DWORD Size, DWORD Type,
                        bool LastTry);
/// The name at an index; `Longest` is the longest name's length from RetryGetKeyInfo.
std::string RetryRegEnumValue(const TOpenKey& Key, DWORD Index, DWORD Longest);
std::string RetryRegEnumKeyEx(const TOpenKey& Key, DWORD Index, DWORD Longest);
/// The type and the data of a value, read until they fit together.
std::string RetryReadValue(const TOpenKey& Key, const std::string& ValueName, DWORD& Type);
/// Creates the key and writes a value, on a new key when somebody deletes it in between. Gives the open key.
TOpenKey RetryWriteValue(const TValuePlace& Place, const void* Data, DWORD Size, DWORD Type);

// What the functions for ANSI text cannot tell, asked with those for wide characters, through the retry layer but
// without lines.

/// Opens a key; empty when there is none.
TRegistryKey RetryOpenKeyIfThere(const TKeyPlace& Place, REGSAM Access, DWORD Options = 0);
/// The counts and the last write of a key; nothing when there is no such key.
std::optional<TKeyInfo> RetryKeyInfoAt(const TKeyPlace& Place);
/// The stored name at an index; nothing when there is none by now.
std::optional<std::wstring> RetryStoredValueName(const TOpenKey& Key, DWORD Index);
std::optional<std::wstring> RetryStoredKeyName(const TOpenKey& Key, DWORD Index);
/// The stored bytes of a value; nothing when there is none by now.
std::optional<std::string> RetryStoredData(const TOpenKey& Key, const std::string& ValueName);
/// Whether a key only refers to another one.
bool RetryIsKeyLink(const TKeyPlace& Place);
/// The place in the spelling that the registry has; a part that is missing or cannot be asked for stays as it is.
TKeyPlace StoredSpelling(const TKeyPlace& Place);
/// The same for the name of a value of an open key.
std::string StoredSpelling(const TOpenKey& Key, const std::string& ValueName);

/// Leaves the key empty.
void RetryRegCloseKey(TOpenKey& Key);
/// Does nothing, like its counterpart for files.
inline void RetryRegFlushKey(const TOpenKey&) {}

/// A missing key or value is deleted already.
void RetryRegDeleteValue(const TValuePlace& Place);
/// Deletes a key with all it holds; a missing key is deleted already.
void RetrySHDeleteKey(const TKeyPlace& Place);
