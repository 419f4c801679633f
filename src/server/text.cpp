#include "server/text.h"

#include "server/failure.h"

#include <new>

std::wstring_view ViewOf(BSTR Text) { return Text ? std::wstring_view(Text, SysStringLen(Text)) : std::wstring_view(); }

TBstr MakeBstr(std::wstring_view Text) {
  TBstr Result(SysAllocStringLen(Text.data(), static_cast<UINT>(Text.size())));
  if (!Result) throw std::bad_alloc();
  return Result;
}

namespace {

/// `Replaced` tells whether a character had no counterpart in the code page.
std::string Narrow(std::wstring_view Text, DWORD Flags, BOOL* Replaced) {
  if (Text.empty()) return {};
  const int Length = static_cast<int>(Text.size());
  const int Size = WideCharToMultiByte(CP_ACP, Flags, Text.data(), Length, nullptr, 0, nullptr, nullptr);
  std::string Result(static_cast<size_t>(Size), '\0');
  WideCharToMultiByte(CP_ACP, Flags, Text.data(), Length, Result.data(), Size, nullptr, Replaced);
  return Result;
}

}  // namespace

std::string ToAnsi(std::wstring_view Text) { return Narrow(Text, 0, nullptr); }

std::wstring ToWide(std::string_view Ansi) {
  if (Ansi.empty()) return {};
  const int Length = static_cast<int>(Ansi.size());
  const int Size = MultiByteToWideChar(CP_ACP, 0, Ansi.data(), Length, nullptr, 0);
  std::wstring Result(static_cast<size_t>(Size), L'\0');
  MultiByteToWideChar(CP_ACP, 0, Ansi.data(), Length, Result.data(), Size);
  return Result;
}

std::string FileNameArgument(BSTR Name) {
  const std::wstring_view Text = ViewOf(Name);
  BOOL Replaced = FALSE;
  std::string Result = Narrow(Text, WC_NO_BEST_FIT_CHARS, &Replaced);
  if (Replaced)
    throw EFailure(E_INVALIDARG,
                   L"The name '" + std::wstring(Text) + L"' has characters that the system's code page lacks.");
  if (Text.find(L'\0') != std::wstring_view::npos)
    throw EFailure(E_INVALIDARG, L"The name '" + std::wstring(Text.data()) + L"' goes on behind a NUL character.");
  return Result;
}
