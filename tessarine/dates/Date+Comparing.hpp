#pragma once

#include <cstdint>

#include "tessarine/export.hpp"
#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

// Where a date lies from now and from other dates. Without a calendar that of `calendar(date)`. Any
// thread.

TESSARINE_EXPORT bool isInFuture(Date date) noexcept;
TESSARINE_EXPORT bool isInPast(Date date) noexcept;
TESSARINE_EXPORT bool isInToday(Date date);
TESSARINE_EXPORT bool getIsInToday(Date date, const Calendar& calendar);
TESSARINE_EXPORT bool isInYesterday(Date date);
TESSARINE_EXPORT bool getIsInYesterday(Date date, const Calendar& calendar);
TESSARINE_EXPORT bool isInTomorrow(Date date);
TESSARINE_EXPORT bool getIsInTomorrow(Date date, const Calendar& calendar);
TESSARINE_EXPORT bool isInWeekend(Date date);
TESSARINE_EXPORT bool getIsInWeekend(Date date, const Calendar& calendar);
/// No day of a weekend.
TESSARINE_EXPORT bool isWorkday(Date date);
TESSARINE_EXPORT bool getIsWorkday(Date date, const Calendar& calendar);
TESSARINE_EXPORT bool isInCurrentWeek(Date date);
TESSARINE_EXPORT bool getIsInCurrentWeek(Date date, const Calendar& calendar);
TESSARINE_EXPORT bool isInCurrentMonth(Date date);
TESSARINE_EXPORT bool getIsInCurrentMonth(Date date, const Calendar& calendar);
TESSARINE_EXPORT bool isInCurrentYear(Date date);
TESSARINE_EXPORT bool getIsInCurrentYear(Date date, const Calendar& calendar);
/// Whether now lies in the same unit.
TESSARINE_EXPORT bool isInCurrent(Date date, Calendar::Component component,
                                  const Calendar& usingCalendar);

/// From `other` to `date`; a day is 24 hours here, also when clocks change.
constexpr double secondsSince(Date date, Date other) noexcept {
  return date.timeIntervalSinceReferenceDate() - other.timeIntervalSinceReferenceDate();
}
constexpr double minutesSince(Date date, Date other) noexcept {
  return secondsSince(date, other) / 60.0;
}
constexpr double hoursSince(Date date, Date other) noexcept {
  return secondsSince(date, other) / 3600.0;
}
constexpr double daysSinceApproximately(Date date, Date other) noexcept {
  return secondsSince(date, other) / 86400.0;
}

/// Whether the date lies between the two, whichever is the earlier.
TESSARINE_EXPORT bool isBetween(Date date, Date first, Date second, bool includeBounds) noexcept;

/// Whether at most `value` whole units lie between the date and `of`.
TESSARINE_EXPORT bool isWithin(Date date, std::uint64_t value, Calendar::Component component,
                               Date of, const Calendar& usingCalendar);

}  // namespace tessarine
