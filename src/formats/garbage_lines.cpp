#include "formats/garbage_lines.h"

#include <algorithm>
#include <charconv>

std::optional<std::string_view> TakeLine(std::string_view& Text) {
  const size_t End = Text.find_first_of("\r\n");
  if (End == std::string_view::npos) return std::nullopt;
  const std::string_view Line = Text.substr(0, End);
  Text.remove_prefix(End + (Text.substr(End).starts_with("\r\n") ? 2 : 1));
  return Line;
}

TSplit SplitAtBlank(std::string_view Text) {
  const size_t Blank = std::min(Text.find(' '), Text.size());
  return {Text.substr(0, Blank), Text.substr(std::min(Blank + 1, Text.size()))};
}

std::optional<uint32_t> ParseRoot(std::string_view Field) {
  int64_t Root = 0;
  const char* const End = Field.data() + Field.size();
  const auto Parsed = std::from_chars(Field.data(), End, Root);
  if (Parsed.ec != std::errc() || Parsed.ptr != End) return std::nullopt;
  return static_cast<uint32_t>(Root);
}
