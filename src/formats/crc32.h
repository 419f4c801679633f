#pragma once

#include <cstddef>
#include <cstdint>

/// The standard reflected CRC-32: polynomial 0xEDB88320, initial value and final XOR 0xFFFFFFFF. "123456789" gives
/// 0xCBF43926.
uint32_t Crc32(const void* Bytes, size_t Size);
