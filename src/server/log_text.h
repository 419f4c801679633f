#pragma once

#include "base/guid.h"
#include "base/text.h"

#include <string>
#include <string_view>

/// One word of a debug-log text, in the form in which the log writes its kind: texts as they are, GUIDs in registry
/// form, numbers in decimal, a VARIANT_BOOL as a signed 16-bit number (-1 or 0), a C++ bool as 1 or 0.
class TLogWord {
 public:
  TLogWord(std::string_view Ansi) : Text(ToWide(Ansi)) {}
  TLogWord(const std::string& Ansi) : Text(ToWide(Ansi)) {}
  TLogWord(const char* Ansi) : Text(ToWide(Ansi)) {}
  TLogWord(std::wstring_view Wide) : Text(Wide) {}
  TLogWord(BSTR Wide) : Text(ViewOf(Wide)) {}
  TLogWord(const GUID& Guid) : Text(ToWide(GuidText(Guid))) {}
  TLogWord(int Number) : Text(std::to_wstring(Number)) {}
  TLogWord(long Number) : Text(std::to_wstring(Number)) {}
  TLogWord(unsigned Number) : Text(std::to_wstring(Number)) {}
  TLogWord(unsigned long Number) : Text(std::to_wstring(Number)) {}
  TLogWord(VARIANT_BOOL Boolean) : Text(std::to_wstring(Boolean)) {}
  TLogWord(bool Flag) : Text(Flag ? L"1" : L"0") {}

  std::wstring Text;
};

/// Joins words with single blanks.
template <class... TWords>
std::wstring LogText(const TLogWord& First, const TWords&... Rest) {
  std::wstring Result = First.Text;
  ((Result += L' ', Result += TLogWord(Rest).Text), ...);
  return Result;
}
