#pragma once

#include "formats/abstract_file.h"
#include "formats/backup_items.h"
#include "formats/uninstall_log.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

/// A file in memory, whose bytes outlive the object that has it open. `FailAfter` operations succeed; then each fails
/// as on a broken disk.
class TMemoryFile final : public TCustomFile {
 public:
  static constexpr uint32_t BrokenDisk = 1117;

  explicit TMemoryFile(std::string& Bytes, int FailAfter = -1) : Bytes(Bytes), Left(FailAfter) {}

  uint64_t GetPosition() override { return At; }
  uint64_t GetSize() override { return Bytes.size(); }
  uint32_t Read(void* Buffer, uint32_t Count) override {
    Pass();
    const size_t Part = At < Bytes.size() ? std::min<size_t>(Count, Bytes.size() - static_cast<size_t>(At)) : 0;
    if (Part > 0) std::memcpy(Buffer, Bytes.data() + At, Part);
    At += Part;
    return static_cast<uint32_t>(Part);
  }
  void Seek(uint64_t Position) override { At = Position; }
  uint32_t Write(const void* Buffer, uint32_t Count) override {
    Pass();
    if (At + Count > Bytes.size()) Bytes.resize(static_cast<size_t>(At) + Count);
    std::memcpy(Bytes.data() + At, Buffer, Count);
    At += Count;
    return Count;
  }
  void Truncate() override {
    Pass();
    Bytes.resize(static_cast<size_t>(At));
  }
  void Flush() override { Pass(); }

 private:
  void Pass() {
    if (Left == 0) throw EFileError{BrokenDisk};
    if (Left > 0) --Left;
  }

  std::string& Bytes;
  uint64_t At = 0;
  int Left;
};

/// Opens `Bytes` under any name.
inline TFileOpener OpenerOf(std::string& Bytes, int FailAfter = -1) {
  return [&Bytes, FailAfter](const std::string&, TFileDisposition Disposition, TFileAccess, TFileSharing) {
    if (Disposition == TFileDisposition::CreateAlways) Bytes.clear();
    return std::make_unique<TMemoryFile>(Bytes, FailAfter);
  };
}

/// Saves to `Bytes`, as a new log or behind the one that is there.
inline void SaveTo(std::string& Bytes, const TUninstallLog& Log, bool Append = false,
                   bool UpdateApplicationName = false) {
  Log.Save(OpenerOf(Bytes), "", Append, UpdateApplicationName);
}
inline void LoadFrom(std::string Bytes, TUninstallLog& Log) {
  TMemoryFile File(Bytes);
  Log.Load(File);
}

/// An item in memory. Reading beyond its end ends the program.
class TMemorySource final : public TByteSource {
 public:
  explicit TMemorySource(std::string_view Bytes) : Bytes(Bytes) {}
  uint64_t Remaining() const override { return Bytes.size(); }
  void Read(void* Buffer, uint32_t Size) override {
    if (Size > Bytes.size()) std::abort();
    Bytes.copy(static_cast<char*>(Buffer), Size);
    Bytes.remove_prefix(Size);
  }

  std::string_view Bytes;
};
