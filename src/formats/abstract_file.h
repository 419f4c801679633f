#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

/// A failed file operation: the system's error code and its message, without the period and the line end.
class EFileError {
 public:
  EFileError(uint32_t Code, std::string Message) : Code(Code), Message(std::move(Message)) {}

  uint32_t Code;
  std::string Message;
};

enum class TFileDisposition { CreateAlways, CreateNew, OpenExisting, OpenAlways };
enum class TFileAccess { Read, Write, ReadWrite };
enum class TFileSharing { None, Read, Write, ReadWrite };

/// An open file with 64-bit positions, as the uninstall log needs it. TFile is the real one; tests have one in memory.
/// Every operation raises EFileError when the system fails it.
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
    if (Read(Buffer, Count) != Count) RaiseError(38);
  }
  /// Fails with code 29 (write fault) when fewer bytes are written.
  void WriteBuffer(const void* Buffer, uint32_t Count) {
    if (Write(Buffer, Count) != Count) RaiseError(29);
  }

 protected:
  TCustomFile() = default;
  /// Raises the EFileError of a system error code, with its message.
  [[noreturn]] virtual void RaiseError(uint32_t Code) = 0;
};

/// How whoever has only a file's name opens it: OpenSystemFile of file.h in the product.
using TFileOpener =
    std::function<std::unique_ptr<TCustomFile>(const std::string& Name, TFileDisposition, TFileAccess, TFileSharing)>;
