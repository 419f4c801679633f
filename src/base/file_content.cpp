#include "base/file_content.h"

#include "base/handles.h"

int64_t PlainFileSize(HANDLE Handle) {
  LARGE_INTEGER Size;
  return GetFileSizeEx(Handle, &Size) ? Size.QuadPart : -1;
}

std::optional<std::string> ReadWholeFile(const std::string& FileName, int64_t Largest, DWORD Share) {
  const TFileHandle File(
      CreateFileA(FileName.c_str(), GENERIC_READ, Share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  const int64_t Size = File ? PlainFileSize(File.Get()) : -1;
  if (Size < 0 || Size > Largest) return std::nullopt;
  std::string Content(static_cast<size_t>(Size), '\0');
  DWORD BytesRead = 0;
  const bool Read =
      ReadFile(File.Get(), Content.data(), static_cast<DWORD>(Content.size()), &BytesRead, nullptr) != FALSE;
  return Read && BytesRead == Content.size() ? std::optional(std::move(Content)) : std::nullopt;
}
