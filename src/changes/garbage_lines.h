#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The text of the garbage lists, apart from the files that hold it.

/// Takes the next line off the front of `Text`; nothing when it is at its end. Lines end at CR, LF or CR LF; a last one
/// without an end counts.
std::optional<std::string_view> TakeLine(std::string_view& Text);

/// The two parts of a text around its first blank; the second is empty when there is none.
struct TSplit {
  std::string_view First, Second;
};
TSplit SplitAtBlank(std::string_view Text);

/// The root of a registry line: the low 32 bits of a decimal number of up to 64. Nothing when it is not a number.
std::optional<uint32_t> ParseRoot(std::string_view Field);
