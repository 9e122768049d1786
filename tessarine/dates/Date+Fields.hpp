#pragma once

#include <cstdint>
#include <optional>

#include "tessarine/export.hpp"
#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

// Calendar fields of a date. Without a calendar those of `calendar(date)`, in the current zone; the
// twins whose names begin with get take one. Reading never fails: a date that calendars do not know
// counts as the last they do. Any thread; no allocation for Gregorian dates.

/// A new calendar with the identifier of `Calendar::current` and its defaults: not the host's first
/// weekday or locale.
inline Calendar calendar(Date /*date*/) noexcept { return Calendar(Calendar::currentIdentifier()); }

TESSARINE_EXPORT std::int64_t era(Date date);
TESSARINE_EXPORT std::int64_t getEra(Date date, const Calendar& calendar);
/// 1 to 4: the year in four, also where it has 13 months.
TESSARINE_EXPORT std::int64_t quarter(Date date);
TESSARINE_EXPORT std::int64_t getQuarter(Date date, const Calendar& calendar);
/// How many weeks the date's month touches; 5 when the calendar cannot tell.
TESSARINE_EXPORT std::int64_t weeksInMonth(Date date);
TESSARINE_EXPORT std::int64_t getWeeksInMonth(Date date, const Calendar& calendar);
TESSARINE_EXPORT std::int64_t weekOfYear(Date date);
TESSARINE_EXPORT std::int64_t getWeekOfYear(Date date, const Calendar& calendar);
TESSARINE_EXPORT std::int64_t weekOfMonth(Date date);
TESSARINE_EXPORT std::int64_t getWeekOfMonth(Date date, const Calendar& calendar);
TESSARINE_EXPORT std::int64_t year(Date date);
TESSARINE_EXPORT std::int64_t getYear(Date date, const Calendar& calendar);
TESSARINE_EXPORT std::int64_t month(Date date);
TESSARINE_EXPORT std::int64_t getMonth(Date date, const Calendar& calendar);
/// 1 for Sunday to 7 for Saturday.
TESSARINE_EXPORT std::int64_t weekday(Date date);
TESSARINE_EXPORT std::int64_t getWeekday(Date date, const Calendar& calendar);
TESSARINE_EXPORT std::int64_t day(Date date);
TESSARINE_EXPORT std::int64_t hour(Date date);
TESSARINE_EXPORT std::int64_t minute(Date date);
TESSARINE_EXPORT std::int64_t second(Date date);
TESSARINE_EXPORT std::int64_t nanosecond(Date date);
/// Whole milliseconds of the second, rounded down.
TESSARINE_EXPORT std::int64_t millisecond(Date date);

// Writing a field. Years below 1 and values outside the field's range in the next larger unit (days
// in the month, hours in the day) leave the date as it is.

TESSARINE_EXPORT void setYear(Date& date, std::int64_t year);
/// The day is clamped to the month: 31 January set to month 2 is the last of February.
TESSARINE_EXPORT void setMonth(Date& date, std::int64_t month);
TESSARINE_EXPORT void setDay(Date& date, std::int64_t day);
TESSARINE_EXPORT void setHour(Date& date, std::int64_t hour);
TESSARINE_EXPORT void setMinute(Date& date, std::int64_t minute);
TESSARINE_EXPORT void setSecond(Date& date, std::int64_t second);
TESSARINE_EXPORT void setNanosecond(Date& date, std::int64_t nanosecond);
/// Programmer error for a value whose nanoseconds 64 bits cannot hold.
TESSARINE_EXPORT void setMillisecond(Date& date, std::int64_t millisecond);

/// The date moved to that year of its era; absent below 1.
TESSARINE_EXPORT std::optional<Date> setYear(Date date, std::int64_t year,
                                             const Calendar& usingCalendar);
/// The date moved to that month of its year; absent when the year has none such.
TESSARINE_EXPORT std::optional<Date> setMonth(Date date, std::int64_t month,
                                              const Calendar& usingCalendar);

}  // namespace tessarine
