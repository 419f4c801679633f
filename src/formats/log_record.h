#pragma once

#include "base/guid_text.h"

#include <array>
#include <cstdint>

/// One record of the transaction log or of a history group. On disk 36 bytes without padding: a GUID in binary layout,
/// a signed 32-bit little-endian code, a GUID. The files have no header; their size is a multiple of 36.
struct TLogRecord {
  TGuidBytes Id{};
  int32_t Code = 0;
  TGuidBytes DataID{};

  bool operator==(const TLogRecord&) const = default;
};

constexpr int LogRecordSize = 36;
using TLogRecordBytes = std::array<uint8_t, LogRecordSize>;

TLogRecordBytes EncodeRecord(const TLogRecord& Record);
TLogRecord DecodeRecord(const TLogRecordBytes& Bytes);
