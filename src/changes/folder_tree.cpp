#include "changes/folder_tree.h"

#include "base/folder_content.h"
#include "base/handles.h"

namespace {

constexpr DWORD VolumeLabel = 0x8;

/// The folder as the begin of a search: a single letter is a drive.
std::wstring SearchPrefix(const std::wstring& Folder) {
  if (Folder.size() == 1) return Folder + L":\\";
  return Folder.back() == L':' || Folder.back() == L'\\' ? Folder : Folder + L"\\";
}

bool IsBareDrive(const std::wstring& Folder) { return Folder.size() == 2 && Folder[1] == L':'; }

/// A drive is no link, whatever it is made of.
bool IsDrive(const std::wstring& Folder) { return Folder.size() == 1 || (Folder.size() <= 3 && Folder[1] == L':'); }

bool IsSkipped(const TFolderEntry& Entry) {
  return Entry.Name[0] == L'.' || Entry.Attributes == VolumeLabel ||
         (!IsFolder(Entry) && (Entry.Attributes & VolumeLabel) != 0);
}

bool DeleteEntry(const std::wstring& Prefix, const TFolderEntry& Entry, bool RemoveFolder) {
  const std::wstring Path = Prefix + Entry.Name;
  if (IsFolder(Entry)) return !IsLink(Entry) && DeleteFolderTree(Path, RemoveFolder);
  if (Entry.Attributes & FILE_ATTRIBUTE_READONLY) SetFileAttributesW(Path.c_str(), FILE_ATTRIBUTE_ARCHIVE);
  return DeleteFileW(Path.c_str()) != FALSE;
}

/// True when every entry was removed and the search found its end.
bool DeleteEntries(const std::wstring& Folder, bool RemoveFolder) {
  const TFileHandle Held(HoldFolder(Folder.size() == 1 ? SearchPrefix(Folder) : Folder));
  std::vector<TFolderEntry> Found;
  if (!Held || IsLink(Held.Get())) return false;
  bool All = ListFolder(SearchPrefix(Folder) + L"*.*", Found) == ERROR_SUCCESS;
  for (const TFolderEntry& Entry : Found)
    if (!IsSkipped(Entry)) All = DeleteEntry(SearchPrefix(Folder), Entry, RemoveFolder) && All;
  return All;
}

}  // namespace

bool DeleteFolderTree(const std::wstring& Folder, bool RemoveFolder) {
  const DWORD Attributes = GetFileAttributesW(Folder.c_str());
  if (Attributes == INVALID_FILE_ATTRIBUTES || !(Attributes & FILE_ATTRIBUTE_DIRECTORY)) return false;
  if ((Attributes & FILE_ATTRIBUTE_REPARSE_POINT) && !IsDrive(Folder) && IsLink(Folder)) return false;
  const bool All = DeleteEntries(Folder, RemoveFolder);
  if (!All || !RemoveFolder || IsBareDrive(Folder)) return All;
  return RemoveDirectoryW(Folder.c_str()) != FALSE;
}
