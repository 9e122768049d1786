#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tessarine/export.hpp"
#include "tessarine/system/time/DateFormatter.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

enum class DayNameStyle : std::uint8_t { threeLetters, oneLetter, full };
enum class MonthNameStyle : std::uint8_t { threeLetters, oneLetter, full };

// Dates as texts in one call. Each makes a formatter, which costs a microsecond for patterns of
// numbers and tens of them for all else: keep a `DateFormatter` where many dates are written. Empty
// for dates that calendars do not know. Any thread.

/// 2024-05-01T12:34:56.789Z, always in GMT.
TESSARINE_EXPORT std::string iso8601StringWithFractionalSeconds(Date date);
/// By a pattern of `DateFormatter`, in the current locale and zone, as all below.
TESSARINE_EXPORT std::string string(Date date, std::string_view withFormat);
TESSARINE_EXPORT std::string dateString(Date date, DateFormatter::Style style);
TESSARINE_EXPORT std::string dateTimeString(Date date, DateFormatter::Style style);
TESSARINE_EXPORT std::string timeString(Date date, DateFormatter::Style style);
TESSARINE_EXPORT std::string dayName(Date date, DayNameStyle style);
TESSARINE_EXPORT std::string monthName(Date date, MonthNameStyle style);

/// Whether people in the current locale write the month before the day.
TESSARINE_EXPORT bool isMonthFirst();
/// Whether clocks count to 24 in the current locale.
TESSARINE_EXPORT bool is24HourTimeFormat();

}  // namespace tessarine
