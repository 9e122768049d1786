#include "tessarine/dates/Date+Comparing.hpp"
#include "tessarine/dates/Date+Fields.hpp"
#include "tessarine/system/time/DateComponents.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {
namespace {

int ordering(Date first, Date second) noexcept {
  return first < second ? -1 : first > second ? 1 : 0;
}

}  // namespace

bool isInFuture(Date date) noexcept { return date > Date::now(); }
bool isInPast(Date date) noexcept { return date < Date::now(); }

bool isInToday(Date date) { return getIsInToday(date, calendar(date)); }
bool getIsInToday(Date date, const Calendar& calendar) { return calendar.isDateInToday(date); }

bool isInYesterday(Date date) { return getIsInYesterday(date, calendar(date)); }
bool getIsInYesterday(Date date, const Calendar& calendar) {
  return calendar.isDateInYesterday(date);
}

bool isInTomorrow(Date date) { return getIsInTomorrow(date, calendar(date)); }
bool getIsInTomorrow(Date date, const Calendar& calendar) {
  return calendar.isDateInTomorrow(date);
}

bool isInWeekend(Date date) { return getIsInWeekend(date, calendar(date)); }
bool getIsInWeekend(Date date, const Calendar& calendar) { return calendar.isDateInWeekend(date); }

bool isWorkday(Date date) { return getIsWorkday(date, calendar(date)); }
bool getIsWorkday(Date date, const Calendar& calendar) { return !calendar.isDateInWeekend(date); }

bool isInCurrentWeek(Date date) { return getIsInCurrentWeek(date, calendar(date)); }
bool getIsInCurrentWeek(Date date, const Calendar& calendar) {
  return isInCurrent(date, Calendar::Component::weekOfYear, calendar);
}

bool isInCurrentMonth(Date date) { return getIsInCurrentMonth(date, calendar(date)); }
bool getIsInCurrentMonth(Date date, const Calendar& calendar) {
  return isInCurrent(date, Calendar::Component::month, calendar);
}

bool isInCurrentYear(Date date) { return getIsInCurrentYear(date, calendar(date)); }
bool getIsInCurrentYear(Date date, const Calendar& calendar) {
  return isInCurrent(date, Calendar::Component::year, calendar);
}

bool isInCurrent(Date date, Calendar::Component component, const Calendar& usingCalendar) {
  return usingCalendar.isDateEqual(date, Date::now(), component);
}

bool isBetween(Date date, Date first, Date second, bool includeBounds) noexcept {
  const int product = ordering(first, date) * ordering(date, second);
  return includeBounds ? product >= 0 : product > 0;
}

bool isWithin(Date date, std::uint64_t value, Calendar::Component component, Date of,
              const Calendar& usingCalendar) {
  const auto difference = usingCalendar.dateComponents({component}, date, of).value(component);
  if (!difference) fatal("isWithin: dates do not differ in that component");
  const auto size = *difference < 0 ? 0 - static_cast<std::uint64_t>(*difference)
                                    : static_cast<std::uint64_t>(*difference);
  return size <= value;
}

}  // namespace tessarine
