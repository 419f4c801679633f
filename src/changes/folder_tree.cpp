#include "changes/folder_tree.h"

#include "base/handles.h"
#include "base/paths.h"
#include "retry/file_wrappers.h"

namespace {

constexpr DWORD VolumeLabel = 0x8;

/// The folder as the begin of a search: a single letter is a drive.
std::string SearchPrefix(const std::string& Folder) {
  if (Folder.size() == 1) return Folder + ":\\";
  if (Folder.back() == ':') return Folder;
  return WithBackslash(Folder);
}

bool IsBareDrive(const std::string& Folder) { return Folder.size() == 2 && Folder[1] == ':'; }

/// Whether the folder is a place of its own that only refers to another one. A drive is none, whatever it is made of.
bool IsLink(const std::string& Folder, DWORD Attributes) {
  const bool Drive = Folder.size() == 1 || (Folder.size() <= 3 && Folder[1] == ':');
  return !Drive && (Attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

bool IsSkipped(const WIN32_FIND_DATAA& Entry) {
  return Entry.cFileName[0] == '.' || Entry.dwFileAttributes == VolumeLabel ||
         (!IsFolder(Entry) && (Entry.dwFileAttributes & VolumeLabel) != 0);
}

/// False for what the code page made of characters that it lacks: some become backslashes, and the name would lead to
/// another folder.
bool IsPlainName(const std::string& Name) { return NamePart(Name) == Name && Name.find('/') == std::string::npos; }

bool DeleteEntry(const std::string& Prefix, const WIN32_FIND_DATAA& Entry, bool RemoveFolder) {
  const std::string Path = Prefix + Entry.cFileName;
  if (!IsPlainName(Entry.cFileName)) return false;
  if (IsFolder(Entry)) return DeleteFolderTree(Path, RemoveFolder);
  if (Entry.dwFileAttributes & FILE_ATTRIBUTE_READONLY) SetFileAttributesA(Path.c_str(), FILE_ATTRIBUTE_ARCHIVE);
  return DeleteFileA(Path.c_str()) != FALSE;
}

/// True when every entry was removed and the search found its end.
bool DeleteEntries(const std::string& Prefix, bool RemoveFolder) {
  WIN32_FIND_DATAA Entry;
  const TFindHandle Search(FindFirstFileA((Prefix + "*.*").c_str(), &Entry));
  if (!Search) return false;
  bool All = true;
  do {
    if (!IsSkipped(Entry)) All = DeleteEntry(Prefix, Entry, RemoveFolder) && All;
  } while (FindNextFileA(Search.Get(), &Entry));
  return GetLastError() == ERROR_NO_MORE_FILES && All;
}

}  // namespace

bool DeleteFolderTree(const std::string& Folder, bool RemoveFolder) {
  const DWORD Attributes = GetFileAttributesA(Folder.c_str());
  if (Attributes == INVALID_FILE_ATTRIBUTES || !(Attributes & FILE_ATTRIBUTE_DIRECTORY)) return false;
  if (IsLink(Folder, Attributes)) return false;
  const bool All = DeleteEntries(SearchPrefix(Folder), RemoveFolder);
  if (!All || !RemoveFolder || IsBareDrive(Folder)) return All;
  return RemoveDirectoryA(Folder.c_str()) != FALSE;
}
