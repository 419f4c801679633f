#pragma once

#include "base/handles.h"

#include <cstdint>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>

/// For what a test, a torture or a benchmark needs before it can look at anything: without it there is nothing to go on
/// with. A test fails with the text; the other programs end with it.
inline void Must(bool Condition, const std::string& What) {
  if (!Condition) throw std::runtime_error(What);
}

/// What a folder holds: every file with its content, attributes and times, every folder by name (folders end in "\").
/// Two of these are equal when nothing that a rollback promises differs.
struct TTreeEntry {
  std::string Content;
  DWORD Attributes = 0;  ///< of files; 0 for folders
  uint64_t LastAccess = 0, LastWrite = 0;
  bool operator==(const TTreeEntry&) const = default;
};
using TTree = std::map<std::string, TTreeEntry>;
TTree TreeOf(const std::string& Folder);

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

/// One line for each entry that differs; "" when none does.
std::string Difference(const TTree& Before, const TTree& After);
std::string Difference(const TRegistryTree& Before, const TRegistryTree& After);

/// Makes a folder hold exactly a tree; touches only what differs.
void Plant(const std::string& Folder, const TTree& Tree);
/// Writes a file, with its folders, attributes and recognizable times.
void Write(const std::string& Path, const std::string& Content, DWORD Attributes = FILE_ATTRIBUTE_NORMAL);
/// The content of a file; "<no file>" when there is none.
std::string Read(const std::string& Path);
bool Exists(const std::string& Path);
void MakeFolders(const std::string& Path);
/// Removes a folder with all it holds, read-only files included.
void RemoveTree(const std::string& Folder);
/// Sets the last-access and last-write time of a file; the creation time too, where the platform keeps it.
void SetTimes(const std::string& Path, uint64_t LastAccess, uint64_t LastWrite);

/// Writes a value of a key of HKEY_CURRENT_USER, byte for byte, and creates the key.
void StoreValue(const std::wstring& KeyName, const std::wstring& Name, DWORD Type, const std::string& Data);
/// The bytes of a text for wide characters.
std::string WideBytes(std::wstring_view Text);
void DeleteKeyTree(const std::wstring& KeyName);
