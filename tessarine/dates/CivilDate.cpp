#include "tessarine/dates/CivilDate.hpp"

#include <algorithm>

#include "tessarine/system/time/internal/CivilDay.hpp"
#include "tessarine/system/time/internal/LocalTime.hpp"

namespace tessarine {
namespace {

constexpr std::int64_t greatestYear = 2'000'000;
constexpr std::int64_t firstDay = internal::daysFromCivil({-greatestYear, 1, 1});
constexpr std::int64_t lastDay = internal::daysFromCivil({greatestYear, 12, 31});
constexpr std::int64_t greatestMonths = (2 * greatestYear + 1) * 12;

CivilDate nearest(const CivilDate& date) {
  const std::int64_t year = std::clamp(date.year, -greatestYear, greatestYear);
  const int month = std::clamp(date.month, 1, 12);
  return {year, month, std::clamp(date.day, 1, internal::daysInMonth(year, month))};
}

CivilDate fromMonths(std::int64_t monthsSinceYear0, int day) {
  const std::int64_t months =
      std::clamp(monthsSinceYear0, -greatestYear * 12, greatestYear * 12 + 11);
  if (months != monthsSinceYear0) return civilDate(months < 0 ? firstDay : lastDay);
  const std::int64_t year = internal::floorDivide(months, 12);
  const int month = static_cast<int>(months - year * 12) + 1;
  return {year, month, std::min(day, internal::daysInMonth(year, month))};
}

}  // namespace

bool isValid(const CivilDate& date) noexcept { return nearest(date) == date; }

bool isLeapYear(std::int64_t year) noexcept { return internal::isLeapYear(year); }

int daysInMonth(std::int64_t year, int month) noexcept {
  return internal::daysInMonth(year, std::clamp(month, 1, 12));
}

std::int64_t dayNumber(const CivilDate& date) noexcept {
  const CivilDate day = nearest(date);
  return internal::daysFromCivil({day.year, day.month, day.day});
}

CivilDate civilDate(std::int64_t dayNumber) noexcept {
  const internal::CivilDay day = internal::civilFromDays(std::clamp(dayNumber, firstDay, lastDay));
  return {day.year, day.month, day.day};
}

CivilDate civilDate(Date date, TimeZone zone) noexcept {
  return civilDate(internal::LocalTime(zone.rules(), internal::Instant(date)).day);
}

Date startOfDay(const CivilDate& date, TimeZone zone) noexcept {
  const std::int64_t number = dayNumber(date);
  const Date midnight = Date::since1970(static_cast<double>(number) * internal::secondsADay);
  return internal::dateOfLocalDay(zone.rules(), number).value_or(midnight);
}

CivilDate addingDays(const CivilDate& date, std::int64_t days) noexcept {
  constexpr std::int64_t greatest = lastDay - firstDay;
  return civilDate(dayNumber(date) + std::clamp(days, -greatest, greatest));
}

CivilDate addingMonths(const CivilDate& date, std::int64_t months) noexcept {
  const CivilDate day = nearest(date);
  return fromMonths(
      day.year * 12 + day.month - 1 + std::clamp(months, -greatestMonths, greatestMonths), day.day);
}

CivilDate addingYears(const CivilDate& date, std::int64_t years) noexcept {
  return addingMonths(date, std::clamp(years, -greatestMonths / 12, greatestMonths / 12) * 12);
}

std::int64_t daysBetween(const CivilDate& from, const CivilDate& to) noexcept {
  return dayNumber(to) - dayNumber(from);
}

CivilDifference difference(const CivilDate& from, const CivilDate& to) noexcept {
  const CivilDate start = nearest(from);
  const CivilDate end = nearest(to);
  const int sign = end < start ? -1 : 1;
  std::int64_t months = (end.year - start.year) * 12 + end.month - start.month;
  const CivilDate reached = addingMonths(start, months);
  if (sign > 0 ? reached > end : reached < end) months -= sign;
  return {months / 12, static_cast<int>(months % 12),
          static_cast<int>(daysBetween(addingMonths(start, months), end))};
}

int weekday(const CivilDate& date) noexcept {
  return internal::sundayBasedWeekday(dayNumber(date)) + 1;
}

int dayOfYear(const CivilDate& date) noexcept {
  return static_cast<int>(daysBetween({date.year, 1, 1}, date)) + 1;
}

ISOWeekDate isoWeekDate(const CivilDate& date) noexcept {
  const internal::IsoWeek week(dayNumber(date));
  return {week.year, week.week, week.weekday};
}

std::optional<CivilDate> civilDate(const ISOWeekDate& week) noexcept {
  if (week.week < 1 || week.week > 53 || week.weekday < 1 || week.weekday > 7 ||
      week.year < -greatestYear || week.year > greatestYear) {
    return std::nullopt;
  }
  const std::int64_t day =
      internal::firstMondayOfWeekYear(week.year) + std::int64_t{week.week - 1} * 7;
  if (day >= internal::firstMondayOfWeekYear(week.year + 1)) return std::nullopt;
  return civilDate(day + week.weekday - 1);
}

}  // namespace tessarine
