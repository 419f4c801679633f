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
  const bool Literal = Mask.starts_with("\\\\?\\");
  bool TooLong = false;
  for (TFolderEntry& Entry : Found) {
    std::optional<std::string> Name = ExactAnsi(Entry.Name);
    // Of a name that ends so the system would take the end away, and reach another file.
    const bool Stripped = !Literal && (Entry.Name.back() == L'.' || Entry.Name.back() == L' ');
    TooLong = TooLong || (Name && Name->size() >= MAX_PATH);
    if (Name && Name->size() < MAX_PATH && IsPlainName(*Name) && !Stripped) {
      WIN32_FIND_DATAA& Told = Instead.emplace_back();
      Told.dwFileAttributes = Entry.Attributes;
      Told.dwReserved0 = Entry.ReparseTag;
      Name->copy(Told.cFileName, Name->size());
      Names.insert(std::move(*Name));
    } else {
      Unnamed.push_back({std::move(Entry.Name), ::IsFolder(Entry)});
    }
  }
  if (!TooLong) Instead.clear();
}

bool IsLink(const WIN32_FIND_DATAA& Entry) { return IsLink(Entry.dwFileAttributes, Entry.dwReserved0); }

THeldFolder::THeldFolder(const std::string& Folder) {
  // Without its backslash the root of a literal path is a device.
  const std::wstring Wide = ToWide(IsRoot(Folder) ? WithBackslash(Folder) : Folder);
  TRetryCall(Unnumbered)
      .Until(
          [&] {
            Handle.Reset(HoldFolder(Wide));
            return Answered(Handle ? ERROR_SUCCESS : GetLastError());
          },
          MsgCannotStartSearch, Folder);
}

bool THeldFolder::IsFolder() const { return Handle && !IsLink(Handle.Get()); }
