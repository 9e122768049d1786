#include "tessarine/system/time/DateFormatter.hpp"

#include <cmath>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tessarine/system/time/DateComponents.hpp"
#include "tessarine/system/time/ISO8601DateFormatter.hpp"
#include "tessarine/system/time/internal/CivilDay.hpp"
#include "tessarine/system/time/internal/IcuDateFormat.hpp"

#include <gtest/gtest.h>
#include <unicode/smpdtfmt.h>

namespace tessarine {
namespace {

using ISO = ISO8601DateFormatter;

DateFormatter posix(std::string_view pattern, TimeZone zone = TimeZone::gmt()) {
  return {pattern,
          {.locale = Locale("en_US_POSIX"),
           .calendar = Calendar(Calendar::Identifier::gregorian, zone)}};
}

TimeZone zoneNamed(const char* name) { return TimeZone::withIdentifier(name).value(); }

// 1 May 2024, 12:34:56.789
const Date may = Date::since1970(1714566896.789);

TEST(ISO8601DateFormatter, Forms) {
  struct Row {
    int options;
    const char* text;
  };
  for (const Row& row :
       {Row{1907, "2024-05-01T12:34:56Z"}, Row{3955, "2024-05-01T12:34:56.789Z"},
        Row{275, "2024-05-01"}, Row{1907 | 128, "2024-05-01 12:34:56Z"},
        Row{ISO::withYear | ISO::withMonth | ISO::withDay, "20240501"},
        Row{ISO::withYear | ISO::withDay | ISO::withDashSeparatorInDate, "2024-122"},
        Row{ISO::withYear | ISO::withWeekOfYear | ISO::withDay | ISO::withDashSeparatorInDate,
            "2024-W18-3"},
        Row{ISO::withYear | ISO::withWeekOfYear, "2024W18"}, Row{ISO::withTime, "123456"},
        Row{0, ""}}) {
    EXPECT_EQ(ISO(row.options).string(may), row.text);
  }
  EXPECT_EQ(ISO(1907, zoneNamed("Asia/Kolkata")).string(may), "2024-05-01T18:04:56+05:30");
  EXPECT_EQ(ISO(1907 & ~1024, zoneNamed("GMT-0330")).string(may), "2024-05-01T09:04:56-0330");
}

TEST(ISO8601DateFormatter, ReadsWhatItWrites) {
  std::mt19937_64 random(8601);
  std::uniform_int_distribution<std::int64_t> any(-62'167'219'200, 253'402'300'799);
  std::vector<ISO> forms;
  for (const int dates :
       {ISO::withYear | ISO::withMonth | ISO::withDay, ISO::withYear | ISO::withDay,
        ISO::withYear | ISO::withWeekOfYear | ISO::withDay}) {
    for (const int signs : {0, 128, 256, 512, 1024, 1920}) {
      forms.emplace_back(dates | ISO::withTime | ISO::withTimeZone | signs);
      forms.emplace_back(dates | ISO::withTime | ISO::withTimeZone | signs,
                         zoneNamed("America/New_York"));
    }
  }
  for (int i = 0; i < 20'000; ++i) {
    const ISO& form = forms[random() % forms.size()];
    const Date date = Date::since1970(static_cast<double>(any(random)));
    const std::string text = form.string(date);
    if (text.empty()) continue;  // in the week of another year than those with four digits
    ASSERT_EQ(form.date(text), date) << text;
  }
}

TEST(ISO8601DateFormatter, TextsThatAreNone) {
  const ISO form;
  for (const char* const text : {"",
                                 "2024-05-01",
                                 "2024-05-01T12:34:56",
                                 "2024-05-01T12:34:56.5Z",
                                 "2024-05-01t12:34:56Z",
                                 "2024-05-01T12:34:56z",
                                 " 2024-05-01T12:34:56Z",
                                 "2024-05-01T12:34:56Z ",
                                 "2024-05-01T12:34:56+0200",
                                 "2024-05-01T12:34:56+02",
                                 "2024-05-01T12:34:56+24:00",
                                 "2024-05-01T12:34:56+02:60",
                                 "2024-05-01T24:00:00Z",
                                 "2024-05-01T23:59:60Z",
                                 "2023-02-29T00:00:00Z",
                                 "2024-00-01T00:00:00Z",
                                 "2024-13-01T00:00:00Z",
                                 "2024-05-32T00:00:00Z",
                                 "2024-5-1T00:00:00Z",
                                 "02024-05-01T00:00:00Z",
                                 "-024-05-01T00:00:00Z",
                                 "٢٠٢٤-05-01T00:00:00Z"}) {
    EXPECT_FALSE(form.date(text)) << text;
  }
  EXPECT_FALSE(form.date(std::string(1'000'000, '2')));
  const auto parsed = form.parse("2024-05-01T12:3x:56Z");
  EXPECT_EQ(parsed.position, 15U);
  EXPECT_EQ(parsed.expected, "a minute");
  EXPECT_EQ(form.parse("2024-05-01T12:61:56Z").position, 14U);
  EXPECT_EQ(form.date("2024-05-01T00:34:56-23:59"), form.date("2024-05-02T00:33:56Z"));
  EXPECT_EQ(ISO(3955).date("2024-05-01T12:34:56.789Z"), may);
  EXPECT_EQ(ISO(3955).date("2024-05-01T12:34:56.7Z"), Date::since1970(1714566896.7));
  EXPECT_FALSE(ISO(3955).date("2024-05-01T12:34:56.Z"));
  EXPECT_FALSE(ISO(3955).date("2024-05-01T12:34:56.1234567890Z"));
  for (const double interval : {std::nan(""), std::numeric_limits<double>::infinity(), 1e300,
                                252'423'993'600.0, -63'145'526'401.0}) {
    EXPECT_EQ(form.string(Date(interval)), "");
  }
}

/// What a text in the internet form says, taken apart byte by byte.
std::optional<Date> dateByBytes(const std::string& text) {
  constexpr std::string_view form = "0000-00-00T00:00:00Z";
  if (text.size() != form.size()) return std::nullopt;
  for (std::size_t i = 0; i < form.size(); ++i) {
    const bool isDigit = text[i] >= '0' && text[i] <= '9';
    if (form[i] == '0' ? !isDigit : text[i] != form[i]) return std::nullopt;
  }
  const auto number = [&](std::size_t at, std::size_t size) {
    return std::stoi(text.substr(at, size));
  };
  const internal::CivilDay day{number(0, 4), number(5, 2), number(8, 2)};
  const int hour = number(11, 2), minute = number(14, 2), second = number(17, 2);
  if (day.month < 1 || day.month > 12 || day.day < 1 ||
      day.day > internal::daysInMonth(day.year, day.month) || hour > 23 || minute > 59 ||
      second > 59) {
    return std::nullopt;
  }
  return Date::since1970(static_cast<double>(internal::daysFromCivil(day)) * 86400.0 +
                         hour * 3600.0 + minute * 60.0 + second);
}

TEST(ISO8601DateFormatter, EveryByteCounts) {
  const ISO form;
  for (const std::string& good :
       {std::string("2024-05-01T12:34:56Z"), std::string("0000-02-29T23:59:59Z"),
        std::string("9999-12-31T00:00:00Z")}) {
    ASSERT_EQ(form.date(good), dateByBytes(good));
    for (std::size_t place = 0; place < good.size(); ++place) {
      for (int byte = 0; byte < 256; ++byte) {
        std::string text = good;
        text[place] = static_cast<char>(byte);
        const DateParsing parsing = form.parse(text);
        ASSERT_EQ(parsing.date, dateByBytes(text)) << place << ' ' << byte;
        ASSERT_LE(parsing.position, text.size());
      }
      ASSERT_FALSE(form.date(good.substr(0, place)));
    }
  }
  for (const std::string& edge :
       {std::string("0000-01-01T00:00:00Z"), std::string("1582-10-14T23:59:59Z"),
        std::string("1582-10-15T00:00:00Z"), std::string("9999-12-31T23:59:59Z")}) {
    ASSERT_EQ(form.string(form.date(edge).value_or(Date())), edge);
  }
  EXPECT_EQ(form.string(Date::since1970(253'402'300'800.0)), "");
  // Behind a text, that stays; nor is it touched by a date that has no text.
  std::string text = "at ";
  form.append(may, text);
  form.append(Date(1e300), text);
  EXPECT_EQ(text, "at 2024-05-01T12:34:56Z");
  // 1 January of year 0 lies in the last week of the year before.
  const ISO weeks(ISO::withYear | ISO::withWeekOfYear | ISO::withTime);
  weeks.append(Date::since1970(-62'167'219'200.0), text);
  EXPECT_EQ(text, "at 2024-05-01T12:34:56Z");
}

// ICU is the oracle for the patterns that do not go through it.
TEST(DateFormatter, PatternsOfNumbersEqualIcus) {
  std::mt19937_64 random(35);
  std::uniform_int_distribution<std::int64_t> any(-62'135'596'800, 253'402'300'799);
  for (const char* const zone : {"GMT", "America/New_York", "Asia/Kolkata", "Europe/London"}) {
    for (const char* const pattern :
         {"yyyy-MM-dd HH:mm:ss", "yyyyMMdd", "d/M/yyyy H:m:s", "yyyy-MM-dd'T'HH:mm:ss.SSSXXXXX",
          "dd 'o''clock' HH ''yyyy''", "HH:mm:ssZ", "yyyyMMdd'T'HHmmssX", "HH:mm xxx, SS",
          "yyyy.MM.dd HHmmZZZZZ"}) {
      const DateFormatter formatter = posix(pattern, zoneNamed(zone));
      const internal::IcuDateFormat icu(pattern, Locale("en_US_POSIX"), formatter.calendar());
      for (int i = 0; i < 200; ++i) {
        const Date date = Date::since1970(static_cast<double>(any(random)) + 0.25);
        const std::string text = formatter.string(date);
        ASSERT_EQ(text, icu.string(date)) << pattern << " in " << zone;
        // Times of mean clocks before zones have seconds in their offsets, which texts may lack.
        if (date < Date::since1970(0)) continue;
        ASSERT_EQ(formatter.date(text), icu.parse(text).date) << text;
      }
    }
  }
}

TEST(DateFormatter, Reading) {
  EXPECT_EQ(posix("yyyy-MM-dd'T'HH:mm:ss.SSSSSSS").date("2023-05-01T12:00:00.1234567"),
            Date::since1970(1682942400.1234567));
  const DateFormatter zoned = posix("yyyy-MM-dd'T'HH:mm:ss.SSSZ");
  const Date expected = Date::since1970(1682942400.5);
  for (const char* const text :
       {"2023-05-01T12:00:00.5Z", "2023-05-01T14:00:00.500+0200", "2023-05-01T14:00:00.50+02:00"}) {
    EXPECT_EQ(zoned.date(text), expected) << text;
  }
  for (const char* const text : {"2023-05-01T12:00:00Z", "2023-05-01T12:00:00.5", "2023-05-01",
                                 "2023-05-01T12:00:00.5z", "2023-05-01T12:00:00.5+2"}) {
    EXPECT_FALSE(zoned.date(text)) << text;
  }
  const DateFormatter day = posix("yyyy-MM-dd");
  for (const char* const text : {"2023-02-30", "2023-2-03", "2023-02-03 ", "0000-01-01", "24:00",
                                 "1582-10-10", "12023-01-01"}) {
    EXPECT_FALSE(day.date(text)) << text;
  }
  // The Julian calendar had this day.
  EXPECT_TRUE(day.date("1500-02-29"));
  EXPECT_EQ(posix("d.M.yyyy").date("1.12.2023"), posix("d.M.yyyy").date("01.12.2023"));
  // Skipped by clocks: forward by an hour.
  const DateFormatter local = posix("yyyy-MM-dd HH:mm", zoneNamed("America/New_York"));
  EXPECT_EQ(local.string(local.date("2024-03-10 02:30").value()), "2024-03-10 03:30");
  EXPECT_EQ(posix("HH:mm").date("00:01"), Date::since1970(60));
}

TEST(DateFormatter, PatternsThatNeedLocaleData) {
  const auto in = [](const char* locale, std::string_view pattern) {
    return DateFormatter(pattern, {.locale = Locale(locale), .timeZone = zoneNamed("Europe/Paris")})
        .string(may);
  };
  EXPECT_EQ(in("de_DE", "EEEE, d. MMMM y"), "Mittwoch, 1. Mai 2024");
  EXPECT_EQ(in("en_US", "h a zzzz"), "2 PM Central European Summer Time");
  EXPECT_EQ(in("ar_EG", "yyyy"), "٢٠٢٤");
  EXPECT_EQ(in("en_US", "QQQ YYYY w"), "Q2 2024 18");
  EXPECT_EQ(in("en_US", "'unfinished"), "unfinished");
  const DateFormatter buddhist(
      "yyyy", {.locale = Locale("en_US"),
               .calendar = Calendar(Calendar::Identifier::buddhist, TimeZone::gmt())});
  EXPECT_EQ(buddhist.string(may), "2567");
  const DateFormatter long1("d MMMM y HH:mm",
                            {.locale = Locale("fr_FR"), .timeZone = zoneNamed("America/New_York")});
  EXPECT_EQ(long1.string(may), "1 mai 2024 08:34");
  EXPECT_EQ(long1.date("1 mai 2024 08:34"), Date::since1970(1714566840));
  EXPECT_EQ(long1.parse("1 mars2024 08:34").position, 6U);
  EXPECT_FALSE(long1.date("31 février 2024 08:34"));
  EXPECT_FALSE(long1.date(std::string(2'000'000, '1')));
  EXPECT_EQ(DateFormatter(std::string(5000, 'y')).string(may), "");
  EXPECT_FALSE(DateFormatter(std::string(5000, 'y')).date("1"));
  EXPECT_EQ(DateFormatter("bbbbbbbb qqqqqqqqqqqqq").date("1"), std::nullopt);
}

TEST(DateFormatter, StylesAndTemplates) {
  using Style = DateFormatter::Style;
  const auto style = [](const char* locale, Style date, Style time) {
    return DateFormatter::withStyles(date, time,
                                     {.locale = Locale(locale), .timeZone = TimeZone::gmt()})
        .string(may);
  };
  EXPECT_EQ(style("de_DE", Style::mediumStyle, Style::none), "01.05.2024");
  EXPECT_EQ(style("de_DE", Style::none, Style::shortStyle), "12:34");
  EXPECT_EQ(style("en_GB", Style::fullStyle, Style::shortStyle), "Wednesday, 1 May 2024 at 12:34");
  EXPECT_EQ(style("en_GB", Style::none, Style::none), "");
  EXPECT_EQ(DateFormatter::withLocalizedDateFormatFromTemplate(
                "MMMMd", {.locale = Locale("de_DE"), .timeZone = TimeZone::gmt()})
                .string(may),
            "1. Mai");
  EXPECT_EQ(DateFormatter::dateFormatFromTemplate("MMddyyyy", Locale("en_US")), "MM/dd/yyyy");
}

TEST(DateFormatter, OneFormatterForManyThreads) {
  const DateFormatter numbers = posix("yyyy-MM-dd HH:mm:ss", zoneNamed("America/New_York"));
  const DateFormatter names = posix("d MMMM yyyy HH:mm:ss", zoneNamed("America/New_York"));
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < 300; ++i) {
        const Date date = Date::since1970(i * 7'654'321.0 + thread);
        EXPECT_EQ(numbers.date(numbers.string(date)), date);
        EXPECT_EQ(names.date(names.string(date)), date);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace tessarine
