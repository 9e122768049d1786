#include "tessarine/dates/Calendar+Days.hpp"
#include "tessarine/system/time/DateComponents.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {
namespace {

using Component = Calendar::Component;

Date later(Date date, double seconds) {
  return Date(date.timeIntervalSinceReferenceDate() + seconds);
}

}  // namespace

unsigned isoWeekNumber(const Calendar& calendar, Date date, bool useFollowingMonday) {
  if (useFollowingMonday) {
    const int toMonday = (9 - calendar.firstWeekday()) % 7;
    // Two hours into the day, so that a clock change on the way does not lead to the day before.
    date = later(date, toMonday * 86400.0 + 7200.0);
  }
  const std::int64_t weekday = calendar.component(Component::weekday, date);
  const std::int64_t sinceMonday = (weekday + 5) % 7;
  const auto thursday = calendar.dateByAdding(Component::day, 3 - sinceMonday, date);
  if (!thursday) fatal("isoWeekNumber: the calendar does not know that date");
  const std::int64_t year = calendar.component(Component::year, *thursday);
  const auto first = calendar.dateFrom({.year = year, .month = 1, .day = 1});
  if (!first) fatal("isoWeekNumber: the calendar does not know that year");
  const auto days = calendar.dateComponents({Component::day}, *first, *thursday).day;
  return static_cast<unsigned>(*days / 7 + 1);
}

DateInterval dateIntervalForDay(const Calendar& calendar, Date date) {
  const Date start = calendar.startOfDay(date);
  const DateInterval day =
      calendar.dateIntervalOf(Component::day, start).value_or(DateInterval(start, 86400.0));
  return {day.start(), day.duration() - 1.0};
}

Date endOfDay(const Calendar& calendar, Date date) {
  const auto end = calendar.dateByAdding({.day = 1, .second = -1}, calendar.startOfDay(date));
  return end ? *end : later(date, 86400.0 - 1.0);
}

}  // namespace tessarine
