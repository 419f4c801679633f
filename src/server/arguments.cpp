#include "server/arguments.h"

#include "base/failure.h"
#include "base/text.h"

#include <algorithm>

namespace {

/// The text in the ANSI code page, when nothing of it is lost there.
std::string ExactAnsi(BSTR Name) {
  const std::wstring_view Text = ViewOf(Name);
  BOOL Replaced = FALSE;
  std::string Result = ToAnsi(Text, WC_NO_BEST_FIT_CHARS, &Replaced);
  if (Replaced)
    throw EFailure(E_INVALIDARG,
                   L"The name '" + std::wstring(Text) + L"' has characters that the system's code page lacks.");
  if (Text.find(L'\0') != std::wstring_view::npos)
    throw EFailure(E_INVALIDARG, L"The name '" + std::wstring(Text.data()) + L"' goes on behind a NUL character.");
  return Result;
}

}  // namespace

std::string FileNameArgument(BSTR Name) { return ExactAnsi(Name); }

DWORD RootKeyArgument(unsigned long RootKey) {
  constexpr DWORD FirstRoot = 0x80000000, LastRoot = 0x80000005;
  if (RootKey < FirstRoot || RootKey > LastRoot)
    throw EFailure(E_INVALIDARG, L"The root key " + std::to_wstring(RootKey) + L" is not a predefined registry root.");
  return RootKey;
}

std::string KeyNameArgument(BSTR KeyName) {
  constexpr size_t LongestPart = 255;
  const std::wstring_view Text = ViewOf(KeyName);
  for (size_t At = 0; At < Text.size();) {
    const size_t End = std::min(Text.find(L'\\', At), Text.size());
    if (End - At > LongestPart)
      throw EFailure(E_INVALIDARG, L"A part of the registry key '" + std::wstring(Text) + L"' is too long.");
    At = End + 1;
  }
  return ExactAnsi(KeyName);
}

std::string ValueNameArgument(BSTR ValueName) {
  constexpr size_t LongestName = 16383;
  if (ViewOf(ValueName).size() > LongestName)
    throw EFailure(E_INVALIDARG, L"The name of the registry value is too long.");
  return ExactAnsi(ValueName);
}

void RequireBuffer(const void* Buffer, long Size) {
  if (Size < 0 || (Size > 0 && !Buffer))
    throw EFailure(E_INVALIDARG, L"A buffer and the number of its bytes are needed, which is not negative.");
}
