#include "base/format_text.h"

#include <gtest/gtest.h>

namespace {

TEST(FormatText, FillsTextsAndNumbersInTheirOrder) {
  EXPECT_EQ("Error: 'Access denied.\r\n' (Error code: 5).",
            FormatText("Error: '%s' (Error code: %x).", {"Access denied.\r\n", 5u}));
  EXPECT_EQ("0 AB FFFFFFFF 10", FormatText("%x %x %x %x", {0u, 0xABu, UINT32_MAX, 16u}));
}

TEST(FormatText, LeavesAloneWhatIsNoDirectiveOfItsArgument) {
  const std::string Directives = "C:\\100%s\\%x%";
  EXPECT_EQ("Cannot move file '" + Directives + "' to 'b'.",
            FormatText("Cannot move file '%s' to '%s'.", {Directives, "b"}))
      << "an argument is no pattern";
  EXPECT_EQ("a %s", FormatText("%s %s", {"a"}));
  EXPECT_EQ("%x a 100% %d %", FormatText("%x %s 100% %d %", {"a"})) << "a text is no number";
  EXPECT_EQ("%s 7", FormatText("%s %x", {7u}));
}

}  // namespace
