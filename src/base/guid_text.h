#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// A GUID in its standard binary layout: 32-bit, 16-bit and 16-bit little-endian numbers, then 8 bytes.
using TGuidBytes = std::array<uint8_t, 16>;

/// The registry form: braces, upper-case hexadecimal, groups 8-4-4-4-12.
std::string GuidText(const TGuidBytes& Guid);

/// Reads the registry form in any case; nothing when the text is anything else.
std::optional<TGuidBytes> ParseGuid(std::string_view Text);
