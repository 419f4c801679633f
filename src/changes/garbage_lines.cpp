#include "changes/garbage_lines.h"

#include <algorithm>
#include <charconv>

std::optional<std::string_view> TakeLine(std::string_view& Text) {
  if (Text.empty()) return std::nullopt;
  const size_t End = std::min(Text.find_first_of("\r\n"), Text.size());
  const std::string_view Line = Text.substr(0, End), Break = Text.substr(End);
  Text.remove_prefix(std::min(End + (Break.starts_with("\r\n") ? 2 : 1), Text.size()));
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
