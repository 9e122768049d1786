#pragma once

#include <cstdint>
#include <optional>

#include "tessarine/export.hpp"
#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

// Dates moved along a calendar. "Programmer error" is for dates and amounts that lead beyond the
// two million years that calendars know. Any thread; no allocation for Gregorian dates.

/// That many units later. Programmer error when there is no such date.
TESSARINE_EXPORT Date adding(Date date, Calendar::Component component, std::int64_t value,
                             const Calendar& usingCalendar);
/// The same in place; the date stays as it is when there is no such date.
TESSARINE_EXPORT void add(Date& date, Calendar::Component component, std::int64_t value,
                          const Calendar& usingCalendar);

/// The date with that value in the field: a year from 1, a month to nanosecond within its larger
/// unit (larger units stay), any other as `Calendar::dateBySetting`. Absent for other values.
TESSARINE_EXPORT std::optional<Date> changing(Date date, Calendar::Component component,
                                              std::int64_t value, const Calendar& usingCalendar);

/// The first instant of the unit, rebuilt from its fields: `day`, `year`, `month`, `hour`,
/// `minute`, `second`, `weekOfMonth` and `weekOfYear`. Absent for others. The fields do not name
/// the era.
TESSARINE_EXPORT std::optional<Date> beginning(Date date, Calendar::Component component,
                                               const Calendar& usingCalendar);
/// The last whole second of the unit; the end of a second is its beginning. Units as above; absent
/// for others. Steps on the time line are those of `Calendar::current`.
TESSARINE_EXPORT std::optional<Date> end(Date date, Calendar::Component component,
                                         const Calendar& usingCalendar);

/// A day earlier, and later; now when the calendar gives no date.
TESSARINE_EXPORT Date yesterday(Date date);
TESSARINE_EXPORT Date getYesterday(Date date, const Calendar& calendar);
TESSARINE_EXPORT Date tomorrow(Date date);
TESSARINE_EXPORT Date getTomorrow(Date date, const Calendar& calendar);

/// Midnight of the date's day in `Calendar::current`.
TESSARINE_EXPORT Date stripTime(Date date);
/// A week later in `Calendar::current`.
TESSARINE_EXPORT Date getNextWeek(Date date);

}  // namespace tessarine
