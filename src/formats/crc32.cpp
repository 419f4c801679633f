#include "formats/crc32.h"

#include "base/numbers.h"

#include <array>

namespace {

/// So many words are looked up side by side: each lane takes every fourth word, and none waits for another.
constexpr size_t Lanes = 4, WordSize = 4, Stride = Lanes * WordSize;
using TTable = std::array<uint32_t, 256>;

struct TTables {
  /// What a byte contributes, and what it contributes from its place in a word when the rest of a stride follows.
  TTable Byte{};
  std::array<TTable, WordSize> Lane{};

  TTables() {
    constexpr uint32_t Polynomial = 0xEDB88320;
    for (uint32_t Value = 0; Value < Byte.size(); ++Value) {
      uint32_t Crc = Value;
      for (int Bit = 0; Bit < 8; ++Bit) Crc = Crc & 1 ? Crc >> 1 ^ Polynomial : Crc >> 1;
      Byte[Value] = Crc;
    }
    for (size_t Place = 0; Place < WordSize; ++Place)
      for (uint32_t Value = 0; Value < Byte.size(); ++Value) {
        uint32_t Crc = Byte[Value];
        for (size_t After = Place + 1; After < Stride; ++After) Crc = Next(Crc, 0);
        Lane[Place][Value] = Crc;
      }
  }
  uint32_t Next(uint32_t Crc, uint8_t Value) const { return Crc >> 8 ^ Byte[(Crc ^ Value) & 0xFF]; }
  uint32_t NextStride(uint32_t Word) const {
    return Lane[0][Word & 0xFF] ^ Lane[1][Word >> 8 & 0xFF] ^ Lane[2][Word >> 16 & 0xFF] ^ Lane[3][Word >> 24];
  }
};

}  // namespace

uint32_t Crc32(const void* Bytes, size_t Size) {
  static const TTables Tables;
  const uint8_t* At = static_cast<const uint8_t*>(Bytes);
  uint32_t Crc = 0xFFFFFFFF;
  if (Size >= 2 * Stride) {
    // A lane holds what its words so far contribute to the word that it takes next.
    uint32_t Lane[Lanes] = {Crc};
    for (; Size >= 2 * Stride; Size -= Stride, At += Stride)
      for (size_t Which = 0; Which < Lanes; ++Which)
        Lane[Which] = Tables.NextStride(Lane[Which] ^ NumberAt<uint32_t>(At + Which * WordSize));
    // The last stride joins them, byte by byte.
    Crc = 0;
    for (size_t Which = 0; Which < Lanes; ++Which) {
      Crc ^= Lane[Which];
      for (size_t Byte = 0; Byte < WordSize; ++Byte) Crc = Tables.Next(Crc, *At++);
    }
    Size -= Stride;
  }
  for (; Size > 0; --Size) Crc = Tables.Next(Crc, *At++);
  return ~Crc;
}
