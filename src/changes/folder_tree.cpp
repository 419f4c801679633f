#include "changes/folder_tree.h"

#include "server/handles.h"
#include "server/paths.h"

namespace {

constexpr DWORD VolumeLabel = 0x8;

/// The folder as the begin of a search: a single letter is a drive.
std::string SearchPrefix(const std::string& Folder) {
  if (Folder.size() == 1) return Folder + ":\\";
  if (Folder.back() == ':') return Folder;
  return WithBackslash(Folder);
}

bool IsBareDrive(const std::string& Folder) { return Folder.size() == 2 && Folder[1] == ':'; }

bool IsLink(DWORD Attributes) { return (Attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0; }

bool IsSkipped(const WIN32_FIND_DATAA& Entry) {
  const bool Folder = (Entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return Entry.cFileName[0] == '.' || Entry.dwFileAttributes == VolumeLabel ||
         (!Folder && (Entry.dwFileAttributes & VolumeLabel) != 0);
}

bool DeleteEntry(const std::string& Path, DWORD Attributes, bool RemoveFolder) {
  if (Attributes & FILE_ATTRIBUTE_DIRECTORY) return DeleteFolderTree(Path, RemoveFolder);
  if (Attributes & FILE_ATTRIBUTE_READONLY) SetFileAttributesA(Path.c_str(), FILE_ATTRIBUTE_ARCHIVE);
  return DeleteFileA(Path.c_str()) != FALSE;
}

/// True when every entry was removed and the search found its end.
bool DeleteEntries(const std::string& Prefix, bool RemoveFolder) {
  WIN32_FIND_DATAA Entry;
  const TFindHandle Search(FindFirstFileA((Prefix + "*.*").c_str(), &Entry));
  if (!Search) return GetLastError() == ERROR_FILE_NOT_FOUND;  // an empty drive has not even "."
  bool All = true;
  do {
    if (!IsSkipped(Entry)) All = DeleteEntry(Prefix + Entry.cFileName, Entry.dwFileAttributes, RemoveFolder) && All;
  } while (FindNextFileA(Search.Get(), &Entry));
  return GetLastError() == ERROR_NO_MORE_FILES && All;
}

}  // namespace

bool DeleteFolderTree(const std::string& Folder, bool RemoveFolder) {
  const DWORD Attributes = GetFileAttributesA(Folder.c_str());
  if (Attributes == INVALID_FILE_ATTRIBUTES || !(Attributes & FILE_ATTRIBUTE_DIRECTORY)) return false;
  if (IsLink(Attributes)) return RemoveFolder && RemoveDirectoryA(Folder.c_str());
  const bool All = DeleteEntries(SearchPrefix(Folder), RemoveFolder);
  if (!All || !RemoveFolder || IsBareDrive(Folder)) return All;
  return RemoveDirectoryA(Folder.c_str()) != FALSE;
}
