#include "formats/log_record.h"

#include <algorithm>

namespace {
constexpr int CodeOffset = 16;
constexpr int DataIdOffset = 20;
}  // namespace

TLogRecordBytes EncodeRecord(const TLogRecord& Record) {
  TLogRecordBytes Bytes{};
  std::copy(Record.Id.begin(), Record.Id.end(), Bytes.begin());
  for (int At = 0; At < 4; ++At)
    Bytes[static_cast<size_t>(CodeOffset + At)] = static_cast<uint8_t>(static_cast<uint32_t>(Record.Code) >> 8 * At);
  std::copy(Record.DataID.begin(), Record.DataID.end(), Bytes.begin() + DataIdOffset);
  return Bytes;
}

TLogRecord DecodeRecord(const TLogRecordBytes& Bytes) {
  TLogRecord Record;
  std::copy_n(Bytes.begin(), Record.Id.size(), Record.Id.begin());
  uint32_t Code = 0;
  for (int At = 0; At < 4; ++At) Code |= static_cast<uint32_t>(Bytes[static_cast<size_t>(CodeOffset + At)]) << 8 * At;
  Record.Code = static_cast<int32_t>(Code);
  std::copy_n(Bytes.begin() + DataIdOffset, Record.DataID.size(), Record.DataID.begin());
  return Record;
}
