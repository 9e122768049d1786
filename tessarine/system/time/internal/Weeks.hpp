#pragma once

#include <cstdint>

#include "tessarine/system/time/internal/CivilDay.hpp"
#include "tessarine/system/time/internal/DaySystem.hpp"

namespace tessarine::internal {

/// 1 for Sunday to 7 for Saturday.
constexpr int weekdayOf(std::int64_t day) noexcept { return sundayBasedWeekday(day) + 1; }

/// Where weeks begin, and how many days of a year or month make its first week.
struct WeekRule {
  int firstWeekday;
  int minimumDays;

  /// Days since the week began, 0 to 6.
  int dayInWeek(std::int64_t day) const noexcept { return (weekdayOf(day) - firstWeekday + 7) % 7; }
  /// The first day of the first week of a year or month that begins on that day.
  std::int64_t firstWeek(std::int64_t start) const noexcept {
    const int before = dayInWeek(start);
    return start - before + (7 - before < minimumDays ? 7 : 0);
  }
};

struct WeekOfYear {
  std::int64_t year;  ///< extended
  int week;
};

inline WeekOfYear weekOfYear(const DaySystem& days, const WeekRule& rule, std::int64_t day,
                             std::int64_t extendedYear) {
  std::int64_t start = rule.firstWeek(days.firstDayOfYear(extendedYear));
  if (day < start) {
    start = rule.firstWeek(days.firstDayOfYear(--extendedYear));
  } else if (day >= start + std::int64_t{51} * 7) {
    const std::int64_t next = rule.firstWeek(days.firstDayOfYear(extendedYear + 1));
    if (day >= next) return {extendedYear + 1, static_cast<int>((day - next) / 7) + 1};
  }
  return {extendedYear, static_cast<int>((day - start) / 7) + 1};
}

/// 0 for days before the month's first week.
inline int weekOfMonth(const WeekRule& rule, std::int64_t day, int dayOfMonth) {
  const std::int64_t start = day - dayOfMonth + 1;
  return static_cast<int>(floorDivide(day - rule.firstWeek(start), 7)) + 1;
}

}  // namespace tessarine::internal
