#pragma once

#include "base/windows_api.h"

#include <cstdint>
#include <string_view>
#include <vector>

/// The bytes of a registry value, as the registry stores them, from the text that a caller passed:
///
///   REG_SZ, REG_EXPAND_SZ   the text, which holds no NUL
///   REG_MULTI_SZ            its lines, of which none is empty; none at all: an empty list
///   REG_DWORD, REG_QWORD    a number, decimal or with 0x before hexadecimal digits; a negative one keeps its bits
///   REG_BINARY              hexadecimal digits, two a byte, with or without blanks between bytes
///
/// Fails with E_INVALIDARG for another type, and for a text that is none of these.
std::vector<uint8_t> ValueDataArgument(long Type, BSTR Text);
