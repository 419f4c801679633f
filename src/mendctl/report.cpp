#include "mendctl/report.h"

#include <array>
#include <chrono>
#include <cstdio>

std::string Counted(uint64_t Number, const std::string& Thing) {
  if (Number == 1) return "1 " + Thing;
  const bool Ies = Thing.ends_with("y") && !Thing.ends_with("ey");
  return std::to_string(Number) + " " + (Ies ? Thing.substr(0, Thing.size() - 1) + "ies" : Thing + "s");
}

std::string SizeText(uint64_t Bytes) {
  constexpr uint64_t Step = 1024;
  if (Bytes < Step) return Counted(Bytes, "byte");
  constexpr std::array Units = {"KB", "MB", "GB", "TB"};
  size_t Unit = 0;
  double Size = static_cast<double>(Bytes) / Step;
  for (; Size >= Step && Unit + 1 < Units.size(); ++Unit) Size /= Step;
  std::array<char, 32> Text{};
  std::snprintf(Text.data(), Text.size(), "%.1f %s", Size, Units[Unit]);
  return Text.data();
}

std::string TimeText(uint64_t FileTime) {
  using namespace std::chrono;
  if (FileTime == 0) return "-";
  constexpr uint64_t TicksPerSecond = 10000000, LastSecond = 253402300799 + 11644473600;  // the end of the year 9999
  const uint64_t Seconds = std::min(FileTime / TicksPerSecond, LastSecond);
  const sys_seconds Time{seconds(static_cast<int64_t>(Seconds) - 11644473600)};
  const auto Day = floor<days>(Time);
  const year_month_day Date(Day);
  const hh_mm_ss Clock(Time - Day);
  std::array<char, 64> Text{};
  std::snprintf(Text.data(), Text.size(), "%04d-%02u-%02u %02d:%02d:%02d UTC", static_cast<int>(Date.year()),
                static_cast<unsigned>(Date.month()), static_cast<unsigned>(Date.day()),
                static_cast<int>(Clock.hours().count()), static_cast<int>(Clock.minutes().count()),
                static_cast<int>(Clock.seconds().count()));
  return Text.data();
}

std::string AttributesText(uint32_t Attributes) {
  constexpr std::pair<uint32_t, const char*> Names[] = {
      {0x1, "read-only"}, {0x2, "hidden"}, {0x4, "system"}, {0x20, "archive"}};
  std::string Text;
  for (const auto& [Bit, Name] : Names)
    if (Attributes & Bit) Text += (Text.empty() ? "" : ", ") + std::string(Name);
  return Text.empty() ? "none" : Text;
}

std::string TypeText(uint32_t Type) {
  constexpr std::array Names = {"REG_NONE",
                                "REG_SZ",
                                "REG_EXPAND_SZ",
                                "REG_BINARY",
                                "REG_DWORD",
                                "REG_DWORD_BIG_ENDIAN",
                                "REG_LINK",
                                "REG_MULTI_SZ",
                                "REG_RESOURCE_LIST",
                                "REG_FULL_RESOURCE_DESCRIPTOR",
                                "REG_RESOURCE_REQUIREMENTS_LIST",
                                "REG_QWORD"};
  return Type < Names.size() ? Names[Type] : "type " + std::to_string(Type);
}

std::string HexText(std::string_view Bytes, const char* Between) {
  constexpr char Digits[] = "0123456789abcdef";
  std::string Text;
  for (const char Byte : Bytes) {
    if (!Text.empty()) Text += Between;
    Text += Digits[(Byte >> 4) & 0xF];
    Text += Digits[Byte & 0xF];
  }
  return Text;
}

std::string InColumn(std::string Text, size_t Width) {
  // A character of UTF-8 has one byte that continues none.
  size_t Characters = 0;
  for (const char Byte : Text) Characters += (Byte & 0xC0) != 0x80;
  if (Characters < Width) Text.append(Width - Characters, ' ');
  return Text;
}

std::string Indented(const std::string& Lines, size_t Blanks) {
  std::string Text;
  for (size_t At = 0; At < Lines.size();) {
    const size_t End = std::min(Lines.find('\n', At), Lines.size() - 1) + 1;
    Text += std::string(Blanks, ' ') + Lines.substr(At, End - At);
    At = End;
  }
  return Text;
}
