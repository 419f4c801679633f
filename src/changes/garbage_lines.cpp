#include "changes/garbage_lines.h"

#include <charconv>

std::vector<std::string> SplitLines(std::string_view Text) {
  std::vector<std::string> Lines;
  for (size_t At = 0; At < Text.size();) {
    const size_t End = std::min(Text.find_first_of("\r\n", At), Text.size());
    Lines.emplace_back(Text.substr(At, End - At));
    At = End + (Text.substr(End, 2) == "\r\n" ? 2 : 1);
  }
  return Lines;
}

TSplit SplitAtBlank(std::string_view Text) {
  const size_t Blank = Text.find(' ');
  if (Blank == std::string_view::npos) return {std::string(Text), ""};
  return {std::string(Text.substr(0, Blank)), std::string(Text.substr(Blank + 1))};
}

std::optional<TRegistryLine> ParseRegistryLine(std::string_view Line) {
  const TSplit Parts = SplitAtBlank(Line);
  int64_t Root = 0;
  const char* const End = Parts.First.data() + Parts.First.size();
  const auto Parsed = std::from_chars(Parts.First.data(), End, Root);
  if (Parsed.ec != std::errc() || Parsed.ptr != End) return std::nullopt;
  return TRegistryLine{static_cast<uint32_t>(Root), Parts.Second};
}
