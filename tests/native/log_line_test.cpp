#include "formats/log_line.h"

#include <gtest/gtest.h>

namespace {

TEST(LogLine, BeginsWithTimeAndCallId) {
  EXPECT_EQ(L"2024.03.05 14:07:31 17 ", LogLinePrefix({2024, 3, 5, 14, 7, 31}, 17));
  EXPECT_EQ(L"0101.11.10 23:59:59 2147483647 ", LogLinePrefix({101, 11, 10, 23, 59, 59}, INT32_MAX));
  EXPECT_EQ(L"2024.03.05 14:07:31 -2147483648 ", LogLinePrefix({2024, 3, 5, 14, 7, 31}, INT32_MIN));
}

TEST(LogLine, IsOnePhysicalLine) {
  const std::pair<std::string, std::string> Rows[] = {
      {"", "\r\n"},
      {"a\r\nb", "a<#NL>b\r\n"},
      {"\n\r\na\r\r\n\n", "\n<#NL>a\r<#NL>\n\r\n"},
      {std::string("a\0\xFF", 3), std::string("a\0\xFF\r\n", 5)},
  };
  for (const auto& [Text, Line] : Rows) EXPECT_EQ(Line, FinishLogLine(Text));
}

}  // namespace
