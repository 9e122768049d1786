#pragma once

#include <cstdint>

#include "tessarine/export.hpp"
#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

enum class DateRoundingType : std::uint8_t { round, ceil, floor };

// On the time line: multiples of a step counted from the reference date, whatever the zone. `round`
// takes halves away from the reference date. A step of 0 gives a date that is no number.

TESSARINE_EXPORT Date roundedMinutes(Date date, double minutes, DateRoundingType rounding);
TESSARINE_EXPORT Date roundedSeconds(Date date, double seconds, DateRoundingType rounding);

// On the clock: the nearest minute of the hour that is a multiple of the step, the seconds cut; in
// `calendar(date)` or in the one given. Programmer error for a date that calendars do not know.

/// Rounds up from 3 minutes past a multiple.
TESSARINE_EXPORT Date nearestFiveMinutes(Date date);
TESSARINE_EXPORT Date getNearestFiveMinutes(Date date, const Calendar& calendar);
/// Rounds up from 6 minutes past a multiple.
TESSARINE_EXPORT Date nearestTenMinutes(Date date);
TESSARINE_EXPORT Date getNearestTenMinutes(Date date, const Calendar& calendar);
/// Rounds up from 8 minutes past a multiple.
TESSARINE_EXPORT Date nearestQuarterHour(Date date);
TESSARINE_EXPORT Date getNearestQuarterHour(Date date, const Calendar& calendar);
/// Rounds up from 15 minutes past a multiple.
TESSARINE_EXPORT Date nearestHalfHour(Date date);
TESSARINE_EXPORT Date getNearestHalfHour(Date date, const Calendar& calendar);
/// Rounds up from 30 minutes.
TESSARINE_EXPORT Date nearestHour(Date date);
TESSARINE_EXPORT Date getNearestHour(Date date, const Calendar& calendar);

}  // namespace tessarine
