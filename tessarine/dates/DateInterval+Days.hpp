#pragma once

#include <cstdint>
#include <limits>

#include "tessarine/export.hpp"
#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/system/time/DateInterval.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

/// Stands for no index.
inline constexpr std::int64_t NSNotFound = std::numeric_limits<std::int64_t>::max();

/// How many days lie between the interval's first day and that of the date; `NSNotFound` for a date
/// outside the interval, whose end belongs to it.
TESSARINE_EXPORT std::int64_t index(const DateInterval& interval, Date of,
                                    const Calendar& calendar);
/// Complete days: 0 for the interval of one day.
TESSARINE_EXPORT std::int64_t days(const DateInterval& interval, const Calendar& calendar);
/// Half of the days behind the start; the start of an interval of less than two.
TESSARINE_EXPORT Date middleDate(const DateInterval& interval, const Calendar& calendar);
/// From now to 23:59:59 in the current zone; empty in the day's last second.
TESSARINE_EXPORT DateInterval remainingDayInterval();

/// From a date to a later one, one second less unless `inclusiveOfEndDate`, and never less than 0.
/// Programmer error when that is earlier.
TESSARINE_EXPORT DateInterval rangeIntervalWith(Date date, Date later, bool inclusiveOfEndDate);
/// From an earlier date to this one, the same way.
TESSARINE_EXPORT DateInterval rangeIntervalFrom(Date date, Date earlier, bool inclusiveOfEndDate);

// Half-open tests: an interval holds its start and not its end, an empty one its own instant. They
// are for dates after the reference date; before it the bounds count by their distance from it.

TESSARINE_EXPORT bool hx_contains(const DateInterval& interval, Date date) noexcept;
/// Seconds since the reference date.
TESSARINE_EXPORT bool hx_contains(const DateInterval& interval, double seconds) noexcept;
/// Ends count one second earlier, as those of days do.
TESSARINE_EXPORT bool hx_intersects(const DateInterval& interval,
                                    const DateInterval& other) noexcept;

}  // namespace tessarine
