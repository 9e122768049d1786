#include <cmath>

#include "tessarine/dates/Date+Fields.hpp"
#include "tessarine/system/time/internal/DaySystem.hpp"
#include "tessarine/system/time/internal/GregorianField.hpp"
#include "tessarine/system/time/internal/ZoneRegistry.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {
namespace {

using Component = Calendar::Component;

/// Compiled for one field, so that Gregorian dates go without what the others need.
template <Component component>
std::int64_t field(Date date) {
  constexpr bool isOfDay = component <= Component::day;
  if constexpr (isOfDay || internal::isClockField(component)) {
    if (internal::isGregorian(Calendar::currentIdentifier())) {
      const internal::LocalTime local(internal::currentZone(), internal::Instant(date));
      return isOfDay ? internal::gregorianField(local.day, component)
                     : internal::clockField(local, component);
    }
  }
  return calendar(date).component(component, date);
}

/// Moves the date to a value that the field takes within the larger unit; leaves it else.
void setField(Date& date, Component component, Component larger, std::int64_t value) {
  const Calendar own = calendar(date);
  const auto range = own.rangeOf(component, larger, date);
  if (!range || !range->contains(value)) return;
  date = own.dateByAdding(component, value - own.component(component, date), date).value_or(date);
}

}  // namespace

std::int64_t era(Date date) { return field<Component::era>(date); }
std::int64_t getEra(Date date, const Calendar& calendar) {
  return calendar.component(Component::era, date);
}

std::int64_t quarter(Date date) { return getQuarter(date, calendar(date)); }
std::int64_t getQuarter(Date date, const Calendar& calendar) {
  const bool hasTwelve = calendar.identifier() == Calendar::Identifier::gregorian ||
                         calendar.identifier() == Calendar::Identifier::iso8601;
  const double months = hasTwelve ? 12 : static_cast<double>(calendar.monthSymbols().size());
  const auto month = static_cast<double>(calendar.component(Component::month, date));
  return static_cast<std::int64_t>(std::ceil(month / (months * 0.25)));
}

std::int64_t weeksInMonth(Date date) { return getWeeksInMonth(date, calendar(date)); }
std::int64_t getWeeksInMonth(Date date, const Calendar& calendar) {
  const auto month = calendar.dateIntervalOf(Component::month, date);
  if (!month) return 5;
  const Date last(month->end().timeIntervalSinceReferenceDate() - 1.0);
  return calendar.component(Component::weekOfMonth, last);
}

std::int64_t weekOfYear(Date date) { return field<Component::weekOfYear>(date); }
std::int64_t getWeekOfYear(Date date, const Calendar& calendar) {
  return calendar.component(Component::weekOfYear, date);
}

std::int64_t weekOfMonth(Date date) { return field<Component::weekOfMonth>(date); }
std::int64_t getWeekOfMonth(Date date, const Calendar& calendar) {
  return calendar.component(Component::weekOfMonth, date);
}

std::int64_t year(Date date) { return field<Component::year>(date); }
std::int64_t getYear(Date date, const Calendar& calendar) {
  return calendar.component(Component::year, date);
}

std::int64_t month(Date date) { return field<Component::month>(date); }
std::int64_t getMonth(Date date, const Calendar& calendar) {
  return calendar.component(Component::month, date);
}

std::int64_t weekday(Date date) { return field<Component::weekday>(date); }
std::int64_t getWeekday(Date date, const Calendar& calendar) {
  return calendar.component(Component::weekday, date);
}

std::int64_t day(Date date) { return field<Component::day>(date); }
std::int64_t hour(Date date) { return field<Component::hour>(date); }
std::int64_t minute(Date date) { return field<Component::minute>(date); }
std::int64_t second(Date date) { return field<Component::second>(date); }
std::int64_t nanosecond(Date date) { return field<Component::nanosecond>(date); }
std::int64_t millisecond(Date date) { return nanosecond(date) / 1'000'000; }

void setYear(Date& date, std::int64_t year) {
  date = setYear(date, year, calendar(date)).value_or(date);
}
void setMonth(Date& date, std::int64_t month) {
  date = setMonth(date, month, calendar(date)).value_or(date);
}
void setDay(Date& date, std::int64_t day) { setField(date, Component::day, Component::month, day); }
void setHour(Date& date, std::int64_t hour) {
  setField(date, Component::hour, Component::day, hour);
}
void setMinute(Date& date, std::int64_t minute) {
  setField(date, Component::minute, Component::hour, minute);
}
void setSecond(Date& date, std::int64_t second) {
  setField(date, Component::second, Component::minute, second);
}
void setNanosecond(Date& date, std::int64_t nanosecond) {
  setField(date, Component::nanosecond, Component::second, nanosecond);
}

void setMillisecond(Date& date, std::int64_t millisecond) {
  std::int64_t nanosecond = 0;
  if (__builtin_mul_overflow(millisecond, std::int64_t{1'000'000}, &nanosecond)) {
    fatal("setMillisecond: the value has more nanoseconds than 64 bits can hold");
  }
  const Calendar own = calendar(date);
  const auto range = own.rangeOf(Component::nanosecond, Component::second, date);
  if (!range || !range->contains(nanosecond)) return;
  date = own.dateBySetting(Component::nanosecond, nanosecond, date).value_or(date);
}

std::optional<Date> setYear(Date date, std::int64_t year, const Calendar& usingCalendar) {
  if (year < 1) return std::nullopt;
  const std::int64_t change = year - usingCalendar.component(Component::year, date);
  // Years before Christ are counted backwards.
  const bool isBackwards = usingCalendar.component(Component::era, date) == 0 &&
                           (usingCalendar.identifier() == Calendar::Identifier::gregorian ||
                            usingCalendar.identifier() == Calendar::Identifier::iso8601);
  return usingCalendar.dateByAdding(Component::year, isBackwards ? -change : change, date);
}

std::optional<Date> setMonth(Date date, std::int64_t month, const Calendar& usingCalendar) {
  const auto range = usingCalendar.rangeOf(Component::month, Component::year, date);
  if (!range || !range->contains(month)) return std::nullopt;
  const std::int64_t now = usingCalendar.component(Component::month, date);
  return usingCalendar.dateByAdding(Component::month, month - now, date);
}

}  // namespace tessarine
