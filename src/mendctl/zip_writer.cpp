#include "mendctl/zip_writer.h"

#include "base/numbers.h"
#include "formats/crc32.h"
#include "mendctl/machine.h"

#include <zlib.h>

#include <limits>

namespace {

constexpr uint32_t LocalHeader = 0x04034B50, DirectoryHeader = 0x02014B50, DirectoryEnd = 0x06054B50;
constexpr uint16_t Version = 20, NamesInUtf8 = 0x0800, Deflated = 8;
constexpr uint16_t Midnight = 0, FirstDay = 0x21;  // 1980-01-01: the same content gives the same file

std::string Deflate(std::string_view Content) {
  z_stream Stream{};
  constexpr int RawDeflate = -15, MemoryLevel = 8;
  if (deflateInit2(&Stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, RawDeflate, MemoryLevel, Z_DEFAULT_STRATEGY) != Z_OK)
    throw std::bad_alloc();
  std::string Packed(deflateBound(&Stream, static_cast<uLong>(Content.size())), '\0');
  Stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(Content.data()));
  Stream.avail_in = static_cast<uInt>(Content.size());
  Stream.next_out = reinterpret_cast<Bytef*>(Packed.data());
  Stream.avail_out = static_cast<uInt>(Packed.size());
  deflate(&Stream, Z_FINISH);
  Packed.resize(Stream.total_out);
  deflateEnd(&Stream);
  return Packed;
}

}  // namespace

TZipWriter::TZipWriter(const std::filesystem::path& Path) : FileName(NameOf(Path)), File(Path) {}

void TZipWriter::Write(const std::string& Bytes) {
  File.Write(Bytes);
  Position += Bytes.size();
  if (Position > std::numeric_limits<uint32_t>::max()) throw ECannotRead{FileName, Position, "it becomes too large"};
}

/// What the header in front of an entry and its row in the directory have in common.
std::string TZipWriter::Fields(const TEntry& Entry) {
  std::string Bytes;
  for (const uint16_t Number : {Version, NamesInUtf8, Deflated, Midnight, FirstDay}) AppendNumber(Bytes, Number);
  for (const uint32_t Number : {Entry.Crc, Entry.PackedSize, Entry.Size}) AppendNumber(Bytes, Number);
  AppendNumber(Bytes, static_cast<uint16_t>(Entry.Name.size()));
  AppendNumber(Bytes, uint16_t{0});  // no extra field
  return Bytes;
}

void TZipWriter::Add(const std::string& Name, std::string_view Content) {
  if (Content.size() > std::numeric_limits<uint32_t>::max() || Entries.size() == MostEntries)
    throw ECannotRead{FileName, Position, "there is too much for one file"};
  const std::string Packed = Deflate(Content);
  Entries.push_back({Name, Crc32(Content.data(), Content.size()), static_cast<uint32_t>(Packed.size()),
                     static_cast<uint32_t>(Content.size()), static_cast<uint32_t>(Position)});
  std::string Header;
  AppendNumber(Header, LocalHeader);
  Write(Header + Fields(Entries.back()) + Name + Packed);
}

void TZipWriter::Finish() {
  const uint64_t Begin = Position;
  for (const TEntry& Entry : Entries) {
    std::string Row;
    AppendNumber(Row, DirectoryHeader);
    AppendNumber(Row, Version);
    Row += Fields(Entry);
    for (int Zeros = 0; Zeros < 3; ++Zeros) AppendNumber(Row, uint16_t{0});  // comment, disk, internal attributes
    AppendNumber(Row, uint32_t{0});                                          // external attributes
    AppendNumber(Row, Entry.Offset);
    Write(Row + Entry.Name);
  }
  std::string End;
  AppendNumber(End, DirectoryEnd);
  AppendNumber(End, uint32_t{0});  // one disk
  for (int Times = 0; Times < 2; ++Times) AppendNumber(End, static_cast<uint16_t>(Entries.size()));
  AppendNumber(End, static_cast<uint32_t>(Position - Begin));
  AppendNumber(End, static_cast<uint32_t>(Begin));
  AppendNumber(End, uint16_t{0});  // no comment
  Write(End);
  File.Finish();
}
