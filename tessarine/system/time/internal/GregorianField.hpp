#pragma once

#include <cstdint>

#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/system/time/internal/GregorianDay.hpp"
#include "tessarine/system/time/internal/LocalTime.hpp"
#include "tessarine/system/time/internal/Weeks.hpp"

namespace tessarine::internal {

/// Whether a field follows from the clock of a zone in every calendar.
constexpr bool isClockField(Calendar::Component field) noexcept {
  return field >= Calendar::Component::hour && field <= Calendar::Component::weekday;
}

/// An hour, minute, second or weekday.
inline std::int64_t clockField(const LocalTime& local, Calendar::Component field) noexcept {
  const auto second = static_cast<unsigned>(local.secondOfDay);
  if (field == Calendar::Component::hour) return second / 3600;
  if (field == Calendar::Component::minute) return second / 60 % 60;
  return field == Calendar::Component::second ? second % 60 : weekdayOf(local.day);
}

/// An era, year, month or day of the Gregorian calendar.
inline std::int64_t gregorianField(std::int64_t day, Calendar::Component field) noexcept {
  if (field == Calendar::Component::month) return gregorianFromDays(day).month;
  if (field == Calendar::Component::day) return gregorianFromDays(day).day;
  const std::int64_t year = gregorianYearFromDays(day);
  if (field == Calendar::Component::era) return year > 0 ? 1 : 0;
  return year > 0 ? year : 1 - year;
}

}  // namespace tessarine::internal
