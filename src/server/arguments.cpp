#include "server/arguments.h"

#include "base/failure.h"
#include "base/registry_roots.h"
#include "base/text.h"

#include <algorithm>

namespace {

/// The text in the ANSI code page, when nothing of it is lost there.
std::string ExactAnsi(BSTR Name) {
  const std::wstring_view Text = ViewOf(Name);
  BOOL Replaced = FALSE;
  std::string Result = ToAnsi(Text, WC_NO_BEST_FIT_CHARS, &Replaced);
  if (Replaced) Refuse(MsgNameNotInCodePage, std::wstring(Text));
  if (Text.find(L'\0') != std::wstring_view::npos) Refuse(MsgNameWithNul, std::wstring(Text.data()));
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
  return ExactAnsi(KeyName);
}

}  // namespace

std::string FileNameArgument(BSTR Name) { return ExactAnsi(Name); }

TKeyPlace KeyArgument(unsigned long RootKey, BSTR KeyName) {
  if (!IsRegistryRoot(RootKey)) Refuse(MsgNoRegistryRoot, std::to_wstring(RootKey));
  return {RootKey, KeyNameArgument(KeyName)};
}

TValuePlace ValueArgument(unsigned long RootKey, BSTR KeyName, BSTR ValueName) {
  constexpr size_t LongestName = 16383;
  TKeyPlace Key = KeyArgument(RootKey, KeyName);
  if (ViewOf(ValueName).size() > LongestName) Refuse(MsgValueNameTooLong);
  return {std::move(Key), ExactAnsi(ValueName)};
}

void RequireBuffer(const void* Buffer, long Size) {
  if (Size < 0 || (Size > 0 && !Buffer)) Refuse(MsgBadBuffer);
}
