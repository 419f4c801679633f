#include "installer/crc32.h"

#include "server/little_endian.h"

#include <array>

namespace {

/// So many bytes are looked up side by side; the look-ups do not wait for each other.
constexpr size_t Stride = 16;
using TTable = std::array<uint32_t, 256>;
using TTables = std::array<TTable, Stride>;

/// Table n holds what a byte contributes that is followed by n others; table 0 is the usual one.
TTables MakeTables() {
  constexpr uint32_t Polynomial = 0xEDB88320;
  TTables Tables{};
  for (uint32_t Byte = 0; Byte < 256; ++Byte) {
    uint32_t Crc = Byte;
    for (int Bit = 0; Bit < 8; ++Bit) Crc = Crc & 1 ? Crc >> 1 ^ Polynomial : Crc >> 1;
    Tables[0][Byte] = Crc;
  }
  for (size_t At = 1; At < Stride; ++At)
    for (uint32_t Byte = 0; Byte < 256; ++Byte) {
      const uint32_t Before = Tables[At - 1][Byte];
      Tables[At][Byte] = Before >> 8 ^ Tables[0][Before & 0xFF];
    }
  return Tables;
}

uint32_t Word(const TTables& Tables, uint32_t Number, size_t BytesAfter) {
  return Tables[BytesAfter + 3][Number & 0xFF] ^ Tables[BytesAfter + 2][Number >> 8 & 0xFF] ^
         Tables[BytesAfter + 1][Number >> 16 & 0xFF] ^ Tables[BytesAfter][Number >> 24];
}

}  // namespace

uint32_t Crc32(const void* Bytes, size_t Size) {
  static const TTables Tables = MakeTables();
  const uint8_t* At = static_cast<const uint8_t*>(Bytes);
  uint32_t Crc = 0xFFFFFFFF;
  for (; Size >= Stride; Size -= Stride, At += Stride)
    Crc = Word(Tables, NumberAt<uint32_t>(At) ^ Crc, 12) ^ Word(Tables, NumberAt<uint32_t>(At + 4), 8) ^
          Word(Tables, NumberAt<uint32_t>(At + 8), 4) ^ Word(Tables, NumberAt<uint32_t>(At + 12), 0);
  for (; Size > 0; --Size, ++At) Crc = Crc >> 8 ^ Tables[0][(Crc ^ *At) & 0xFF];
  return ~Crc;
}
