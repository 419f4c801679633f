#pragma once

#include <cstdint>

/// Root keys as callers and files hold them: the values of the predefined registry handles, HKEY_CLASSES_ROOT
/// (0x80000000) to HKEY_CURRENT_CONFIG (0x80000005). Any other number could be the value of any handle of this process.
constexpr bool IsRegistryRoot(uint32_t RootKey) {
  constexpr uint32_t First = 0x80000000, Last = 0x80000005;
  return RootKey >= First && RootKey <= Last;
}
