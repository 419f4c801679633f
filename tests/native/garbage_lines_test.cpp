#include "formats/garbage_lines.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using TLines = std::vector<std::string>;

TLines LinesOf(std::string_view Text) {
  TLines Result;
  while (const auto Line = TakeLine(Text)) Result.emplace_back(*Line);
  return Result;
}

TEST(GarbageLines, EndAtEachKindOfBreak) {
  EXPECT_EQ(TLines(), LinesOf(""));
  EXPECT_EQ((TLines{"a", "b", "c", "d"}), LinesOf("a\rb\nc\r\nd\n"));
  EXPECT_EQ((TLines{"a"}), LinesOf("a\nC:\\Folder of a path that goes on")) << "torn";
  EXPECT_EQ((TLines{"a", "", "b", ""}), LinesOf("a\r\n\r\nb\n\r"));
  EXPECT_EQ((TLines{"", "a "}), LinesOf("\na \r"));
}

TEST(GarbageLines, HaveARootThatIsADecimalNumber) {
  const auto Parts = SplitAtBlank("2147483649 Software\\A B  c ");
  EXPECT_EQ("2147483649", Parts.First);
  EXPECT_EQ("Software\\A B  c ", Parts.Second);
  EXPECT_EQ("", SplitAtBlank("alone").Second);
  EXPECT_EQ("", SplitAtBlank(" x").First);
  EXPECT_EQ(0x80000001u, ParseRoot("2147483649"));
  EXPECT_EQ(0x80000001u, ParseRoot("-2147483647"));
  EXPECT_EQ(0x80000001u, ParseRoot("6442450945")) << "the low 32 bits";
  EXPECT_EQ(7u, ParseRoot("007"));
  EXPECT_EQ(0xFFFFFFFFu, ParseRoot("9223372036854775807"));
  for (const char* Text : {"", "-", "+1", "1x", "0x1", " 1", "1.0", "9223372036854775808", "HKCU"})
    EXPECT_EQ(std::nullopt, ParseRoot(Text)) << Text;
}

}  // namespace
