#pragma once

#include <algorithm>
#include <cstdint>

#include "tessarine/system/time/internal/CivilDay.hpp"

// Days as Europe counted them: by the Julian calendar up to Thursday 4 October 1582, by the
// Gregorian from the day after, Friday 15 October. Year 0 is 1 before Christ.
namespace tessarine::internal {

/// 15 October 1582, in days since 1970.
constexpr std::int64_t firstGregorianDay = daysFromCivil({1582, 10, 15});
static_assert(firstGregorianDay == -141427);

constexpr std::int64_t daysFromJulian(CivilDay date) noexcept {
  const std::int64_t year = date.year - (date.month <= 2 ? 1 : 0);
  const std::int64_t dayOfYear = (153 * ((date.month + 9) % 12) + 2) / 5 + date.day - 1;
  return year * 365 + floorDivide(year, 4) + dayOfYear - 719470;
}

constexpr CivilDay julianFromDays(std::int64_t days) noexcept {
  days += 719470;
  const std::int64_t fourYears = floorDivide(days, 1461);
  const auto dayOfFour = static_cast<int>(days - fourYears * 1461);
  const int yearOfFour = (dayOfFour - dayOfFour / 1460) / 365;
  const int dayOfYear = dayOfFour - yearOfFour * 365;
  const int monthFromMarch = (5 * dayOfYear + 2) / 153;
  const int month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
  return {fourYears * 4 + yearOfFour + (month <= 2 ? 1 : 0), month,
          dayOfYear - (153 * monthFromMarch + 2) / 5 + 1};
}

/// Cassio Neri and Lorenz Schneider, "Euclidean affine functions and their application to calendar
/// algorithms" (2022): divisions become multiplications, all in 32 bits. For days from year 0 to
/// 2.9 million.
constexpr CivilDay civilFromRecentDays(std::int64_t days) noexcept {
  const auto n1 = 4 * static_cast<std::uint32_t>(days + 719468) + 3;
  const std::uint32_t century = n1 / 146097;
  const std::uint32_t n2 = 4 * (n1 % 146097 / 4) + 3;
  const std::uint64_t product = std::uint64_t{2939745} * n2;
  const auto yearOfCentury = static_cast<std::uint32_t>(product >> 32U);
  const std::uint32_t dayOfYear = static_cast<std::uint32_t>(product) / 2939745 / 4;  // from March
  const std::uint32_t n3 = 2141 * dayOfYear + 197913;
  // January and February, in numbers instead of a branch that nobody can foresee.
  const std::uint32_t nextYears = dayOfYear >= 306 ? 1 : 0;
  return {static_cast<std::int64_t>(100 * century + yearOfCentury + nextYears),
          static_cast<int>((n3 >> 16U) - 12 * nextYears),
          static_cast<int>((n3 & 0xFFFFU) / 2141) + 1};
}

/// The year alone. Counted from 1 January of a year 0 that is a leap year, years of the Julian
/// calendar are 4 * days / 1461, rounded down, centuries of the Gregorian 4 * days / 146097; each
/// century but every fourth has left out one of the Julian calendar's days.
constexpr std::int64_t yearFromRecentDays(std::int64_t days) noexcept {
  const auto quarters = 4 * static_cast<std::uint32_t>(days + 719528);
  const std::uint32_t centuries = quarters / 146097;
  return (quarters + 4 * (centuries - centuries / 4)) / 1461;
}

constexpr CivilDay gregorianFromDays(std::int64_t days) noexcept {
  if (days >= firstGregorianDay) [[likely]]
    return civilFromRecentDays(days);
  return julianFromDays(days);
}

constexpr std::int64_t gregorianYearFromDays(std::int64_t days) noexcept {
  if (days >= firstGregorianDay) [[likely]]
    return yearFromRecentDays(days);
  return julianFromDays(days).year;
}

/// The way back, for years from 1 to 2.9 million.
constexpr std::int64_t daysFromRecentCivil(CivilDay date) noexcept {
  const std::uint32_t early = date.month <= 2 ? 1 : 0;
  const auto year = static_cast<std::uint32_t>(date.year) - early;
  const auto month = static_cast<std::uint32_t>(date.month) + 12 * early;
  const std::uint32_t century = year / 100;
  const std::uint32_t yearDays =
      static_cast<std::uint32_t>(std::uint64_t{1461} * year / 4) - century + century / 4;
  const std::uint32_t monthDays = (979 * month - 2919) / 32;
  return static_cast<std::int64_t>(yearDays + monthDays) + date.day - 1 - 719468;
}

/// Of the days that were left out, 5 to 14 October 1582, those that the Julian calendar had.
constexpr std::int64_t daysFromGregorian(CivilDay date) noexcept {
  if (date.year >= 1582 && date.year <= 2'900'000) [[likely]] {
    const std::int64_t days = daysFromRecentCivil(date);
    return days >= firstGregorianDay ? days : daysFromJulian(date);
  }
  return date.year < 1582 ? daysFromJulian(date) : daysFromCivil(date);
}

constexpr int gregorianDaysInMonth(std::int64_t year, int month) noexcept {
  if (year < 1582 && month == 2) return year % 4 == 0 ? 29 : 28;
  return daysInMonth(year, month);
}

/// A day by the months from year 0 to its own, at most the last of its month.
constexpr std::int64_t gregorianDayInMonth(std::int64_t monthsSinceYear0, int day) noexcept {
  const std::int64_t year = floorDivide(monthsSinceYear0, 12);
  const int month = static_cast<int>(monthsSinceYear0 - year * 12) + 1;
  if (day > 28) day = std::min(day, gregorianDaysInMonth(year, month));
  return daysFromGregorian({year, month, day});
}

constexpr std::int64_t gregorianDayPlusMonths(std::int64_t day, std::int64_t count) noexcept {
  const CivilDay date = gregorianFromDays(day);
  return gregorianDayInMonth(date.year * 12 + date.month - 1 + count, date.day);
}

constexpr int gregorianDayOfYear(std::int64_t day, const CivilDay& date) noexcept {
  return static_cast<int>(day - daysFromGregorian({date.year, 1, 1})) + 1;
}

}  // namespace tessarine::internal
