#include "retry/folder_walk.h"

#include "base/folder_content.h"
#include "base/paths.h"
#include "base/text.h"
#include "retry/engine.h"

#include <optional>

namespace {

/// Nothing, or no such folder, is an answer.
TOutcome Answered(DWORD Code) {
  const bool Ok = Code == ERROR_SUCCESS || Code == ERROR_FILE_NOT_FOUND || Code == ERROR_PATH_NOT_FOUND;
  return {Ok, static_cast<long>(Code)};
}

}  // namespace

TFoundNames::TFoundNames(const std::string& Mask) {
  const std::wstring WideMask = ToWide(Mask);
  std::vector<TFolderEntry> Found;
  TRetryCall(Unnumbered)
      .Until(
          [&] {
            Found.clear();
            return Answered(ListFolder(WideMask, Found));
          },
          MsgCannotStartSearch, Mask);
  for (TFolderEntry& Entry : Found) {
    std::optional<std::string> Name = ExactAnsi(Entry.Name);
    if (Name && Name->size() < MAX_PATH && IsPlainName(*Name))
      Names.insert(std::move(*Name));
    else
      Unnamed.push_back({std::move(Entry.Name), ::IsFolder(Entry)});
  }
}

bool IsLink(const WIN32_FIND_DATAA& Entry) { return IsLink(Entry.dwFileAttributes, Entry.dwReserved0); }

THeldFolder::THeldFolder(const std::string& Folder) {
  const std::wstring Wide = ToWide(Folder);
  TRetryCall(Unnumbered)
      .Until(
          [&] {
            Handle.Reset(HoldFolder(Wide));
            return Answered(Handle ? ERROR_SUCCESS : GetLastError());
          },
          MsgCannotStartSearch, Folder);
}

bool THeldFolder::IsLink() const { return Handle && ::IsLink(Handle.Get()); }
