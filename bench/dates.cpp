// Dates in New York: 1024 instants of the years 2000 to 2035 in random order, a date. What the rows
// time:
//   field   one field of a date in the current zone, the calendar made for it each time; the peers'
//           zone is looked up once, and their row is all fields, since they give no fewer
//   month   a month added; peers clamp the day or carry it over, as they do
//   begin, end   of the date's day and month
//   parse, write (and write behind a text that has room) an ISO 8601 text in GMT by the shared
//   formatter; `chain` is a text that only the last
//           of the tolerant decoder's formatters takes
//   pattern "yyyy-MM-dd HH:mm:ss" by a kept formatter, and by one made for the call
//   threads one shared formatter written with by 16 threads at once, a text and thread
// allocations/op counts what went through operator new.

#include "tessarine/dates.hpp"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "allocations.hpp"
#include "program.hpp"

#include <benchmark/benchmark.h>
#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>

#ifdef TESSARINE_BENCH_ABSL
#include <absl/time/time.h>
#endif
#ifdef TESSARINE_BENCH_DATE
#include <sstream>

#include <date/date.h>
#include <date/tz.h>
#endif

namespace {

using namespace tessarine;
using Component = Calendar::Component;

constexpr std::size_t inputCount = 1024;
constexpr const char* zoneName = "America/New_York";
constexpr const char* patternText = "yyyy-MM-dd HH:mm:ss";

/// Seconds since 1970.
const std::vector<std::int64_t>& instants() {
  static const auto made = [] {
    std::mt19937_64 random(1);
    std::uniform_int_distribution<std::int64_t> years(946'684'800, 2'051'222'400);
    std::vector<std::int64_t> values(inputCount);
    for (std::int64_t& each : values) each = years(random);
    return values;
  }();
  return made;
}

const std::vector<Date>& dates() {
  static const auto made = [] {
    std::vector<Date> values;
    values.reserve(inputCount);
    for (const std::int64_t each : instants()) values.push_back(Date::since1970(double(each)));
    return values;
  }();
  return made;
}

const std::vector<std::string>& texts(const char* behind) {
  static std::vector<std::string> made;
  made.clear();
  for (const Date date : dates()) {
    std::string text = ISO8601DateFormatter::shared().string(date);
    text.replace(text.size() - 1, 1, behind);
    made.push_back(text);
  }
  return made;
}

/// A row that gives each input to `work`, one after the other.
template <class Input, class Work>
void row(const std::string& name, const std::vector<Input>& inputs, Work work) {
  benchmark::RegisterBenchmark(name.c_str(), [inputs, work](benchmark::State& state) mutable {
    std::size_t i = 0;
    const std::uint64_t before = allocations.load();
    for (auto _ : state) {
      benchmark::DoNotOptimize(work(inputs[i++ % inputCount]));
    }
    state.counters["allocations/op"] =
        double(allocations.load() - before) / double(state.iterations());
  });
}

void registerOurs() {
  row("field/year/tessarine", dates(), [](Date date) { return year(date); });
  row("field/hour/tessarine", dates(), [](Date date) { return hour(date); });
  row("field/day/tessarine", dates(), [](Date date) { return day(date); });
  row("field/weekday/tessarine", dates(), [](Date date) { return weekday(date); });
  row("field/weekOfYear/tessarine", dates(), [](Date date) { return weekOfYear(date); });
  row("month/tessarine", dates(),
      [](Date date) { return adding(date, Component::month, 1, calendar(date)); });
  row("begin/day/tessarine", dates(),
      [](Date date) { return beginning(date, Component::day, calendar(date)); });
  row("begin/month/tessarine", dates(),
      [](Date date) { return beginning(date, Component::month, calendar(date)); });
  row("end/month/tessarine", dates(),
      [](Date date) { return end(date, Component::month, calendar(date)); });
  row("parse/tessarine", texts("Z"),
      [](const std::string& text) { return Formatter::iso8601().date(text); });
  row("write/tessarine", dates(), [](Date date) { return Formatter::iso8601().string(date); });
  row("write/append/tessarine", dates(), [text = std::string()](Date date) mutable {
    text.clear();
    Formatter::iso8601().append(date, text);
    return text.size();
  });
  row("chain/tessarine", texts(".123+00:00:"), [](const std::string& text) {
    return dateByTolerantChain(std::string_view(text).substr(0, text.size() - 1), false);
  });
  const DateFormatter kept(patternText);
  row("pattern/kept/tessarine", dates(), [kept](Date date) { return kept.string(date); });
  row("pattern/anew/tessarine", dates(), [](Date date) { return string(date, patternText); });
  row("pattern/parse/tessarine", texts("Z"),
      [formatter = DateFormatter("yyyy-MM-dd'T'HH:mm:ss'Z'")](const std::string& text) {
        return formatter.date(text);
      });
  const Calendar hebrew(Calendar::Identifier::hebrew);
  row("field/year/hebrew/tessarine", dates(),
      [hebrew](Date date) { return getYear(date, hebrew); });
}

void registerThreads() {
  const DateFormatter shared(patternText);
  benchmark::RegisterBenchmark(
      "threads/pattern/tessarine",
      [shared](benchmark::State& state) {
        std::size_t i = 0;
        for (auto _ : state) benchmark::DoNotOptimize(shared.string(dates()[i++ % inputCount]));
      })
      ->Threads(1)
      ->Threads(16);
}

void registerLibc() {
  row("field/all/glibc", instants(), [](std::time_t time) {
    std::tm fields{};
    localtime_r(&time, &fields);
    return fields.tm_year;
  });
  row("month/glibc", instants(), [](std::time_t time) {
    std::tm fields{};
    localtime_r(&time, &fields);
    ++fields.tm_mon;
    fields.tm_isdst = -1;
    return std::mktime(&fields);
  });
  row("begin/day/glibc", instants(), [](std::time_t time) {
    std::tm fields{};
    localtime_r(&time, &fields);
    fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
    fields.tm_isdst = -1;
    return std::mktime(&fields);
  });
  row("parse/glibc", texts("Z"), [](const std::string& text) {
    std::tm fields{};
    strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &fields);
    return timegm(&fields);
  });
  row("write/glibc", instants(), [](std::time_t time) {
    std::tm fields{};
    gmtime_r(&time, &fields);
    std::array<char, 32> text{};
    const auto size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &fields);
    return std::string(text.data(), size);
  });
}

void registerIcu() {
  UErrorCode status = U_ZERO_ERROR;
  static icu::GregorianCalendar calendar(icu::TimeZone::createTimeZone(zoneName), status);
  row("field/all/icu", instants(), [](std::int64_t second) {
    UErrorCode code = U_ZERO_ERROR;
    calendar.setTime(double(second) * 1000, code);
    return calendar.get(UCAL_YEAR, code);
  });
  row("month/icu", instants(), [](std::int64_t second) {
    UErrorCode code = U_ZERO_ERROR;
    calendar.setTime(double(second) * 1000, code);
    calendar.add(UCAL_MONTH, 1, code);
    return calendar.getTime(code);
  });
  static const icu::SimpleDateFormat format(patternText, icu::Locale::getUS(), status);
  const auto write = [](const icu::SimpleDateFormat& formatter, std::int64_t second) {
    icu::UnicodeString text;
    formatter.format(double(second) * 1000, text);
    std::string utf8;
    return text.toUTF8String(utf8);
  };
  row("pattern/kept/icu", instants(),
      [write](std::int64_t second) { return write(format, second); });
  row("pattern/anew/icu", instants(), [write](std::int64_t second) {
    UErrorCode code = U_ZERO_ERROR;
    return write(icu::SimpleDateFormat(patternText, icu::Locale::getUS(), code), second);
  });
}

#ifdef TESSARINE_BENCH_ABSL
void registerAbsl() {
  static absl::TimeZone zone;
  absl::LoadTimeZone(zoneName, &zone);
  row("field/all/absl", instants(), [](std::int64_t second) {
    return absl::ToCivilSecond(absl::FromUnixSeconds(second), zone).year();
  });
  row("month/absl", instants(), [](std::int64_t second) {
    const auto civil = absl::ToCivilSecond(absl::FromUnixSeconds(second), zone);
    return absl::FromCivil(absl::CivilSecond(civil.year(), civil.month() + 1, civil.day(),
                                             civil.hour(), civil.minute(), civil.second()),
                           zone);
  });
  row("begin/day/absl", instants(), [](std::int64_t second) {
    return absl::FromCivil(absl::ToCivilDay(absl::FromUnixSeconds(second), zone), zone);
  });
  row("begin/month/absl", instants(), [](std::int64_t second) {
    return absl::FromCivil(absl::ToCivilMonth(absl::FromUnixSeconds(second), zone), zone);
  });
  row("parse/absl", texts("Z"), [](const std::string& text) {
    absl::Time time;
    absl::ParseTime(absl::RFC3339_full, text, &time, nullptr);
    return time;
  });
  row("write/absl", instants(), [](std::int64_t second) {
    return absl::FormatTime("%Y-%m-%dT%H:%M:%SZ", absl::FromUnixSeconds(second),
                            absl::UTCTimeZone());
  });
}
#endif

#ifdef TESSARINE_BENCH_DATE
void registerDate() {
  static const date::time_zone* const zone = date::locate_zone(zoneName);
  const auto local = [](std::int64_t second) {
    return zone->to_local(date::sys_seconds(std::chrono::seconds(second)));
  };
  row("field/all/date", instants(), [local](std::int64_t second) {
    return int(date::year_month_day(date::floor<date::days>(local(second))).year());
  });
  row("month/date", instants(), [local](std::int64_t second) {
    const auto time = local(second);
    const auto day = date::floor<date::days>(time);
    auto moved = date::year_month_day(day) + date::months(1);
    if (!moved.ok()) moved = moved.year() / moved.month() / date::last;
    return zone->to_sys(date::local_days(moved) + (time - day), date::choose::earliest);
  });
  row("begin/day/date", instants(), [local](std::int64_t second) {
    return zone->to_sys(date::floor<date::days>(local(second)), date::choose::earliest);
  });
  row("begin/month/date", instants(), [local](std::int64_t second) {
    const date::year_month_day day(date::floor<date::days>(local(second)));
    return zone->to_sys(date::local_days(day.year() / day.month() / 1), date::choose::earliest);
  });
  row("parse/date", texts("Z"), [](const std::string& text) {
    std::istringstream stream(text);
    date::sys_seconds time;
    stream >> date::parse("%FT%TZ", time);
    return time;
  });
  row("write/date", instants(), [](std::int64_t second) {
    return date::format("%FT%TZ", date::sys_seconds(std::chrono::seconds(second)));
  });
}
#endif

}  // namespace

int main(int argc, char** argv) {
  setenv("TZ", zoneName, 1);
  tzset();
  return runRows(argc, argv, [] {
    registerOurs();
    registerThreads();
    registerLibc();
    registerIcu();
#ifdef TESSARINE_BENCH_ABSL
    registerAbsl();
#endif
#ifdef TESSARINE_BENCH_DATE
    registerDate();
#endif
  });
}
