// tessarine date: calendar fields, moving, formats and zones.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Command.hpp"
#include "Lines.hpp"
#include "jsonOf.hpp"
#include "tessarine/coding/codingFields.hpp"
#include "tessarine/dates.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"

#include <CLI/CLI.hpp>

namespace tessarine::tool {
namespace {

using Component = Calendar::Component;

/// Operations on dates beyond these, 1.9 million years either way, may be programmer errors.
constexpr double greatestSeconds = 6e13;

template <class Value>
using Names = std::vector<std::pair<std::string, Value>>;

/// The library's own names of an enumeration's cases.
template <class Enum>
Names<Enum> ownNames() {
  Names<Enum> names;
  for (const auto& [value, name] : EnumCases<Enum>::all) names.emplace_back(name, value);
  return names;
}

const Names<Component> units = ownNames<Component>();
const Names<Calendar::Identifier> calendars = ownNames<Calendar::Identifier>();

const Names<WeekDay> weekdays = {{"sunday", WeekDay::sunday},     {"monday", WeekDay::monday},
                                 {"tuesday", WeekDay::tuesday},   {"wednesday", WeekDay::wednesday},
                                 {"thursday", WeekDay::thursday}, {"friday", WeekDay::friday},
                                 {"saturday", WeekDay::saturday}};

const Names<DateRoundingType> roundings = {{"round", DateRoundingType::round},
                                           {"ceil", DateRoundingType::ceil},
                                           {"floor", DateRoundingType::floor}};

using Nearest = Date (*)(Date, const Calendar&);
const Names<Nearest> nearestSteps = {{"5", getNearestFiveMinutes},
                                     {"10", getNearestTenMinutes},
                                     {"15", getNearestQuarterHour},
                                     {"30", getNearestHalfHour},
                                     {"60", getNearestHour}};

struct Options {
  std::string zone, calendar = "gregorian", unit, pattern, step, rounding, weekday, from;
  std::vector<std::string> zones;
  std::int64_t value = 0;
  double seconds = 0;
  int firstWeekday = 0;
  bool followingMonday = false, dateOnly = false, jsonl = false;
};

template <class Value>
Value named(const Names<Value>& names, const std::string& name) {
  const auto found = std::find_if(names.begin(), names.end(),
                                  [&](const auto& each) { return each.first == name; });
  if (found == names.end()) throw UsageError("no such name: " + name);
  return found->second;
}

template <class Value>
CLI::IsMember namesOf(const Names<Value>& names) {
  std::vector<std::string> list;
  list.reserve(names.size());
  for (const auto& each : names) list.push_back(each.first);
  return CLI::IsMember(std::move(list));
}

TimeZone zoneNamed(const std::string& name) {
  const auto zone = TimeZone::withIdentifier(name);
  if (!zone) throw UsageError("no such time zone: " + name);
  return *zone;
}

/// The host's settings as the options have them, then the calendar to count with.
Calendar calendarOf(const Options& options) {
  if (!options.zone.empty()) {
    zoneNamed(options.zone);
    setenv("TZ", options.zone.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): one thread so far
    TimeZone::resetSystemTimeZone();
  }
  if (options.firstWeekday != 0) {
    Calendar current = Calendar::current();
    current.setFirstWeekday(options.firstWeekday);
    Calendar::setCurrent(current);
  }
  return Calendar(named(calendars, options.calendar));
}

// ---- lines ----

Date dateFrom(const std::string& line) {
  double seconds = 0;
  try {
    seconds = JSONDecoder().decode<double>(line);
  } catch (const DecodingError&) {
    throw UsageError("seconds since 1970 are expected: " + line);
  }
  if (!(std::fabs(seconds) <= greatestSeconds)) {
    throw UsageError("no calendar reaches that date: " + line);
  }
  return Date::since1970(seconds);
}

/// A line for what may be absent: empty, or null.
template <class T>
std::string answer(const Options& options, const std::optional<T>& value) {
  if (!value) return options.jsonl ? "null" : "";
  return jsonOf(*value);
}

std::string answer(const Options& options, const std::optional<Date>& date) {
  return answer(options, date ? std::optional(date->timeIntervalSince1970()) : std::nullopt);
}

std::string textOf(const Options& options, const std::string& line) {
  return options.jsonl ? JSONDecoder().decode<std::string>(line) : line;
}

/// A line for each date of standard input.
int eachDate(const Options& options, const std::function<std::string(Date)>& give) {
  return runLines(options.jsonl, [&](const std::string& line) { return give(dateFrom(line)); });
}

// ---- commands ----

struct Fields {
  std::int64_t era, year, quarter, month, weekOfYear, weekOfMonth, weeksInMonth, weekday, day, hour,
      minute, second, nanosecond;
  bool isInWeekend;
  int secondsFromGMT;
  bool isDaylightSavingTime;

  static constexpr auto codingFields = fields(
      field("era", &Fields::era), field("year", &Fields::year), field("quarter", &Fields::quarter),
      field("month", &Fields::month), field("weekOfYear", &Fields::weekOfYear),
      field("weekOfMonth", &Fields::weekOfMonth), field("weeksInMonth", &Fields::weeksInMonth),
      field("weekday", &Fields::weekday), field("day", &Fields::day), field("hour", &Fields::hour),
      field("minute", &Fields::minute), field("second", &Fields::second),
      field("nanosecond", &Fields::nanosecond), field("isInWeekend", &Fields::isInWeekend),
      field("secondsFromGMT", &Fields::secondsFromGMT),
      field("isDaylightSavingTime", &Fields::isDaylightSavingTime));
};

int showFields(const Options& options) {
  const Calendar calendar = calendarOf(options);
  return eachDate(options, [&](Date date) {
    const auto read = [&](Component component) { return calendar.component(component, date); };
    return jsonOf(Fields{.era = getEra(date, calendar),
                         .year = getYear(date, calendar),
                         .quarter = getQuarter(date, calendar),
                         .month = getMonth(date, calendar),
                         .weekOfYear = getWeekOfYear(date, calendar),
                         .weekOfMonth = getWeekOfMonth(date, calendar),
                         .weeksInMonth = getWeeksInMonth(date, calendar),
                         .weekday = getWeekday(date, calendar),
                         .day = read(Component::day),
                         .hour = read(Component::hour),
                         .minute = read(Component::minute),
                         .second = read(Component::second),
                         .nanosecond = read(Component::nanosecond),
                         .isInWeekend = getIsInWeekend(date, calendar),
                         .secondsFromGMT = calendar.timeZone().secondsFromGMT(date),
                         .isDaylightSavingTime = calendar.timeZone().isDaylightSavingTime(date)});
  });
}

/// A command that makes another date, or none, of each.
template <class Move>
int move(const Options& options, const Move& make) {
  const Calendar calendar = calendarOf(options);
  return eachDate(options, [&](Date date) {
    return answer(options, std::optional<Date>(make(date, calendar)));
  });
}

int beginUnit(const Options& options) {
  const Component unit = named(units, options.unit);
  return move(options,
              [&](Date date, const Calendar& calendar) { return beginning(date, unit, calendar); });
}

int endUnit(const Options& options) {
  const Component unit = named(units, options.unit);
  return move(options,
              [&](Date date, const Calendar& calendar) { return end(date, unit, calendar); });
}

int addUnits(const Options& options) {
  const Component unit = named(units, options.unit);
  return move(options, [&](Date date, const Calendar& calendar) {
    return calendar.dateByAdding(unit, options.value, date);
  });
}

int changeUnit(const Options& options) {
  const Component unit = named(units, options.unit);
  return move(options, [&](Date date, const Calendar& calendar) {
    return changing(date, unit, options.value, calendar);
  });
}

int roundToMinutes(const Options& options) {
  return move(options, named(nearestSteps, options.step));
}

int roundToSeconds(const Options& options) {
  const DateRoundingType rounding = named(roundings, options.rounding);
  if (!(options.seconds > 0)) throw UsageError("a step above 0 is expected");
  return move(options, [&](Date date, const Calendar&) {
    return roundedSeconds(date, options.seconds, rounding);
  });
}

int upcoming(const Options& options) {
  const WeekDay weekday = named(weekdays, options.weekday);
  return move(options, [&](Date date, const Calendar&) { return getUpcoming(date, weekday); });
}

int isoWeek(const Options& options) {
  Calendar calendar = calendarOf(options);
  calendar.setFirstWeekday(Calendar::current().firstWeekday());
  return eachDate(options, [&](Date date) {
    return jsonOf(isoWeekNumber(calendar, date, options.followingMonday));
  });
}

struct Interval {
  double start, end;
  static constexpr auto codingFields =
      fields(field("start", &Interval::start), field("end", &Interval::end));
};

int showDay(const Options& options) {
  const Calendar calendar = calendarOf(options);
  return eachDate(options, [&](Date date) {
    const DateInterval day = dateIntervalForDay(calendar, date);
    return jsonOf(Interval{.start = day.start().timeIntervalSince1970(),
                           .end = day.end().timeIntervalSince1970()});
  });
}

DateFormatter formatterOf(const Options& options) {
  return {options.pattern, {.calendar = calendarOf(options)}};
}

int parse(const Options& options) {
  const DateFormatter formatter = formatterOf(options);
  return runLines(options.jsonl, [&](const std::string& line) {
    const std::string text = textOf(options, line);
    const auto date = options.pattern.empty() ? dateByTolerantChain(text, options.dateOnly)
                                              : formatter.date(text);
    return answer(options, date);
  });
}

int format(const Options& options) {
  const DateFormatter formatter = formatterOf(options);
  return eachDate(options, [&](Date date) {
    std::string text = formatter.string(date);
    return options.jsonl ? jsonOf(text) : text;
  });
}

struct Zone {
  std::string name;
  std::optional<std::string> localName, city;
  std::string offset;
  std::optional<std::string> difference, shortDifference;
  static constexpr auto codingFields = fields(
      field("name", &Zone::name), field("localName", &Zone::localName), field("city", &Zone::city),
      field("offset", &Zone::offset), field("difference", &Zone::difference),
      field("shortDifference", &Zone::shortDifference));
};

int showZones(const Options& options) {
  std::optional<TimeZone> from;
  if (!options.from.empty()) from = zoneNamed(options.from);
  for (const std::string& name : options.zones) {
    const TimeZone zone = zoneNamed(name);
    Zone shown{.name = zone.name(),
               .localName = localName(zone),
               .city = cityName(zone),
               .offset = offsetString(zone)};
    if (from) {
      shown.difference = offset(zone, *from, false);
      shown.shortDifference = offset(zone, *from, true);
    }
    std::cout << jsonOf(shown) << '\n';
  }
  return Exit::done;
}

// ---- the command line ----

/// Adds commands that share their options.
class Commands {
 public:
  Commands(CLI::App& date, int& exit) : date_(date), exit_(exit) {}

  /// A command on the dates of standard input.
  CLI::App& add(const char* name, const char* text, const char* example,
                int (*run)(const Options&)) {
    auto* const command = date_.add_subcommand(name, text);
    command->footer(std::string("Example: ") + example);
    command->add_option("--zone", options->zone, "The zone, which is the current one too");
    command->add_option("--calendar", options->calendar, "The calendar")->check(namesOf(calendars));
    command
        ->add_option("--first-weekday", options->firstWeekday,
                     "The current calendar's, 1 for Sunday to 7")
        ->check(CLI::Range(1, 7));
    command->add_flag("--jsonl", options->jsonl, "Lines are JSON texts");
    command->callback([&exit = exit_, shared = options, run] { exit = run(*shared); });
    return *command;
  }

  CLI::Option* addUnit(CLI::App& command) const {
    return command.add_option("unit", options->unit, "Such as month or weekOfYear")
        ->required()
        ->check(namesOf(units));
  }

  const std::shared_ptr<Options> options = std::make_shared<Options>();

 private:
  CLI::App& date_;
  int& exit_;
};

void addMoving(Commands& commands) {
  const auto& options = commands.options;
  commands.addUnit(commands.add("begin", "The first instant of the unit that holds each date.",
                                "echo 1714566896 | tessarine date begin month --zone Europe/Paris",
                                beginUnit));
  commands.addUnit(commands.add("end", "The last second of the unit that holds each date.",
                                "echo 1714566896 | tessarine date end month --zone Europe/Paris",
                                endUnit));
  auto& add = commands.add("add", "Each date so many units later.",
                           "echo 1706659200 | tessarine date add month 1", addUnits);
  commands.addUnit(add);
  add.add_option("count", options->value, "Negative for earlier")->required();
  auto& change = commands.add("change", "Each date with another value in a field.",
                              "echo 1714566896 | tessarine date change day 31", changeUnit);
  commands.addUnit(change);
  change.add_option("value", options->value, "The value")->required();
  commands
      .add("nearest", "Each date at the nearest multiple of so many minutes of its hour.",
           "echo 1714566896 | tessarine date nearest 15", roundToMinutes)
      .add_option("minutes", options->step, "5, 10, 15, 30 or 60")
      ->required()
      ->check(namesOf(nearestSteps));
  auto& round = commands.add("round", "Each date at a multiple of a step since 2001.",
                             "echo 1714566896 | tessarine date round 3600 floor", roundToSeconds);
  round.add_option("seconds", options->seconds, "The step")->required();
  round.add_option("rounding", options->rounding, "round, ceil or floor")
      ->required()
      ->check(namesOf(roundings));
  commands
      .add("upcoming", "The next such day of the week, or the date itself.",
           "echo 1714566896 | tessarine date upcoming friday", upcoming)
      .add_option("weekday", options->weekday, "sunday to saturday")
      ->required()
      ->check(namesOf(weekdays));
}

void addShowing(Commands& commands) {
  const auto& options = commands.options;
  commands.add("fields", "The calendar fields of each date, as JSON.",
               "echo 1714566896 | tessarine date fields --zone Asia/Tokyo", showFields);
  commands
      .add("isoweek", "The ISO 8601 week of each date.", "echo 1609459200 | tessarine date isoweek",
           isoWeek)
      .add_flag("--following-monday", options->followingMonday,
                "Of the Monday after the first weekday");
  commands.add("day", "The day of each date, up to its last second.",
               "echo 1714566896 | tessarine date day --zone Europe/Paris", showDay);
  auto& parsing = commands.add("parse", "The date of each text, by the tolerant chain of formats.",
                               "echo 2024-05-01T12:34:56.5Z | tessarine date parse", parse);
  parsing.add_flag("--date-only", options->dateOnly, "Texts are dates alone");
  parsing.add_option("--pattern", options->pattern, "Texts are of this pattern")
      ->excludes("--date-only");
  commands
      .add("format", "Each date by a pattern.",
           "echo 1714566896 | tessarine date format 'yyyy-MM-dd HH:mm' --zone Asia/Tokyo", format)
      .add_option("pattern", options->pattern, "Such as yyyy-MM-dd")
      ->required();
}

}  // namespace

void addDate(CLI::App& tool, int& exit) {
  auto* const date = tool.add_subcommand("date", "Count, move, write and read dates.");
  date->footer("Example: echo 1714566896 | tessarine date fields --zone Asia/Tokyo");
  date->require_subcommand(1);
  Commands commands(*date, exit);
  addMoving(commands);
  addShowing(commands);

  auto* const zone = date->add_subcommand("zone", "What people call zones, and their offsets now.");
  zone->footer("Example: tessarine date zone Asia/Kolkata America/New_York --from Europe/Paris");
  zone->add_option("names", commands.options->zones, "Names of the system's data")->required();
  zone->add_option("--from", commands.options->from, "Tells the differences from this zone too");
  zone->callback([&exit, options = commands.options] { exit = showZones(*options); });
}

}  // namespace tessarine::tool
