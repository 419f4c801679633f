#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The text of the garbage lists, apart from the files that hold it.

/// The lines of a list; they end at CR, LF or CR LF. A last line without an end counts.
std::vector<std::string> SplitLines(std::string_view Text);

/// A line of the two registry lists: the root as a decimal number of up to 64 bits, a blank, the rest.
struct TRegistryLine {
  uint32_t RootKey;  ///< the low 32 bits of the number
  std::string Rest;
};
/// Nothing when the first field is not a number.
std::optional<TRegistryLine> ParseRegistryLine(std::string_view Line);

/// The two parts of a text around its first blank; the second is empty when there is none.
struct TSplit {
  std::string First, Second;
};
TSplit SplitAtBlank(std::string_view Text);
