#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

/// A failed file operation, by the system's error code.
struct EFileError {
  uint32_t Code;
};

enum class TFileDisposition { CreateAlways, CreateNew, OpenExisting, OpenAlways };
enum class TFileAccess { Read, Write, ReadWrite };
enum class TFileSharing { None, Read, Write, ReadWrite };

/// An open file with 64-bit positions, as the uninstall log needs it, whatever it is made of. Every operation raises
/// EFileError when the system fails it.
class TCustomFile {
 public:
  virtual ~TCustomFile() = default;
  TCustomFile(const TCustomFile&) = delete;
  TCustomFile& operator=(const TCustomFile&) = delete;

  virtual uint64_t GetPosition() = 0;
  virtual uint64_t GetSize() = 0;
  /// Gives the number of bytes read: fewer than `Count` at the end of the file.
  virtual uint32_t Read(void* Buffer, uint32_t Count) = 0;
  virtual void Seek(uint64_t Position) = 0;
  /// Gives the number of bytes written.
  virtual uint32_t Write(const void* Buffer, uint32_t Count) = 0;
  /// Ends the file at the current position.
  virtual void Truncate() = 0;
  /// Returns when what was written is on the disk.
  virtual void Flush() = 0;

  /// Fails with code 38 (end of file) when fewer bytes arrive.
  void ReadBuffer(void* Buffer, uint32_t Count) {
    constexpr uint32_t EndOfFile = 38;
    if (Read(Buffer, Count) != Count) throw EFileError{EndOfFile};
  }
  /// Fails with code 29 (write fault) when fewer bytes are written.
  void WriteBuffer(const void* Buffer, uint32_t Count) {
    constexpr uint32_t WriteFault = 29;
    if (Write(Buffer, Count) != Count) throw EFileError{WriteFault};
  }

 protected:
  TCustomFile() = default;
};

/// How whoever has only a file's name opens it.
using TFileOpener =
    std::function<std::unique_ptr<TCustomFile>(const std::string& Name, TFileDisposition, TFileAccess, TFileSharing)>;
