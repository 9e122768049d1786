#pragma once

#include <array>
#include <cstdint>

#include "tessarine/export.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/values/EnumCases.hpp"

namespace tessarine {

/// Days of the week by the numbers that calendars give them.
enum class WeekDay : std::uint8_t {
  sunday = 1,
  monday,
  tuesday,
  wednesday,
  thursday,
  friday,
  saturday
};

template <>
struct EnumCases<WeekDay> {
  static constexpr std::array all{WeekDay::sunday,    WeekDay::monday,   WeekDay::tuesday,
                                  WeekDay::wednesday, WeekDay::thursday, WeekDay::friday,
                                  WeekDay::saturday};
};

/// The day of the week in the Gregorian calendar, in the current zone. Any thread.
TESSARINE_EXPORT WeekDay getWeekDay(Date date);
/// The next such day by the Gregorian calendar, at the date's time of day; the date itself when it
/// is one. Programmer error for a date that calendars do not know.
TESSARINE_EXPORT Date getUpcoming(Date date, WeekDay weekday);

}  // namespace tessarine
