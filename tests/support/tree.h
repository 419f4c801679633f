#pragma once

#include "base/windows_api.h"

#include <cstdint>
#include <map>
#include <ostream>
#include <string>

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

/// What differs in two entries of one name; and a name as it is shown.
std::string Differing(const TTreeEntry& Before, const TTreeEntry& After);
inline const std::string& Shown(const std::string& Name) { return Name; }
std::string Shown(const std::wstring& Name);
/// One line for each entry that differs; "" when none does. For trees of files, and for those of the registry.
template <class TName, class TEntry>
std::string Difference(const std::map<TName, TEntry>& Before, const std::map<TName, TEntry>& After) {
  std::string Result;
  for (const auto& [Name, Entry] : Before) {
    const auto Found = After.find(Name);
    if (Found == After.end())
      Result += "missing: " + Shown(Name) + "\n";
    else if (!(Found->second == Entry))
      Result += "differs: " + Shown(Name) + Differing(Entry, Found->second) + "\n";
  }
  for (const auto& [Name, Entry] : After)
    if (!Before.count(Name)) Result += "new: " + Shown(Name) + "\n";
  return Result;
}

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
