#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>

/// The standard reflected CRC-32: polynomial 0xEDB88320, initial value and final XOR 0xFFFFFFFF. "123456789" gives
/// 0xCBF43926. `Before` is that of what comes before these bytes.
inline uint32_t Crc32(const void* Bytes, size_t Size, uint32_t Before = 0) {
  return static_cast<uint32_t>(crc32_z(Before, static_cast<const Bytef*>(Bytes), Size));
}
