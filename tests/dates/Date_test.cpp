#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>

#include "tessarine/dates/Date+Comparing.hpp"
#include "tessarine/dates/Date+Fields.hpp"
#include "tessarine/dates/Date+Moving.hpp"
#include "tessarine/dates/Date+Rounding.hpp"
#include "tessarine/dates/WeekDay.hpp"
#include "tessarine/system/time/DateComponents.hpp"
#include "tests/system/time/HostZone.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using Component = Calendar::Component;

/// Every test runs with New York as the host's zone.
class DateTest : public testing::Test {
 protected:
  static Calendar newYork() { return Calendar(Calendar::Identifier::gregorian); }
  static Date at(std::int64_t year, int month, int day, int hour = 0, int minute = 0,
                 int second = 0) {
    return newYork()
        .dateFrom({.year = year,
                   .month = month,
                   .day = day,
                   .hour = hour,
                   .minute = minute,
                   .second = second})
        .value();
  }

 private:
  HostZone zone_{"America/New_York"};
};

TEST_F(DateTest, Fields) {
  const Date date = at(2024, 5, 15, 10, 20, 30);
  EXPECT_EQ(era(date), 1);
  EXPECT_EQ(year(date), 2024);
  EXPECT_EQ(quarter(date), 2);
  EXPECT_EQ(month(date), 5);
  EXPECT_EQ(weekOfYear(date), 20);
  EXPECT_EQ(weekOfMonth(date), 3);
  EXPECT_EQ(weeksInMonth(date), 5);
  EXPECT_EQ(weekday(date), 4);
  EXPECT_EQ(day(date), 15);
  EXPECT_EQ(hour(date), 10);
  EXPECT_EQ(minute(date), 20);
  EXPECT_EQ(second(date), 30);
  EXPECT_EQ(nanosecond(date), 0);
  EXPECT_EQ(getWeekDay(date), WeekDay::wednesday);
  for (int m = 1; m <= 12; ++m) EXPECT_EQ(quarter(at(2024, m, 1)), (m + 2) / 3);
  // A 13th month belongs to the last quarter.
  const Calendar coptic(Calendar::Identifier::coptic);
  const Date thirteenth = coptic.dateFrom({.year = 1740, .month = 13, .day = 1}).value();
  EXPECT_EQ(getQuarter(thirteenth, coptic), 4);
  EXPECT_EQ(getQuarter(coptic.dateFrom({.year = 1740, .month = 4}).value(), coptic), 2);
}

// Gregorian dates take a way of their own.
TEST_F(DateTest, FieldsAreThoseOfTheCalendar) {
  std::mt19937_64 random(62);
  std::uniform_real_distribution<double> nearby(-20e9, 20e9);
  for (int i = 0; i < 20'000; ++i) {
    const Date date(i % 2 == 0 ? nearby(random) : std::floor(nearby(random)));
    const Calendar own = calendar(date);
    const auto fields = own.dateComponents(
        {Component::era, Component::year, Component::month, Component::day, Component::weekday,
         Component::hour, Component::minute, Component::second},
        date);
    ASSERT_EQ((DateComponents{.era = era(date),
                              .year = year(date),
                              .month = month(date),
                              .day = day(date),
                              .hour = hour(date),
                              .minute = minute(date),
                              .second = second(date),
                              .weekday = weekday(date),
                              .isLeapMonth = false}),
              fields)
        << date.timeIntervalSinceReferenceDate();
    for (const Component one : {Component::era, Component::year, Component::month, Component::day,
                                Component::weekday, Component::hour, Component::second}) {
      ASSERT_EQ(own.component(one, date), fields.value(one));
    }
  }
  EXPECT_EQ(second(Date(-1e-9)), 59);  // rounded down, also before the reference date
  const Calendar persian(Calendar::Identifier::persian);
  const Calendar before = Calendar::current();
  Calendar::setCurrent(persian);
  const Date date = at(2024, 5, 15, 10);
  EXPECT_EQ(year(date), 1403);
  EXPECT_EQ(hour(date), 10);
  Calendar::setCurrent(before);
}

TEST_F(DateTest, WritingFields) {
  const auto written = [](Date date, void (*set)(Date&, std::int64_t), std::int64_t value) {
    set(date, value);
    return date;
  };
  const Date date = at(2024, 4, 10, 10, 20, 30);
  EXPECT_EQ(written(date, setDay, 30), at(2024, 4, 30, 10, 20, 30));
  EXPECT_EQ(written(date, setHour, 23), at(2024, 4, 10, 23, 20, 30));
  EXPECT_EQ(written(date, setMinute, 0), at(2024, 4, 10, 10, 0, 30));
  EXPECT_EQ(written(date, setSecond, 59), at(2024, 4, 10, 10, 20, 59));
  EXPECT_EQ(written(date, setYear, 2023), at(2023, 4, 10, 10, 20, 30));
  EXPECT_EQ(written(at(2024, 2, 29), setYear, 2023), at(2023, 2, 28));
  EXPECT_EQ(written(at(2024, 1, 31), setMonth, 2), at(2024, 2, 29));
  struct Refused {
    void (*set)(Date&, std::int64_t);
    std::int64_t value;
  };
  for (const Refused& refused :
       {Refused{setDay, 31}, Refused{setDay, 0}, Refused{setHour, 24}, Refused{setHour, -1},
        Refused{setMinute, 60}, Refused{setSecond, 60}, Refused{setNanosecond, 1'000'000'000},
        Refused{setMillisecond, 1000}, Refused{setMillisecond, -1}, Refused{setYear, 0},
        Refused{setYear, -1}, Refused{setMonth, 0}, Refused{setMonth, 13},
        Refused{setYear, std::numeric_limits<std::int64_t>::max()}}) {
    EXPECT_EQ(written(date, refused.set, refused.value), date) << refused.value;
  }
  for (std::int64_t value = 0; value < 1000; ++value) {
    const Date set = written(date, setMillisecond, value);
    ASSERT_EQ(millisecond(set), value);
    ASSERT_EQ(second(set), 30);
    ASSERT_EQ(nanosecond(written(set, setNanosecond, value * 1000)), value * 1000);
  }
  EXPECT_DEATH(written(date, setMillisecond, std::int64_t{1} << 60U), "64 bits");
  // Years before Christ are counted backwards.
  const Date caesar = newYork().dateFrom({.era = 0, .year = 44, .month = 3, .day = 15}).value();
  EXPECT_EQ(year(written(caesar, setYear, 50)), 50);
  EXPECT_LT(written(caesar, setYear, 50), caesar);
}

TEST_F(DateTest, Changing) {
  const Calendar calendar = newYork();
  const Date date = at(2024, 5, 15, 10, 20, 30);
  EXPECT_FALSE(changing(date, Component::year, 0, calendar));
  EXPECT_FALSE(changing(date, Component::month, 13, calendar));
  EXPECT_FALSE(changing(date, Component::day, 32, calendar));
  EXPECT_FALSE(changing(date, Component::hour, 24, calendar));
  EXPECT_FALSE(changing(date, Component::nanosecond, 1'000'000'000, calendar));
  EXPECT_EQ(changing(date, Component::month, 2, calendar), at(2024, 2, 15, 10, 20, 30));
  EXPECT_EQ(changing(date, Component::hour, 0, calendar), at(2024, 5, 15, 0, 20, 30));
  EXPECT_EQ(changing(date, Component::weekday, 6, calendar), at(2024, 5, 17, 10, 20, 30));
}

TEST_F(DateTest, BeginningAndEnd) {
  const Calendar calendar = newYork();
  const Date date = at(2024, 2, 15, 10, 20, 30);
  struct Row {
    Component unit;
    Date beginning, end;
  };
  for (const Row& row :
       {Row{Component::year, at(2024, 1, 1), at(2024, 12, 31, 23, 59, 59)},
        Row{Component::month, at(2024, 2, 1), at(2024, 2, 29, 23, 59, 59)},
        Row{Component::weekOfYear, at(2024, 2, 11), at(2024, 2, 17, 23, 59, 59)},
        Row{Component::weekOfMonth, at(2024, 2, 11), at(2024, 2, 17, 23, 59, 59)},
        Row{Component::day, at(2024, 2, 15), at(2024, 2, 15, 23, 59, 59)},
        Row{Component::hour, at(2024, 2, 15, 10), at(2024, 2, 15, 10, 59, 59)},
        Row{Component::minute, at(2024, 2, 15, 10, 20), at(2024, 2, 15, 10, 20, 59)},
        Row{Component::second, date, date}}) {
    SCOPED_TRACE(static_cast<int>(row.unit));
    EXPECT_EQ(beginning(date, row.unit, calendar), row.beginning);
    EXPECT_EQ(end(date, row.unit, calendar), row.end);
  }
  for (const Component unit : {Component::quarter, Component::nanosecond, Component::era,
                               Component::weekday, Component::yearForWeekOfYear}) {
    EXPECT_FALSE(beginning(date, unit, calendar));
    EXPECT_FALSE(end(date, unit, calendar));
  }
  // The day on which clocks go back has 25 hours.
  EXPECT_EQ(secondsSince(*end(at(2024, 11, 3, 12), Component::day, calendar), at(2024, 11, 3)),
            25 * 3600 - 1.0);
  EXPECT_DEATH(end(Date(1e300), Component::day, calendar), "does not know");
}

// Ends of months and years have a way of their own, which has to lead where the steps do.
TEST_F(DateTest, EndsEqualTheirSteps) {
  std::mt19937_64 random(31);
  std::uniform_int_distribution<std::int64_t> any(-16'000'000'000, 8'000'000'000);
  constexpr std::int64_t day = 86400;
  std::uniform_int_distribution<std::int64_t> near(-40 * day, 40 * day);
  for (const char* const name : {"America/New_York", "Pacific/Apia", "Pacific/Kwajalein",
                                 "Asia/Manila", "America/Sao_Paulo", "Africa/Cairo", "UTC"}) {
    const HostZone host(name);
    const Calendar calendar(Calendar::Identifier::gregorian);
    for (int i = 0; i < 4000; ++i) {
      Date date = Date::since1970(static_cast<double>(any(random)));
      if (const auto change = calendar.timeZone().nextTransition(date); change && i % 2 == 0) {
        const std::int64_t before = i % 4 == 0 ? 0 : 366 * day;
        date = Date(change->timeIntervalSinceReferenceDate() +
                    static_cast<double>(near(random) - before));
      }
      for (const Component unit : {Component::month, Component::year}) {
        const Date next = *calendar.dateKeeping(unit, adding(date, unit, 1, calendar));
        ASSERT_EQ(end(date, unit, calendar), adding(next, Component::second, -1, calendar))
            << name << ' ' << date.timeIntervalSinceReferenceDate();
      }
    }
  }
}

TEST_F(DateTest, Nearest) {
  const auto minuteOf = [](Date (*nearest)(Date), int minute) {
    const Date rounded = nearest(at(2024, 5, 15, 10, minute, 59));
    return static_cast<int>(minutesSince(rounded, at(2024, 5, 15, 10)));
  };
  for (int minute = 0; minute < 60; ++minute) {
    SCOPED_TRACE(minute);
    const auto rounded = [&](int step, int keeps) {
      return minute - minute % step + (minute % step > keeps ? step : 0);
    };
    EXPECT_EQ(minuteOf(nearestFiveMinutes, minute), rounded(5, 2));
    EXPECT_EQ(minuteOf(nearestTenMinutes, minute), rounded(10, 5));
    EXPECT_EQ(minuteOf(nearestQuarterHour, minute), rounded(15, 7));
    EXPECT_EQ(minuteOf(nearestHalfHour, minute), rounded(30, 14));
    EXPECT_EQ(minuteOf(nearestHour, minute), minute >= 30 ? 60 : 0);
  }
}

TEST_F(DateTest, RoundingOnTheTimeLine) {
  using Rounding = DateRoundingType;
  EXPECT_EQ(roundedSeconds(Date(12.5), 5, Rounding::round), Date(15));
  EXPECT_EQ(roundedSeconds(Date(-12.5), 5, Rounding::round), Date(-15));
  EXPECT_EQ(roundedSeconds(Date(-12), 5, Rounding::ceil), Date(-10));
  EXPECT_EQ(roundedSeconds(Date(-12), 5, Rounding::floor), Date(-15));
  EXPECT_EQ(roundedMinutes(Date(899), 15, Rounding::floor), Date(0));
  EXPECT_EQ(roundedMinutes(Date(899), 15, Rounding::ceil), Date(900));
  EXPECT_TRUE(
      std::isnan(roundedSeconds(Date(1), 0, Rounding::round).timeIntervalSinceReferenceDate()));
}

TEST_F(DateTest, DaysAround) {
  const Date date = at(2024, 3, 9, 2, 30);
  EXPECT_EQ(tomorrow(date), at(2024, 3, 10, 3, 30));  // 2:30 is skipped
  EXPECT_EQ(yesterday(date), at(2024, 3, 8, 2, 30));
  EXPECT_EQ(stripTime(date), at(2024, 3, 9));
  EXPECT_EQ(getNextWeek(date), at(2024, 3, 16, 2, 30));
  const Date monday = at(2024, 5, 13, 9);
  EXPECT_EQ(getUpcoming(monday, WeekDay::monday), monday);
  EXPECT_EQ(getUpcoming(monday, WeekDay::sunday), at(2024, 5, 19, 9));
  EXPECT_EQ(enumFromRawValue<WeekDay>(7), WeekDay::saturday);
  EXPECT_FALSE(enumFromRawValue<WeekDay>(0) || enumFromRawValue<WeekDay>(8));
  EXPECT_DEATH(adding(date, Component::day, std::int64_t{1} << 62U, newYork()), "adding");
  Date kept = date;
  add(kept, Component::day, std::int64_t{1} << 62U, newYork());
  EXPECT_EQ(kept, date);
}

TEST_F(DateTest, ComparingWithNow) {
  const Date now = Date::now();
  EXPECT_TRUE(isInToday(now) && isInYesterday(yesterday(now)) && isInTomorrow(tomorrow(now)));
  EXPECT_FALSE(isInToday(tomorrow(now)) || isInYesterday(now) || isInTomorrow(now));
  EXPECT_TRUE(isInCurrentWeek(now) && isInCurrentMonth(now) && isInCurrentYear(now));
  const Calendar calendar = newYork();
  EXPECT_FALSE(isInCurrentYear(adding(now, Component::year, 1, calendar)));
  EXPECT_FALSE(isInCurrentWeek(adding(now, Component::day, 7, calendar)));
  EXPECT_TRUE(isInFuture(tomorrow(now)) && isInPast(yesterday(now)));
  EXPECT_TRUE(isInWeekend(at(2024, 5, 18)) && isWorkday(at(2024, 5, 17)));
}

TEST_F(DateTest, Distances) {
  const Date first = at(2024, 3, 9);
  const Date second = at(2024, 3, 11);  // 47 hours later
  EXPECT_EQ(hoursSince(second, first), 47);
  EXPECT_EQ(minutesSince(first, second), -47 * 60);
  EXPECT_EQ(daysSinceApproximately(second, first), 47.0 / 24);
  const Date middle = at(2024, 3, 10);
  for (const bool includes : {false, true}) {
    EXPECT_TRUE(isBetween(middle, first, second, includes));
    EXPECT_TRUE(isBetween(middle, second, first, includes));
    EXPECT_FALSE(isBetween(first, middle, second, includes));
    EXPECT_EQ(isBetween(first, first, second, includes), includes);
    EXPECT_EQ(isBetween(first, first, first, includes), includes);
  }
  const Calendar calendar = newYork();
  EXPECT_TRUE(isWithin(first, 0, Component::day, first, calendar));
  EXPECT_TRUE(isWithin(first, 2, Component::day, second, calendar));
  EXPECT_TRUE(isWithin(second, 2, Component::day, first, calendar));
  EXPECT_FALSE(isWithin(first, 1, Component::day, second, calendar));
}

}  // namespace
}  // namespace tessarine
