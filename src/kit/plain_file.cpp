#include "kit/plain_file.h"

#include "base/file_content.h"
#include "base/file_time.h"
#include "base/text.h"
#include "kit/asked_step.h"

#include <utility>
#include <vector>

namespace {

/// The attributes that a file is made with; others that it may report are flags there.
constexpr DWORD Makeable = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                           FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NORMAL | FILE_ATTRIBUTE_TEMPORARY |
                           FILE_ATTRIBUTE_OFFLINE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_ENCRYPTED;

bool IsGone() {
  const DWORD Code = GetLastError();
  return Code == ERROR_FILE_NOT_FOUND || Code == ERROR_PATH_NOT_FOUND;
}

/// Calls the step again with the file writable when it fails for a read-only one.
template <class TStep>
bool DespiteReadOnly(const std::wstring& Name, TStep Step) {
  if (Step()) return true;
  const DWORD Code = GetLastError(), Attributes = GetFileAttributesW(Name.c_str());
  const bool ReadOnly = Attributes != INVALID_FILE_ATTRIBUTES && (Attributes & FILE_ATTRIBUTE_READONLY);
  if (ReadOnly && SetFileAttributesW(Name.c_str(), FILE_ATTRIBUTE_NORMAL)) {
    if (Step()) return true;
    const TKeepLastError Keep;
    SetFileAttributesW(Name.c_str(), Attributes);
    return false;
  }
  SetLastError(Code);
  return false;
}

}  // namespace

TReadFile::TReadFile(std::wstring FileName) : Name(std::move(FileName)) {
  const auto Open = [&] {
    File.Reset(CreateFileW(Name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                           FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    return static_cast<bool>(File);
  };
  RepeatAsking(Open, MsgCannotOpen, LossyAnsi(Name));
}

TFileTraits TReadFile::Traits() const {
  BY_HANDLE_FILE_INFORMATION Facts{};
  RepeatAsking([&] { return GetFileInformationByHandle(File.Get(), &Facts) != FALSE; }, MsgCannotGetAttributes,
               LossyAnsi(Name));
  return {Facts.dwFileAttributes, TicksOf(Facts.ftCreationTime), TicksOf(Facts.ftLastAccessTime),
          TicksOf(Facts.ftLastWriteTime), static_cast<uint64_t>(Facts.nFileSizeHigh) << 32 | Facts.nFileSizeLow};
}

void TReadFile::ReadAll(const std::function<void(const char* Bytes, size_t Size)>& Take) const {
  constexpr DWORD BlockSize = 65536;
  std::vector<char> Block(BlockSize);
  for (DWORD Count = 1; Count > 0;) {
    RepeatAsking([&] { return ReadFile(File.Get(), Block.data(), BlockSize, &Count, nullptr) != FALSE; }, MsgCannotRead,
                 LossyAnsi(Name));
    if (Count > 0) Take(Block.data(), Count);
  }
}

TNewFile::TNewFile(std::wstring FileName, const std::wstring& Ending, DWORD Attributes)
    : Name(std::move(FileName)), Other(Name + Ending) {
  const auto Create = [&] {
    File.Reset(CreateFileW(Other.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, Attributes & Makeable, nullptr));
    return static_cast<bool>(File);
  };
  RepeatAsking(Create, MsgCannotCreate, LossyAnsi(Other));
}

TNewFile::~TNewFile() {
  if (Finished) return;
  File.Reset();
  DespiteReadOnly(Other, [&] { return DeleteFileW(Other.c_str()) != FALSE; });
}

void TNewFile::Append(const char* Bytes, size_t Size) {
  DWORD Written = 0;
  const auto Write = [&] {
    if (!WriteFile(File.Get(), Bytes, static_cast<DWORD>(Size), &Written, nullptr)) return false;
    Bytes += Written;
    Size -= Written;
    return Size == 0;
  };
  if (Size > 0) RepeatAsking(Write, MsgCannotWrite, LossyAnsi(Other));
}

void TNewFile::SetTimes(const TFileTraits& Traits) const {
  const FILETIME Creation = FileTimeOf(Traits.Creation), LastAccess = FileTimeOf(Traits.LastAccess),
                 LastWrite = FileTimeOf(Traits.LastWrite);
  RepeatAsking([&] { return SetFileTime(File.Get(), &Creation, &LastAccess, &LastWrite) != FALSE; }, MsgCannotSetTimes,
               LossyAnsi(Other));
}

void TNewFile::Flush() {
  FlushFileBuffers(File.Get());  // a volume that cannot do it must not keep an update from being made
  File.Reset();
}

void TNewFile::TakeName(bool Replaces) {
  const auto Rename = [&] {
    const auto Move = [&] {
      return MoveFileExW(Other.c_str(), Name.c_str(), Replaces ? MOVEFILE_REPLACE_EXISTING : 0) != FALSE;
    };
    return Replaces ? DespiteReadOnly(Name, Move) : Move();
  };
  RepeatAsking(Rename, MsgCannotMove, LossyAnsi(Other), LossyAnsi(Name));
  Finished = true;
}

void DeleteFileAsking(const std::wstring& Name) {
  const auto Delete = [&] {
    return DespiteReadOnly(Name, [&] { return DeleteFileW(Name.c_str()) != FALSE; }) || IsGone();
  };
  RepeatAsking(Delete, MsgCannotDelete, LossyAnsi(Name));
}
