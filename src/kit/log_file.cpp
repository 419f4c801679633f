#include "kit/log_file.h"

#include "base/failure.h"
#include "base/file_content.h"
#include "kit/kit_messages.h"

#include <atomic>
#include <limits>
#include <utility>

namespace {

constexpr size_t BufferSize = 65536, LargestBuffer = 1 << 20;
constexpr uint64_t LongestWait = 1000;

/// The log that is open, which is one at the most.
std::atomic<TLogFile*> OpenLog = nullptr;

/// The language ends this object with the process as well, when only the system's base is sure to be there still. It
/// is all that is needed to write what a buffer holds.
struct TLastWriter {
  ~TLastWriter() { TLogFile::WriteLast(); }
} const LastWriter;

/// NAME.1.EXTENSION
std::wstring FormerName(const std::wstring& Name) {
  const size_t Dot = Name.rfind(L'.');
  return Name.substr(0, Dot) + L".1" + Name.substr(Dot);
}

}  // namespace

TLogFile::TLogFile(std::wstring FileName, int64_t Limit)
    : FileName(std::move(FileName)), Largest(Limit > 0 ? Limit / 2 : std::numeric_limits<int64_t>::max()) {
  Open();
  if (!File) RaiseLastError();
  Buffer.reserve(BufferSize);
  WrittenAt = GetTickCount64();
  OpenLog = this;
}

TLogFile::~TLogFile() {
  OpenLog = nullptr;
  const std::lock_guard Guard(Lock);
  WriteBuffer();
}

void TLogFile::WriteLast() noexcept {
  TLogFile* const Log = OpenLog.exchange(nullptr);
  // A thread that the system ended in the middle of a line has the lock for ever.
  if (!Log || !Log->Lock.try_lock()) return;
  Log->WriteBuffer();
  Log->Lock.unlock();
}

void TLogFile::Open() {
  File.Reset(CreateFileW(FileName.c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES, FILE_SHARE_READ, nullptr,
                         OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  Size = File ? PlainFileSize(File.Get()) : 0;
}

void TLogFile::Append(std::string Line, bool WriteNow) {
  constexpr size_t LineEndSize = 2;
  const std::lock_guard Guard(Lock);
  if (static_cast<int64_t>(Line.size()) > Largest)
    Line.erase(static_cast<size_t>(Largest) - LineEndSize, Line.size() - static_cast<size_t>(Largest));
  const auto Whole = [&] { return Size + static_cast<int64_t>(Buffer.size() + Line.size()); };
  if (Whole() > Largest) {
    WriteBuffer();
    if (Buffer.empty() && Whole() > Largest) Rotate();
  }
  if (Buffer.size() + Line.size() > LargestBuffer) {
    ++Missing;
    return;
  }
  Buffer += Line;
  if (WriteNow || Buffer.size() >= BufferSize || GetTickCount64() - WrittenAt >= LongestWait) WriteBuffer();
}

void TLogFile::WriteBuffer() {
  WrittenAt = GetTickCount64();
  if (!File) Open();
  for (DWORD Written = 0; File && !Buffer.empty(); Buffer.erase(0, Written), Size += Written)
    if (!WriteFile(File.Get(), Buffer.data(), static_cast<DWORD>(Buffer.size()), &Written, nullptr) || Written == 0)
      return;
  if (!File || Missing == 0) return;
  Buffer = FormatMessageText(MsgKitLinesMissing, std::to_string(std::exchange(Missing, 0))) + "\r\n";
}

void TLogFile::Rotate() {
  File.Reset();
  MoveFileExW(FileName.c_str(), FormerName(FileName).c_str(), MOVEFILE_REPLACE_EXISTING);
  Open();
}
