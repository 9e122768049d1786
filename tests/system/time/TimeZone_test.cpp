#include "tessarine/system/time/TimeZone.hpp"

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tessarine/system/time/internal/CivilDay.hpp"
#include "tessarine/system/time/internal/ZoneRules.hpp"
#include "tests/system/time/HostZone.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using internal::ZoneRules;

Date at(std::int64_t secondsSince1970) {
  return Date::since1970(static_cast<double>(secondsSince1970));
}

// The C library reads the same files, by itself.
TEST(TimeZone, OffsetsAndAbbreviationsAreThoseOfTheCLibrary) {
  const auto names = TimeZone::knownTimeZoneIdentifiers();
  ASSERT_GT(names.size(), 400U);
  HostZone host("UTC");
  std::mt19937_64 random(20261123);
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    const auto zone = TimeZone::withIdentifier(name);
    ASSERT_TRUE(zone);
    host.set(name);
    std::vector<std::int64_t> seconds;
    for (const auto& span : zone->rules().spans()) {
      const bool isInReach = span.start > -4'000'000'000 && span.start < 20'000'000'000;
      if (!isInReach) continue;
      for (const int beside : {-1, 0, 1}) seconds.push_back(span.start + beside);
    }
    std::uniform_int_distribution<std::int64_t> any(-5'000'000'000, 60'000'000'000);
    for (int i = 0; i < 200; ++i) seconds.push_back(any(random));
    for (const std::int64_t second : seconds) {
      const std::time_t time = second;
      std::tm fields{};
      localtime_r(&time, &fields);
      ASSERT_EQ(zone->secondsFromGMT(at(second)), fields.tm_gmtoff) << second;
      ASSERT_EQ(zone->abbreviation(at(second)), fields.tm_zone) << second;
    }
  }
}

// The definition, by looking at every offset that the zone ever has.
std::int64_t firstInstantShowing(const ZoneRules& zone, std::int64_t local) {
  std::int64_t first = std::numeric_limits<std::int64_t>::max();
  for (const auto& span : zone.spans()) {
    const std::int64_t candidate = local - span.offset;
    if (zone.at(candidate).offset == span.offset) first = std::min(first, candidate);
  }
  return first;
}

TEST(TimeZone, LocalTimesAreFoundAroundEveryTransition) {
  for (const std::string& name : TimeZone::knownTimeZoneIdentifiers()) {
    SCOPED_TRACE(name);
    const ZoneRules& zone = TimeZone::withIdentifier(name)->rules();
    const auto spans = zone.spans();
    for (std::size_t i = 1; i < spans.size() && spans[i].start < 3'000'000'000; ++i) {
      const int before = spans[i - 1].offset;
      const int after = spans[i].offset;
      for (const int offset : {before, after}) {
        for (const int beside : {-1, 0, 1}) {
          const std::int64_t local = spans[i].start + offset + beside;
          const std::int64_t found = zone.utcOfLocal(local);
          const std::int64_t expected = firstInstantShowing(zone, local);
          if (expected != std::numeric_limits<std::int64_t>::max()) {
            ASSERT_EQ(found, expected) << "transition " << spans[i].start;
          } else {  // skipped: forward by what is skipped
            ASSERT_EQ(found + zone.at(found).offset, local + after - before) << spans[i].start;
          }
        }
      }
    }
  }
}

TEST(TimeZone, RulesGoOnForEver) {
  const auto zone = *TimeZone::withIdentifier("America/New_York");
  const auto offsetInJuly = [&](std::int64_t year) {
    return zone.secondsFromGMT(at(internal::daysFromCivil({year, 7, 1}) * 86400));
  };
  for (const std::int64_t year : {2038, 2436, 2437, 2438, 2439, 2440, 9999, 1'000'000}) {
    EXPECT_EQ(offsetInJuly(year), -4 * 3600) << year;
  }
  // A transition 400 years on is the same one.
  const Date date = at(internal::daysFromCivil({2500, 1, 1}) * 86400);
  const auto next = zone.nextTransition(date);
  ASSERT_TRUE(next);
  EXPECT_EQ(next->timeIntervalSince1970(),
            static_cast<double>(internal::daysFromCivil({2500, 3, 14}) * 86400 + 25'200));
  for (std::int64_t year = 2030; year < 2900; ++year) {
    const std::int64_t noon = internal::daysFromCivil({year, 7, 4}) * 86400 + 43200;
    ASSERT_EQ(zone.rules().utcOfLocal(noon), noon + 14'400) << year;
    const auto autumn = zone.nextTransition(at(noon));
    ASSERT_TRUE(autumn && zone.secondsFromGMT(*autumn) == -5 * 3600) << year;
  }
}

TEST(TimeZone, DaylightSavingIsTheGreaterOffset) {
  const auto saving = [](const char* name, std::int64_t year, int month) {
    return TimeZone::withIdentifier(name)->isDaylightSavingTime(
        at(internal::daysFromCivil({year, month, 15}) * 86400));
  };
  for (const char* const name : {"Europe/Dublin", "Europe/Berlin", "America/New_York"}) {
    EXPECT_TRUE(saving(name, 2024, 7)) << name;
    EXPECT_FALSE(saving(name, 2024, 1)) << name;
  }
  EXPECT_TRUE(saving("Australia/Sydney", 2024, 1));
  EXPECT_TRUE(saving("Africa/Casablanca", 2024, 7));
  EXPECT_FALSE(saving("Africa/Casablanca", 2024, 3));  // Ramadan
  EXPECT_FALSE(saving("Asia/Tokyo", 2024, 7));
}

TEST(TimeZone, NamesAndOffsets) {
  for (const char* const unknown :
       {"", "Mars/Olympus", "../../etc/passwd", "/etc/localtime", "right/UTC", "America", "GMT+",
        "GMT+19", "GMT+5:3", "GMT+123", "IST2", "zone.tab", "america/new_york"}) {
    EXPECT_FALSE(TimeZone::withIdentifier(unknown)) << unknown;
  }
  const auto offset = [](const char* name) {
    return TimeZone::withIdentifier(name)->secondsFromGMT(Date());
  };
  EXPECT_EQ(offset("GMT"), 0);
  EXPECT_EQ(offset("GMT+5"), 5 * 3600);
  EXPECT_EQ(offset("GMT-08"), -8 * 3600);
  EXPECT_EQ(offset("GMT+05:30"), 19800);
  EXPECT_EQ(offset("UTC-0330"), -12600);
  EXPECT_EQ(TimeZone::withSecondsFromGMT(19800)->identifier(), "GMT+0530");
  EXPECT_EQ(TimeZone::withSecondsFromGMT(0), TimeZone::gmt());
  EXPECT_FALSE(TimeZone::withSecondsFromGMT(18 * 3600 + 1));
  EXPECT_EQ(TimeZone::withAbbreviation("PDT")->identifier(), "America/Los_Angeles");
  EXPECT_FALSE(TimeZone::withAbbreviation("IST"));
  EXPECT_FALSE(TimeZone::withAbbreviation("CST"));
}

TEST(TimeZone, TheHostsSettingIsFollowed) {
  HostZone host("Asia/Tokyo");
  EXPECT_EQ(TimeZone::current().identifier(), "Asia/Tokyo");
  host.set(":Europe/Paris");
  EXPECT_EQ(TimeZone::current().identifier(), "Europe/Paris");
  host.set("EST5EDT4,M3.2.0/2,M11.1.0/2");
  EXPECT_EQ(TimeZone::current().secondsFromGMT(at(1'720'000'000)), -4 * 3600);
  EXPECT_EQ(TimeZone::current().secondsFromGMT(at(1'704'500'000)), -5 * 3600);
  host.set("<-03>3");
  EXPECT_EQ(TimeZone::current().secondsFromGMT(at(0)), -3 * 3600);
  host.set("no such zone");
  EXPECT_EQ(TimeZone::current(), TimeZone::gmt());
}

TEST(TimeZone, NamesForPeople) {
  const auto zone = *TimeZone::withIdentifier("Europe/Berlin");
  using Style = TimeZone::NameStyle;
  EXPECT_EQ(zone.localizedName(Style::standard, Locale("en_US")), "Central European Standard Time");
  EXPECT_EQ(zone.localizedName(Style::daylightSaving, Locale("de_DE")),
            "Mitteleuropäische Sommerzeit");
  EXPECT_EQ(zone.localizedName(Style::generic, Locale("en_US")), "Central European Time");
}

TEST(ZoneFile, DamagedFilesAreNoZones) {
  std::ifstream file("/usr/share/zoneinfo/Europe/Paris", std::ios::binary);
  const std::string whole{std::istreambuf_iterator<char>(file), {}};
  ASSERT_TRUE(internal::readZoneFile(whole));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    ASSERT_FALSE(internal::readZoneFile(std::string_view(whole).substr(0, size))) << size;
  }
  // Any byte may be wrong; what is read then is a zone that can be asked.
  std::mt19937 random(7);
  for (int i = 0; i < 3000; ++i) {
    std::string damaged = whole;
    for (int k = 0; k < 3; ++k) damaged[random() % damaged.size()] = static_cast<char>(random());
    const auto table = internal::readZoneFile(damaged);
    if (!table) continue;
    const ZoneRules zone("damaged", *table);
    for (const std::int64_t second : {-4'000'000'000LL, 0LL, 1'700'000'000LL, 90'000'000'000LL}) {
      EXPECT_LT(std::abs(zone.utcOfLocal(second) - second), 2 * ZoneRules::greatestOffset);
    }
  }
}

}  // namespace
}  // namespace tessarine
