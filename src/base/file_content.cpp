#include "base/file_content.h"

#include "base/handles.h"

int64_t PlainFileSize(HANDLE Handle) {
  LARGE_INTEGER Size;
  return GetFileSizeEx(Handle, &Size) ? Size.QuadPart : -1;
}

HANDLE OpenToAsk(const std::string& Name, DWORD Flags) {
  return CreateFileA(Name.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                     FILE_FLAG_BACKUP_SEMANTICS | Flags, nullptr);
}

BY_HANDLE_FILE_INFORMATION FactsOf(HANDLE Open) {
  BY_HANDLE_FILE_INFORMATION Facts{};
  if (!GetFileInformationByHandle(Open, &Facts)) Facts = {};
  return Facts;
}

bool AreOneFile(const BY_HANDLE_FILE_INFORMATION& Left, const BY_HANDLE_FILE_INFORMATION& Right) {
  const bool Known = Left.nFileIndexLow != 0 || Left.nFileIndexHigh != 0;
  return Known && Left.dwVolumeSerialNumber == Right.dwVolumeSerialNumber &&
         Left.nFileIndexHigh == Right.nFileIndexHigh && Left.nFileIndexLow == Right.nFileIndexLow;
}

std::wstring FinalPath(HANDLE Open) {
  std::wstring Path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD Size = GetFinalPathNameByHandleW(Open, Path.data(), static_cast<DWORD>(Path.size()),
                                                 FILE_NAME_NORMALIZED | VOLUME_NAME_NT);
    const bool Fits = Size < Path.size();  // else it is the size that is needed
    Path.resize(Size);
    if (Fits) return Path;
  }
}

std::optional<std::string> ReadWholeFile(const std::wstring& FileName, int64_t Largest, DWORD Share) {
  const TFileHandle File(
      CreateFileW(FileName.c_str(), GENERIC_READ, Share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  const int64_t Size = File ? PlainFileSize(File.Get()) : -1;
  if (Size < 0 || Size > Largest) return std::nullopt;
  std::string Content(static_cast<size_t>(Size), '\0');
  DWORD BytesRead = 0;
  const bool Read =
      ReadFile(File.Get(), Content.data(), static_cast<DWORD>(Content.size()), &BytesRead, nullptr) != FALSE;
  return Read && BytesRead == Content.size() ? std::optional(std::move(Content)) : std::nullopt;
}
