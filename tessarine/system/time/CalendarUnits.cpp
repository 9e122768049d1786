// Units as spans of time: what they hold, where they begin and end, and what lies in them.
#include <algorithm>

#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/system/time/internal/DaySystem.hpp"
#include "tessarine/system/time/internal/LocalTime.hpp"
#include "tessarine/system/time/internal/Weeks.hpp"

namespace tessarine {
namespace {

using internal::DayFields;
using internal::DaySystem;
using internal::Instant;
using internal::LocalTime;
using internal::WeekRule;
using Component = Calendar::Component;
using Bounds = Range<std::int64_t>;

std::optional<std::int64_t> firstOfMonth(const DaySystem& days, const DayFields& fields,
                                         std::int64_t month) {
  return days.day({.era = fields.era,
                   .year = fields.year,
                   .month = month,
                   .day = 1,
                   .isLeapMonth = fields.isLeapMonth && month == fields.month});
}

/// The days of the unit that holds a day, for units of days and longer.
class DaySpan {
 public:
  DaySpan(const Calendar& calendar, std::int64_t day)
      : days_(internal::daySystem(calendar.identifier())),
        rule_{calendar.firstWeekday(), calendar.minimumDaysInFirstWeek()},
        day_(day),
        fields_(days_.fields(day)) {}

  std::optional<Bounds> of(Component unit) const {
    switch (unit) {
      case Component::year:
        return Bounds{days_.firstDayOfYear(fields_.extendedYear),
                      days_.firstDayOfYear(fields_.extendedYear + 1)};
      case Component::yearForWeekOfYear: {
        const auto year = internal::weekOfYear(days_, rule_, day_, fields_.extendedYear).year;
        return Bounds{rule_.firstWeek(days_.firstDayOfYear(year)),
                      rule_.firstWeek(days_.firstDayOfYear(year + 1))};
      }
      case Component::quarter:
        return quarter();
      case Component::month:
        return months(fields_.month, 1);
      case Component::weekOfMonth:
      case Component::weekOfYear: {
        const std::int64_t start = day_ - rule_.dayInWeek(day_);
        return Bounds{start, start + 7};
      }
      case Component::day:
      case Component::weekday:
      case Component::weekdayOrdinal:
        return Bounds{day_, day_ + 1};
      default:
        return std::nullopt;
    }
  }

 private:
  std::optional<Bounds> months(std::int64_t first, std::int64_t count) const {
    const auto start = firstOfMonth(days_, fields_, first);
    const auto end = start ? days_.addingMonths(*start, count) : std::nullopt;
    if (!end) return std::nullopt;
    return Bounds{*start, *end};
  }

  /// The last takes the 13th month of calendars that have one.
  std::optional<Bounds> quarter() const {
    const int quarter = std::min((fields_.month - 1) / 3, 3);
    auto span = months(quarter * 3 + 1, 3);
    if (span && quarter == 3) span->upperBound = days_.firstDayOfYear(fields_.extendedYear + 1);
    return span;
  }

  const DaySystem& days_;
  WeekRule rule_;
  std::int64_t day_;
  DayFields fields_;
};

/// Fields whose values are the same in every unit that holds them.
std::optional<Bounds> constantRange(Component smaller, Component larger) {
  if (smaller == Component::hour && larger == Component::day) return Bounds{0, 24};
  if (smaller == Component::minute && larger == Component::hour) return Bounds{0, 60};
  if (smaller == Component::second && larger == Component::minute) return Bounds{0, 60};
  if (smaller == Component::nanosecond && larger == Component::second) {
    return Bounds{0, internal::nanosecondsASecond};
  }
  if (smaller == Component::quarter && larger == Component::year) return Bounds{1, 5};
  const bool isWeek = larger == Component::weekOfMonth || larger == Component::weekOfYear;
  if (smaller == Component::weekday && isWeek) return Bounds{1, 8};
  return std::nullopt;
}

}  // namespace

std::optional<Range<std::int64_t>> Calendar::rangeOf(Component smaller, Component larger,
                                                     Date date) const {
  if (const auto range = constantRange(smaller, larger)) return range;
  const std::int64_t day = LocalTime(zone_.rules(), Instant(date)).day;
  const DaySystem& days = internal::daySystem(identifier_);
  if (smaller == Component::day && larger == Component::month) {
    return Bounds{1, days.daysInMonth(day) + 1};
  }
  if (smaller == Component::month && larger == Component::year) {
    return Bounds{1, days.monthsInYear(day) + 1};
  }
  const auto span = DaySpan(*this, day).of(larger);
  if (!span) return std::nullopt;
  const std::int64_t length = span->upperBound - span->lowerBound;
  if (smaller == Component::day && larger == Component::year) return Bounds{1, length + 1};
  if (smaller == Component::weekOfYear && larger == Component::yearForWeekOfYear) {
    return Bounds{1, length / 7 + 1};
  }
  if (smaller == Component::weekOfMonth && larger == Component::month) {
    const WeekRule rule{firstWeekday_, minimumDaysInFirstWeek_};
    const int last = static_cast<int>(length);
    return Bounds{internal::weekOfMonth(rule, span->lowerBound, 1),
                  internal::weekOfMonth(rule, span->upperBound - 1, last) + 1};
  }
  return std::nullopt;
}

std::optional<DateInterval> Calendar::dateIntervalOf(Component component, Date date) const {
  const Instant instant(date);
  const LocalTime local(zone_.rules(), instant);
  if (const std::int64_t unit = internal::secondsOf(component); unit != 0) {
    const std::int64_t into = local.secondOfDay % unit;
    return DateInterval(Instant(instant.second - into, 0).date(), static_cast<double>(unit));
  }
  const auto span = DaySpan(*this, local.day).of(component);
  if (!span) return std::nullopt;
  const auto start = internal::dateOfLocalDay(zone_.rules(), span->lowerBound);
  const auto end = internal::dateOfLocalDay(zone_.rules(), span->upperBound);
  if (!start || !end) return std::nullopt;
  return DateInterval(*start, *end);
}

bool Calendar::isDateInToday(Date date) const {
  return isDateEqual(date, Date::now(), Component::day);
}

bool Calendar::isDateInYesterday(Date date) const {
  const auto yesterday = dateByAdding(Component::day, -1, Date::now());
  return yesterday && isDateEqual(date, *yesterday, Component::day);
}

bool Calendar::isDateInTomorrow(Date date) const {
  const auto tomorrow = dateByAdding(Component::day, 1, Date::now());
  return tomorrow && isDateEqual(date, *tomorrow, Component::day);
}

bool Calendar::isDateInWeekend(Date date) const {
  const LocalTime local(zone_.rules(), Instant(date));
  return (weekend_ >> static_cast<unsigned>(internal::weekdayOf(local.day)) & 1U) != 0;
}

bool Calendar::isDateEqual(Date date, Date other, Component granularity) const {
  const Instant first(date);
  const Instant second(other);
  const LocalTime local(zone_.rules(), first);
  const LocalTime localOther(zone_.rules(), second);
  if (granularity == Component::era) {
    return component(Component::era, date) == component(Component::era, other);
  }
  if (granularity == Component::nanosecond) {
    return first.second == second.second &&
           internal::nanosecondOf(first) == internal::nanosecondOf(second);
  }
  if (internal::secondsOf(granularity) != 0) {
    const auto span = dateIntervalOf(granularity, date);
    return span && span->start() <= other && other < span->end();
  }
  const auto span = DaySpan(*this, local.day).of(granularity);
  return span ? span->contains(localOther.day) : date == other;
}

}  // namespace tessarine
