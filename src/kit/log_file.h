#pragma once

#include "base/handles.h"

#include <cstdint>
#include <mutex>
#include <string>

/// A text file that lines are appended to, through a buffer: it is written when it is full, when it is a second old by
/// the next line, when that is wanted, and at the end, that of the process included. A process that is killed loses
/// what it holds. Lines stay in their order, whatever thread they come from.
///
/// The file is full when the next line would take it beyond half of the limit: it then gets the name NAME.1.EXTENSION,
/// in place of the one that was full before, and a new one begins. While somebody keeps that from being done, the file
/// goes on.
class TLogFile {
 public:
  static constexpr int64_t LeastLimit = 65536;

  /// Opens or creates the file, which others may only read. `Limit` is what both files may take, in bytes, at least
  /// LeastLimit; 0 is none. Raises the system's failure.
  TLogFile(std::wstring FileName, int64_t Limit);
  ~TLogFile();
  TLogFile(const TLogFile&) = delete;
  TLogFile& operator=(const TLogFile&) = delete;

  /// Takes a line with its line end. One that is longer than half of the limit is cut. What cannot be written, as on a
  /// full disk, waits for a better moment, up to a megabyte of it; then lines are left out, and a line tells how many.
  void Append(std::string Line, bool WriteNow);
  const std::wstring& Name() const { return FileName; }

  /// What the end of the process calls when nobody has ended the log.
  static void WriteLast() noexcept;

 private:
  void Open();
  void WriteBuffer();
  void Rotate();

  const std::wstring FileName;
  const int64_t Largest;
  std::mutex Lock;  // of what follows
  TFileHandle File;
  int64_t Size = 0;
  std::string Buffer;
  uint64_t Missing = 0, WrittenAt = 0;
};
