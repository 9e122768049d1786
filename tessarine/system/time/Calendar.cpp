#include "tessarine/system/time/Calendar.hpp"

#include <algorithm>
#include <atomic>

#include "tessarine/system/time/DateComponents.hpp"
#include "tessarine/system/time/internal/DaySystem.hpp"
#include "tessarine/system/time/internal/GregorianDay.hpp"
#include "tessarine/system/time/internal/GregorianField.hpp"
#include "tessarine/system/time/internal/LocalTime.hpp"
#include "tessarine/system/time/internal/LocaleFacts.hpp"
#include "tessarine/system/time/internal/Weeks.hpp"

namespace tessarine {
namespace {

using internal::DayFields;
using internal::DaySystem;
using internal::Instant;
using internal::LocalTime;
using internal::secondsADay;
using internal::WeekRule;
using Component = Calendar::Component;

WeekRule weekRule(const Calendar& calendar) {
  return {calendar.firstWeekday(), calendar.minimumDaysInFirstWeek()};
}

/// What the host has set of its calendar; 0 where it has not. Of a size that is read in one go.
struct alignas(4) HostCalendar {
  Calendar::Identifier identifier = Calendar::Identifier::gregorian;
  std::uint8_t firstWeekday = 0;
  std::uint8_t minimumDaysInFirstWeek = 0;
};

std::atomic<HostCalendar> hostCalendar{};
static_assert(std::atomic<HostCalendar>::is_always_lock_free);

/// A date as clocks and a calendar show it.
struct ShownDate {
  const Calendar& calendar;
  const DaySystem& days;
  const Instant& instant;
  const LocalTime& local;
  DayFields fields = days.fields(local.day);

  std::int64_t field(Component component) const {
    if (internal::isClockField(component)) return internal::clockField(local, component);
    switch (component) {
      case Component::era:
        return fields.era;
      case Component::year:
        return fields.year;
      case Component::month:
        return fields.month;
      case Component::day:
        return fields.day;
      case Component::nanosecond:
        return internal::nanosecondOf(instant);
      case Component::weekdayOrdinal:
        return (fields.day - 1) / 7 + 1;
      case Component::quarter:
        return std::min((fields.month - 1) / 3, 3) + 1;
      case Component::weekOfMonth:
        return internal::weekOfMonth(weekRule(calendar), local.day, fields.day);
      case Component::weekOfYear:
        return week().week;
      case Component::yearForWeekOfYear:
        return week().year;
      default:
        return 0;
    }
  }

 private:
  internal::WeekOfYear week() const {
    return internal::weekOfYear(days, weekRule(calendar), local.day, fields.extendedYear);
  }
};

/// The day that the components ask for.
class DayResolution {
 public:
  DayResolution(const Calendar& calendar, const DateComponents& components)
      : days_(internal::daySystem(calendar.identifier())),
        rule_(weekRule(calendar)),
        components_(components) {}

  std::optional<std::int64_t> day() const {
    const auto& c = components_;
    if (c.day || c.month || !(c.weekOfYear || c.yearForWeekOfYear)) {
      if (!c.day && c.weekday && c.weekdayOrdinal) return ordinalWeekday();
      if (!c.day && c.weekOfMonth) return weekOfMonth();
      return days_.day(request(c.day.value_or(1)));
    }
    return weekOfYear();
  }

 private:
  internal::DayRequest request(std::int64_t day) const {
    return {.era = components_.era,
            .year = components_.year.value_or(1),
            .month = components_.month.value_or(1),
            .day = day,
            .isLeapMonth = components_.isLeapMonth.value_or(false)};
  }

  std::optional<std::int64_t> ordinalWeekday() const {
    const auto first = days_.day(request(1));
    if (!first) return std::nullopt;
    const std::int64_t toWeekday = daysToWeekday(internal::weekdayOf(*first));
    const std::int64_t ordinal = *components_.weekdayOrdinal;
    if (ordinal >= 0) return plusWeeks(*first + toWeekday, ordinal, 1);
    const std::int64_t length = days_.daysInMonth(*first);
    return plusWeeks(*first + toWeekday + (length - 1 - toWeekday) / 7 * 7, ordinal, -1);
  }

  std::optional<std::int64_t> weekOfMonth() const {
    const auto first = days_.day(request(1));
    if (!first) return std::nullopt;
    return plusWeeks(rule_.firstWeek(*first) + daysToWeekday(rule_.firstWeekday),
                     *components_.weekOfMonth, 1);
  }

  std::optional<std::int64_t> weekOfYear() const {
    const std::int64_t year = components_.yearForWeekOfYear.value_or(components_.year.value_or(1));
    if (year < -greatestYear || year > greatestYear) return std::nullopt;
    return plusWeeks(
        rule_.firstWeek(days_.firstDayOfYear(year)) + daysToWeekday(rule_.firstWeekday),
        components_.weekOfYear.value_or(1), 1);
  }

  /// From a weekday to the one asked for, 0 to 6; without one the week's first is.
  std::int64_t daysToWeekday(int from) const {
    const std::int64_t weekday = components_.weekday.value_or(rule_.firstWeekday);
    return (internal::floorModulo(weekday, 7) - from + 7) % 7;
  }

  /// The day that many weeks later, of which `counted` are no step.
  static std::optional<std::int64_t> plusWeeks(std::int64_t day, std::int64_t weeks, int counted) {
    if (weeks < -greatestWeeks || weeks > greatestWeeks) return std::nullopt;
    return day + (weeks - counted) * 7;
  }

  static constexpr std::int64_t greatestYear = 3'000'000;
  static constexpr std::int64_t greatestWeeks = greatestYear * 53;

  const DaySystem& days_;
  WeekRule rule_;
  const DateComponents& components_;
};

/// What `dateFrom` makes of a Gregorian date's fields from the year down to `least`.
std::optional<Date> gregorianKeeping(TimeZone zone, Component least, Date date) {
  const LocalTime local(zone.rules(), Instant(date));
  internal::CivilDay day = internal::gregorianFromDays(local.day);
  if (day.year < 1) day.year = 1 - day.year;  // the fields do not say the era
  if (least <= Component::month) day.day = 1;
  if (least == Component::year) day.month = 1;
  int seconds = local.secondOfDay;
  if (least <= Component::day) seconds = 0;
  if (least == Component::hour) seconds -= seconds % 3600;
  if (least == Component::minute) seconds -= seconds % 60;
  return internal::dateOfLocalDay(zone.rules(), internal::daysFromGregorian(day), seconds);
}

/// `seconds` plus an amount of a unit; absent when that is no number of seconds.
std::optional<std::int64_t> plus(std::optional<std::int64_t> seconds,
                                 std::optional<std::int64_t> amount, std::int64_t unit) {
  std::int64_t product = 0;
  std::int64_t sum = 0;
  if (!seconds || __builtin_mul_overflow(amount.value_or(0), unit, &product) ||
      __builtin_add_overflow(*seconds, product, &sum)) {
    return std::nullopt;
  }
  return sum;
}

}  // namespace

Calendar Calendar::current() {
  const HostCalendar host = hostCalendar.load(std::memory_order_acquire);
  Calendar calendar(host.identifier);
  calendar.setLocale(Locale::current());
  const auto& weeks = calendar.locale_.facts().weeks();
  const bool isIso = host.identifier == Identifier::iso8601;
  if (!isIso) calendar.firstWeekday_ = weeks.firstWeekday;
  if (!isIso) calendar.minimumDaysInFirstWeek_ = weeks.minimumDaysInFirstWeek;
  if (host.firstWeekday != 0) calendar.firstWeekday_ = host.firstWeekday;
  if (host.minimumDaysInFirstWeek != 0) {
    calendar.minimumDaysInFirstWeek_ = host.minimumDaysInFirstWeek;
  }
  return calendar;
}

Calendar::Identifier Calendar::currentIdentifier() noexcept {
  return hostCalendar.load(std::memory_order_acquire).identifier;
}

void Calendar::setCurrent(const Calendar& calendar) noexcept {
  hostCalendar.store(
      {calendar.identifier_, calendar.firstWeekday_, calendar.minimumDaysInFirstWeek_},
      std::memory_order_release);
}

void Calendar::setLocale(Locale locale) {
  locale_ = locale;
  weekend_ = locale.facts().weeks().weekend;
}

void Calendar::setFirstWeekday(int weekday) noexcept {
  if (weekday >= 1 && weekday <= 7) firstWeekday_ = static_cast<std::uint8_t>(weekday);
}

void Calendar::setMinimumDaysInFirstWeek(int days) noexcept {
  if (days >= 1 && days <= 7) minimumDaysInFirstWeek_ = static_cast<std::uint8_t>(days);
}

std::int64_t Calendar::component(Component component, Date date) const {
  const Instant instant(date);
  const LocalTime local(zone_.rules(), instant);
  if (internal::isClockField(component)) return internal::clockField(local, component);
  if (component == Component::nanosecond) return internal::nanosecondOf(instant);
  if (component <= Component::day && internal::isGregorian(identifier_)) {
    return internal::gregorianField(local.day, component);
  }
  return ShownDate{*this, internal::daySystem(identifier_), instant, local}.field(component);
}

DateComponents Calendar::dateComponents(Components components, Date date) const {
  const Instant instant(date);
  const LocalTime local(zone_.rules(), instant);
  const ShownDate shown{*this, internal::daySystem(identifier_), instant, local};
  DateComponents result;
  for (const Component component : components) {
    result.setValue(shown.field(component), component);
    if (component == Component::month) result.isLeapMonth = shown.fields.isLeapMonth;
    if (component == Component::calendar) result.calendar = *this;
    if (component == Component::timeZone) result.timeZone = zone_;
  }
  return result;
}

std::optional<Date> Calendar::dateFrom(const DateComponents& components) const {
  const auto day = DayResolution(*this, components).day();
  if (!day) return std::nullopt;
  std::optional<std::int64_t> seconds = 0;
  seconds = plus(seconds, day, secondsADay);
  seconds = plus(seconds, components.hour, 3600);
  seconds = plus(seconds, components.minute, 60);
  seconds = plus(seconds, components.second, 1);
  const std::int64_t nanoseconds = components.nanosecond.value_or(0);
  const std::int64_t carried = internal::floorDivide(nanoseconds, internal::nanosecondsASecond);
  seconds = plus(seconds, carried, 1);
  if (!seconds) return std::nullopt;
  const auto rest =
      static_cast<double>(internal::floorModulo(nanoseconds, internal::nanosecondsASecond));
  const TimeZone zone = components.timeZone.value_or(zone_);
  return internal::dateOfLocal(zone.rules(), *seconds, rest * 1e-9);
}

std::optional<Date> Calendar::dateKeeping(Component least, Date date) const {
  using enum Component;
  if (internal::isGregorian(identifier_) && least >= Component::year &&
      least <= Component::second) {
    return gregorianKeeping(zone_, least, date);
  }
  const auto from = [&](Components fields) { return dateFrom(dateComponents(fields, date)); };
  switch (least) {
    case Component::year:
      return from({year});
    case Component::month:
      return from({year, month});
    case Component::day:
      return from({year, month, day});
    case Component::hour:
      return from({year, month, day, hour});
    case Component::minute:
      return from({year, month, day, hour, minute});
    case Component::second:
      return from({year, month, day, hour, minute, second});
    case Component::weekOfYear:
      return from({yearForWeekOfYear, weekOfYear});
    default:
      return std::nullopt;
  }
}

Date Calendar::startOfDay(Date date) const {
  const LocalTime local(zone_.rules(), Instant(date));
  return internal::dateOfLocalDay(zone_.rules(), local.day).value_or(date);
}

std::vector<std::string> Calendar::monthSymbols() const {
  return internal::daySystem(identifier_).monthSymbols(locale_.identifier());
}

}  // namespace tessarine
