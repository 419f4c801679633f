#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The local date and time of one line.
struct TLogTime {
  int Year, Month, Day, Hour, Minute, Second;
};

/// What comes before the caller's words: "yyyy.mm.dd hh:nn:ss" and the call id in decimal, each with a blank behind it.
std::wstring LogLinePrefix(const TLogTime& Time, int32_t Id);

/// The line as it stands in the file, from its text in the file's code page: each CR LF inside becomes "<#NL>", so that
/// one call gives one physical line, and a CR LF ends it. A lone CR or LF stays.
std::string FinishLogLine(std::string_view Line);

/// One line, as it was written; the texts lie in the bytes that were read.
struct TLogLine {
  TLogTime Time;
  int32_t Id;
  std::string_view Name, Action, Text;
};

/// Reads a line, without the CR LF at its end. Total: nothing for bytes that the system does not write. A blank that a
/// caller put into his name or action parts the fields earlier.
std::optional<TLogLine> ParseLogLine(std::string_view Line);

/// A text of a line with its line breaks: an LF for each "<#NL>".
std::string WithLineBreaks(std::string_view Text);
