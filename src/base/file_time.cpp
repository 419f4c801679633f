#include "base/file_time.h"

#include "base/day_count.h"

double FileTimeToDateTime(const FILETIME& Time) { return DayCount(Time.dwLowDateTime, Time.dwHighDateTime); }

std::string DateTimeText(const FILETIME& Time) {
  constexpr int64_t TicksPerMillisecond = 10000;
  const FILETIME Rounded =
      FileTimeOf(static_cast<uint64_t>(MillisecondsOf(FileTimeToDateTime(Time)) * TicksPerMillisecond));
  SYSTEMTIME Parts{};
  char Date[80] = "", Clock[80] = "";
  FileTimeToSystemTime(&Rounded, &Parts);
  GetDateFormatA(LOCALE_USER_DEFAULT, DATE_SHORTDATE, &Parts, nullptr, Date, sizeof Date);
  GetTimeFormatA(LOCALE_USER_DEFAULT, 0, &Parts, nullptr, Clock, sizeof Clock);
  const bool Midnight = Parts.wHour == 0 && Parts.wMinute == 0 && Parts.wSecond == 0 && Parts.wMilliseconds == 0;
  return Midnight ? Date : std::string(Date) + " " + Clock;
}
