#pragma once

#include <cstdint>
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
