#pragma once

#include "base/windows_api.h"

#include <string>
#include <vector>

/// One entry of a folder, under the name that is stored.
struct TFolderEntry {
  std::wstring Name;
  DWORD Attributes = 0;
  DWORD ReparseTag = 0;
};

/// Lists what a mask finds, "." and ".." excepted; `Found` keeps what came before a failure. Gives ERROR_SUCCESS or the
/// system's code, which tells that there is nothing, too (ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND). Shows nothing.
DWORD ListFolder(const std::wstring& Mask, std::vector<TFolderEntry>& Found);

/// Whether an entry with these attributes and this tag stands for another name: a junction, a mount point, a symbolic
/// link. Other reparse points (files that are kept elsewhere until they are read) are what they seem.
bool IsLink(DWORD Attributes, DWORD ReparseTag);
inline bool IsLink(const TFolderEntry& Entry) { return IsLink(Entry.Attributes, Entry.ReparseTag); }
inline bool IsFolder(const TFolderEntry& Entry) { return (Entry.Attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }

/// Whether the name that a folder is called by is a link.
bool IsLink(const std::wstring& Folder);

/// Opens a folder as itself, link or not, so that nobody can delete or rename it, or put a link in its place, while the
/// handle is open. Invalid, with the thread's last error, when that cannot be had.
HANDLE HoldFolder(const std::wstring& Folder);

/// Whether an open file or folder is a link; only HoldFolder opens links as such.
bool IsLink(HANDLE Open);
