#include "base/format_text.h"

namespace {

template <class TText>
TText Hexadecimal(uint32_t Number) {
  TText Digits;
  do {
    Digits.insert(Digits.begin(), static_cast<typename TText::value_type>("0123456789ABCDEF"[Number % 16]));
    Number /= 16;
  } while (Number != 0);
  return Digits;
}

template <class TText, class TPattern, class TArgs>
TText Fill(TPattern Pattern, const TArgs& Args) {
  TText Result;
  auto Next = Args.begin();
  for (size_t At = 0; At < Pattern.size(); ++At) {
    const auto Kind = Pattern[At] == '%' && At + 1 < Pattern.size() && Next != Args.end() ? Pattern[At + 1] : '\0';
    if (Kind == 's' && std::holds_alternative<TText>(*Next)) {
      Result += std::get<TText>(*Next++);
      ++At;
    } else if (Kind == 'x' && std::holds_alternative<uint32_t>(*Next)) {
      Result += Hexadecimal<TText>(std::get<uint32_t>(*Next++));
      ++At;
    } else {
      Result += Pattern[At];
    }
  }
  return Result;
}

}  // namespace

std::string FormatText(std::string_view Pattern, std::initializer_list<TFormatArg> Args) {
  return Fill<std::string>(Pattern, Args);
}

std::wstring FormatText(std::wstring_view Pattern, std::initializer_list<TWideFormatArg> Args) {
  return Fill<std::wstring>(Pattern, Args);
}
