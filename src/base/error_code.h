#pragma once

#include <cstdint>

/// The system's own error HRESULT (as a signed 32-bit number) for an error code:
/// 0x80040000 + ((code + 0x200) and 0xFFFF). 32 gives 0x80040220, -3 gives 0x800401FD.
constexpr int32_t MakeErrorHResult(int32_t Code) {
  return static_cast<int32_t>(0x80040000u + ((static_cast<uint32_t>(Code) + 0x200u) & 0xFFFFu));
}
