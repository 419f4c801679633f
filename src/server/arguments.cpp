#include "server/arguments.h"

#include "base/failure.h"
#include "base/registry_roots.h"
#include "base/text.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace {

/// What follows is taken as it is written.
constexpr std::string_view LiteralPrefix = "\\\\?\\";

std::string TextWithoutNul(BSTR Text) {
  std::string Result = TextArgument(Text);
  if (Result.find('\0') != std::string::npos) Refuse(MsgNameWithNul, std::wstring(ViewOf(Text).data()));
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
  return TextWithoutNul(KeyName);
}

}  // namespace

std::string TextArgument(BSTR Text) {
  const std::wstring_view Wide = ViewOf(Text);
  std::optional<std::string> Result = ExactAnsi(Wide);
  if (!Result) Refuse(MsgNotInCodePage, std::wstring(Wide));
  return std::move(*Result);
}

std::string MaskArgument(BSTR Mask) {
  std::string Result = TextWithoutNul(Mask);
  const bool Literal = Result.starts_with(LiteralPrefix);
  if (Literal && Result.find('/') != std::string::npos) Refuse(MsgSlashInLiteralName, ToWide(Result));
  std::ranges::replace(Result, '/', '\\');  // never the second byte of a character, in any code page
  return Result;
}

std::string FileNameArgument(BSTR Name) {
  std::string Result = MaskArgument(Name);
  const size_t Names = Result.starts_with(LiteralPrefix) ? LiteralPrefix.size() : 0;
  if (Result.find_first_of("*?<>\"", Names) != std::string::npos) Refuse(MsgNameWithWildcard, ToWide(Result));
  return Result;
}

TKeyPlace KeyArgument(unsigned long RootKey, BSTR KeyName) {
  if (!IsRegistryRoot(RootKey)) Refuse(MsgNoRegistryRoot, std::to_wstring(RootKey));
  return {RootKey, KeyNameArgument(KeyName)};
}

TValuePlace ValueArgument(unsigned long RootKey, BSTR KeyName, BSTR ValueName) {
  constexpr size_t LongestName = 16383;
  TKeyPlace Key = KeyArgument(RootKey, KeyName);
  if (ViewOf(ValueName).size() > LongestName) Refuse(MsgValueNameTooLong);
  return {std::move(Key), TextWithoutNul(ValueName)};
}

void RequireBuffer(const void* Buffer, long Size) {
  if (Size < 0 || (Size > 0 && !Buffer)) Refuse(MsgBadBuffer);
}
