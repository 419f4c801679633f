#include "formats/log_record.h"

#include "base/numbers.h"

#include <algorithm>

namespace {
constexpr int CodeAt = 16, DataIdAt = 20;
}  // namespace

TLogRecordBytes EncodeRecord(const TLogRecord& Record) {
  TLogRecordBytes Bytes{};
  std::copy(Record.Id.begin(), Record.Id.end(), Bytes.begin());
  PutNumber(Bytes.data() + CodeAt, static_cast<uint32_t>(Record.Code));
  std::copy(Record.DataID.begin(), Record.DataID.end(), Bytes.begin() + DataIdAt);
  return Bytes;
}

TLogRecord DecodeRecord(const TLogRecordBytes& Bytes) {
  TLogRecord Record;
  std::copy_n(Bytes.begin(), Record.Id.size(), Record.Id.begin());
  Record.Code = static_cast<int32_t>(NumberAt<uint32_t>(Bytes.data() + CodeAt));
  std::copy_n(Bytes.begin() + DataIdAt, Record.DataID.size(), Record.DataID.begin());
  return Record;
}
