#include "server/day_count.h"
#include "server/error_code.h"

#include <gtest/gtest.h>

namespace {

TEST(Environment, ErrorCodesBecomeTheSystemsOwnResults) {
  const auto Result = [](int32_t Code) { return static_cast<uint32_t>(MakeErrorHResult(Code)); };
  EXPECT_EQ(0x80040200u, Result(0));
  EXPECT_EQ(0x80040220u, Result(32));
  EXPECT_EQ(0x800401FDu, Result(-3));
  EXPECT_EQ(0x8004FFFFu, Result(0xFDFF));
  EXPECT_EQ(0x80040000u, Result(0xFE00));  // wraps within the lower half
  EXPECT_EQ(0x800403FFu, Result(static_cast<int32_t>(0x800401FF)));
  EXPECT_EQ(0x800401FFu, Result(0x7FFFFFFF));  // no signed overflow on the way
}

struct TRow {
  const char* Name;
  uint64_t FileTime;
  double Days;
};

void PrintTo(const TRow& Row, std::ostream* Out) { *Out << Row.Name; }

class DayCountOf : public testing::TestWithParam<TRow> {};

TEST_P(DayCountOf, IsExactToTheLastBit) {
  const TRow& Row = GetParam();
  EXPECT_EQ(Row.Days, DayCount(static_cast<uint32_t>(Row.FileTime), static_cast<uint32_t>(Row.FileTime >> 32)));
}

INSTANTIATE_TEST_SUITE_P(Rows, DayCountOf,
                         testing::Values(TRow{"first_tick", 0, -109205.0}, TRow{"second_day", 0xC92A69C000, -109204.0},
                                         TRow{"day_zero", 0x14F35A9A90CC000, 0.0},
                                         TRow{"noon_of_2000", 0x1BF544FBAA22000, 36526.5},
                                         TRow{"with_a_fraction", 0x1C6A26E50A91B80, 0x1.2ff4c39ee8dd8p+15},
                                         TRow{"low_half_is_unsigned", 0xFFFFFFFF, -0x1.aa94feba3801cp+16},
                                         TRow{"high_half_is_unsigned", 0xFFFFFFFF00000000, 0x1.441d693a7e430p+24},
                                         TRow{"last_time", 0x7FFFFFFFFFFFFFFF, 0x1.4272d43bc40b0p+23}),
                         [](const auto& Info) { return std::string(Info.param.Name); });

}  // namespace
