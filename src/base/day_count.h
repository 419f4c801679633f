#pragma once

#include <cstdint>

/// A FILETIME, given by its halves, as a day count from 1899-12-30 whose fraction is the time of day: the form in which
/// dates are compared and shown. One day has 864,000,000,000 ticks of 100 ns; 109,205 days lie between 1601-01-01 and
/// 1899-12-30. Computed in extended precision, rounded to 64 bits.
double DayCount(uint32_t Low, uint32_t High);

/// A day count in milliseconds since 1601-01-01, rounded; never below 0.
int64_t MillisecondsOf(double DayCount);
