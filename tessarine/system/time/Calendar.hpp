#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/system/time/DateInterval.hpp"
#include "tessarine/system/time/Locale.hpp"
#include "tessarine/system/time/TimeZone.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/values/EnumCases.hpp"
#include "tessarine/values/Range.hpp"

namespace tessarine {

struct DateComponents;

/// Days, months and years as people of one culture count them, in one zone. A small value to pass
/// by copy; reading is safe from any thread.
///
/// Dates reach two million years either way; what lies behind counts as the last of them when its
/// fields are read, and is absent as a result. The Gregorian calendar is Julian before 15 October
/// 1582, and its years before 1 are those of era 0, counted backwards. A time that clocks skip
/// moves forward by what they skip; of one that they show twice the first is meant.
///
/// Gregorian and ISO 8601 fields take some ten nanoseconds, those of the other calendars a
/// microsecond.
class TESSARINE_EXPORT Calendar {
 public:
  enum class Identifier : std::uint8_t {
    gregorian,
    buddhist,
    chinese,
    coptic,
    ethiopicAmeteMihret,
    ethiopicAmeteAlem,
    hebrew,
    iso8601,
    indian,
    islamic,
    islamicCivil,
    japanese,
    persian,
    republicOfChina,
    islamicTabular,
    islamicUmmAlQura
  };

  enum class Component : std::uint8_t {
    era,
    year,
    month,
    day,
    hour,
    minute,
    second,
    weekday,         ///< 1 for Sunday to 7 for Saturday
    weekdayOrdinal,  ///< the how manieth of that weekday in its month
    quarter,         ///< 1 to 4
    weekOfMonth,
    weekOfYear,
    yearForWeekOfYear,
    nanosecond,
    calendar,
    timeZone
  };
  using Components = std::initializer_list<Component>;

  /// With the defaults of its identifier: weeks begin on Sunday and the first has one day, in ISO
  /// 8601 on Monday with four; weekends are Saturday and Sunday; the root locale; the current zone.
  explicit Calendar(Identifier identifier) noexcept : Calendar(identifier, TimeZone::current()) {}
  Calendar(Identifier identifier, TimeZone zone) noexcept : zone_(zone), identifier_(identifier) {
    if (identifier == Identifier::iso8601) {
      firstWeekday_ = 2;
      minimumDaysInFirstWeek_ = 4;
    }
  }

  /// The host's: what `setCurrent` was given, else Gregorian with the weeks of the current locale;
  /// in the current zone.
  static Calendar current();
  static Identifier currentIdentifier() noexcept;
  /// What counts of it is its identifier, first weekday and first week; the locale and the zone
  /// stay the host's.
  static void setCurrent(const Calendar& calendar) noexcept;

  Identifier identifier() const noexcept { return identifier_; }
  TimeZone timeZone() const noexcept { return zone_; }
  void setTimeZone(TimeZone zone) noexcept { zone_ = zone; }
  Locale locale() const noexcept { return locale_; }
  /// Takes the locale's weekend too, and leaves the beginning of weeks as it is.
  void setLocale(Locale locale);
  int firstWeekday() const noexcept { return firstWeekday_; }
  /// Values outside 1 to 7 change nothing, here and below.
  void setFirstWeekday(int weekday) noexcept;
  int minimumDaysInFirstWeek() const noexcept { return minimumDaysInFirstWeek_; }
  void setMinimumDaysInFirstWeek(int days) noexcept;

  /// One field of a date; 0 for `calendar` and `timeZone`.
  std::int64_t component(Component component, Date date) const;
  /// Those fields, the others absent.
  DateComponents dateComponents(Components components, Date date) const;
  /// How far it is from one date to the other in those units, the greatest first: as many of each
  /// as do not lead past the second date. All negative or 0 when that lies before the first.
  DateComponents dateComponents(Components components, Date from, Date to) const;

  /// The date with these fields, and the least value for those that are absent (year 1, 1 January).
  /// Values outside a field's range carry over, as the 32nd of a month is the 1st of the next.
  /// Takes a week and a year of weeks when they are given without a day, else the day, else a
  /// weekday with its ordinal or the week of the month. Their zone goes before the calendar's.
  std::optional<Date> dateFrom(const DateComponents& components) const;

  /// The date that `dateFrom` makes of the date's fields from the year down to `least`, which may
  /// be `year` to `second`, or of its week and year of weeks with `weekOfYear`; absent for others.
  std::optional<Date> dateKeeping(Component least, Date date) const;

  /// The date that many units later, or earlier when negative. Days and longer units keep the time
  /// of day, months and years the day as far as the month has it. Eras end at the last.
  std::optional<Date> dateByAdding(Component component, std::int64_t value, Date date) const;
  /// All of them, the greatest first.
  std::optional<Date> dateByAdding(const DateComponents& components, Date date) const;
  /// The date itself when the field has that value; else the next date at which it has, with all
  /// smaller fields as they are. Nanoseconds are set within their second. Absent when there is
  /// none.
  std::optional<Date> dateBySetting(Component component, std::int64_t value, Date date) const;
  /// That time on the date's day; where clocks skip it, the first instant after. Absent for a time
  /// that no clock shows.
  std::optional<Date> dateBySettingHour(int hour, int minute, int second, Date date) const;

  /// The values that the smaller unit takes within the larger one that holds the date: days in its
  /// month, months in its year, hours in a day. Absent for a pair that means nothing.
  std::optional<Range<std::int64_t>> rangeOf(Component smaller, Component larger, Date date) const;
  /// The unit that holds the date. Absent for eras and for units that are no span of time.
  std::optional<DateInterval> dateIntervalOf(Component component, Date date) const;
  /// The first instant of the date's day.
  Date startOfDay(Date date) const;

  bool isDateInToday(Date date) const;
  bool isDateInYesterday(Date date) const;
  bool isDateInTomorrow(Date date) const;
  bool isDateInWeekend(Date date) const;
  /// Whether both dates lie in the same unit.
  bool isDateEqual(Date date, Date other, Component granularity) const;

  /// Names of the months in the calendar's locale, in the order of the year.
  std::vector<std::string> monthSymbols() const;

  bool operator==(const Calendar&) const noexcept = default;

 private:
  TimeZone zone_;
  Locale locale_;
  Identifier identifier_;
  std::uint8_t firstWeekday_ = 1;
  std::uint8_t minimumDaysInFirstWeek_ = 1;
  std::uint8_t weekend_ = 1U << 1U | 1U << 7U;  // a bit for each weekday
};

// Their raw values are their names: `enumFromRawValue<Calendar::Identifier>("hebrew")`.

template <>
struct EnumCases<Calendar::Identifier> {
  static constexpr std::array all{
      std::pair{Calendar::Identifier::gregorian, std::string_view("gregorian")},
      std::pair{Calendar::Identifier::buddhist, std::string_view("buddhist")},
      std::pair{Calendar::Identifier::chinese, std::string_view("chinese")},
      std::pair{Calendar::Identifier::coptic, std::string_view("coptic")},
      std::pair{Calendar::Identifier::ethiopicAmeteMihret, std::string_view("ethiopicAmeteMihret")},
      std::pair{Calendar::Identifier::ethiopicAmeteAlem, std::string_view("ethiopicAmeteAlem")},
      std::pair{Calendar::Identifier::hebrew, std::string_view("hebrew")},
      std::pair{Calendar::Identifier::iso8601, std::string_view("iso8601")},
      std::pair{Calendar::Identifier::indian, std::string_view("indian")},
      std::pair{Calendar::Identifier::islamic, std::string_view("islamic")},
      std::pair{Calendar::Identifier::islamicCivil, std::string_view("islamicCivil")},
      std::pair{Calendar::Identifier::japanese, std::string_view("japanese")},
      std::pair{Calendar::Identifier::persian, std::string_view("persian")},
      std::pair{Calendar::Identifier::republicOfChina, std::string_view("republicOfChina")},
      std::pair{Calendar::Identifier::islamicTabular, std::string_view("islamicTabular")},
      std::pair{Calendar::Identifier::islamicUmmAlQura, std::string_view("islamicUmmAlQura")}};
};

template <>
struct EnumCases<Calendar::Component> {
  static constexpr std::array all{
      std::pair{Calendar::Component::era, std::string_view("era")},
      std::pair{Calendar::Component::year, std::string_view("year")},
      std::pair{Calendar::Component::month, std::string_view("month")},
      std::pair{Calendar::Component::day, std::string_view("day")},
      std::pair{Calendar::Component::hour, std::string_view("hour")},
      std::pair{Calendar::Component::minute, std::string_view("minute")},
      std::pair{Calendar::Component::second, std::string_view("second")},
      std::pair{Calendar::Component::weekday, std::string_view("weekday")},
      std::pair{Calendar::Component::weekdayOrdinal, std::string_view("weekdayOrdinal")},
      std::pair{Calendar::Component::quarter, std::string_view("quarter")},
      std::pair{Calendar::Component::weekOfMonth, std::string_view("weekOfMonth")},
      std::pair{Calendar::Component::weekOfYear, std::string_view("weekOfYear")},
      std::pair{Calendar::Component::yearForWeekOfYear, std::string_view("yearForWeekOfYear")},
      std::pair{Calendar::Component::nanosecond, std::string_view("nanosecond")},
      std::pair{Calendar::Component::calendar, std::string_view("calendar")},
      std::pair{Calendar::Component::timeZone, std::string_view("timeZone")}};
};

}  // namespace tessarine
