#pragma once

#include <compare>
#include <cstdint>
#include <optional>

#include "tessarine/export.hpp"
#include "tessarine/system/time/TimeZone.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

/// A day of the Gregorian calendar without time or zone, such as a birthday. The calendar goes on
/// before its introduction, with a year 0, as ISO 8601 has it. The functions here are pure,
/// allocate nothing and take any thread; years count from -2,000,000 to 2,000,000, and amounts that
/// lead further give the last day that way.
struct CivilDate {
  std::int64_t year = 1970;
  int month = 1;  ///< 1 to 12
  int day = 1;    ///< 1 to 31

  constexpr auto operator<=>(const CivilDate&) const = default;
};

/// A day by its week of ISO 8601.
struct ISOWeekDate {
  std::int64_t year = 1970;
  int week = 1;     ///< 1 to 53
  int weekday = 1;  ///< 1 for Monday to 7

  constexpr auto operator<=>(const ISOWeekDate&) const = default;
};

/// From one day to another: the years, then the months, then the days that do not lead past it. All
/// negative or 0 when it is earlier.
struct CivilDifference {
  std::int64_t years = 0;
  int months = 0;
  int days = 0;

  constexpr bool operator==(const CivilDifference&) const = default;
};

/// Whether there is that day. The functions below take a day that there is not as the nearest in
/// its month or year.
TESSARINE_EXPORT bool isValid(const CivilDate& date) noexcept;
TESSARINE_EXPORT bool isLeapYear(std::int64_t year) noexcept;
/// Of months outside 1 to 12 those of the nearest.
TESSARINE_EXPORT int daysInMonth(std::int64_t year, int month) noexcept;

/// Days since 1970-01-01.
TESSARINE_EXPORT std::int64_t dayNumber(const CivilDate& date) noexcept;
TESSARINE_EXPORT CivilDate civilDate(std::int64_t dayNumber) noexcept;
/// The day on which clocks of the zone are at that instant.
TESSARINE_EXPORT CivilDate civilDate(Date date, TimeZone zone) noexcept;
/// The first instant of the day in the zone.
TESSARINE_EXPORT Date startOfDay(const CivilDate& date, TimeZone zone) noexcept;

TESSARINE_EXPORT CivilDate addingDays(const CivilDate& date, std::int64_t days) noexcept;
/// The day is clamped to the month, here and with years.
TESSARINE_EXPORT CivilDate addingMonths(const CivilDate& date, std::int64_t months) noexcept;
TESSARINE_EXPORT CivilDate addingYears(const CivilDate& date, std::int64_t years) noexcept;
TESSARINE_EXPORT std::int64_t daysBetween(const CivilDate& from, const CivilDate& to) noexcept;
TESSARINE_EXPORT CivilDifference difference(const CivilDate& from, const CivilDate& to) noexcept;

/// 1 for Sunday to 7 for Saturday.
TESSARINE_EXPORT int weekday(const CivilDate& date) noexcept;
/// 1 to 366.
TESSARINE_EXPORT int dayOfYear(const CivilDate& date) noexcept;
TESSARINE_EXPORT ISOWeekDate isoWeekDate(const CivilDate& date) noexcept;
/// Absent when the year has no such week, as for week 53 of most, or the week no such day.
TESSARINE_EXPORT std::optional<CivilDate> civilDate(const ISOWeekDate& week) noexcept;

}  // namespace tessarine
