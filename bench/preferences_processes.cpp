// Preferences where processes take part, beside QSettings, SQLite and a pipe. Files lie in a fresh
// folder under the folder for temporary files, removed afterwards. Rows:
//   open         a domain of 100 000 keys in a process that has opened none, and read one key; its
//                file is in the page cache
//   latency      from a write in one process until the observer in another runs; median of 500

#include <any>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "preferences_peers.hpp"
#include "processes.hpp"
#include "program.hpp"
#include "tessarine/preferences/UserDefaults+PropWrapper.hpp"

#include <benchmark/benchmark.h>

namespace {

using tessarine::UserDefaults;
using SteadyClock = std::chrono::steady_clock;

constexpr int manyKeys = 100'000;

std::string manyKeyOf(int number) { return "setting-" + std::to_string(1'000'000'000 + number); }

// ---- opening a large domain ----

/// In a process of its own, so that whoever opens has everything to do.
void prepareToOpen() {
  UserDefaults::setDirectory(folder);
  tessarine::PreferenceObject::Dictionary values;
  for (int i = 0; i < manyKeys; ++i) values.emplace(manyKeyOf(i), i);
  UserDefaults::standard()->setAll(values);
  UserDefaults::standard()->synchronize();

  SqliteTable table(folder + "/open-peer.sqlite");
  table.execute("BEGIN");
  for (int i = 0; i < manyKeys; ++i) table.set(manyKeyOf(i), i);
  table.execute("COMMIT");
#ifdef TESSARINE_BENCH_QT
  QSettings settings(QString::fromStdString(folder + "/open.ini"), QSettings::IniFormat);
  for (int i = 0; i < manyKeys; ++i) settings.setValue(QString::fromStdString(manyKeyOf(i)), i);
#endif
}

int openOwn(const std::string& key) {
  UserDefaults::setDirectory(folder);
  return tessarine::dynamicCast<int>(UserDefaults::standard()->object(key).value()).value();
}

int openSqlite(const std::string& key) {
  SqliteTable table(folder + "/open-peer.sqlite");
  return table.get(key);
}

int openQt([[maybe_unused]] const std::string& key) {
#ifdef TESSARINE_BENCH_QT
  const QSettings settings(QString::fromStdString(folder + "/open.ini"), QSettings::IniFormat);
  return settings.value(QString::fromStdString(key)).toInt();
#else
  return -1;
#endif
}

void openAndTell(const std::string& who) {
  const std::string key = manyKeyOf(manyKeys / 2);
  const auto open = who == "own" ? openOwn : who == "SQLite" ? openSqlite : openQt;
  const SteadyClock::time_point start = SteadyClock::now();
  const bool isRight = open(key) == manyKeys / 2;
  const std::chrono::nanoseconds took = SteadyClock::now() - start;
  tellParent(isRight ? took.count() : -1);
}

void addOpen(const std::string& name, const std::string& who) {
  benchmark::RegisterBenchmark(
      ("open/" + name).c_str(),
      [who](benchmark::State& state) {
        static const bool isPrepared = (Child({"--prepare-to-open", folder}), true);
        benchmark::DoNotOptimize(isPrepared);
        for (auto _ : state) {
          std::int64_t took = -1;
          Child({"--open", folder, who}).read(took);
          if (took < 0) return state.SkipWithError("another value was read");
          state.SetIterationTime(static_cast<double>(took) * 1e-9);
        }
      })
      ->UseManualTime()
      ->Iterations(5)
      ->Unit(benchmark::kMillisecond);
}

void registerOpen() {
  addOpen("UserDefaults", "own");
  addOpen("SQLite, statement prepared", "SQLite");
#ifdef TESSARINE_BENCH_QT
  addOpen("QSettings, INI", "Qt");
#endif
}

// ---- from process to process ----

void writeStampsToStore() {
  UserDefaults::setDirectory(folder);
  const auto store = UserDefaults::suite("latency");
  writeStamps([&](std::int64_t stamp) { store->set(stamp, "stamp"); });
}

Latencies latenciesOfStore() {
  Latencies latencies(stampCount);
  std::atomic<std::size_t> heard = 0;
  const auto token = UserDefaults::suite("latency")->observe("stamp", [&](const auto& change) {
    const std::int64_t arrived = now();
    const auto& value = std::any_cast<const tessarine::PreferenceObject&>(
        change.find(tessarine::NSKeyValueChangeNewKey)->second);
    if (heard < stampCount)
      latencies[heard] = arrived - tessarine::dynamicCast<std::int64_t>(value).value();
    ++heard;
  });
  const Child writer({"--stamp-store", folder});
  for (int wait = 0; heard < stampCount && wait < 1000; ++wait)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  latencies.resize(heard);
  return latencies;
}

void registerLatency() {
  addLatency("latency/UserDefaults observer", latenciesOfStore);
  addLatency("latency/floor: a pipe, read by a waiting thread",
             [] { return latenciesOfPipe(folder); });
}

// ---- the program ----

/// What a `Child` runs, by its first argument.
const std::unordered_map<std::string, void (*)(const std::string& argument)> roles{
    {"--prepare-to-open", [](const std::string&) { prepareToOpen(); }},
    {"--open", openAndTell},
    {"--stamp-store", [](const std::string&) { writeStampsToStore(); }},
    {"--stamp-pipe", [](const std::string&) { writeStamps(tellParent); }}};

void registerRows() {
  makeFolder();
  UserDefaults::setDirectory(folder);
  registerOpen();
  registerLatency();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && roles.contains(argv[1])) {
    folder = argv[2];
    roles.at(argv[1])(argc > 3 ? argv[3] : "");
    return 0;
  }
  return runRows(argc, argv, registerRows, [] { std::filesystem::remove_all(folder); });
}
