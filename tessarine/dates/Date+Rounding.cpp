#include <cmath>

#include "tessarine/dates/Date+Fields.hpp"
#include "tessarine/dates/Date+Rounding.hpp"
#include "tessarine/system/time/DateComponents.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {
namespace {

using Component = Calendar::Component;

double rounded(double value, DateRoundingType rounding) {
  switch (rounding) {
    case DateRoundingType::round:
      return std::round(value);
    case DateRoundingType::ceil:
      return std::ceil(value);
    case DateRoundingType::floor:
      break;
  }
  return std::floor(value);
}

Date certain(const std::optional<Date>& date) {
  if (!date) fatal("nearest: the calendar does not know that date");
  return *date;
}

Date nearestMinutes(Date date, const Calendar& calendar, std::int64_t step, std::int64_t keeps) {
  auto fields = calendar.dateComponents(
      {Component::year, Component::month, Component::day, Component::hour, Component::minute},
      date);
  const std::int64_t past = *fields.minute % step;
  *fields.minute += past > keeps ? step - past : -past;
  return certain(calendar.dateFrom(fields));
}

}  // namespace

Date roundedMinutes(Date date, double minutes, DateRoundingType rounding) {
  return roundedSeconds(date, minutes * 60.0, rounding);
}

Date roundedSeconds(Date date, double seconds, DateRoundingType rounding) {
  return Date(rounded(date.timeIntervalSinceReferenceDate() / seconds, rounding) * seconds);
}

Date nearestFiveMinutes(Date date) { return getNearestFiveMinutes(date, calendar(date)); }
Date getNearestFiveMinutes(Date date, const Calendar& calendar) {
  return nearestMinutes(date, calendar, 5, 2);
}

Date nearestTenMinutes(Date date) { return getNearestTenMinutes(date, calendar(date)); }
Date getNearestTenMinutes(Date date, const Calendar& calendar) {
  return nearestMinutes(date, calendar, 10, 5);
}

Date nearestQuarterHour(Date date) { return getNearestQuarterHour(date, calendar(date)); }
Date getNearestQuarterHour(Date date, const Calendar& calendar) {
  return nearestMinutes(date, calendar, 15, 7);
}

Date nearestHalfHour(Date date) { return getNearestHalfHour(date, calendar(date)); }
Date getNearestHalfHour(Date date, const Calendar& calendar) {
  return nearestMinutes(date, calendar, 30, 14);
}

Date nearestHour(Date date) { return getNearestHour(date, calendar(date)); }
Date getNearestHour(Date date, const Calendar& calendar) {
  const auto minute = calendar.component(Component::minute, date);
  const Date hour = certain(calendar.dateKeeping(Component::hour, date));
  return minute >= 30 ? certain(calendar.dateByAdding(Component::hour, 1, hour)) : hour;
}

}  // namespace tessarine
