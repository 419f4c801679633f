#include "formats/uninstall_blocks.h"

#include "base/numbers.h"
#include "formats/crc32.h"
#include "formats/uninstall_log_error.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t SizeAt = 0, ComplementAt = 4, CrcAt = 8;
constexpr uint64_t BlocksAtOnce = 16;
constexpr uint64_t PieceSize = BlocksAtOnce * (BlockHeaderSize + LargestBlock);

}  // namespace

TBlockReader::TBlockReader(TCustomFile& File, uint64_t EndOffset, bool CheckSums)
    : File(File), EndOffset(EndOffset), FileSize(File.GetSize()), CheckSums(CheckSums), Position(File.GetPosition()) {}

uint64_t TBlockReader::MostBytesLeft() const {
  const uint64_t Limit = std::min(EndOffset, FileSize);
  return DataLeft + (Limit > Position ? Limit - Position : 0);
}

/// The next bytes of the file, which are there until the next call. What lies behind EndOffset is never read.
const uint8_t* TBlockReader::Take(uint32_t Size) {
  if (End - Begin < Size) {
    const size_t Rest = End - Begin;
    std::copy_n(Piece.begin() + static_cast<ptrdiff_t>(Begin), Rest, Piece.begin());
    Piece.resize(static_cast<size_t>(std::min(PieceSize, MostBytesLeft())));
    Begin = 0;
    End = Rest + File.Read(Piece.data() + Rest, static_cast<uint32_t>(Piece.size() - Rest));
    if (End < Size) throw EUninstallLogError{TUninstallLogFault::EndsTooEarly};
  }
  const uint8_t* const Bytes = Piece.data() + Begin;
  Begin += Size;
  Position += Size;
  return Bytes;
}

/// False when the log ends here.
bool TBlockReader::NextBlock() {
  if (Position == EndOffset) return false;
  const uint8_t* const Header = Take(BlockHeaderSize);
  const auto Size = NumberAt<uint32_t>(Header + SizeAt), Crc = NumberAt<uint32_t>(Header + CrcAt);
  if (NumberAt<uint32_t>(Header + ComplementAt) != ~Size || Size > LargestBlock)
    throw EUninstallLogError{TUninstallLogFault::BlockHeader};
  Data = Take(Size);
  if (CheckSums && Crc32(Data, Size) != Crc) throw EUninstallLogError{TUninstallLogFault::BlockChecksum};
  DataLeft = Size;
  return true;
}

void TBlockReader::Read(void* Buffer, uint32_t Size) {
  for (uint8_t* To = static_cast<uint8_t*>(Buffer); Size > 0;) {
    if (DataLeft == 0 && !NextBlock()) throw EUninstallLogError{TUninstallLogFault::EndsTooEarly};
    const uint32_t Part = std::min(Size, DataLeft);
    std::copy_n(Data, Part, To);
    Data += Part, DataLeft -= Part;
    To += Part, Size -= Part;
  }
}

bool TBlockReader::IsAtEnd() {
  try {
    while (DataLeft == 0)
      if (!NextBlock()) return true;
  } catch (const EUninstallLogError&) {
    // What is damaged here is behind the last record, and no failure of reading.
  }
  return false;
}

void TBlockWriter::Write(const void* Buffer, uint32_t Size) {
  for (const uint8_t* From = static_cast<const uint8_t*>(Buffer); Size > 0;) {
    if (DataSize == 0) Blocks.resize(Blocks.size() + BlockHeaderSize);
    const uint32_t Part = std::min(Size, LargestBlock - DataSize);
    Blocks.insert(Blocks.end(), From, From + Part);
    DataSize += Part, From += Part, Size -= Part;
    if (DataSize == LargestBlock) EndBlock();
    if (Blocks.size() >= PieceSize && DataSize == 0) WriteBlocks();
  }
}

void TBlockWriter::EndBlock() {
  uint8_t* const Data = Blocks.data() + Blocks.size() - DataSize;
  uint8_t* const Header = Data - BlockHeaderSize;
  PutNumber(Header + SizeAt, DataSize);
  PutNumber(Header + ComplementAt, ~DataSize);
  PutNumber(Header + CrcAt, Crc32(Data, DataSize));
  DataSize = 0;
}

void TBlockWriter::WriteBlocks() {
  if (!Blocks.empty()) File.WriteBuffer(Blocks.data(), static_cast<uint32_t>(Blocks.size()));
  Blocks.clear();
}

void TBlockWriter::Finish() {
  if (DataSize > 0) EndBlock();
  WriteBlocks();
}
