#include "base/folder_content.h"

#include "base/handles.h"

namespace {

bool IsDots(const wchar_t* Name) { return Name == std::wstring_view(L".") || Name == std::wstring_view(L".."); }

}  // namespace

DWORD ListFolder(const std::wstring& Mask, std::vector<TFolderEntry>& Found) {
  WIN32_FIND_DATAW Entry{};
  const TFindHandle Search(FindFirstFileW(Mask.c_str(), &Entry));
  if (!Search) return GetLastError();
  do {
    const bool Tagged = (Entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (!IsDots(Entry.cFileName))
      Found.push_back({Entry.cFileName, Entry.dwFileAttributes, Tagged ? Entry.dwReserved0 : 0});
  } while (FindNextFileW(Search.Get(), &Entry));
  const DWORD Code = GetLastError();
  return Code == ERROR_NO_MORE_FILES ? ERROR_SUCCESS : Code;
}

bool IsLink(DWORD Attributes, DWORD ReparseTag) {
  if (!(Attributes & FILE_ATTRIBUTE_REPARSE_POINT)) return false;
  // Windows gives every reparse point a tag, with a bit for those that stand for another name. Wine marks links and
  // gives no tag.
  return ReparseTag == 0 || IsReparseTagNameSurrogate(ReparseTag);
}

bool IsLink(const std::wstring& Folder) {
  const DWORD Attributes = GetFileAttributesW(Folder.c_str());
  if (Attributes == INVALID_FILE_ATTRIBUTES || !(Attributes & FILE_ATTRIBUTE_REPARSE_POINT)) return false;
  std::vector<TFolderEntry> Found;
  ListFolder(Folder, Found);
  return Found.size() != 1 || IsLink(Found[0]);  // what cannot be told apart is left alone
}

HANDLE HoldFolder(const std::wstring& Folder) {
  // The right to list is what makes the system look at the sharing; a question alone would not keep anybody out.
  return CreateFileW(Folder.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                     FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
}

bool IsLink(HANDLE Open) {
  BY_HANDLE_FILE_INFORMATION Facts{};
  if (!GetFileInformationByHandle(Open, &Facts) || !(Facts.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT))
    return false;
  FILE_ATTRIBUTE_TAG_INFO Tag{};
  if (!GetFileInformationByHandleEx(Open, FileAttributeTagInfo, &Tag, sizeof Tag)) Tag.ReparseTag = 0;
  return IsLink(Facts.dwFileAttributes, Tag.ReparseTag);
}
