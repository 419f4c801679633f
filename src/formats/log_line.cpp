#include "formats/log_line.h"

namespace {

std::wstring Padded(int Number, size_t Digits) {
  std::wstring Text = std::to_wstring(Number);
  if (Text.size() < Digits) Text.insert(0, Digits - Text.size(), L'0');
  return Text;
}

}  // namespace

std::wstring LogLinePrefix(const TLogTime& Time, int32_t Id) {
  return Padded(Time.Year, 4) + L'.' + Padded(Time.Month, 2) + L'.' + Padded(Time.Day, 2) + L' ' +
         Padded(Time.Hour, 2) + L':' + Padded(Time.Minute, 2) + L':' + Padded(Time.Second, 2) + L' ' +
         std::to_wstring(Id) + L' ';
}

std::string FinishLogLine(std::string_view Line) {
  std::string Result;
  for (size_t At = 0; At < Line.size(); ++At) {
    if (Line.substr(At, 2) == "\r\n") {
      Result += "<#NL>";
      ++At;
    } else {
      Result += Line[At];
    }
  }
  return Result + "\r\n";
}
