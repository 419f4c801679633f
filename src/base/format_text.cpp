#include "base/format_text.h"

namespace {

std::string Hexadecimal(uint32_t Number) {
  std::string Digits;
  do {
    Digits.insert(Digits.begin(), "0123456789ABCDEF"[Number % 16]);
    Number /= 16;
  } while (Number != 0);
  return Digits;
}

}  // namespace

std::string FormatText(std::string_view Pattern, std::initializer_list<TFormatArg> Args) {
  std::string Result;
  auto Next = Args.begin();
  for (size_t At = 0; At < Pattern.size(); ++At) {
    const char Kind = Pattern[At] == '%' && At + 1 < Pattern.size() && Next != Args.end() ? Pattern[At + 1] : '\0';
    if (Kind == 's' && std::holds_alternative<std::string>(*Next)) {
      Result += std::get<std::string>(*Next++);
      ++At;
    } else if (Kind == 'x' && std::holds_alternative<uint32_t>(*Next)) {
      Result += Hexadecimal(std::get<uint32_t>(*Next++));
      ++At;
    } else {
      Result += Pattern[At];
    }
  }
  return Result;
}
