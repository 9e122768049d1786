#include "tessarine/dates/WeekDay.hpp"

#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

WeekDay getWeekDay(Date date) {
  const Calendar gregorian(Calendar::Identifier::gregorian);
  return static_cast<WeekDay>(gregorian.component(Calendar::Component::weekday, date));
}

Date getUpcoming(Date date, WeekDay weekday) {
  const int days = (static_cast<int>(weekday) - static_cast<int>(getWeekDay(date)) + 7) % 7;
  if (days == 0) return date;
  const Calendar gregorian(Calendar::Identifier::gregorian);
  const auto upcoming = gregorian.dateByAdding(Calendar::Component::day, days, date);
  if (!upcoming) fatal("getUpcoming: the calendar does not know that date");
  return *upcoming;
}

}  // namespace tessarine
