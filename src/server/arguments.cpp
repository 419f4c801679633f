#include "server/arguments.h"

#include "base/failure.h"
#include "base/registry_roots.h"
#include "base/text.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace {

/// What follows is taken as it is written.
constexpr std::wstring_view LiteralPrefix = L"\\\\?\\";

std::wstring_view WithoutNul(BSTR Text) {
  const std::wstring_view Result = ViewOf(Text);
  if (Result.find(L'\0') != std::wstring_view::npos) Refuse(MsgNameWithNul, std::wstring(Result.data()));
  return Result;
}

std::string InCodePage(std::wstring_view Text) {
  std::optional<std::string> Result = ExactAnsi(Text);
  if (!Result) Refuse(MsgNotInCodePage, std::wstring(Text));
  return std::move(*Result);
}

std::wstring WideMaskArgument(BSTR Mask) {
  std::wstring Result(WithoutNul(Mask));
  const bool Literal = Result.starts_with(LiteralPrefix);
  if (Literal && Result.find(L'/') != std::wstring::npos) Refuse(MsgSlashInLiteralName, Result);
  std::ranges::replace(Result, L'/', L'\\');
  return Result;
}

std::string KeyNameArgument(BSTR KeyName) {
  constexpr size_t LongestPart = 255;
  const std::wstring_view Text = ViewOf(KeyName);
  for (size_t At = 0; At < Text.size();) {
    const size_t End = std::min(Text.find(L'\\', At), Text.size());
    if (End - At > LongestPart) Refuse(MsgKeyPartTooLong, std::wstring(Text));
    At = End + 1;
  }
  return InCodePage(WithoutNul(KeyName));
}

}  // namespace

std::string TextArgument(BSTR Text) { return InCodePage(ViewOf(Text)); }

std::string MaskArgument(BSTR Mask) { return InCodePage(WideMaskArgument(Mask)); }

std::wstring WideFileNameArgument(BSTR Name) {
  std::wstring Result = WideMaskArgument(Name);
  const size_t Names = Result.starts_with(LiteralPrefix) ? LiteralPrefix.size() : 0;
  if (Result.find_first_of(L"*?<>\"", Names) != std::wstring::npos) Refuse(MsgNameWithWildcard, Result);
  return Result;
}

std::string FileNameArgument(BSTR Name) { return InCodePage(WideFileNameArgument(Name)); }

TKeyPlace KeyArgument(unsigned long RootKey, BSTR KeyName) {
  if (!IsRegistryRoot(RootKey)) Refuse(MsgNoRegistryRoot, std::to_wstring(RootKey));
  return {RootKey, KeyNameArgument(KeyName)};
}

TValuePlace ValueArgument(unsigned long RootKey, BSTR KeyName, BSTR ValueName) {
  constexpr size_t LongestName = 16383;
  TKeyPlace Key = KeyArgument(RootKey, KeyName);
  if (ViewOf(ValueName).size() > LongestName) Refuse(MsgValueNameTooLong);
  return {std::move(Key), InCodePage(WithoutNul(ValueName))};
}

void RequireBuffer(const void* Buffer, long Size) {
  if (Size < 0 || (Size > 0 && !Buffer)) Refuse(MsgBadBuffer);
}
