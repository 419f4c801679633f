#pragma once

#include "base/windows_api.h"

#include <cstdint>
#include <string>

/// A FILETIME as one number, in ticks of 100 ns since 1601, and back.
inline uint64_t TicksOf(const FILETIME& Time) {
  return static_cast<uint64_t>(Time.dwHighDateTime) << 32 | Time.dwLowDateTime;
}
inline FILETIME FileTimeOf(uint64_t Ticks) { return {static_cast<DWORD>(Ticks), static_cast<DWORD>(Ticks >> 32)}; }

/// A time as a day count; see DayCount.
double FileTimeToDateTime(const FILETIME& Time);

/// A time (UTC, as stored) in the user's short-date and long-time format; the time part is left out at midnight.
std::string DateTimeText(const FILETIME& Time);
