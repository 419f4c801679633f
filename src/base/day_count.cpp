#include "base/day_count.h"

#include <cmath>

namespace {
constexpr long double TicksPerDay = 864000000000.0L;
constexpr int DaysTo1899 = 109205;
constexpr long double MillisecondsPerDay = 86400000.0L;
}  // namespace

double DayCount(uint32_t Low, uint32_t High) {
  return static_cast<double>(Low / TicksPerDay + High * 65536.0L * 65536.0L / TicksPerDay - DaysTo1899);
}

int64_t MillisecondsOf(double DayCount) {
  const long double Milliseconds = (DayCount + static_cast<long double>(DaysTo1899)) * MillisecondsPerDay;
  return Milliseconds < 0 ? 0 : std::llround(Milliseconds);
}
