#include "base/day_count.h"
#include "base/error_code.h"

#include <gtest/gtest.h>

namespace {

TEST(Environment, ErrorCodesBecomeTheSystemsOwnResults) {
  const auto Result = [](int32_t Code) { return static_cast<uint32_t>(MakeErrorHResult(Code)); };
  EXPECT_EQ(0x80040220u, Result(32));
  EXPECT_EQ(0x800401FDu, Result(-3));
  EXPECT_EQ(0x80040000u, Result(0xFE00));  // wraps within the lower half
  EXPECT_EQ(0x800403FFu, Result(static_cast<int32_t>(0x800401FF)));
  EXPECT_EQ(0x800401FFu, Result(0x7FFFFFFF));  // no signed overflow on the way
}

TEST(Environment, DayCountsAreExactToTheLastBit) {
  const std::pair<uint64_t, double> Rows[] = {{0, -109205.0},
                                              {0x14F35A9A90CC000, 0.0},
                                              {0x1BF544FBAA22000, 36526.5},  // noon of a day of 2000
                                              {0x1C6A26E50A91B80, 0x1.2ff4c39ee8dd8p+15},
                                              // Either half is unsigned.
                                              {0xFFFFFFFF, -0x1.aa94feba3801cp+16},
                                              {0xFFFFFFFF00000000, 0x1.441d693a7e430p+24}};
  for (const auto& [FileTime, Days] : Rows)
    EXPECT_EQ(Days, DayCount(static_cast<uint32_t>(FileTime), static_cast<uint32_t>(FileTime >> 32))) << FileTime;
}

}  // namespace
