#include "kit/missing_folders.h"

#include "base/paths.h"
#include "base/text.h"
#include "base/windows_api.h"

std::vector<std::wstring> MissingFolders(const std::wstring& Folder) {
  std::vector<std::wstring> Missing;
  const size_t Root = RootSize(LossyAnsi(Folder));
  for (std::wstring Name = Folder; Name.size() > Root; Name.resize(Name.find_last_of(L'\\'))) {
    if (Name.ends_with(L'\\')) continue;
    if (GetFileAttributesW(Name.c_str()) != INVALID_FILE_ATTRIBUTES) break;
    Missing.insert(Missing.begin(), Name);
  }
  return Missing;
}
