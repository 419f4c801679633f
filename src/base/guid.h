#pragma once

#include "base/guid_text.h"
#include "base/windows_api.h"

#include <cstring>
#include <string>

static_assert(sizeof(GUID) == sizeof(TGuidBytes));

inline TGuidBytes BytesOf(const GUID& Guid) {
  TGuidBytes Bytes;
  std::memcpy(Bytes.data(), &Guid, Bytes.size());
  return Bytes;
}

inline GUID GuidOf(const TGuidBytes& Bytes) {
  GUID Guid;
  std::memcpy(&Guid, Bytes.data(), Bytes.size());
  return Guid;
}

inline std::string GuidText(const GUID& Guid) { return GuidText(BytesOf(Guid)); }

/// True when the registry-form texts of both are equal, that is, when all bytes are.
inline bool SameGUID(const GUID& Left, const GUID& Right) { return BytesOf(Left) == BytesOf(Right); }
