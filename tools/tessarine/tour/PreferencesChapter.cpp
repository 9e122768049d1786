#include "tour/PreferencesChapter.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <future>
#include <random>

#include "tessarine/preferences.hpp"
#include "tour/Process.hpp"

namespace tessarine::tool {
namespace {

constexpr auto positionKey = "position";
constexpr auto burstSuite = "burst";
constexpr int burstKeys = 100;
constexpr int positions = 300;
constexpr int kills = 20;

std::int64_t monotonicNow() {
  return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

std::string burstKey(std::int64_t number) { return "burst." + std::to_string(number % burstKeys); }

std::string shown(const std::optional<PreferenceObject>& object) {
  if (!object) return "nothing";
  if (const std::string* text = object->string()) return "the text " + *text;
  return object->number() != nullptr ? object->number()->stringValue() : "something else";
}

template <class Action>
double nanosecondsEach(int count, Action action) {
  const auto begin = monotonicNow();
  for (int i = 0; i < count; ++i) action(i);
  return static_cast<double>(monotonicNow() - begin) / count;
}

// ---- an accessor ----

void describeAccessor(Report& report) {
  UserDefault<int> fontSize(
      "fontSize", {.defaultValue = 12,
                   .copyToSuiteName = "mirror",
                   .cacheValues = true,
                   .alternateValueCallback = [](int size) { return std::clamp(size, 8, 72); }});
  const auto standard = UserDefaults::standard();
  const auto mirror = UserDefaults::suite("mirror");
  std::vector<Report::Row> rows{
      {"What happens", "The accessor reads", "The store holds", "The mirror"}};
  const auto show = [&](const std::string& what) {
    rows.push_back({what, std::to_string(fontSize.wrappedValue()),
                    shown(standard->object("fontSize")), shown(mirror->object("fontSize"))});
  };
  show("A new folder");
  fontSize.setWrappedValue(14);
  show("The host writes 14");
  fontSize.setWrappedValue(200);
  show("The host writes 200; reads are limited to 72");
  standard->set("9", "fontSize");
  show("Somebody stores the text 9");
  fontSize.setWrappedValue(16);
  show("The host writes 16, and the mirror is in step again");

  report.text(
      "A typed preference knows its key, its default and its mirror. It keeps its value in memory "
      "until "
      "somebody else changes the key, and converts what older programs left there.");
  report.table(rows);

  int sum = 0;
  const double cached = nanosecondsEach(1'000'000, [&](int) { sum += fontSize.wrappedValue(); });
  const double unchanged = nanosecondsEach(100'000, [&](int) { fontSize.setWrappedValue(16); });
  const double written =
      nanosecondsEach(100'000, [&](int i) { fontSize.setWrappedValue(16 + i % 50); });
  report.table({{"Measured here", "Nanoseconds each"},
                {"Reading it", fixed(cached, 1)},
                {"Writing what is there already", fixed(unchanged, 0)},
                {"Writing another value, safe from kill -9, in both domains", fixed(written, 0)}});
}

// ---- a watcher in another process ----

std::vector<double> measureLatencies(const std::string& directory) {
  Process watcher({"tour-role", "watch", directory});
  watcher.line();  // it observes now
  std::vector<double> microseconds;
  const auto standard = UserDefaults::standard();
  for (int i = 0; i < positions; ++i) {
    standard->set(monotonicNow(), positionKey);
    const auto heard = watcher.line();
    if (!heard) break;
    microseconds.push_back(std::stod(*heard) / 1000);
  }
  std::sort(microseconds.begin(), microseconds.end());
  return microseconds;
}

void describeWatcher(Report& report, const std::string& directory) {
  const auto latencies = measureLatencies(directory);
  report.text("A second process observes a key of the same domain. " +
              std::to_string(latencies.size()) + " of " + std::to_string(positions) +
              " changes written here were heard there.");
  if (latencies.empty()) return;
  const auto at = [&](double part) {
    return latencies[static_cast<std::size_t>(part * static_cast<double>(latencies.size() - 1))];
  };
  report.table({{"From the write to the observer's call", "Microseconds"},
                {"Median", fixed(at(0.5), 0)},
                {"99th percentile", fixed(at(0.99), 0)},
                {"Longest", fixed(latencies.back(), 0)}});
  constexpr std::array<double, 8> ends{50, 100, 200, 500, 1000, 2000, 5000, 20000};
  std::vector<std::pair<std::string, double>> counts;
  counts.reserve(ends.size());
  for (const double end : ends) counts.emplace_back("to " + fixed(end, 0), 0);
  for (const double latency : latencies) {
    const auto place = std::lower_bound(ends.begin(), ends.end() - 1, latency) - ends.begin();
    counts[static_cast<std::size_t>(place)].second += 1;
  }
  report.bars("How many of the changes were heard within so many microseconds.", counts);
}

// ---- a writer that is killed ----

struct Burst {
  std::int64_t acknowledged = 0;
  std::int64_t missing = 0;
};

/// Numbers below `first` were written by earlier bursts. A key holds the last number that was
/// written to it, or a later one whose acknowledgement the kill cut off.
Burst killInBurst(const std::string& directory, int lines) {
  Burst burst;
  std::array<std::int64_t, burstKeys> last{};
  {
    Process writer({"tour-role", "write", directory});
    const auto take = [&] {
      const auto line = writer.line();
      if (!line) return false;
      const std::int64_t number = std::stoll(*line);
      last[static_cast<std::size_t>(number % burstKeys)] = number;
      ++burst.acknowledged;
      return true;
    };
    for (int i = 0; i < lines && take(); ++i) {
    }
    writer.kill();
    while (take()) {
    }
  }
  Process reader({"tour-role", "print", directory});
  for (const std::int64_t number : last) {
    const auto line = reader.line();
    if (number != 0 && (!line || std::stoll(*line) < number)) ++burst.missing;
  }
  return burst;
}

bool describeKills(Report& report, const std::string& directory) {
  std::mt19937 random(std::random_device{}());
  std::uniform_int_distribution<int> lines(500, 5000);
  std::vector<std::pair<std::string, double>> counts;
  Burst all;
  for (int i = 1; i <= kills; ++i) {
    const Burst burst = killInBurst(directory, lines(random));
    counts.emplace_back(std::to_string(i), static_cast<double>(burst.acknowledged));
    all.acknowledged += burst.acknowledged;
    all.missing += burst.missing;
  }
  report.text(
      "A third process writes numbers as fast as it can and prints each one after its write has "
      "returned. It is killed in mid-burst with SIGKILL, and a fresh process looks for what was "
      "acknowledged.");
  report.table({{"Over all bursts", ""},
                {"Writers killed", std::to_string(kills)},
                {"Writes acknowledged", std::to_string(all.acknowledged)},
                {"Keys that lost an acknowledged write", std::to_string(all.missing)}});
  report.bars("Acknowledged writes of each writer before it was killed.", counts);
  return all.missing == 0;
}

}  // namespace

void watchPositions(const std::string& directory) {
  UserDefaults::setDirectory(directory);
  std::promise<void> never;
  const auto observation =
      UserDefaults::standard()->observe(positionKey, [](const ChangeDictionary& change) {
        const auto stamp = dynamicCast<std::int64_t>(change.at(NSKeyValueChangeNewKey));
        std::printf("%lld\n", static_cast<long long>(monotonicNow() - stamp.value_or(0)));
        std::fflush(stdout);
      });
  std::puts("ready");
  std::fflush(stdout);
  never.get_future().wait();
}

void writeBurst(const std::string& directory) {
  UserDefaults::setDirectory(directory);
  const auto domain = UserDefaults::suite(burstSuite);
  const std::int64_t first = dynamicCast<std::int64_t>(domain->object("next")).value_or(1);
  for (std::int64_t number = first;; ++number) {
    domain->setAll({{burstKey(number), number}, {"next", number + 1}});
    std::printf("%lld\n", static_cast<long long>(number));
    std::fflush(stdout);
  }
}

void printBurst(const std::string& directory) {
  UserDefaults::setDirectory(directory);
  const auto domain = UserDefaults::suite(burstSuite);
  for (int i = 0; i < burstKeys; ++i) {
    const auto number = dynamicCast<std::int64_t>(domain->object(burstKey(i)));
    std::printf("%lld\n", static_cast<long long>(number.value_or(0)));
  }
}

bool writePreferencesChapter(Report& report, const std::string& directory) {
  std::filesystem::remove_all(directory);
  UserDefaults::setDirectory(directory);
  report.chapter("Preferences that are never lost");
  describeAccessor(report);
  describeWatcher(report, directory);
  return describeKills(report, directory);
}

}  // namespace tessarine::tool
