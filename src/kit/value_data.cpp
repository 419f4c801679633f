#include "kit/value_data.h"

#include "base/failure.h"
#include "base/numbers.h"
#include "base/text.h"
#include "kit/kit_messages.h"

#include <charconv>
#include <limits>
#include <optional>
#include <string>

namespace {

using TBytes = std::vector<uint8_t>;

void AppendWide(TBytes& Bytes, std::wstring_view Text) {
  for (const wchar_t Character : Text) {
    Bytes.push_back(static_cast<uint8_t>(Character & 0xFF));
    Bytes.push_back(static_cast<uint8_t>(Character >> 8 & 0xFF));
  }
}

std::optional<TBytes> OneText(std::wstring_view Text) {
  TBytes Bytes;
  if (Text.find(L'\0') != Text.npos) return std::nullopt;
  AppendWide(Bytes, Text);
  AppendWide(Bytes, {L"\0", 1});
  return Bytes;
}

std::optional<TBytes> Lines(std::wstring_view Text) {
  TBytes Bytes;
  while (!Text.empty()) {
    const size_t End = std::min(Text.find(L'\n'), Text.size());
    std::wstring_view Line = Text.substr(0, End);
    if (Line.ends_with(L'\r')) Line.remove_suffix(1);
    const auto One = OneText(Line);
    if (Line.empty() || !One) return std::nullopt;
    Bytes.insert(Bytes.end(), One->begin(), One->end());
    Text.remove_prefix(std::min(End + 1, Text.size()));
  }
  AppendWide(Bytes, {L"\0", 1});
  return Bytes;
}

template <class TNumber>
std::optional<TBytes> Number(const std::string& Text) {
  using TSigned = std::make_signed_t<TNumber>;
  const bool Hex = Text.starts_with("0x") || Text.starts_with("0X");
  const char *const Begin = Text.data() + (Hex ? 2 : 0), *const End = Text.data() + Text.size();
  TNumber Value = 0;
  std::from_chars_result Parsed{};
  if (Text.starts_with("-")) {
    TSigned Signed = 0;
    Parsed = std::from_chars(Begin, End, Signed);
    Value = static_cast<TNumber>(Signed);
  } else {
    Parsed = std::from_chars(Begin, End, Value, Hex ? 16 : 10);
  }
  if (Parsed.ec != std::errc() || Parsed.ptr != End) return std::nullopt;
  TBytes Bytes(sizeof Value);
  PutNumber(Bytes.data(), Value);
  return Bytes;
}

std::optional<TBytes> Binary(const std::string& Text) {
  TBytes Bytes;
  for (size_t At = 0; At < Text.size(); ++At) {
    if (Text[At] == ' ') continue;
    const char *const Begin = Text.data() + At, *const End = Begin + 2;
    if (At + 2 > Text.size()) return std::nullopt;
    Bytes.push_back(0);
    const auto Parsed = std::from_chars(Begin, End, Bytes.back(), 16);
    if (Parsed.ec != std::errc() || Parsed.ptr != End) return std::nullopt;
    ++At;
  }
  return Bytes;
}

std::optional<TBytes> DataOf(long Type, std::wstring_view Text) {
  switch (Type) {
    case REG_SZ:
    case REG_EXPAND_SZ:
      return OneText(Text);
    case REG_MULTI_SZ:
      return Lines(Text);
    case REG_DWORD:
      return Number<uint32_t>(LossyAnsi(Text));
    case REG_QWORD:
      return Number<uint64_t>(LossyAnsi(Text));
    case REG_BINARY:
      return Binary(LossyAnsi(Text));
    default:
      return std::nullopt;
  }
}

}  // namespace

std::vector<uint8_t> ValueDataArgument(long Type, BSTR Text) {
  auto Bytes = DataOf(Type, ViewOf(Text));
  if (!Bytes) Refuse(MsgKitBadValue, std::wstring(ViewOf(Text)), std::to_wstring(Type));
  return std::move(*Bytes);
}
