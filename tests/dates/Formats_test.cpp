#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tessarine/coding/codingFields.hpp"
#include "tessarine/dates/Calendar+Days.hpp"
#include "tessarine/dates/Date+Construction.hpp"
#include "tessarine/dates/Date+Formatting.hpp"
#include "tessarine/dates/DateInterval+Days.hpp"
#include "tessarine/dates/Formatter.hpp"
#include "tessarine/dates/JSONDateStrategies.hpp"
#include "tessarine/dates/TimeUnits.hpp"
#include "tessarine/dates/TimeZone+Names.hpp"
#include "tessarine/system/desktop/Bundle.hpp"
#include "tests/system/time/HostZone.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

/// Makes a locale the current one for as long as it lives.
class HostLocale {
 public:
  explicit HostLocale(const char* identifier) { Locale::setCurrent(Locale(identifier)); }
  ~HostLocale() { Locale::setCurrent(before_); }
  HostLocale(const HostLocale&) = delete;
  HostLocale& operator=(const HostLocale&) = delete;

 private:
  Locale before_ = Locale::current();
};

const Date may = Date::since1970(1682942400);  // 2023-05-01T12:00:00Z

std::string decoded(const DateDecodingStrategy::Strategy& strategy, const std::string& json) {
  try {
    const auto date = JSONDecoder({.dateDecodingStrategy = strategy}).decode<Date>(json);
    return std::to_string(date.timeIntervalSince1970());
  } catch (const DecodingError& error) {
    return error.what();
  }
}

std::string encoded(const DateEncodingStrategy::Strategy& strategy, Date date) {
  return JSONEncoder({.dateEncodingStrategy = strategy}).text(date);
}

TEST(DateStrategies, DecodeTolerantly) {
  const auto& dates = DateDecodingStrategy::iso8601withFractionalSeconds();
  EXPECT_EQ(decoded(dates, R"("2023-05-01T12:00:00Z")"), "1682942400.000000");
  EXPECT_EQ(decoded(dates, R"("2023-05-01T12:00:00.1234567")"), "1682942400.123457");
  EXPECT_EQ(decoded(dates, R"("2023-05-01T12:00:00.5Z")"), "1682942400.500000");
  EXPECT_EQ(decoded(dates, R"("2023-05-01T14:00:00.25+02:00")"), "1682942400.250000");
  EXPECT_EQ(decoded(dates, R"("2023-05-01")"), "1682899200.000000");
  const auto& days = DateDecodingStrategy::iso8601DateOnly();
  EXPECT_EQ(decoded(days, R"("2023-05-01")"), "1682899200.000000");
  const std::string past = std::to_string(Date::distantPast().timeIntervalSince1970());
  for (const auto* const strategy : {&dates, &days}) {
    EXPECT_EQ(decoded(*strategy, R"("")"), past);
    EXPECT_NE(decoded(*strategy, R"("yesterday")").find("Cannot parse date: yesterday"),
              std::string::npos);
    EXPECT_NE(decoded(*strategy, R"(" ")").find("Cannot parse date:  "), std::string::npos);
    EXPECT_EQ(decoded(*strategy, "null").find("Cannot parse date"), std::string::npos);
  }
  EXPECT_NE(decoded(dates, R"("2023-05-01T12:00:00")").find("Cannot parse"), std::string::npos);
  EXPECT_NE(decoded(days, R"("2023-05-01T12:00:00Z")").find("Cannot parse"), std::string::npos);
}

TEST(DateStrategies, Encode) {
  const auto& dates = DateEncodingStrategy::iso8601withFractionalSeconds();
  EXPECT_EQ(encoded(dates, Date::since1970(1682942400.75)), R"("2023-05-01T12:00:00Z")");
  EXPECT_EQ(encoded(dates, Date::distantPast()), "null");
  EXPECT_EQ(encoded(dates, Date::distantFuture()), R"("4001-01-01T00:00:00Z")");
  const auto& days = DateEncodingStrategy::iso8601DateOnly();
  EXPECT_EQ(encoded(days, may), R"("2023-05-01")");
  EXPECT_EQ(encoded(days, Date::distantPast()), "null");
}

TEST(DateFormatting, OneLiners) {
  const HostZone zone("America/New_York");
  const HostLocale locale("en_US");
  const Date date = Date::since1970(1682942400.789);
  EXPECT_EQ(iso8601StringWithFractionalSeconds(date), "2023-05-01T12:00:00.789Z");
  EXPECT_EQ(string(date, "yyyy/MM/dd HH:mm"), "2023/05/01 08:00");
  using Style = DateFormatter::Style;
  EXPECT_EQ(dateString(date, Style::mediumStyle), "May 1, 2023");
  EXPECT_EQ(dateTimeString(date, Style::shortStyle).substr(0, 6), "5/1/23");
  EXPECT_EQ(timeString(date, Style::shortStyle).substr(0, 4), "8:00");
  EXPECT_EQ(dayName(date, DayNameStyle::full), "Monday");
  EXPECT_EQ(dayName(date, DayNameStyle::threeLetters), "Mon");
  EXPECT_EQ(dayName(date, DayNameStyle::oneLetter), "M");
  EXPECT_EQ(monthName(date, MonthNameStyle::full), "May");
  EXPECT_EQ(monthName(date, MonthNameStyle::threeLetters), "May");
  EXPECT_EQ(monthName(date, MonthNameStyle::oneLetter), "M");
}

TEST(DateFormatting, OrderAndClockOfLocales) {
  struct Row {
    const char* locale;
    bool isMonthFirst, is24Hour;
  };
  for (const Row& row :
       {Row{"en_US", true, false}, Row{"en_GB", false, true}, Row{"de_DE", false, true},
        Row{"ja_JP", true, true}, Row{"sv_SE", true, true}, Row{"en_IN", false, false}}) {
    const HostLocale locale(row.locale);
    EXPECT_EQ(isMonthFirst(), row.isMonthFirst) << row.locale;
    EXPECT_EQ(is24HourTimeFormat(), row.is24Hour) << row.locale;
  }
}

TEST(DateConstruction, FromTextsNumbersAndFields) {
  const HostZone zone("America/New_York");
  EXPECT_EQ(dateWithIntegerLiteral(20230501), Date::since1970(1682913600));
  for (const std::int64_t none : {std::int64_t{0}, std::int64_t{20230231}, std::int64_t{-20230501},
                                  std::numeric_limits<std::int64_t>::max()}) {
    EXPECT_FALSE(dateWithIntegerLiteral(none));
  }
  EXPECT_EQ(dateWithISO8601String("2023-05-01T12:00:00.000Z"), may);
  EXPECT_EQ(dateWithISO8601String("2023-05-01T14:00:00.000+0200"), may);
  EXPECT_FALSE(dateWithISO8601String("2023-05-01T12:00:00Z"));
  EXPECT_FALSE(dateWithComponents({.year = 2023}));
  const Calendar calendar(Calendar::Identifier::gregorian);
  EXPECT_EQ(dateWithComponents({.calendar = calendar, .year = 2023, .month = 5, .day = 1}),
            Date::since1970(1682913600));
  EXPECT_EQ(dateWithComponents({.calendar = calendar,
                                .timeZone = TimeZone::gmt(),
                                .year = 2023,
                                .month = 5,
                                .day = 1,
                                .hour = 12}),
            may);
}

TEST(DateConstruction, RandomDates) {
  std::mt19937 generator(4);
  const Range<Date> halfOpen{Date(10), Date(20)};
  const ClosedRange<Date> closed{Date(10), Date(20)};
  int inLowerHalf = 0;
  for (int i = 0; i < 10'000; ++i) {
    ASSERT_TRUE(halfOpen.contains(random(halfOpen, generator)));
    ASSERT_TRUE(closed.contains(random(closed)));
    inLowerHalf += random(halfOpen, generator) < Date(15) ? 1 : 0;
  }
  EXPECT_NEAR(inLowerHalf, 5000, 300);
  EXPECT_EQ(random(ClosedRange<Date>{may, may}), may);
  EXPECT_DEATH(random(Range<Date>{may, may}), "empty");
  EXPECT_DEATH(random(ClosedRange<Date>{Date(2), Date(1)}), "reversed");
}

Calendar gregorian(const char* zone, int firstWeekday = 1) {
  Calendar calendar(Calendar::Identifier::gregorian, TimeZone::withIdentifier(zone).value());
  calendar.setFirstWeekday(firstWeekday);
  return calendar;
}

TEST(CalendarDays, IsoWeeks) {
  const auto week = [](std::int64_t year, int month, int day, int firstWeekday, bool following) {
    const Calendar calendar = gregorian("Europe/Berlin", firstWeekday);
    return isoWeekNumber(
        calendar, calendar.dateFrom({.year = year, .month = month, .day = day}).value(), following);
  };
  EXPECT_EQ(week(2021, 1, 1, 1, false), 53U);
  EXPECT_EQ(week(2018, 12, 31, 1, false), 1U);
  EXPECT_EQ(week(2023, 1, 1, 1, false), 52U);
  EXPECT_EQ(week(2023, 1, 1, 1, true), 1U);
  EXPECT_EQ(week(2023, 1, 1, 2, true), 52U);  // two hours on, the same day
  EXPECT_EQ(week(2022, 12, 31, 7, true), 1U);
  // The calendar for ISO weeks agrees, whatever this one's weeks are.
  const Calendar iso(Calendar::Identifier::iso8601, TimeZone::gmt());
  const Calendar other = gregorian("GMT", 4);
  for (std::int64_t day = -200'000; day < 60'000; day += 3) {
    const Date date = Date::since1970(static_cast<double>(day) * 86400);
    if (day < -141'000 && day > -141'500) continue;  // around the year that lost ten days
    ASSERT_EQ(isoWeekNumber(other, date, false),
              iso.component(Calendar::Component::weekOfYear, date))
        << day;
  }
}

TEST(CalendarDays, DaysAndTheirEnds) {
  const Calendar calendar = gregorian("America/New_York");
  const auto at = [&](int month, int day, int hour) {
    return calendar.dateFrom({.year = 2024, .month = month, .day = day, .hour = hour}).value();
  };
  EXPECT_EQ(dateIntervalForDay(calendar, at(5, 1, 9)), DateInterval(at(5, 1, 0), 86399.0));
  EXPECT_EQ(dateIntervalForDay(calendar, at(5, 1, 9)).end(), endOfDay(calendar, at(5, 1, 9)));
  EXPECT_EQ(dateIntervalForDay(calendar, at(11, 3, 9)).duration(), 25 * 3600 - 1.0);
  EXPECT_EQ(endOfDay(calendar, at(11, 3, 9)), dateIntervalForDay(calendar, at(11, 3, 9)).end());

  const DateInterval week(at(5, 1, 9), at(5, 8, 9));
  EXPECT_EQ(index(week, at(5, 1, 10), calendar), 0);
  EXPECT_EQ(index(week, at(5, 8, 9), calendar), 7);  // the end belongs to it
  EXPECT_EQ(index(week, at(5, 8, 10), calendar), NSNotFound);
  EXPECT_EQ(index(week, at(5, 1, 8), calendar), NSNotFound);
  EXPECT_EQ(days(week, calendar), 7);
  EXPECT_EQ(middleDate(week, calendar), at(5, 4, 9));
  const DateInterval day = dateIntervalForDay(calendar, at(5, 1, 9));
  EXPECT_EQ(days(day, calendar), 0);
  EXPECT_EQ(middleDate(day, calendar), day.start());
  const DateInterval rest = remainingDayInterval();
  EXPECT_EQ(Calendar::current().startOfDay(rest.start()),
            Calendar::current().startOfDay(rest.end()));
  EXPECT_LT(rest.duration(), 90'000);
}

TEST(DateIntervals, Ranges) {
  EXPECT_EQ(rangeIntervalWith(Date(10), Date(20), false), DateInterval(Date(10), 9.0));
  EXPECT_EQ(rangeIntervalWith(Date(10), Date(20), true), DateInterval(Date(10), 10.0));
  EXPECT_EQ(rangeIntervalFrom(Date(20), Date(10), false), DateInterval(Date(10), 9.0));
  EXPECT_EQ(rangeIntervalWith(Date(10), Date(10), false), DateInterval(Date(10), 0.0));
  EXPECT_EQ(rangeIntervalWith(Date(10), Date(10.5), false), DateInterval(Date(10), 0.0));
  EXPECT_DEATH(rangeIntervalWith(Date(2), Date(1), true), "later");
  EXPECT_DEATH(rangeIntervalFrom(Date(1), Date(2), true), "earlier");
}

TEST(DateIntervals, HalfOpenTests) {
  const DateInterval ten(Date(10), 10.0);
  const DateInterval empty(Date(10), 0.0);
  EXPECT_TRUE(hx_contains(ten, Date(10)) && hx_contains(ten, 19.5) && hx_contains(empty, 10));
  EXPECT_FALSE(hx_contains(ten, Date(20)) || hx_contains(empty, 11) || hx_contains(ten, 9.9));
  EXPECT_TRUE(hx_contains(ten, Date(-15)));  // by the distance from the reference date
  EXPECT_FALSE(hx_contains(ten, -15.0));
  struct Row {
    double start, duration;
    bool intersects;
  };
  for (const Row& row : {Row{0, 10, false}, Row{20, 5, false}, Row{0, 11.5, true}, Row{0, 11, true},
                         Row{19, 5, true}, Row{0, 50, true}, Row{12, 2, true}, Row{15, 0, true},
                         Row{20, 0, false}, Row{10, 0, true}}) {
    const DateInterval other(Date(row.start), row.duration);
    EXPECT_EQ(hx_intersects(ten, other), row.intersects) << row.start << ' ' << row.duration;
    EXPECT_EQ(hx_intersects(other, ten), row.intersects) << row.start << ' ' << row.duration;
  }
  EXPECT_EQ(DateInterval(Date(1), -5.0).duration(), 0);
  EXPECT_EQ(DateInterval(Date(1), std::numeric_limits<double>::quiet_NaN()).duration(), 0);
}

TEST(TimeZoneNames, CitiesOffsetsAndNames) {
  const HostLocale locale("en_US");
  const auto zone = [](const char* name) { return TimeZone::withIdentifier(name).value(); };
  EXPECT_EQ(cityName(zone("America/New_York")), "New York");
  EXPECT_EQ(cityName(zone("America/Argentina/Buenos_Aires")), "Buenos Aires");
  EXPECT_EQ(cityName(zone("UTC")), "UTC");
  EXPECT_EQ(offsetString(zone("GMT")), "GMT +0");
  EXPECT_EQ(offsetString(zone("GMT-03:30")), "GMT -3:30");
  EXPECT_EQ(offsetString(zone("GMT+05:05")), "GMT +5:5");
  struct Row {
    const char* zone;
    const char* text;
    const char* isShort;
  };
  for (const Row& row :
       {Row{"GMT+1", "+1 hr", "+1"}, Row{"GMT", "+0 hrs", "+0"},
        Row{"GMT+05:45", "+5:45 hrs", "+5:45"}, Row{"GMT-05:30", "-5:30 hrs", "-5.5"},
        Row{"GMT-01:30", "-1:30 hr", "-1.5"}}) {
    EXPECT_EQ(offset(zone(row.zone), TimeZone::gmt(), false), row.text);
    EXPECT_EQ(offset(zone(row.zone), TimeZone::gmt(), true), row.isShort);
  }
  Bundle::main().setLocalizedStrings({{"hr", "Std."}});
  EXPECT_EQ(offset(zone("GMT+1"), TimeZone::gmt(), false), "+1 Std.");
  Bundle::main().setLocalizedStrings({});

  const TimeZone paris = zone("Europe/Paris");
  EXPECT_EQ(localName(paris), "Central European Time");
  EXPECT_EQ(localName(paris, Date::since1970(1720000000)), "Central European Summer Time");
  EXPECT_EQ(localName(paris, Date::since1970(1700000000)), "Central European Standard Time");
  EXPECT_EQ(localName(paris, std::nullopt, true), "Central European Time (Paris)");
  EXPECT_EQ(localName(paris, std::nullopt, false), "Central European Time");
  const HostLocale german("de_DE");
  EXPECT_EQ(localName(paris), "Mitteleuropäische Zeit");
}

TEST(TimeUnits, CountsAsSeconds) {
  static_assert(minutesToSeconds(2) == 120 && hoursToSeconds(2) == 7200);
  static_assert(daysToSeconds(1) == 86400 && weeksToSeconds(1.5) == 907200.0);
  static_assert(yearToSeconds(1) == 29'030'400 && monthToSeconds(12) == yearToSeconds(1));
  EXPECT_EQ(daysToSeconds(0.25), 21600.0);
  EXPECT_DEATH(yearToSeconds(100), "do not fit");
  EXPECT_DEATH(minutesToSeconds(std::numeric_limits<std::int64_t>::max()), "do not fit");
}

}  // namespace
}  // namespace tessarine
