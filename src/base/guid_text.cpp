#include "base/guid_text.h"

namespace {

/// The order in which the binary bytes stand in the text; -1 is a hyphen.
constexpr int TextOrder[] = {3, 2, 1, 0, -1, 5, 4, -1, 7, 6, -1, 8, 9, -1, 10, 11, 12, 13, 14, 15};
constexpr size_t TextSize = 38;

std::optional<int> HexDigit(char Digit) {
  if (Digit >= '0' && Digit <= '9') return Digit - '0';
  if (Digit >= 'A' && Digit <= 'F') return Digit - 'A' + 10;
  if (Digit >= 'a' && Digit <= 'f') return Digit - 'a' + 10;
  return std::nullopt;
}

}  // namespace

std::string GuidText(const TGuidBytes& Guid) {
  std::string Result = "{";
  for (const int At : TextOrder) {
    if (At < 0) {
      Result += '-';
      continue;
    }
    const uint8_t Byte = Guid[static_cast<size_t>(At)];
    Result += "0123456789ABCDEF"[Byte >> 4];
    Result += "0123456789ABCDEF"[Byte & 15];
  }
  return Result + "}";
}

std::optional<TGuidBytes> ParseGuid(std::string_view Text) {
  if (Text.size() != TextSize || Text.front() != '{' || Text.back() != '}') return std::nullopt;
  TGuidBytes Guid{};
  size_t Position = 1;
  for (const int At : TextOrder) {
    if (At < 0) {
      if (Text[Position++] != '-') return std::nullopt;
      continue;
    }
    const auto High = HexDigit(Text[Position]), Low = HexDigit(Text[Position + 1]);
    if (!High || !Low) return std::nullopt;
    Guid[static_cast<size_t>(At)] = static_cast<uint8_t>(*High * 16 + *Low);
    Position += 2;
  }
  return Guid;
}
