#pragma once

#include "base/numbers.h"

#include <zlib.h>

#include <cstdint>
#include <string>

// An uninstall log built by hand, byte by byte, without the sources that are tested.

inline uint32_t CrcOf(const std::string& Bytes) {
  return static_cast<uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(Bytes.data()), static_cast<uInt>(Bytes.size())));
}

template <class TNumber>
std::string Number(TNumber Value) {
  std::string Bytes;
  AppendNumber(Bytes, Value);
  return Bytes;
}

inline std::string Padded(std::string Text, size_t Size) {
  Text.resize(Size);
  return Text;
}

inline std::string Block(const std::string& Data) {
  const auto Size = static_cast<uint32_t>(Data.size());
  return Number(Size) + Number(~Size) + Number(CrcOf(Data)) + Data;
}

inline std::string Record(uint16_t Type, uint32_t ExtraValue, const std::string& Data) {
  return Number(Type) + Number(ExtraValue) + Number(static_cast<uint32_t>(Data.size())) + Data;
}

constexpr char Id32[] = "Inno Setup Uninstall Log (b)", Id64[] = "Inno Setup Uninstall Log (b) 64-bit";

/// A whole file; its fields can be made to lie.
struct TRawLog {
  std::string Id = Id32, ApplicationId = "{App}", ApplicationName = "Orvane Notes";
  uint32_t Version = 44, NumRecs = 0, Flags = 0;
  std::string Reserved = std::string(108, '\0');
  std::string Blocks = {};
  int64_t EndOffset = -1, Crc = -1;  ///< -1: as it should be

  std::string Bytes() const {
    const auto End = static_cast<uint32_t>(EndOffset < 0 ? 448 + static_cast<int64_t>(Blocks.size()) : EndOffset);
    const std::string Header = Padded(Id, 64) + Padded(ApplicationId, 128) + Padded(ApplicationName, 128) +
                               Number(Version) + Number(NumRecs) + Number(End) + Number(Flags) + Reserved;
    return Header + Number(Crc < 0 ? CrcOf(Header) : static_cast<uint32_t>(Crc)) + Blocks;
  }
};

/// A stream of any length as blocks.
inline std::string BlocksOf(const std::string& Stream) {
  constexpr size_t BlockSize = 4096;
  std::string Blocks;
  for (size_t At = 0; At < Stream.size(); At += BlockSize) Blocks += Block(Stream.substr(At, BlockSize));
  return Blocks;
}

/// A delete-file record.
inline std::string FileRecord(const std::string& Name, uint32_t ExtraValue) {
  return Record(0x82, ExtraValue, static_cast<char>(Name.size()) + Name + "\xFF");
}
