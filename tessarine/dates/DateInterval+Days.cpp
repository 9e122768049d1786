#include <cmath>

#include "tessarine/dates/DateInterval+Days.hpp"
#include "tessarine/system/time/DateComponents.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {
namespace {

using Component = Calendar::Component;

double seconds(Date date) { return date.timeIntervalSinceReferenceDate(); }

DateInterval interval(Date from, Date to, bool inclusiveOfEndDate) {
  const double between = seconds(to) - seconds(from);
  if (between == 0) return {from, 0.0};
  return {from, inclusiveOfEndDate ? between : between - 1.0};
}

}  // namespace

std::int64_t index(const DateInterval& interval, Date of, const Calendar& calendar) {
  if (!interval.contains(of)) return NSNotFound;
  const auto days = calendar.dateComponents({Component::day}, calendar.startOfDay(interval.start()),
                                            calendar.startOfDay(of));
  return days.day.value_or(NSNotFound);
}

std::int64_t days(const DateInterval& interval, const Calendar& calendar) {
  return calendar.dateComponents({Component::day}, interval.start(), interval.end())
      .day.value_or(0);
}

Date middleDate(const DateInterval& interval, const Calendar& calendar) {
  const std::int64_t count = days(interval, calendar);
  if (count < 2) return interval.start();
  return calendar.dateByAdding(Component::day, count / 2, interval.start())
      .value_or(interval.start());
}

DateInterval remainingDayInterval() {
  const Date now = Date::now();
  Calendar calendar = Calendar::current();
  calendar.setTimeZone(TimeZone::current());
  const Date end = calendar.dateBySettingHour(23, 59, 59, now).value_or(now);
  return {now, end < now ? now : end};
}

DateInterval rangeIntervalWith(Date date, Date later, bool inclusiveOfEndDate) {
  if (!(later >= date)) fatal("rangeInterval: the date is later than the one it leads to");
  return interval(date, later, inclusiveOfEndDate);
}

DateInterval rangeIntervalFrom(Date date, Date earlier, bool inclusiveOfEndDate) {
  if (!(date >= earlier)) fatal("rangeInterval: the date is earlier than the one it comes from");
  return interval(earlier, date, inclusiveOfEndDate);
}

bool hx_contains(const DateInterval& interval, Date date) noexcept {
  return hx_contains(interval, std::fabs(seconds(date)));
}

bool hx_contains(const DateInterval& interval, double at) noexcept {
  const double start = std::fabs(seconds(interval.start()));
  const double end = std::fabs(seconds(interval.end()));
  return (start == end && at == start) || (start <= at && at < end);
}

bool hx_intersects(const DateInterval& interval, const DateInterval& other) noexcept {
  const bool holdsStart = hx_contains(other, std::fabs(seconds(interval.start())));
  const bool isHeldAtStart = hx_contains(interval, std::fabs(seconds(other.start())));
  if (interval.duration() == 0.0 || other.duration() == 0.0) return holdsStart || isHeldAtStart;
  return holdsStart || hx_contains(other, seconds(interval.end()) - 1.0) || isHeldAtStart ||
         hx_contains(interval, seconds(other.end()) - 1.0);
}

}  // namespace tessarine
