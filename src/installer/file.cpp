#include "installer/file.h"

#include "base/messages.h"
#include "base/system_error.h"

namespace {

constexpr DWORD Dispositions[] = {CREATE_ALWAYS, CREATE_NEW, OPEN_EXISTING, OPEN_ALWAYS};
constexpr DWORD Accesses[] = {GENERIC_READ, GENERIC_WRITE, GENERIC_READ | GENERIC_WRITE};
constexpr DWORD Sharings[] = {0, FILE_SHARE_READ, FILE_SHARE_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE};

}  // namespace

TFile::TFile(const std::string& FileName, TFileDisposition Disposition, TFileAccess Access, TFileSharing Sharing) {
  constexpr int MostTries = 10;
  constexpr DWORD PauseMilliseconds = 200;
  for (int TriesLeft = MostTries; TriesLeft > 0; --TriesLeft) {
    Handle.Reset(CreateFileA(FileName.c_str(), Accesses[static_cast<int>(Access)], Sharings[static_cast<int>(Sharing)],
                             nullptr, Dispositions[static_cast<int>(Disposition)], FILE_ATTRIBUTE_NORMAL, nullptr));
    if (Handle || GetLastError() != ERROR_SHARING_VIOLATION || TriesLeft == 1) break;
    Sleep(PauseMilliseconds);
  }
  Check(Handle ? TRUE : FALSE);
}

void TFile::Check(BOOL Succeeded) {
  if (!Succeeded) throw EFileError{GetLastError()};
}

uint64_t TFile::GetPosition() {
  LARGE_INTEGER Position{};
  Check(SetFilePointerEx(Handle.Get(), {}, &Position, FILE_CURRENT));
  return static_cast<uint64_t>(Position.QuadPart);
}

uint64_t TFile::GetSize() {
  LARGE_INTEGER Size{};
  Check(GetFileSizeEx(Handle.Get(), &Size));
  return static_cast<uint64_t>(Size.QuadPart);
}

uint32_t TFile::Read(void* Buffer, uint32_t Count) {
  DWORD BytesRead = 0;
  Check(ReadFile(Handle.Get(), Buffer, Count, &BytesRead, nullptr));
  return BytesRead;
}

void TFile::Seek(uint64_t Position) {
  LARGE_INTEGER Distance{};
  Distance.QuadPart = static_cast<LONGLONG>(Position);
  Check(SetFilePointerEx(Handle.Get(), Distance, nullptr, FILE_BEGIN));
}

uint32_t TFile::Write(const void* Buffer, uint32_t Count) {
  DWORD Written = 0;
  Check(WriteFile(Handle.Get(), Buffer, Count, &Written, nullptr));
  return Written;
}

void TFile::Truncate() { Check(SetEndOfFile(Handle.Get())); }

void TFile::Flush() { Check(FlushFileBuffers(Handle.Get())); }

std::unique_ptr<TCustomFile> OpenSystemFile(const std::string& FileName, TFileDisposition Disposition,
                                            TFileAccess Access, TFileSharing Sharing) {
  return std::make_unique<TFile>(FileName, Disposition, Access, Sharing);
}

std::string TextOf(const EFileError& Error) {
  constexpr size_t Longest = 1024;
  std::string Text = SystemMessage(Error.Code).substr(0, Longest);
  while (!Text.empty() && (static_cast<unsigned char>(Text.back()) <= ' ' || Text.back() == '.')) Text.pop_back();
  return Text.empty() ? FormatMessageText(MsgFileError, std::to_string(static_cast<int32_t>(Error.Code))) : Text;
}
