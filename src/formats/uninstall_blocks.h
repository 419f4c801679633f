#pragma once

#include "formats/abstract_file.h"

#include <cstdint>
#include <vector>

// The record stream of an uninstall log is stored in blocks: a header of 12 bytes (size, its complement, checksum),
// then up to 4096 bytes of the stream.

constexpr uint32_t BlockHeaderSize = 12;
constexpr uint32_t LargestBlock = 4096;

/// Reads a record stream from the file's current position to `EndOffset`. Raises EUninstallLogError where the stream
/// ends too early or a block is damaged. The file is read in larger pieces than one block.
class TBlockReader {
 public:
  TBlockReader(TCustomFile& File, uint64_t EndOffset, bool CheckSums);

  void Read(void* Buffer, uint32_t Size);
  /// No more bytes of the stream than these can come.
  uint64_t MostBytesLeft() const;
  /// Whether no data comes any more; damage counts as data.
  bool IsAtEnd();

 private:
  bool NextBlock();
  const uint8_t* Take(uint32_t Size);

  TCustomFile& File;
  const uint64_t EndOffset, FileSize;
  const bool CheckSums;
  /// What has been read ahead, from Begin to End, is the file's content from Position on.
  std::vector<uint8_t> Piece;
  size_t Begin = 0, End = 0;
  uint64_t Position;
  /// The rest of the current block.
  const uint8_t* Data = nullptr;
  uint32_t DataLeft = 0;
};

/// Writes a record stream at the file's current position, several blocks at a time.
class TBlockWriter {
 public:
  explicit TBlockWriter(TCustomFile& File) : File(File) {}

  void Write(const void* Buffer, uint32_t Size);
  /// Writes what is left as a shorter block; none when nothing is left.
  void Finish();

 private:
  void EndBlock();
  void WriteBlocks();

  TCustomFile& File;
  /// Whole blocks, and at the end the one that is being filled, behind room for its header.
  std::vector<uint8_t> Blocks;
  uint32_t DataSize = 0;  ///< of the one that is being filled
};
