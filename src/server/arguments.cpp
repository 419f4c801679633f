#include "server/arguments.h"

#include "server/failure.h"
#include "server/text.h"

std::string FileNameArgument(BSTR Name) {
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
