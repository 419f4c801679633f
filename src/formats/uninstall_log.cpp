#include "formats/uninstall_log.h"

#include "base/numbers.h"
#include "formats/crc32.h"
#include "formats/uninstall_blocks.h"
#include "formats/uninstall_log_error.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

namespace {

// ---- The header

constexpr size_t HeaderSize = 448;
constexpr size_t IdAt = 0, ApplicationIdAt = 64, ApplicationNameAt = 192;
constexpr size_t VersionAt = 320, NumRecsAt = 324, EndOffsetAt = 328, FlagsAt = 332, CrcAt = 444;
constexpr size_t IdSize = 64, TextSize = 128;
constexpr char Id32[IdSize] = "Inno Setup Uninstall Log (b)", Id64[IdSize] = "Inno Setup Uninstall Log (b) 64-bit";
/// A header with this checksum is taken as it is.
constexpr uint32_t UncheckedCrc = 0x11111111;
constexpr uint8_t NoBlockChecks = 2;

class THeader {
 public:
  template <class TNumber>
  TNumber Number(size_t At) const {
    return static_cast<TNumber>(NumberAt<std::make_unsigned_t<TNumber>>(Bytes.data() + At));
  }
  template <class TNumber>
  void Put(size_t At, TNumber Value) {
    PutNumber(Bytes.data() + At, static_cast<std::make_unsigned_t<TNumber>>(Value));
  }
  /// A text up to its NUL; one without any fills its place.
  std::string Text(size_t At) const {
    const auto Begin = Bytes.begin() + static_cast<ptrdiff_t>(At);
    return std::string(Begin, std::find(Begin, Begin + TextSize, '\0'));
  }
  /// Bytes behind the NUL stay, so that a text that does not change leaves its place as it was.
  void PutText(size_t At, const std::string& Text) {
    const size_t Length = std::min(Text.size(), TextSize - 1);
    std::copy_n(Text.begin(), Length, Bytes.begin() + static_cast<ptrdiff_t>(At));
    Bytes[At + Length] = 0;
  }
  bool HasId(const char (&Id)[IdSize]) const { return std::memcmp(Bytes.data() + IdAt, Id, IdSize) == 0; }
  void PutId(const char (&Id)[IdSize]) { std::memcpy(Bytes.data() + IdAt, Id, IdSize); }
  uint32_t Crc() const { return Crc32(Bytes.data(), CrcAt); }

  std::array<uint8_t, HeaderSize> Bytes{};
};

THeader ReadHeader(TCustomFile& File) {
  THeader Header;
  File.Seek(0);
  if (File.Read(Header.Bytes.data(), HeaderSize) != HeaderSize) throw EUninstallLogError{TUninstallLogFault::NotALog};
  const auto Crc = Header.Number<uint32_t>(CrcAt);
  if (Crc != UncheckedCrc && Crc != Header.Crc()) throw EUninstallLogError{TUninstallLogFault::HeaderChecksum};
  if (!Header.HasId(Id32) && !Header.HasId(Id64)) throw EUninstallLogError{TUninstallLogFault::NotALog};
  if (Header.Number<int32_t>(VersionAt) > TUninstallLog::HighestVersion)
    throw EUninstallLogError{TUninstallLogFault::LaterVersion};
  return Header;
}

/// Cuts the file at the log's end and leaves the position there.
THeader BeginAppending(TCustomFile& File) {
  THeader Header;
  File.ReadBuffer(Header.Bytes.data(), HeaderSize);
  const auto EndOffset = Header.Number<uint32_t>(EndOffsetAt);
  if (EndOffset < HeaderSize || EndOffset > File.GetSize())
    throw EUninstallLogError{TUninstallLogFault::EndOutsideFile};
  File.Seek(EndOffset);
  File.Truncate();
  return Header;
}

THeader BeginNew(TCustomFile& File) {
  THeader Header;
  File.WriteBuffer(Header.Bytes.data(), HeaderSize);
  return Header;
}

// ---- Records in the stream

constexpr uint32_t RecordHeaderSize = 10;
constexpr size_t TypeAt = 0, ExtraValueAt = 2, DataSizeAt = 6;
using TRecordHeader = std::array<uint8_t, RecordHeaderSize>;

TRecordHeader HeaderOf(const TUninstallRecord& Rec) {
  TRecordHeader Header;
  PutNumber(Header.data() + TypeAt, Rec.RecordType);
  PutNumber(Header.data() + ExtraValueAt, static_cast<uint32_t>(Rec.ExtraValue));
  PutNumber(Header.data() + DataSizeAt, Rec.DataSize);
  return Header;
}

// ---- String lists

constexpr uint8_t Length16 = 0xFD, Length32 = 0xFE, ListEnd = 0xFF;

void AppendLength(std::string& Bytes, size_t Length) {
  if (Length < Length16) {
    Bytes += static_cast<char>(Length);
  } else if (Length <= std::numeric_limits<uint16_t>::max()) {
    Bytes += static_cast<char>(Length16);
    AppendNumber(Bytes, static_cast<uint16_t>(Length));
  } else {
    if (Length > std::numeric_limits<uint32_t>::max()) throw EUninstallLogError{TUninstallLogFault::TooLarge};
    Bytes += static_cast<char>(Length32);
    AppendNumber(Bytes, static_cast<uint32_t>(Length));
  }
}

/// Takes a length off the front of a list; false when what is there is not one.
bool TakeLength(std::span<const uint8_t>& Rest, size_t& Length) {
  if (Rest.empty() || Rest[0] == ListEnd) return false;
  const uint8_t First = Rest[0];
  const size_t Size = First == Length16 ? sizeof(uint16_t) : First == Length32 ? sizeof(uint32_t) : 0;
  if (Rest.size() < 1 + Size) return false;
  Length = First == Length16 ? NumberAt<uint16_t>(&Rest[1]) : First == Length32 ? NumberAt<uint32_t>(&Rest[1]) : First;
  Rest = Rest.subspan(1 + Size);
  return true;
}

}  // namespace

// ---- The list

TUninstallRecord& TUninstallLog::MakeRecord(uint16_t RecordType, size_t DataSize, int32_t ExtraValue,
                                            uint64_t MostUseful) {
  static_assert(std::is_trivially_destructible_v<TUninstallRecord>);
  constexpr size_t Alignment = alignof(TUninstallRecord), Overhead = sizeof(TUninstallRecord) + Alignment;
  constexpr uint64_t SlabSize = 0x10000;
  if (uint64_t{DataSize} > std::numeric_limits<uint32_t>::max()) throw EUninstallLogError{TUninstallLogFault::TooLarge};
  if (DataSize > std::numeric_limits<size_t>::max() - Overhead) throw std::bad_alloc();
  const size_t Size = (DataSize + Overhead - 1) / Alignment * Alignment;
  if (Size > SlabLeft) {
    const size_t NewSize = std::max(Size, static_cast<size_t>(std::min(SlabSize, MostUseful)));
    Slabs.emplace_back(new std::byte[NewSize]);
    SlabAt = Slabs.back().get();
    SlabLeft = NewSize;
  }
  void* const Memory = SlabAt;
  SlabAt += Size;
  SlabLeft -= Size;
  return *new (Memory) TUninstallRecord(RecordType, static_cast<uint32_t>(DataSize), ExtraValue);
}

void TUninstallLog::Link(TUninstallRecord& Rec) {
  Rec.Previous = LastRecord;
  (LastRecord ? LastRecord->Next : FirstRecord) = &Rec;
  LastRecord = &Rec;
  ++RecordCount;
}

TUninstallRecord* TUninstallLog::DeleteRecord(TUninstallRecord* Rec) {
  TUninstallRecord* const Before = Rec->Previous;
  (Before ? Before->Next : FirstRecord) = Rec->Next;
  (Rec->Next ? Rec->Next->Previous : LastRecord) = Before;
  --RecordCount;
  return Before;
}

void TUninstallLog::Clear() {
  FirstRecord = LastRecord = nullptr;
  RecordCount = 0;
  Slabs.clear();
  SlabLeft = 0;
  ApplicationId.clear();
  ApplicationName.clear();
  Flags = 0;
  NothingBehind = true;
}

void TUninstallLog::AddRecord(uint16_t RecordType, std::span<const uint8_t> Data, int32_t ExtraValue) {
  constexpr uint64_t More = std::numeric_limits<uint64_t>::max();
  TUninstallRecord& Rec = MakeRecord(RecordType, Data.size(), ExtraValue, More);
  std::copy(Data.begin(), Data.end(), Rec.WritableData());
  Link(Rec);
}

void TUninstallLog::AddStringRecord(uint16_t RecordType, const std::vector<std::string>& Strings, int32_t ExtraValue) {
  std::string Bytes;
  for (const std::string& String : Strings) {
    AppendLength(Bytes, String.size());
    Bytes += String;
  }
  Bytes += static_cast<char>(ListEnd);
  AddRecord(RecordType, {reinterpret_cast<const uint8_t*>(Bytes.data()), Bytes.size()}, ExtraValue);
  Version = std::max(Version, HighestVersion);
}

size_t TUninstallLog::ExtractRecordStrings(const TUninstallRecord& Rec, std::span<std::string> Strings) {
  for (std::string& String : Strings) String.clear();
  std::span<const uint8_t> Rest = Rec.Data();
  size_t Filled = 0;
  for (size_t Length = 0; Filled < Strings.size() && TakeLength(Rest, Length) && Length <= Rest.size(); ++Filled) {
    Strings[Filled].assign(Rest.begin(), Rest.begin() + static_cast<ptrdiff_t>(Length));
    Rest = Rest.subspan(Length);
  }
  return Filled;
}

// ---- The file

void TUninstallLog::Load(TCustomFile& File) {
  const THeader Header = ReadHeader(File);
  LoadedHeader.assign(Header.Bytes.begin(), Header.Bytes.end());
  Is64Bit = Header.HasId(Id64);
  ApplicationId = Header.Text(ApplicationIdAt);
  ApplicationName = Header.Text(ApplicationNameAt);
  Flags = static_cast<uint8_t>(Header.Number<uint32_t>(FlagsAt));

  TBlockReader Reader(File, Header.Number<uint32_t>(EndOffsetAt), (Flags & NoBlockChecks) == 0);
  for (int32_t Left = Header.Number<int32_t>(NumRecsAt); Left > 0; --Left) {
    TRecordHeader Rec;
    Reader.Read(Rec.data(), RecordHeaderSize);
    const auto DataSize = NumberAt<uint32_t>(Rec.data() + DataSizeAt);
    // Found out at once instead of at the end of the file, with the memory already taken.
    if (DataSize > Reader.MostBytesLeft()) throw EUninstallLogError{TUninstallLogFault::EndsTooEarly};
    TUninstallRecord& New =
        MakeRecord(NumberAt<uint16_t>(Rec.data() + TypeAt), DataSize,
                   static_cast<int32_t>(NumberAt<uint32_t>(Rec.data() + ExtraValueAt)), Reader.MostBytesLeft());
    Reader.Read(New.WritableData(), DataSize);
    Link(New);
  }
  NothingBehind = Reader.IsAtEnd();
}

void TUninstallLog::Save(const TFileOpener& Open, const std::string& FileName, bool Append,
                         bool UpdateApplicationName) const {
  const std::unique_ptr<TCustomFile> File =
      Open(FileName, Append ? TFileDisposition::OpenExisting : TFileDisposition::CreateAlways, TFileAccess::ReadWrite,
           TFileSharing::None);
  THeader Header = Append ? BeginAppending(*File) : BeginNew(*File);

  TBlockWriter Writer(*File);
  auto NumRecs = Header.Number<int32_t>(NumRecsAt);
  for (const TUninstallRecord* Rec = FirstRecord; Rec; Rec = Rec->Next) {
    Writer.Write(HeaderOf(*Rec).data(), RecordHeaderSize);
    Writer.Write(Rec->Data().data(), Rec->DataSize);
    if (NumRecs < 0 || NumRecs == std::numeric_limits<int32_t>::max())
      throw EUninstallLogError{TUninstallLogFault::TooLarge};
    ++NumRecs;
  }
  Writer.Finish();
  const uint64_t EndOffset = File->GetPosition();
  if (EndOffset > std::numeric_limits<uint32_t>::max()) throw EUninstallLogError{TUninstallLogFault::TooLarge};

  Header.PutId(Is64Bit ? Id64 : Id32);
  Header.PutText(ApplicationIdAt, ApplicationId);
  if (!Append || UpdateApplicationName) Header.PutText(ApplicationNameAt, ApplicationName);
  Header.Put(VersionAt, std::max(Version, Header.Number<int32_t>(VersionAt)));
  Header.Put(NumRecsAt, NumRecs);
  Header.Put(EndOffsetAt, static_cast<uint32_t>(EndOffset));
  Header.Put(FlagsAt, Header.Number<uint32_t>(FlagsAt) | Flags);
  Header.Put(CrcAt, Header.Crc());
  File->Flush();
  File->Seek(0);
  File->WriteBuffer(Header.Bytes.data(), HeaderSize);
}
