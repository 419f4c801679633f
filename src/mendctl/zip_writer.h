#pragma once

#include "mendctl/new_file.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Writes a ZIP file (PKWARE's APPNOTE, version 2.0: deflated entries, no encryption, names in UTF-8). At most 65,535
/// entries and 4 GiB; raises ECannotRead where the file cannot be written or becomes too large.
class TZipWriter {
 public:
  /// As TNewFile.
  explicit TZipWriter(const std::filesystem::path& Path);
  static constexpr size_t MostEntries = 65535;
  size_t Count() const { return Entries.size(); }

  void Add(const std::string& Name, std::string_view Content);
  /// Writes the directory. Without it the file is of no use.
  void Finish();

 private:
  struct TEntry {
    std::string Name;
    uint32_t Crc, PackedSize, Size, Offset;
  };
  void Write(const std::string& Bytes);
  static std::string Fields(const TEntry& Entry);

  std::string FileName;
  TNewFile File;
  uint64_t Position = 0;
  std::vector<TEntry> Entries;
};
