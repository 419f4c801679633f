#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

/// One argument of a format pattern: a text for "%s", an unsigned number for "%x".
using TFormatArg = std::variant<std::string, uint32_t>;
using TWideFormatArg = std::variant<std::wstring, uint32_t>;

/// Fills a pattern: each "%s" and "%x" takes the next argument, "%x" as hexadecimal digits without prefix, in upper
/// case. A directive without an argument of its kind stays in the text as it is.
std::string FormatText(std::string_view Pattern, std::initializer_list<TFormatArg> Args);
std::wstring FormatText(std::wstring_view Pattern, std::initializer_list<TWideFormatArg> Args);
