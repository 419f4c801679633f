#include "base/day_count.h"
#include "base/error_code.h"
#include "base/format_text.h"
#include "formats/comma_text.h"
#include "formats/garbage_lines.h"

#include <gtest/gtest.h>

namespace {

using TList = std::vector<std::string>;

TEST(CommaText, IsWrittenAndReadBackAndReadAsOthersWriteIt) {
  const std::pair<TList, std::string> Written[] = {
      {{}, ""},
      {{"Yes to all", "No", "a,b", "say \"hi\"", "a\r\nb"}, "\"Yes to all\",No,\"a,b\",\"say \"\"hi\"\"\",\"a\r\nb\""},
      {{""}, "\"\""},
      {{"", "a", "", "b", ""}, ",a,,b,"},
      {{"\xE4!\x7F\x1F"}, "\"\xE4!\x7F\x1F\""},
      {{"\xE4!"}, "\xE4!"}};
  for (const auto& [Entries, Text] : Written) {
    EXPECT_EQ(Text, MakeCommaText(Entries));
    EXPECT_EQ(Entries, ParseCommaText(Text));
  }
  EXPECT_EQ((TList{"Yes", "No", "Cancel"}), ParseCommaText("  Yes No , Cancel "));
  EXPECT_EQ((TList{"a", ""}), ParseCommaText("a, "));
  EXPECT_EQ((TList{"never closed, at all"}), ParseCommaText("\"never closed, at all"));
}

TEST(GarbageLines, EndAtEachKindOfBreakAndHaveADecimalRoot) {
  std::string_view Text = "a\rb\nc\r\n\r\nd \n\rC:\\torn";
  TList Lines;
  while (const auto Line = TakeLine(Text)) Lines.emplace_back(*Line);
  EXPECT_EQ((TList{"a", "b", "c", "", "d ", ""}), Lines);
  EXPECT_EQ("Software\\A B  c ", SplitAtBlank("21 Software\\A B  c ").Second);
  EXPECT_EQ(0xFFFFFFFFu, ParseRoot("9223372036854775807")) << "the low 32 bits";
  for (const char* Root : {"", "-", "+1", "1x", "0x1", " 1", "9223372036854775808"})
    EXPECT_EQ(std::nullopt, ParseRoot(Root)) << Root;
}

TEST(FormatText, FillsInOrderAndLeavesAloneWhatIsNoDirectiveOfItsArgument) {
  EXPECT_EQ("'a' 0 AB FFFFFFFF 10", FormatText("'%s' %x %x %x %x", {"a", 0u, 0xABu, UINT32_MAX, 16u}));
  EXPECT_EQ("'C:\\%s\\%x%' to 'b'", FormatText("'%s' to '%s'", {"C:\\%s\\%x%", "b"}));
  EXPECT_EQ("%x a 100% %d %s %", FormatText("%x %s 100% %d %s %", {"a"})) << "a text is no number";
  EXPECT_EQ("%s 7", FormatText("%s %x", {7u}));
}

TEST(ErrorCodes, BecomeTheSystemsOwnResultsAndWrapWithinTheLowerHalf) {
  EXPECT_EQ(static_cast<int32_t>(0x800401FD), MakeErrorHResult(-3));
  EXPECT_EQ(static_cast<int32_t>(0x80040000), MakeErrorHResult(0xFE00));
}

TEST(DayCounts, AreExactToTheLastBit) {
  const std::pair<uint64_t, double> Rows[] = {{0, -109205.0},
                                              {0x1BF544FBAA22000, 36526.5},  // noon of a day of 2000
                                              {0x1C6A26E50A91B80, 0x1.2ff4c39ee8dd8p+15},
                                              // Either half is unsigned.
                                              {0xFFFFFFFF, -0x1.aa94feba3801cp+16},
                                              {0xFFFFFFFF00000000, 0x1.441d693a7e430p+24}};
  for (const auto& [FileTime, Days] : Rows)
    EXPECT_EQ(Days, DayCount(static_cast<uint32_t>(FileTime), static_cast<uint32_t>(FileTime >> 32))) << FileTime;
}

}  // namespace
