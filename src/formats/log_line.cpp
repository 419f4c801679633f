#include "formats/log_line.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr std::string_view LineBreak = "<#NL>";

std::wstring Padded(int Number, size_t Digits) {
  std::wstring Text = std::to_wstring(Number);
  if (Text.size() < Digits) Text.insert(0, Digits - Text.size(), L'0');
  return Text;
}

/// A number of exactly as many digits; -1 for anything else.
int Digits(std::string_view Field) {
  int Number = 0;
  for (const char Digit : Field) {
    if (Digit < '0' || Digit > '9') return -1;
    Number = 10 * Number + (Digit - '0');
  }
  return Number;
}

bool IsTime(const TLogTime& Time) {
  return Time.Year >= 0 && Time.Month >= 1 && Time.Month <= 12 && Time.Day >= 1 && Time.Day <= 31 && Time.Hour >= 0 &&
         Time.Hour < 24 && Time.Minute >= 0 && Time.Minute < 60 && Time.Second >= 0 && Time.Second < 60;
}

/// Takes a field and the blank behind it off the front; false when there is no blank.
bool TakeField(std::string_view& Line, std::string_view& Field) {
  const size_t Blank = Line.find(' ');
  if (Blank == std::string_view::npos) return false;
  Field = Line.substr(0, Blank);
  Line.remove_prefix(Blank + 1);
  return true;
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
      Result += LineBreak;
      ++At;
    } else {
      Result += Line[At];
    }
  }
  return Result + "\r\n";
}

std::optional<TLogLine> ParseLogLine(std::string_view Line) {
  constexpr std::string_view Shape = "0000.00.00 00:00:00 ";
  if (Line.size() < Shape.size()) return std::nullopt;
  for (size_t At = 0; At < Shape.size(); ++At)
    if (Shape[At] != '0' && Line[At] != Shape[At]) return std::nullopt;
  const auto Part = [&](size_t At, size_t Size) { return Digits(Line.substr(At, Size)); };
  TLogLine Result{{Part(0, 4), Part(5, 2), Part(8, 2), Part(11, 2), Part(14, 2), Part(17, 2)}, 0, {}, {}, {}};
  if (!IsTime(Result.Time)) return std::nullopt;
  Line.remove_prefix(Shape.size());
  std::string_view Id;
  if (!TakeField(Line, Id) || !TakeField(Line, Result.Name) || !TakeField(Line, Result.Action)) return std::nullopt;
  const auto Parsed = std::from_chars(Id.data(), Id.data() + Id.size(), Result.Id);
  if (Parsed.ec != std::errc() || Parsed.ptr != Id.data() + Id.size()) return std::nullopt;
  Result.Text = Line;
  return Result;
}

std::string WithLineBreaks(std::string_view Text) {
  std::string Result;
  for (size_t At = 0; At <= Text.size();) {
    const size_t End = std::min(Text.find(LineBreak, At), Text.size());
    Result.append(Text.substr(At, End - At));
    if (End == Text.size()) break;
    Result += '\n';
    At = End + LineBreak.size();
  }
  return Result;
}
