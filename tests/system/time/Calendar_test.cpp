#include "tessarine/system/time/Calendar.hpp"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tessarine/system/time/DateComponents.hpp"
#include "tessarine/system/time/internal/CivilDay.hpp"
#include "tessarine/system/time/internal/GregorianDay.hpp"
#include "tessarine/system/time/internal/ZoneRules.hpp"

#include <gtest/gtest.h>
#include <unicode/gregocal.h>
#include <unicode/simpletz.h>

namespace tessarine {
namespace {

using Component = Calendar::Component;
using Identifier = Calendar::Identifier;

constexpr std::int64_t secondsADay = 86400;

Calendar gregorianIn(const std::string& zone) {
  return Calendar(Identifier::gregorian, TimeZone::withIdentifier(zone).value());
}

Date civil(const Calendar& calendar, std::int64_t year, int month, int day, int hour = 0,
           int minute = 0, int second = 0) {
  return calendar
      .dateFrom({.year = year,
                 .month = month,
                 .day = day,
                 .hour = hour,
                 .minute = minute,
                 .second = second})
      .value();
}

std::string text(const Calendar& calendar, Date date) {
  const auto f = calendar.dateComponents({Component::year, Component::month, Component::day,
                                          Component::hour, Component::minute, Component::second},
                                         date);
  std::array<char, 80> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%04lld-%02lld-%02lld %02lld:%02lld:%02lld",
                static_cast<long long>(*f.year), static_cast<long long>(*f.month),
                static_cast<long long>(*f.day), static_cast<long long>(*f.hour),
                static_cast<long long>(*f.minute), static_cast<long long>(*f.second));
  return buffer.data();
}

struct FieldPair {
  Component ours;
  UCalendarDateFields icu;
  int difference;
};

constexpr std::array fieldPairs = {
    FieldPair{Component::era, UCAL_ERA, 0},
    FieldPair{Component::year, UCAL_YEAR, 0},
    FieldPair{Component::month, UCAL_MONTH, 1},
    FieldPair{Component::day, UCAL_DATE, 0},
    FieldPair{Component::hour, UCAL_HOUR_OF_DAY, 0},
    FieldPair{Component::minute, UCAL_MINUTE, 0},
    FieldPair{Component::second, UCAL_SECOND, 0},
    FieldPair{Component::weekday, UCAL_DAY_OF_WEEK, 0},
    FieldPair{Component::weekdayOrdinal, UCAL_DAY_OF_WEEK_IN_MONTH, 0},
    FieldPair{Component::weekOfMonth, UCAL_WEEK_OF_MONTH, 0},
    FieldPair{Component::weekOfYear, UCAL_WEEK_OF_YEAR, 0},
    FieldPair{Component::yearForWeekOfYear, UCAL_YEAR_WOY, 0},
};

/// ICU counts the year of the change from one calendar to the other as if it had 365 days, and its
/// last week with it.
bool isWhereIcuMiscounts(std::int64_t second) {
  return second > internal::daysFromCivil({1582, 12, 18}) * secondsADay &&
         second < internal::daysFromCivil({1583, 1, 15}) * secondsADay;
}

class IcuOracle {
 public:
  explicit IcuOracle(const Calendar& calendar) {
    UErrorCode status = U_ZERO_ERROR;
    icu_ = std::make_unique<icu::GregorianCalendar>(icu::Locale::getUS(), status);
    icu_->setFirstDayOfWeek(static_cast<UCalendarDaysOfWeek>(calendar.firstWeekday()));
    icu_->setMinimalDaysInFirstWeek(static_cast<std::uint8_t>(calendar.minimumDaysInFirstWeek()));
  }

  icu::GregorianCalendar& at(std::int64_t second, int offset) {
    icu_->adoptTimeZone(new icu::SimpleTimeZone(offset * 1000, "fixed"));
    UErrorCode status = U_ZERO_ERROR;
    icu_->setTime(static_cast<double>(second) * 1000, status);
    return *icu_;
  }

 private:
  std::unique_ptr<icu::GregorianCalendar> icu_;
};

TEST(Calendar, FieldsEqualIcusInEveryZone) {
  std::mt19937_64 random(6101);
  std::uniform_int_distribution<std::int64_t> any(
      internal::daysFromJulian({1, 1, 2}) * secondsADay,
      internal::daysFromCivil({3000, 12, 31}) * secondsADay);
  for (const std::string& name : TimeZone::knownTimeZoneIdentifiers()) {
    SCOPED_TRACE(name);
    Calendar calendar = gregorianIn(name);
    calendar.setFirstWeekday(static_cast<int>(random() % 7) + 1);
    calendar.setMinimumDaysInFirstWeek(static_cast<int>(random() % 7) + 1);
    IcuOracle oracle(calendar);
    std::vector<std::int64_t> seconds;
    seconds.reserve(100);
    for (int i = 0; i < 60; ++i) seconds.push_back(any(random));
    const auto spans = calendar.timeZone().rules().spans();
    for (int i = 0; i < 40 && spans.size() > 1; ++i) {
      const auto& span = spans[1 + random() % (spans.size() - 1)];
      seconds.push_back(span.start + static_cast<std::int64_t>(random() % 7201) - 3600);
    }
    for (const std::int64_t second : seconds) {
      const Date date = Date::since1970(static_cast<double>(second));
      const auto& icu = oracle.at(second, calendar.timeZone().secondsFromGMT(date));
      for (const auto& [ours, theirs, difference] : fieldPairs) {
        const bool isWeek = ours == Component::weekOfYear || ours == Component::yearForWeekOfYear;
        if (isWeek && isWhereIcuMiscounts(second)) continue;
        UErrorCode status = U_ZERO_ERROR;
        ASSERT_EQ(calendar.component(ours, date), icu.get(theirs, status) + difference)
            << "field " << static_cast<int>(ours) << " at " << second;
      }
    }
  }
}

TEST(Calendar, AddingEqualsIcus) {
  const Calendar calendar = gregorianIn("GMT");
  IcuOracle oracle(calendar);
  std::mt19937_64 random(6102);
  std::uniform_int_distribution<std::int64_t> any(
      internal::daysFromJulian({600, 1, 1}) * secondsADay,
      internal::daysFromCivil({3000, 12, 31}) * secondsADay);
  constexpr std::array units = {
      std::pair{Component::year, UCAL_YEAR}, std::pair{Component::month, UCAL_MONTH},
      std::pair{Component::day, UCAL_DATE}, std::pair{Component::weekOfYear, UCAL_WEEK_OF_YEAR},
      std::pair{Component::hour, UCAL_HOUR}};
  for (int i = 0; i < 40'000; ++i) {
    const auto& [ours, theirs] = units[random() % units.size()];
    const std::int64_t second = any(random);
    const int count = static_cast<int>(random() % 1001) - 500;
    auto& icu = oracle.at(second, 0);
    UErrorCode status = U_ZERO_ERROR;
    icu.add(theirs, count, status);
    const auto expected = static_cast<std::int64_t>(std::floor(icu.getTime(status) / 1000));
    // Around the change of calendars ICU counts lengths of months its own way.
    const auto isNearChange = [](std::int64_t at) {
      return std::llabs(at / secondsADay - internal::firstGregorianDay) < 500;
    };
    if (isNearChange(second) || isNearChange(expected)) continue;
    const auto result = calendar.dateByAdding(ours, count, Date::since1970(double(second)));
    ASSERT_EQ(result->timeIntervalSince1970(), static_cast<double>(expected))
        << second << " and " << count << " of unit " << static_cast<int>(ours);
  }
}

TEST(Calendar, AWholeCycleOfDays) {
  const Calendar iso(Identifier::iso8601, TimeZone::gmt());
  for (std::int64_t day = 0; day < 146'097; ++day) {
    const std::chrono::sys_days expected{std::chrono::days(day)};
    const std::chrono::year_month_day civilDay(expected);
    const Date date = Date::since1970(static_cast<double>(day * secondsADay + 43'200));
    const auto fields =
        iso.dateComponents({Component::year, Component::month, Component::day, Component::weekday,
                            Component::weekOfYear, Component::yearForWeekOfYear},
                           date);
    ASSERT_EQ(*fields.year, static_cast<int>(civilDay.year()));
    ASSERT_EQ(*fields.month, static_cast<unsigned>(civilDay.month()));
    ASSERT_EQ(*fields.day, static_cast<unsigned>(civilDay.day()));
    ASSERT_EQ(*fields.weekday, std::chrono::weekday(expected).c_encoding() + 1);
    // The year by itself, here and 4000 such cycles on.
    constexpr double far = 4000.0 * 146'097 * secondsADay;
    ASSERT_EQ(iso.component(Component::year, date), *fields.year);
    ASSERT_EQ(iso.component(Component::year, Date(date.timeIntervalSinceReferenceDate() + far)),
              *fields.year + 1'600'000);
    // ISO 8601: a week belongs to the year that has its Thursday.
    const auto thursday =
        expected +
        std::chrono::days(4 - static_cast<int>(std::chrono::weekday(expected).iso_encoding()));
    const std::chrono::year_month_day thursdayDay(thursday);
    const std::chrono::sys_days newYear{thursdayDay.year() / 1 / 1};
    ASSERT_EQ(*fields.yearForWeekOfYear, static_cast<int>(thursdayDay.year()));
    ASSERT_EQ(*fields.weekOfYear, (thursday - newYear).count() / 7 + 1);
    // And back, by the day and by the week.
    ASSERT_EQ(iso.dateFrom({.year = fields.year, .month = fields.month, .day = fields.day}),
              iso.startOfDay(date));
    ASSERT_EQ(iso.dateFrom({.weekday = fields.weekday,
                            .weekOfYear = fields.weekOfYear,
                            .yearForWeekOfYear = fields.yearForWeekOfYear}),
              iso.startOfDay(date));
  }
}

TEST(Calendar, FromJulianToGregorian) {
  const Calendar calendar = gregorianIn("GMT");
  const Date last = civil(calendar, 1582, 10, 4);
  EXPECT_EQ(text(calendar, calendar.dateByAdding(Component::day, 1, last).value()),
            "1582-10-15 00:00:00");
  EXPECT_EQ(text(calendar, civil(calendar, 1582, 10, 10)), "1582-10-20 00:00:00");
  EXPECT_EQ(text(calendar, civil(calendar, 1500, 2, 29)), "1500-02-29 00:00:00");
  EXPECT_EQ(calendar.dateIntervalOf(Component::month, last)->duration(), 21 * 86400.0);
  // The year before year 1 is year 1 of the era before.
  const Date before = calendar.dateByAdding(Component::day, -1, civil(calendar, 1, 1, 1)).value();
  EXPECT_EQ(calendar.component(Component::year, before), 1);
  EXPECT_EQ(calendar.component(Component::era, before), 0);
  EXPECT_EQ(calendar.dateFrom({.era = 0, .year = 1, .month = 12, .day = 31}), before);
}

TEST(Calendar, ClockChanges) {
  const Calendar calendar = gregorianIn("America/New_York");
  const auto adding = [&](Component unit, int count, Date date) {
    return text(calendar, calendar.dateByAdding(unit, count, date).value());
  };
  const Date before = civil(calendar, 2024, 3, 9, 2, 30);
  EXPECT_EQ(adding(Component::day, 1, before), "2024-03-10 03:30:00");  // skipped
  EXPECT_EQ(adding(Component::day, 2, before), "2024-03-11 02:30:00");
  EXPECT_EQ(adding(Component::hour, 24, before), "2024-03-10 03:30:00");
  // 1:30 comes twice; the first is meant, an hour's step leads to the second.
  const Date first = civil(calendar, 2024, 11, 3, 1, 30);
  EXPECT_EQ(calendar.timeZone().abbreviation(first), "EDT");
  const Date second = calendar.dateByAdding(Component::hour, 1, first).value();
  EXPECT_EQ(text(calendar, second), "2024-11-03 01:30:00");
  EXPECT_EQ(calendar.timeZone().abbreviation(second), "EST");
  EXPECT_EQ(calendar.dateByAdding(Component::month, 0, second), second);
  EXPECT_EQ(calendar.dateIntervalOf(Component::day, first)->duration(), 25 * 3600.0);
  // Midnight is skipped in Beirut, comes twice in Havana.
  const Calendar beirut = gregorianIn("Asia/Beirut");
  EXPECT_EQ(text(beirut, beirut.startOfDay(civil(beirut, 2022, 3, 27, 12))), "2022-03-27 01:00:00");
  const Calendar havana = gregorianIn("America/Havana");
  const Date day = havana.startOfDay(civil(havana, 2023, 11, 5, 12));
  EXPECT_EQ(havana.dateIntervalOf(Component::day, day)->duration(), 25 * 3600.0);
  // A day that an island left out.
  const Calendar apia = gregorianIn("Pacific/Apia");
  EXPECT_EQ(text(apia, apia.dateByAdding(Component::day, 1, civil(apia, 2011, 12, 29, 9)).value()),
            "2011-12-31 09:00:00");
  // The first time that exists.
  EXPECT_EQ(
      text(calendar, calendar.dateBySettingHour(2, 30, 0, civil(calendar, 2024, 3, 10)).value()),
      "2024-03-10 03:00:00");
}

// Counting days is the inverse of adding them, wherever clocks change.
TEST(Calendar, DifferencesUndoAdditions) {
  std::mt19937_64 random(6103);
  for (const std::string& name : TimeZone::knownTimeZoneIdentifiers()) {
    const Calendar calendar = gregorianIn(name);
    const auto spans = calendar.timeZone().rules().spans();
    for (std::size_t i = 1; i < spans.size() && spans[i].start < 2'200'000'000; ++i) {
      if (spans[i].start < 0 || random() % 4 != 0) continue;
      const double offset = static_cast<double>(random() % 345'600) - 172'800;
      const Date from = Date::since1970(static_cast<double>(spans[i].start) + offset);
      const auto count = static_cast<std::int64_t>(random() % 81) - 40;
      for (const Component unit : {Component::day, Component::weekOfYear, Component::hour}) {
        const Date to = calendar.dateByAdding(unit, count, from).value();
        const auto counted = calendar.dateComponents({unit}, from, to).value(unit);
        // Where a step ends in the hour that clocks show twice, fewer steps may lead as far.
        const Date again = calendar.dateByAdding(unit, *counted, from).value();
        ASSERT_TRUE(*counted == count || again == to)
            << name << ' ' << spans[i].start << ' ' << offset << ' ' << count;
      }
    }
  }
}

TEST(Calendar, DifferencesInSeveralUnits) {
  const Calendar calendar = gregorianIn("Europe/Paris");
  const Date from = civil(calendar, 2020, 1, 31, 10);
  const Date to = civil(calendar, 2024, 3, 1, 9, 30);
  const auto between = calendar.dateComponents(
      {Component::year, Component::month, Component::day, Component::hour, Component::minute}, from,
      to);
  EXPECT_EQ(between.year, 4);
  EXPECT_EQ(between.month, 1);  // to 29 February
  EXPECT_EQ(between.day, 0);
  EXPECT_EQ(between.hour, 23);
  EXPECT_EQ(between.minute, 30);
  EXPECT_EQ(calendar.dateByAdding(between, from), to);
  EXPECT_EQ(calendar.dateComponents({Component::month}, to, from).month, -49);
  EXPECT_EQ(calendar.dateComponents({Component::day}, from, from).day, 0);
  EXPECT_EQ(calendar.dateComponents({Component::nanosecond}, Date(0), Date(0.25)).nanosecond,
            250'000'000);
}

TEST(Calendar, AddingYearsOfWeeks) {
  const Calendar iso(Identifier::iso8601, TimeZone::gmt());
  const auto adding = [&](int years, const DateComponents& week) {
    const Date date = iso.dateFrom(week).value();
    const Date later = iso.dateByAdding(Component::yearForWeekOfYear, years, date).value();
    return iso.dateComponents(
        {Component::yearForWeekOfYear, Component::weekOfYear, Component::weekday}, later);
  };
  const DateComponents week{.weekday = 5, .weekOfYear = 53, .yearForWeekOfYear = 2020};
  EXPECT_EQ(adding(6, week),
            (DateComponents{.weekday = 5, .weekOfYear = 53, .yearForWeekOfYear = 2026}));
  EXPECT_EQ(adding(-1, week),
            (DateComponents{.weekday = 5, .weekOfYear = 52, .yearForWeekOfYear = 2019}));
}

TEST(Calendar, SettingFields) {
  const Calendar calendar = gregorianIn("GMT");
  const Date date = civil(calendar, 2024, 5, 15, 10, 20, 30);  // a Wednesday
  const auto setting = [&](Component component, std::int64_t value) {
    const auto result = calendar.dateBySetting(component, value, date);
    return result ? text(calendar, *result) : "absent";
  };
  EXPECT_EQ(setting(Component::weekday, 4), "2024-05-15 10:20:30");
  EXPECT_EQ(setting(Component::weekday, 6), "2024-05-17 10:20:30");
  EXPECT_EQ(setting(Component::weekday, 1), "2024-05-19 10:20:30");
  EXPECT_EQ(setting(Component::weekday, 8), "absent");
  EXPECT_EQ(setting(Component::weekOfYear, 1), "2024-12-29 10:20:30");
  EXPECT_EQ(setting(Component::quarter, 1), "2025-02-15 10:20:30");
  EXPECT_EQ(setting(Component::hour, 9), "2024-05-16 09:20:30");
  EXPECT_EQ(setting(Component::day, 31), "2024-05-31 10:20:30");
  EXPECT_EQ(setting(Component::year, 2030), "2030-05-15 10:20:30");
  EXPECT_EQ(setting(Component::year, 2020), "absent");
  EXPECT_EQ(setting(Component::calendar, 1), "absent");
  const auto nanosecond = calendar.dateBySetting(Component::nanosecond, 69'000'000, date);
  EXPECT_EQ(calendar.component(Component::nanosecond, nanosecond.value()), 69'000'000);
  EXPECT_EQ(text(calendar, *nanosecond), "2024-05-15 10:20:30");
}

TEST(Calendar, DatesFromPartialAndExcessiveFields) {
  const Calendar calendar = gregorianIn("GMT");
  const auto from = [&](const DateComponents& components) {
    const auto date = calendar.dateFrom(components);
    return date ? text(calendar, *date) : "absent";
  };
  EXPECT_EQ(from({}), "0001-01-01 00:00:00");
  EXPECT_EQ(from({.year = 2024, .month = 14, .day = 0}), "2025-01-31 00:00:00");
  EXPECT_EQ(from({.year = 2024, .hour = -1, .second = 3661}), "2024-01-01 00:01:01");
  EXPECT_EQ(from({.year = 2024, .month = 11, .weekday = 5, .weekdayOrdinal = 4}),
            "2024-11-28 00:00:00");
  EXPECT_EQ(from({.year = 2024, .month = 11, .weekday = 5, .weekdayOrdinal = -1}),
            "2024-11-28 00:00:00");
  EXPECT_EQ(from({.year = 2024, .month = 11, .weekOfMonth = 2}), "2024-11-03 00:00:00");
  const auto paris = TimeZone::withIdentifier("Europe/Paris");
  EXPECT_EQ(from({.timeZone = paris, .year = 2024, .month = 7}), "2024-06-30 22:00:00");
  for (const std::int64_t huge : {std::int64_t{1} << 62U, -(std::int64_t{1} << 62U),
                                  std::numeric_limits<std::int64_t>::min()}) {
    EXPECT_EQ(from({.year = huge}), "absent");
    EXPECT_EQ(from({.month = huge}), "absent");
    EXPECT_EQ(from({.day = huge}), "absent");
    EXPECT_EQ(from({.hour = huge}), "absent");
    EXPECT_EQ(from({.second = huge}), "absent");
    EXPECT_EQ(from({.weekOfYear = huge, .yearForWeekOfYear = 1}), "absent");
    EXPECT_EQ(from({.yearForWeekOfYear = huge}), "absent");
    EXPECT_EQ(from({.weekday = 1, .weekdayOrdinal = huge}), "absent");
    EXPECT_EQ(from({.weekOfMonth = huge}), "absent");
    calendar.dateFrom({.weekday = huge, .weekdayOrdinal = 1});
    calendar.dateFrom({.nanosecond = huge});
  }
}

constexpr std::array allIdentifiers = {Identifier::gregorian,
                                       Identifier::buddhist,
                                       Identifier::chinese,
                                       Identifier::coptic,
                                       Identifier::ethiopicAmeteMihret,
                                       Identifier::ethiopicAmeteAlem,
                                       Identifier::hebrew,
                                       Identifier::iso8601,
                                       Identifier::indian,
                                       Identifier::islamic,
                                       Identifier::islamicCivil,
                                       Identifier::japanese,
                                       Identifier::persian,
                                       Identifier::republicOfChina,
                                       Identifier::islamicTabular,
                                       Identifier::islamicUmmAlQura};

constexpr std::array allComponents = {Component::era,
                                      Component::year,
                                      Component::month,
                                      Component::day,
                                      Component::hour,
                                      Component::minute,
                                      Component::second,
                                      Component::weekday,
                                      Component::weekdayOrdinal,
                                      Component::quarter,
                                      Component::weekOfMonth,
                                      Component::weekOfYear,
                                      Component::yearForWeekOfYear,
                                      Component::nanosecond,
                                      Component::calendar,
                                      Component::timeZone};

TEST(Calendar, DatesThatNoCalendarKnows) {
  constexpr double infinite = std::numeric_limits<double>::infinity();
  for (const Identifier identifier : allIdentifiers) {
    const Calendar calendar(identifier, TimeZone::withIdentifier("Europe/Paris").value());
    for (const double interval : {infinite, std::nan(""), -1e300, -63'113'904e6}) {
      const Date date(interval);
      const bool isKnown = std::fabs(interval) <= 63'113'904e6;
      for (const Component component : allComponents) {
        SCOPED_TRACE(testing::Message()
                     << int(identifier) << ' ' << int(component) << ' ' << interval);
        calendar.component(component, date);
        calendar.dateIntervalOf(component, date);
        calendar.isDateEqual(date, date, component);
        if (!isKnown) {
          EXPECT_FALSE(calendar.dateByAdding(component, 1, date));
        }
      }
    }
  }
  const Calendar calendar = gregorianIn("GMT");
  EXPECT_EQ(calendar.component(Component::year, Date(infinite)), 2'002'001);
}

TEST(Calendar, AmountsThatNoCalendarKnows) {
  constexpr auto greatest = std::numeric_limits<std::int64_t>::max();
  for (const Identifier identifier : allIdentifiers) {
    const Calendar calendar(identifier, TimeZone::withIdentifier("Europe/Paris").value());
    for (const Component component : allComponents) {
      for (const std::int64_t huge : {greatest, -greatest - 1}) {
        SCOPED_TRACE(testing::Message() << int(identifier) << ' ' << int(component));
        const auto later = calendar.dateByAdding(component, huge, Date());
        EXPECT_FALSE(later && component != Component::nanosecond && component != Component::era);
        EXPECT_FALSE(calendar.dateBySetting(component, huge, Date(-7e10)));  // before Christ
      }
    }
  }
}

// Far from now Umm al-Qura is asked for as another calendar.
TEST(Calendar, UmmAlQuraBehindItsTables) {
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::Calendar> icu(icu::Calendar::createInstance(
      icu::TimeZone::getGMT()->clone(), icu::Locale("ar@calendar=islamic-umalqura"), status));
  const Calendar calendar(Identifier::islamicUmmAlQura, TimeZone::gmt());
  for (std::int64_t day = 74'500; day < 300'000; day += day < 75'500 ? 1 : 997) {
    const Date date = Date::since1970(static_cast<double>(day * secondsADay));
    icu->setTime(static_cast<double>(day * secondsADay) * 1000, status);
    ASSERT_EQ(calendar.component(Component::year, date), icu->get(UCAL_YEAR, status)) << day;
    ASSERT_EQ(calendar.component(Component::month, date), icu->get(UCAL_MONTH, status) + 1) << day;
    ASSERT_EQ(calendar.component(Component::day, date), icu->get(UCAL_DATE, status)) << day;
    ASSERT_EQ(calendar.rangeOf(Component::day, Component::month, date)->upperBound,
              icu->getActualMaximum(UCAL_DATE, status) + 1)
        << day;
    icu->add(UCAL_MONTH, 5, status);
    ASSERT_EQ(calendar.dateByAdding(Component::month, 5, date)->timeIntervalSince1970(),
              icu->getTime(status) / 1000)
        << day;
  }
}

TEST(Calendar, OtherCalendars) {
  const Date date = civil(gregorianIn("GMT"), 2024, 5, 1);
  struct Row {
    Identifier identifier;
    std::int64_t year, month, day;
  };
  // As the calendars' own tables have 1 May 2024.
  for (const Row& row :
       {Row{Identifier::buddhist, 2567, 5, 1}, Row{Identifier::hebrew, 5784, 8, 23},
        Row{Identifier::persian, 1403, 2, 12}, Row{Identifier::coptic, 1740, 8, 23},
        Row{Identifier::indian, 1946, 2, 11}, Row{Identifier::japanese, 6, 5, 1},
        Row{Identifier::islamicUmmAlQura, 1445, 10, 22},
        Row{Identifier::ethiopicAmeteMihret, 2016, 8, 23},
        Row{Identifier::republicOfChina, 113, 5, 1}, Row{Identifier::chinese, 41, 3, 23}}) {
    SCOPED_TRACE(static_cast<int>(row.identifier));
    const Calendar calendar(row.identifier, TimeZone::gmt());
    const auto fields = calendar.dateComponents(
        {Component::era, Component::year, Component::month, Component::day}, date);
    EXPECT_EQ(fields.year, row.year);
    EXPECT_EQ(fields.month, row.month);
    EXPECT_EQ(fields.day, row.day);
    EXPECT_EQ(calendar.dateFrom(fields), date);
    for (const Component unit : {Component::year, Component::month, Component::day}) {
      const Date later = calendar.dateByAdding(unit, 5, date).value();
      EXPECT_EQ(calendar.dateComponents({unit}, date, later).value(unit), 5);
      const auto span = calendar.dateIntervalOf(unit, later);
      ASSERT_TRUE(span && span->contains(later));
    }
  }
}

TEST(Calendar, HostSettings) {
  const Locale before = Locale::current();
  Locale::setCurrent(Locale("de-DE.UTF-8"));
  EXPECT_EQ(Locale::current().identifier(), "de_DE");
  EXPECT_EQ(Calendar::current().firstWeekday(), 2);
  EXPECT_EQ(Calendar::current().minimumDaysInFirstWeek(), 4);
  EXPECT_EQ(Calendar::current().monthSymbols().at(2), "März");
  const Date friday = civil(Calendar::current(), 2024, 5, 3);
  EXPECT_FALSE(Calendar::current().isDateInWeekend(friday));
  Locale::setCurrent(Locale("ar_EG"));
  EXPECT_TRUE(Calendar::current().isDateInWeekend(friday));
  EXPECT_FALSE(Calendar(Identifier::gregorian).isDateInWeekend(friday));
  Locale::setCurrent(before);
}

}  // namespace
}  // namespace tessarine
