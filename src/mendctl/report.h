#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

/// What a command found: for programs, and for people. The statuses are those of the console.
using TJson = nlohmann::ordered_json;
enum TStatus { Fine = 0, FoundSomething = 1, WrongUse = 2, CannotRead = 3 };
struct TReport {  // NOLINT(bugprone-exception-escape): moving a JSON value throws nothing, but does not say so
  TJson Data;
  std::string Text;
  int Status = Fine;
};

/// Colours, where somebody sees them.
class TPaint {
 public:
  explicit TPaint(bool On) : On(On) {}
  std::string Good(std::string_view Text) const { return Painted("32", Text); }
  std::string Bad(std::string_view Text) const { return Painted("1;31", Text); }
  std::string Strong(std::string_view Text) const { return Painted("1", Text); }
  std::string Weak(std::string_view Text) const { return Painted("2", Text); }

 private:
  std::string Painted(const char* Code, std::string_view Text) const {
    return On ? "\x1b[" + std::string(Code) + "m" + std::string(Text) + "\x1b[0m" : std::string(Text);
  }
  bool On;
};

/// "1 file", "2 files".
std::string Counted(uint64_t Number, const std::string& Thing);
/// "36 bytes", "1.2 MB".
std::string SizeText(uint64_t Bytes);
/// A FILETIME as "2024-03-05 14:07:31 UTC"; "-" for 0.
std::string TimeText(uint64_t FileTime);
/// "read-only, hidden"; "none".
std::string AttributesText(uint32_t Attributes);
/// "REG_SZ", or the number.
std::string TypeText(uint32_t Type);
/// Two hexadecimal digits for each byte, parted by `Between`.
std::string HexText(std::string_view Bytes, const char* Between = "");
/// The text in a column.
std::string InColumn(std::string Text, size_t Width);
/// The lines with blanks in front of each.
std::string Indented(const std::string& Lines, size_t Blanks);
