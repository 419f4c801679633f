#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The text form of a list: entries joined by commas. An entry with a character of code 32 or below, a comma or a
/// double quote is enclosed in double quotes, with each double quote inside it doubled. An empty entry is written as
/// a pair of double quotes where nothing else would show that it is there (alone, or at the end).
std::string MakeCommaText(const std::vector<std::string>& Entries);

/// Splits a comma text. Outside quotes a character of code 32 or below separates entries like a comma does, and a run
/// of them around a comma counts as that comma. A quote that is not closed reaches to the end of the text.
/// Reads back exactly what MakeCommaText wrote; any other text gives some list, never a failure.
std::vector<std::string> ParseCommaText(std::string_view Text);
