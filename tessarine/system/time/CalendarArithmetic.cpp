// Adding to dates, setting their fields, and the way between two of them.
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/system/time/DateComponents.hpp"
#include "tessarine/system/time/internal/DaySystem.hpp"
#include "tessarine/system/time/internal/GregorianDays.hpp"
#include "tessarine/system/time/internal/LocalTime.hpp"
#include "tessarine/system/time/internal/Weeks.hpp"

namespace tessarine {
namespace {

using internal::DaySystem;
using internal::Instant;
using internal::LocalTime;
using internal::secondsADay;
using internal::secondsOf;
using Component = Calendar::Component;

/// From the greatest to the least, as dates are made up of them.
constexpr std::array unitsInOrder = {
    Component::era,         Component::year,           Component::yearForWeekOfYear,
    Component::quarter,     Component::month,          Component::weekOfYear,
    Component::weekOfMonth, Component::weekdayOrdinal, Component::day,
    Component::weekday,     Component::hour,           Component::minute,
    Component::second,      Component::nanosecond};

bool isKnown(Date date) {
  return std::fabs(date.timeIntervalSinceReferenceDate()) <= internal::greatestInterval;
}

/// Units that are so many days whatever the calendar.
std::int64_t daysOf(Component unit) {
  switch (unit) {
    case Component::day:
    case Component::weekday:
      return 1;
    case Component::weekOfMonth:
    case Component::weekOfYear:
    case Component::weekdayOrdinal:
      return 7;
    default:
      return 0;
  }
}

std::optional<Date> addingSeconds(Date date, std::int64_t count, std::int64_t unit) {
  std::int64_t seconds = 0;
  Instant instant(date);
  if (__builtin_mul_overflow(count, unit, &seconds) ||
      __builtin_add_overflow(instant.second, seconds, &instant.second) ||
      !Instant::isKnown(instant.second)) {
    return std::nullopt;
  }
  return instant.date();
}

std::optional<Date> addingNanoseconds(Date date, std::int64_t count) {
  const std::int64_t seconds = internal::floorDivide(count, internal::nanosecondsASecond);
  Instant instant(date);
  const std::int64_t nanoseconds =
      internal::nanosecondOf(instant) + internal::floorModulo(count, internal::nanosecondsASecond);
  instant.second += seconds + nanoseconds / internal::nanosecondsASecond;
  instant.fraction = static_cast<double>(nanoseconds % internal::nanosecondsASecond) * 1e-9;
  if (!Instant::isKnown(instant.second)) return std::nullopt;
  return instant.date();
}

/// The months in a Gregorian unit; 0 for units that are not made of months.
std::int64_t monthsOf(Component unit) {
  switch (unit) {
    case Component::year:
      return 12;
    case Component::quarter:
      return 3;
    case Component::month:
      return 1;
    default:
      return 0;
  }
}

/// Keeps the week and the weekday; the last week of a longer year becomes that of a shorter one.
std::optional<std::int64_t> addingYearsOfWeeks(const Calendar& calendar, const DaySystem& days,
                                               std::int64_t day, std::int64_t count) {
  constexpr std::int64_t greatest = 5'000'000;
  if (count < -greatest || count > greatest) return std::nullopt;
  const internal::WeekRule rule{calendar.firstWeekday(), calendar.minimumDaysInFirstWeek()};
  const auto now = internal::weekOfYear(days, rule, day, days.fields(day).extendedYear);
  const std::int64_t first = rule.firstWeek(days.firstDayOfYear(now.year + count));
  const std::int64_t next = rule.firstWeek(days.firstDayOfYear(now.year + count + 1));
  const std::int64_t week = std::min<std::int64_t>(now.week, (next - first) / 7);
  return first + (week - 1) * 7 + rule.dayInWeek(day);
}

/// Beyond the days that calendars know, and small enough to count with.
bool isAmount(std::int64_t count) {
  constexpr std::int64_t greatest = std::int64_t{1} << 34U;
  return count >= -greatest && count <= greatest;
}

/// The day on which that many units have passed, for units of days and longer.
std::optional<std::int64_t> addingToDay(const Calendar& calendar, Component unit,
                                        std::int64_t count, std::int64_t day) {
  if (!isAmount(count)) return std::nullopt;
  if (const std::int64_t length = daysOf(unit); length != 0) return day + count * length;
  const DaySystem& days = internal::daySystem(calendar.identifier());
  switch (unit) {
    case Component::era:
      return days.addingEras(day, count);
    case Component::year:
      return days.addingYears(day, count);
    case Component::yearForWeekOfYear:
      return addingYearsOfWeeks(calendar, days, day, count);
    case Component::quarter:
      return days.addingMonths(day, 3 * count);
    case Component::month:
      return days.addingMonths(day, count);
    default:
      return std::nullopt;
  }
}

/// About how long a unit is, to begin a search with.
double typicalSeconds(Component unit) {
  constexpr double year = 365.2425 * secondsADay;
  switch (unit) {
    case Component::era:
      return 1000 * year;
    case Component::year:
    case Component::yearForWeekOfYear:
      return year;
    case Component::quarter:
      return year / 4;
    case Component::month:
      return year / 12;
    default:
      const std::int64_t seconds = secondsOf(unit);
      return static_cast<double>(seconds != 0 ? seconds : daysOf(unit) * secondsADay);
  }
}

/// Counts how many units fit between two dates.
class UnitCount {
 public:
  UnitCount(const Calendar& calendar, Component unit, Date from, Date to)
      : calendar_(calendar), unit_(unit), from_(from), to_(to), sign_(to < from ? -1 : 1) {}

  /// The greatest amount that does not lead past the second date, negative when that is earlier.
  std::int64_t count() const {
    if (unit_ == Component::era || from_ == to_) return 0;
    if (unit_ == Component::nanosecond) return nanoseconds();
    const double typical = typicalSeconds(unit_);
    std::int64_t count = 0;
    // Each step comes nearer by all but the error of the typical length.
    for (int step = 0; step < 8; ++step) {
      const auto reached = calendar_.dateByAdding(unit_, count, from_);
      if (!reached) break;
      const double left =
          to_.timeIntervalSinceReferenceDate() - reached->timeIntervalSinceReferenceDate();
      const double units = std::trunc(left / typical);
      if (units == 0 || std::fabs(units) > 9e18) break;
      count += static_cast<std::int64_t>(units);
    }
    while (count * sign_ > 0 && isPast(count)) count -= sign_;
    while (!isPast(count + sign_)) count += sign_;
    return count;
  }

 private:
  /// At most what 64 bits can hold, 292 years.
  std::int64_t nanoseconds() const {
    const Instant from(from_);
    const Instant to(to_);
    std::int64_t count = 0;
    if (__builtin_mul_overflow(to.second - from.second, internal::nanosecondsASecond, &count) ||
        __builtin_add_overflow(count, internal::nanosecondOf(to) - internal::nanosecondOf(from),
                               &count)) {
      return sign_ > 0 ? std::numeric_limits<std::int64_t>::max()
                       : std::numeric_limits<std::int64_t>::min();
    }
    return count;
  }

  bool isPast(std::int64_t count) const {
    const auto reached = calendar_.dateByAdding(unit_, count, from_);
    return !reached || (sign_ > 0 ? *reached > to_ : *reached < to_);
  }

  const Calendar& calendar_;
  Component unit_;
  Date from_, to_;
  int sign_;
};

/// The unit by whose steps a field comes to every value, and after how many it has been through
/// all.
struct Search {
  Component unit;
  int steps;

  /// No field that is searched for has more values than minutes.
  static bool mayFind(std::int64_t value) { return value >= 0 && value < 60; }
};

Search searchFor(Component component) {
  switch (component) {
    case Component::month:
      return {Component::month, 14};
    case Component::quarter:
      return {Component::quarter, 5};
    case Component::day:
      return {Component::day, 366};
    case Component::hour:
      return {Component::hour, 49};
    case Component::minute:
      return {Component::minute, 121};
    case Component::second:
      return {Component::second, 60};
    case Component::weekday:
      return {Component::day, 7};
    case Component::weekdayOrdinal:
    case Component::weekOfMonth:
    case Component::weekOfYear:
      return {Component::day, 53 * 7 * 12};
    default:
      return {component, 0};
  }
}

}  // namespace

std::optional<Date> Calendar::dateByAdding(Component component, std::int64_t value,
                                           Date date) const {
  if (!isKnown(date) || component == Component::calendar || component == Component::timeZone) {
    return std::nullopt;
  }
  if (value == 0) return date;
  if (component == Component::nanosecond) return addingNanoseconds(date, value);
  if (const std::int64_t unit = secondsOf(component); unit != 0) {
    return addingSeconds(date, value, unit);
  }
  const Instant instant(date);
  const LocalTime local(zone_.rules(), instant);
  if (const std::int64_t months = monthsOf(component);
      months != 0 && internal::isGregorian(identifier_) && isAmount(value)) {
    // Straight on: a day that is handed on in an optional waits for its parts to be written.
    const std::int64_t day = internal::gregorianDayPlusMonths(local.day, value * months);
    return internal::dateOfLocalDay(zone_.rules(), day, local.secondOfDay, instant.fraction);
  }
  const auto day = addingToDay(*this, component, value, local.day);
  if (!day) return std::nullopt;
  return internal::dateOfLocalDay(zone_.rules(), *day, local.secondOfDay, instant.fraction);
}

std::optional<Date> Calendar::dateByAdding(const DateComponents& components, Date date) const {
  std::optional<Date> result = date;
  for (const Component unit : unitsInOrder) {
    const auto value = components.value(unit);
    if (value && result) result = dateByAdding(unit, *value, *result);
  }
  return result;
}

DateComponents Calendar::dateComponents(Components components, Date from, Date to) const {
  DateComponents result;
  Date reached = Instant(from).date();
  const Date end = Instant(to).date();
  for (const Component unit : unitsInOrder) {
    if (std::find(components.begin(), components.end(), unit) == components.end()) continue;
    const std::int64_t count = UnitCount(*this, unit, reached, end).count();
    result.setValue(count, unit);
    reached = dateByAdding(unit, count, reached).value_or(reached);
  }
  return result;
}

std::optional<Date> Calendar::dateBySetting(Component component, std::int64_t value,
                                            Date date) const {
  if (!isKnown(date) || component == Component::calendar || component == Component::timeZone) {
    return std::nullopt;
  }
  const std::int64_t now = this->component(component, date);
  if (now == value) return date;
  if (component == Component::nanosecond) {
    if (value < 0 || value >= internal::nanosecondsASecond) return std::nullopt;
    return Instant(Instant(date).second, static_cast<double>(value) * 1e-9).date();
  }
  const bool isYear = component == Component::year || component == Component::yearForWeekOfYear;
  if (isYear || component == Component::era) {
    std::int64_t change = 0;
    if (value < now || __builtin_sub_overflow(value, now, &change)) return std::nullopt;
    const auto later = dateByAdding(component, change, date);
    return later && this->component(component, *later) == value ? later : std::nullopt;
  }
  if (!Search::mayFind(value)) return std::nullopt;
  const Search search = searchFor(component);
  for (int step = 1; step <= search.steps; ++step) {
    const auto later = dateByAdding(search.unit, step, date);
    if (!later) return std::nullopt;
    if (this->component(component, *later) == value) return later;
  }
  return std::nullopt;
}

std::optional<Date> Calendar::dateBySettingHour(int hour, int minute, int second, Date date) const {
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59 ||
      !isKnown(date)) {
    return std::nullopt;
  }
  const auto& zone = zone_.rules();
  const std::int64_t day = LocalTime(zone, Instant(date)).day;
  const std::int64_t wanted = day * secondsADay + std::int64_t{hour * 60 + minute} * 60 + second;
  const auto result = internal::dateOfLocal(zone, wanted);
  if (!result) return std::nullopt;
  const Instant instant(*result);
  const std::int64_t skipped = LocalTime(zone, instant).second - wanted;
  if (skipped == 0) return result;
  const auto transition = zone.nextTransition(instant.second - skipped);
  return Instant(transition.value_or(instant.second), 0).date();
}

}  // namespace tessarine
