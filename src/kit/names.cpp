#include "kit/names.h"

#include "base/failure.h"
#include "base/paths.h"
#include "base/text.h"
#include "kit/asked_step.h"
#include "server/arguments.h"

#include <algorithm>
#include <limits>

namespace {

int LengthOf(size_t Size) {
  if (Size > std::numeric_limits<int>::max()) throw std::bad_alloc();
  return static_cast<int>(Size);
}

bool MakeFolder(const std::wstring& Name) {
  if (CreateDirectoryW(Name.c_str(), nullptr)) return true;
  const DWORD Code = GetLastError();
  const bool Made = Code == ERROR_ALREADY_EXISTS && FolderExists(Name);
  SetLastError(Code);
  return Made;
}

}  // namespace

std::string Utf8Of(std::wstring_view Text) {
  const int Length = LengthOf(Text.size());
  std::string Result(static_cast<size_t>(3) * Text.size(), '\0');
  const int Size =
      WideCharToMultiByte(CP_UTF8, 0, Text.data(), Length, Result.data(), LengthOf(Result.size()), nullptr, nullptr);
  Result.resize(static_cast<size_t>(Size));
  return Result;
}

std::wstring FromUtf8(std::string_view Text) {
  std::wstring Result(Text.size(), L'\0');
  const int Size =
      MultiByteToWideChar(CP_UTF8, 0, Text.data(), LengthOf(Text.size()), Result.data(), LengthOf(Result.size()));
  Result.resize(static_cast<size_t>(Size));
  return Result;
}

std::wstring FullNameArgument(BSTR Name) {
  const std::string Ansi = FileNameArgument(Name);
  RequireRoot(Ansi);
  std::wstring Full = ToWide(Ansi);
  const DWORD Room = GetFullPathNameW(Full.c_str(), 0, nullptr, nullptr);
  std::wstring Result(Room, L'\0');
  Result.resize(std::min(GetFullPathNameW(Full.c_str(), Room, Result.data(), nullptr), Room));
  if (Result.empty()) RaiseLastError();
  if (Result.ends_with(L'\\') && !IsRoot(LossyAnsi(Result))) Result.pop_back();
  return Result;
}

std::wstring Under(const std::wstring& Folder, const std::wstring& Name) {
  return Folder + (Folder.ends_with(L'\\') ? L"" : L"\\") + Name;
}

std::wstring FolderOf(const std::wstring& Name) { return Name.substr(0, Name.find_last_of(L'\\')); }

bool FolderExists(const std::wstring& Name) {
  const DWORD Attributes = GetFileAttributesW(Name.c_str());
  return Attributes != INVALID_FILE_ATTRIBUTES && (Attributes & FILE_ATTRIBUTE_DIRECTORY);
}

DWORD AttributesOf(const std::wstring& Name) {
  DWORD Attributes = INVALID_FILE_ATTRIBUTES;
  const auto Look = [&] {
    Attributes = GetFileAttributesW(Name.c_str());
    const DWORD Code = GetLastError();
    return Attributes != INVALID_FILE_ATTRIBUTES || Code == ERROR_FILE_NOT_FOUND || Code == ERROR_PATH_NOT_FOUND;
  };
  RepeatAsking(Look, MsgCannotGetAttributes, LossyAnsi(Name));
  return Attributes;
}

std::vector<std::wstring> MissingFolders(const std::wstring& Folder) {
  std::vector<std::wstring> Missing;
  const std::string Ansi = LossyAnsi(Folder);
  const size_t Root = ToWide(Ansi.substr(0, RootSize(Ansi))).size();
  for (std::wstring Name = Folder; Name.size() > Root; Name.resize(Name.find_last_of(L'\\'))) {
    if (Name.ends_with(L'\\')) continue;
    if (GetFileAttributesW(Name.c_str()) != INVALID_FILE_ATTRIBUTES) break;
    Missing.insert(Missing.begin(), Name);
  }
  return Missing;
}

void MakeFolders(const std::vector<std::wstring>& Folders) {
  for (const std::wstring& Folder : Folders)
    RepeatAsking([&] { return MakeFolder(Folder); }, MsgCannotCreateFolder, LossyAnsi(Folder));
}
