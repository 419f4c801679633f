#include "base/text.h"

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>

namespace {

int SizeOf(size_t Size) {
  if (Size > std::numeric_limits<int>::max()) throw std::bad_alloc();
  return static_cast<int>(Size);
}

/// A conversion that gives nothing has failed, and must not pass for an empty text.
int Converted(int Size) {
  if (Size <= 0) throw std::runtime_error("A text could not be converted.");
  return Size;
}

/// What is the same in every ANSI code page that Windows has, and in UTF-16: most texts, and all but nothing to
/// convert.
bool IsAscii(auto Text) {
  return std::ranges::all_of(Text, [](auto Unit) { return Unit >= 0 && Unit < 0x80; });
}

}  // namespace

std::wstring_view ViewOf(BSTR Text) { return Text ? std::wstring_view(Text, SysStringLen(Text)) : std::wstring_view(); }

TBstr MakeBstr(std::wstring_view Text) {
  TBstr Result(SysAllocStringLen(Text.data(), static_cast<UINT>(Text.size())));
  if (!Result) throw std::bad_alloc();
  return Result;
}

std::string LossyAnsi(std::wstring_view Text) {
  if (IsAscii(Text)) return {Text.begin(), Text.end()};
  const int Length = SizeOf(Text.size());
  const auto Convert = [&](char* To, int Room) {
    return WideCharToMultiByte(CP_ACP, 0, Text.data(), Length, To, Room, nullptr, nullptr);
  };
  std::string Result(static_cast<size_t>(Converted(Convert(nullptr, 0))), '\0');
  Converted(Convert(Result.data(), static_cast<int>(Result.size())));
  return Result;
}

std::optional<std::string> ExactAnsi(std::wstring_view Text) {
  std::string Result = LossyAnsi(Text);
  if (ToWide(Result) != Text) return std::nullopt;
  return Result;
}

bool IsInCodePage(std::string_view Ansi) { return LossyAnsi(ToWide(Ansi)) == Ansi; }

std::wstring ToWide(std::string_view Ansi) {
  if (IsAscii(Ansi)) return {Ansi.begin(), Ansi.end()};
  const int Length = SizeOf(Ansi.size());
  const auto Convert = [&](wchar_t* To, int Room) {
    return MultiByteToWideChar(CP_ACP, 0, Ansi.data(), Length, To, Room);
  };
  std::wstring Result(static_cast<size_t>(Converted(Convert(nullptr, 0))), L'\0');
  Converted(Convert(Result.data(), static_cast<int>(Result.size())));
  return Result;
}
