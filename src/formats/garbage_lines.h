#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

/// The text of the garbage lists, apart from the files that hold it.

/// Takes the next line off the front of `Text`; nothing when no whole one is left. Lines end at CR, LF or CR LF. A last
/// one without an end was cut off while it was written, before its caller was told anything: the rest of a path can
/// name a folder above the one that was meant, so it is no line.
std::optional<std::string_view> TakeLine(std::string_view& Text);

/// The two parts of a text around its first blank; the second is empty when there is none.
struct TSplit {
  std::string_view First, Second;
};
TSplit SplitAtBlank(std::string_view Text);

/// The root of a registry line: the low 32 bits of a decimal number of up to 64. Nothing when it is not a number.
std::optional<uint32_t> ParseRoot(std::string_view Field);
