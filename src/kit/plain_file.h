#pragma once

#include "base/handles.h"

#include <cstdint>
#include <functional>
#include <string>

/// Files as the kit reads and writes them; names are full ones. The user is asked about what fails.

/// What a file has beside its content. Times are FILETIMEs.
struct TFileTraits {
  DWORD Attributes = 0;
  uint64_t Creation = 0, LastAccess = 0, LastWrite = 0, Size = 0;
};

/// A file that is read from its begin to its end.
class TReadFile {
 public:
  /// Others may only read it meanwhile.
  explicit TReadFile(std::wstring Name);

  TFileTraits Traits() const;
  /// Calls `Take` with part after part, to the end of the file.
  void ReadAll(const std::function<void(const char* Bytes, size_t Size)>& Take) const;

 private:
  std::wstring Name;
  TFileHandle File;
};

/// A file that is written under another name, and gets its own only when it is whole and on the disk: whoever looks
/// finds what was there before, or all of it.
class TNewFile {
 public:
  /// `Ending` goes behind the name meanwhile. A file of that other name must not exist.
  TNewFile(std::wstring Name, const std::wstring& Ending, DWORD Attributes);
  /// What has not got its name goes.
  ~TNewFile();
  TNewFile(const TNewFile&) = delete;
  TNewFile& operator=(const TNewFile&) = delete;

  void Append(const char* Bytes, size_t Size);
  void SetTimes(const TFileTraits& Traits) const;
  /// Has the system bring it to the disk, and closes it.
  void Flush();
  /// Gives it its name, after that. One that has the name already goes when it is to be replaced, and is in the way
  /// otherwise.
  void TakeName(bool Replaces);

 private:
  const std::wstring Name, Other;
  TFileHandle File;
  bool Finished = false;
};

/// Deletes a file, a read-only one too; one that is not there is deleted already.
void DeleteFileAsking(const std::wstring& Name);
