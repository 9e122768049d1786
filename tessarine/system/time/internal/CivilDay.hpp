#pragma once

#include <cstdint>

namespace tessarine::internal {

/// A day of the Gregorian calendar, extended to all years; year 0 is the year before year 1.
struct CivilDay {
  std::int64_t year;
  int month;  // 1 to 12
  int day;    // 1 to 31
};

// Howard Hinnant, "chrono-compatible low-level date algorithms": years begin in March, so that the
// leap day comes last, and 400 years have 146 097 days.

/// Days since 1970-01-01, which may be negative.
constexpr std::int64_t daysFromCivil(CivilDay date) noexcept {
  const std::int64_t year = date.year - (date.month <= 2 ? 1 : 0);
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const auto yearOfEra = static_cast<int>(year - era * 400);                     // 0 to 399
  const int dayOfYear = (153 * ((date.month + 9) % 12) + 2) / 5 + date.day - 1;  // 0 to 365
  const int dayOfEra =
      yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;  // 0 to 146096
  return era * 146097 + dayOfEra - 719468;
}

constexpr CivilDay civilFromDays(std::int64_t days) noexcept {
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const auto dayOfEra = static_cast<int>(days - era * 146097);
  const int yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int monthFromMarch = (5 * dayOfYear + 2) / 153;  // 0 to 11
  const int month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
  return {era * 400 + yearOfEra + (month <= 2 ? 1 : 0), month,
          dayOfYear - (153 * monthFromMarch + 2) / 5 + 1};
}

/// 0 for Sunday to 6 for Saturday.
constexpr int sundayBasedWeekday(std::int64_t daysSince1970) noexcept {
  return static_cast<int>(((daysSince1970 + 4) % 7 + 7) % 7);
}

/// Quotients and remainders that round towards the past: what is left is never negative.
constexpr std::int64_t floorDivide(std::int64_t value, std::int64_t divisor) noexcept {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}
constexpr std::int64_t floorModulo(std::int64_t value, std::int64_t divisor) noexcept {
  const std::int64_t rest = value % divisor;
  return rest < 0 ? rest + divisor : rest;
}

/// Days since Monday, 0 to 6.
constexpr int daysSinceMonday(std::int64_t daysSince1970) noexcept {
  return (sundayBasedWeekday(daysSince1970) + 6) % 7;
}
/// The day on which the first week of a year of ISO 8601 weeks begins, that of 4 January.
constexpr std::int64_t firstMondayOfWeekYear(std::int64_t year) noexcept {
  const std::int64_t january4 = daysFromCivil({year, 1, 4});
  return january4 - daysSinceMonday(january4);
}

/// A day by its week of ISO 8601.
struct IsoWeek {
  std::int64_t year;
  int week;     // 1 to 53
  int weekday;  // 1 for Monday to 7

  explicit constexpr IsoWeek(std::int64_t daysSince1970) noexcept
      : year(civilFromDays(daysSince1970 - daysSinceMonday(daysSince1970) + 3).year),  // Thursday's
        week(static_cast<int>((daysSince1970 - firstMondayOfWeekYear(year)) / 7) + 1),
        weekday(daysSinceMonday(daysSince1970) + 1) {}
};

constexpr bool isLeapYear(std::int64_t year) noexcept {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

constexpr int daysInMonth(std::int64_t year, int month) noexcept {
  if (month == 2) return isLeapYear(year) ? 29 : 28;
  return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

}  // namespace tessarine::internal
