#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// SHA-256 (FIPS 180-4) of bytes that come in parts.
class TSha256 {
 public:
  void Append(const char* Bytes, size_t Size);
  /// Of all bytes so far, in 64 lower-case hexadecimal digits; nothing may be appended afterwards.
  std::string Finish();

 private:
  void Byte(uint8_t Value);
  void Mix();

  std::array<uint32_t, 8> State{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::array<uint8_t, 64> Block{};
  uint64_t Count = 0;
};
