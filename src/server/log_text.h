#pragma once

#include "base/text.h"
#include "base/windows_api.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

/// One word of a debug-log text, in the form in which the log writes its kind: texts as they are, GUIDs in registry
/// form, numbers in decimal, a VARIANT_BOOL as a signed 16-bit number (-1 or 0), a C++ bool as 1 or 0. A word only
/// refers to its text, and nothing is allocated for it before it is written.
class TLogWord {
 public:
  TLogWord(std::string_view Ansi) : Value(Ansi) {}
  TLogWord(const std::string& Ansi) : Value(std::string_view(Ansi)) {}
  TLogWord(const char* Ansi) : Value(std::string_view(Ansi)) {}
  TLogWord(std::wstring_view Wide) : Value(Wide) {}
  TLogWord(const std::wstring& Wide) : Value(std::wstring_view(Wide)) {}
  TLogWord(BSTR Wide) : Value(ViewOf(Wide)) {}
  TLogWord(const GUID& Guid) : Value(Guid) {}
  TLogWord(int Number) : Value(int64_t{Number}) {}
  TLogWord(long Number) : Value(int64_t{Number}) {}
  TLogWord(unsigned Number) : Value(int64_t{Number}) {}
  TLogWord(unsigned long Number) : Value(int64_t{Number}) {}
  TLogWord(VARIANT_BOOL Boolean) : Value(int64_t{Boolean}) {}
  TLogWord(bool Flag) : Value(int64_t{Flag}) {}

  std::wstring Text() const;

 private:
  std::variant<std::string_view, std::wstring_view, GUID, int64_t> Value;
};

/// A first word and others, joined with single blanks.
std::wstring LogText(const TLogWord& First, std::initializer_list<TLogWord> Rest);
