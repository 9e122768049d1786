#include <string>

#include "tessarine/dates/Date+Fields.hpp"
#include "tessarine/dates/Date+Moving.hpp"
#include "tessarine/system/time/DateComponents.hpp"
#include "tessarine/system/time/internal/DaySystem.hpp"
#include "tessarine/system/time/internal/GregorianDay.hpp"
#include "tessarine/system/time/internal/LocalTime.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {
namespace {

using Component = Calendar::Component;

Date certain(const std::optional<Date>& date, const char* operation) {
  if (!date) fatal(std::string(operation).append(": the calendar does not know that date"));
  return *date;
}

Date plus(Date date, Component component, std::int64_t value, const Calendar& calendar,
          const char* operation) {
  return certain(calendar.dateByAdding(component, value, date), operation);
}

/// The unit next larger than a field that `changing` checks.
std::optional<Component> largerUnit(Component component) {
  switch (component) {
    case Component::month:
      return Component::year;
    case Component::day:
      return Component::month;
    case Component::hour:
      return Component::day;
    case Component::minute:
      return Component::hour;
    case Component::second:
      return Component::minute;
    case Component::nanosecond:
      return Component::second;
    default:
      return std::nullopt;
  }
}

/// Whether units of that name have a beginning and an end here.
bool isBounded(Component unit) {
  return (unit >= Component::year && unit <= Component::second) || unit == Component::weekOfMonth ||
         unit == Component::weekOfYear;
}

/// The least date with the fields that name the unit.
std::optional<Date> rebuilt(Date date, Component unit, const Calendar& calendar) {
  const bool isWeek = unit == Component::weekOfMonth;
  return calendar.dateKeeping(isWeek ? Component::weekOfYear : unit, date);
}

/// Whether a date lies where nothing is special about the Gregorian calendar.
bool isOfOurTime(Date date) {
  constexpr Date first(-13'100'000'000.0);  // in 1585
  return date > first && date < Date::distantFuture();
}

/// The last second of the year or month of a date of our time, by the steps of `end` without dates
/// in between.
Date gregorianEnd(Date date, bool isYear, TimeZone zone) {
  const internal::ZoneRules& rules = zone.rules();
  const internal::LocalTime local(rules, internal::Instant(date));
  const internal::CivilDay day = internal::gregorianFromDays(local.day);
  std::int64_t month = day.year * 12 + day.month - 1 + (isYear ? 12 : 1);
  constexpr int lastCertainDay = 26;
  if (day.day > lastCertainDay) {
    // A time that clocks skip, by a day at most, may lead into the month after.
    const std::int64_t then = internal::gregorianDayInMonth(month, day.day);
    const std::int64_t later = rules.utcOfLocal(then * internal::secondsADay + local.secondOfDay);
    const auto moved =
        internal::gregorianFromDays(internal::LocalTime(rules, internal::Instant(later, 0)).day);
    month = moved.year * 12 + moved.month - 1;
  }
  if (isYear) month -= month % 12;
  const std::int64_t start = internal::gregorianDayInMonth(month, 1) * internal::secondsADay;
  return internal::Instant(rules.utcOfLocal(start) - 1, 0).date();
}

}  // namespace

Date adding(Date date, Component component, std::int64_t value, const Calendar& usingCalendar) {
  return plus(date, component, value, usingCalendar, "adding");
}

void add(Date& date, Component component, std::int64_t value, const Calendar& usingCalendar) {
  date = usingCalendar.dateByAdding(component, value, date).value_or(date);
}

std::optional<Date> changing(Date date, Component component, std::int64_t value,
                             const Calendar& usingCalendar) {
  if (component == Component::year) return setYear(date, value, usingCalendar);
  const auto larger = largerUnit(component);
  if (!larger) return usingCalendar.dateBySetting(component, value, date);
  const auto range = usingCalendar.rangeOf(component, *larger, date);
  if (!range || !range->contains(value)) return std::nullopt;
  const std::int64_t now = usingCalendar.component(component, date);
  return usingCalendar.dateByAdding(component, value - now, date);
}

std::optional<Date> beginning(Date date, Component component, const Calendar& usingCalendar) {
  if (component == Component::day) return usingCalendar.startOfDay(date);
  if (!isBounded(component)) return std::nullopt;
  return rebuilt(date, component, usingCalendar);
}

std::optional<Date> end(Date date, Component component, const Calendar& usingCalendar) {
  if (!isBounded(component)) return std::nullopt;
  // Steps are those of the current calendar, of which its identifier and zone matter to them.
  const Calendar current(Calendar::currentIdentifier());
  const bool isYear = component == Component::year;
  if ((isYear || component == Component::month) && isOfOurTime(date) &&
      internal::isGregorian(current.identifier()) &&
      internal::isGregorian(usingCalendar.identifier()) &&
      current.timeZone() == usingCalendar.timeZone()) {
    return gregorianEnd(date, isYear, current.timeZone());
  }
  const auto step = [&](Date from, Component unit, std::int64_t count) {
    return plus(from, unit, count, current, "end");
  };
  Date next = date;
  if (component == Component::weekOfMonth || component == Component::weekOfYear) {
    next = step(certain(rebuilt(date, component, usingCalendar), "end"), Component::day, 7);
  } else if (component == Component::day) {
    next = usingCalendar.startOfDay(step(date, Component::day, 1));
  } else {
    next = certain(rebuilt(step(date, component, 1), component, usingCalendar), "end");
  }
  return step(next, Component::second, -1);
}

Date yesterday(Date date) { return getYesterday(date, calendar(date)); }
Date getYesterday(Date date, const Calendar& calendar) {
  const auto earlier = calendar.dateByAdding(Component::day, -1, date);
  return earlier ? *earlier : Date::now();
}

Date tomorrow(Date date) { return getTomorrow(date, calendar(date)); }
Date getTomorrow(Date date, const Calendar& calendar) {
  const auto later = calendar.dateByAdding(Component::day, 1, date);
  return later ? *later : Date::now();
}

Date stripTime(Date date) {
  const Calendar current = Calendar::current();
  const auto fields =
      current.dateComponents({Component::year, Component::month, Component::day}, date);
  return certain(current.dateFrom(fields), "stripTime");
}

Date getNextWeek(Date date) {
  return plus(date, Component::weekOfMonth, 1, Calendar::current(), "getNextWeek");
}

}  // namespace tessarine
