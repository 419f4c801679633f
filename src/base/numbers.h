#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// Numbers as files hold them: little-endian, without padding, at any address.

template <class TNumber, class TByte>
constexpr TNumber NumberAt(const TByte* Bytes) {
  static_assert(sizeof(TByte) == 1);
  TNumber Number = 0;
  for (size_t At = 0; At < sizeof Number; ++At)
    Number = static_cast<TNumber>(Number | static_cast<TNumber>(static_cast<uint8_t>(Bytes[At])) << 8 * At);
  return Number;
}

template <class TNumber>
constexpr void PutNumber(uint8_t* Bytes, TNumber Number) {
  for (size_t At = 0; At < sizeof Number; ++At) Bytes[At] = static_cast<uint8_t>(Number >> 8 * At & 0xFF);
}

template <class TNumber>
void AppendNumber(std::string& Bytes, TNumber Number) {
  for (size_t At = 0; At < sizeof Number; ++At) Bytes += static_cast<char>(Number >> 8 * At & 0xFF);
}
