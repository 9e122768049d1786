#pragma once

#include "tessarine/export.hpp"
#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/system/time/DateInterval.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

/// The ISO 8601 week of a date, 1 to 53, whatever weeks the calendar has. With `useFollowingMonday`
/// that of the next Monday after the calendar's first weekday: for the date at which a displayed
/// week begins. Programmer error for a date that calendars do not know. Any thread.
TESSARINE_EXPORT unsigned isoWeekNumber(const Calendar& calendar, Date date,
                                        bool useFollowingMonday);

/// The day that holds the date, up to its last whole second: 86,399 seconds where clocks do not
/// change.
TESSARINE_EXPORT DateInterval dateIntervalForDay(const Calendar& calendar, Date date);

/// The last whole second of the date's day.
TESSARINE_EXPORT Date endOfDay(const Calendar& calendar, Date date);

}  // namespace tessarine
