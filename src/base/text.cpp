#include "base/text.h"

#include <new>

std::wstring_view ViewOf(BSTR Text) { return Text ? std::wstring_view(Text, SysStringLen(Text)) : std::wstring_view(); }

TBstr MakeBstr(std::wstring_view Text) {
  TBstr Result(SysAllocStringLen(Text.data(), static_cast<UINT>(Text.size())));
  if (!Result) throw std::bad_alloc();
  return Result;
}

std::string ToAnsi(std::wstring_view Text, DWORD Flags, BOOL* Replaced) {
  if (Text.empty()) return {};
  const int Length = static_cast<int>(Text.size());
  const int Size = WideCharToMultiByte(CP_ACP, Flags, Text.data(), Length, nullptr, 0, nullptr, nullptr);
  std::string Result(static_cast<size_t>(Size), '\0');
  WideCharToMultiByte(CP_ACP, Flags, Text.data(), Length, Result.data(), Size, nullptr, Replaced);
  return Result;
}

std::wstring ToWide(std::string_view Ansi) {
  if (Ansi.empty()) return {};
  const int Length = static_cast<int>(Ansi.size());
  const int Size = MultiByteToWideChar(CP_ACP, 0, Ansi.data(), Length, nullptr, 0);
  std::wstring Result(static_cast<size_t>(Size), L'\0');
  MultiByteToWideChar(CP_ACP, 0, Ansi.data(), Length, Result.data(), Size);
  return Result;
}
