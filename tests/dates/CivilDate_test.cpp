#include "tessarine/dates/CivilDate.hpp"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>

#include <gtest/gtest.h>

namespace tessarine {
namespace {

TEST(CivilDate, AWholeCycleOfDays) {
  for (std::int64_t number = 0; number < 146'097; ++number) {
    const std::chrono::sys_days day{std::chrono::days(number)};
    const std::chrono::year_month_day expected(day);
    const CivilDate date = civilDate(number);
    ASSERT_EQ(date.year, static_cast<int>(expected.year()));
    ASSERT_EQ(date.month, static_cast<int>(static_cast<unsigned>(expected.month())));
    ASSERT_EQ(date.day, static_cast<int>(static_cast<unsigned>(expected.day())));
    ASSERT_EQ(dayNumber(date), number);
    ASSERT_TRUE(isValid(date));
    ASSERT_EQ(weekday(date), static_cast<int>(std::chrono::weekday(day).c_encoding()) + 1);
    ASSERT_EQ(addingDays({date.year, 1, 1}, dayOfYear(date) - 1), date);
    ASSERT_EQ(civilDate(isoWeekDate(date)), date);
    ASSERT_EQ(civilDate(number - 146'097).year, date.year - 400);
  }
}

TEST(CivilDate, WeeksThatYearsHave) {
  int longYears = 0;
  for (std::int64_t year = 2000; year < 2400; ++year) {
    longYears += civilDate(ISOWeekDate{year, 53, 1}) ? 1 : 0;
  }
  EXPECT_EQ(longYears, 71);
  EXPECT_EQ(isoWeekDate({2021, 1, 1}), (ISOWeekDate{2020, 53, 5}));
  EXPECT_FALSE(civilDate(ISOWeekDate{2021, 53, 1}) || civilDate(ISOWeekDate{2020, 53, 8}) ||
               civilDate(ISOWeekDate{2020, 0, 1}));
}

TEST(CivilDate, MonthsYearsAndDifferences) {
  EXPECT_EQ(addingMonths({2024, 1, 31}, 1), (CivilDate{2024, 2, 29}));
  EXPECT_EQ(addingMonths({2024, 1, 31}, -11), (CivilDate{2023, 2, 28}));
  EXPECT_EQ(addingYears({2024, 2, 29}, 1), (CivilDate{2025, 2, 28}));
  EXPECT_EQ(difference({2020, 1, 31}, {2024, 3, 1}), (CivilDifference{4, 1, 1}));
  EXPECT_EQ(difference({2024, 3, 1}, {2020, 1, 31}), (CivilDifference{-4, -1, -1}));
  std::mt19937_64 random(6);
  for (int i = 0; i < 20'000; ++i) {
    const CivilDate from = civilDate(static_cast<std::int64_t>(random() % 400'000) - 200'000);
    const CivilDate to = civilDate(static_cast<std::int64_t>(random() % 400'000) - 200'000);
    const auto between = difference(from, to);
    const CivilDate months = addingMonths(from, between.years * 12 + between.months);
    ASSERT_EQ(addingDays(months, between.days), to);
    ASSERT_LE(std::abs(between.days), 30);
    ASSERT_LE(std::abs(between.months), 11);
  }
}

TEST(CivilDate, DaysThatAreNone) {
  constexpr std::int64_t huge = std::numeric_limits<std::int64_t>::max();
  for (const CivilDate& none :
       {CivilDate{2023, 2, 29}, CivilDate{2023, 0, 1}, CivilDate{2023, 13, 1},
        CivilDate{2023, 4, 31}, CivilDate{huge, 1, 1}}) {
    EXPECT_FALSE(isValid(none));
  }
  EXPECT_EQ(dayNumber({2023, 2, 31}), dayNumber({2023, 2, 28}));
  const CivilDate last{2'000'000, 12, 31};
  EXPECT_EQ(addingDays({2024, 1, 1}, huge), last);
  EXPECT_EQ(addingMonths({2024, 1, 1}, huge), last);
  EXPECT_EQ(addingYears({2024, 1, 1}, huge), last);
  EXPECT_EQ(addingYears({2024, 1, 1}, -huge), (CivilDate{-2'000'000, 1, 1}));
}

TEST(CivilDate, ZonesAndBack) {
  for (const char* const name : {"America/New_York", "Asia/Beirut", "Pacific/Apia", "GMT"}) {
    const TimeZone zone = TimeZone::withIdentifier(name).value();
    for (std::int64_t number = -200'000; number < 30'000; number += 7) {
      const CivilDate date = civilDate(number);
      ASSERT_EQ(civilDate(startOfDay(date, zone), zone), date) << name << ' ' << number;
    }
  }
  const TimeZone beirut = TimeZone::withIdentifier("Asia/Beirut").value();
  EXPECT_EQ(civilDate(startOfDay({2022, 3, 27}, beirut), beirut), (CivilDate{2022, 3, 27}));
}

}  // namespace
}  // namespace tessarine
