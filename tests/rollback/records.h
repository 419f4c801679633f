#pragma once

#include "base/guid.h"
#include "formats/log_record.h"

#include <string>

/// The bytes of one record of the transaction log or of a history group.
inline std::string RecordOf(const GUID& Id, int Code, const GUID& DataID) {
  const TLogRecordBytes Bytes = EncodeRecord({BytesOf(Id), Code, BytesOf(DataID)});
  return std::string(Bytes.begin(), Bytes.end());
}
