#include "server/log_text.h"

#include "base/guid.h"

std::wstring TLogWord::Text() const {
  if (const auto* Ansi = std::get_if<std::string_view>(&Value)) return ToWide(*Ansi);
  if (const auto* Wide = std::get_if<std::wstring_view>(&Value)) return std::wstring(*Wide);
  if (const auto* Guid = std::get_if<GUID>(&Value)) return ToWide(GuidText(*Guid));
  return std::to_wstring(std::get<int64_t>(Value));
}

std::wstring LogText(const TLogWord& First, std::initializer_list<TLogWord> Rest) {
  std::wstring Result = First.Text();
  for (const TLogWord& Word : Rest) Result.append(L" ").append(Word.Text());
  return Result;
}
