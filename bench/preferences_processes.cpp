// Preferences where processes take part, beside QSettings, SQLite and a pipe. Files lie in a fresh
// folder under the folder for temporary files, removed afterwards. Rows:
//   open         a domain of 100 000 keys in a process that has opened none, and read one key; its
//                file is in the page cache
//   latency      from a write in one process until the observer in another runs; median of 500

#include <algorithm>
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
#include "program.hpp"
#include "tessarine/preferences/UserDefaults+PropWrapper.hpp"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using tessarine::UserDefaults;
using Clock = std::chrono::steady_clock;

constexpr int manyKeys = 100'000;
constexpr int stampCount = 500;

std::string manyKeyOf(int number) { return "setting-" + std::to_string(1'000'000'000 + number); }

/// This program once more, in another role, with its output to be read.
class Child {
 public:
  explicit Child(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), std::filesystem::read_symlink("/proc/self/exe"));
    std::vector<char*> pointers;
    for (auto& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) std::abort();
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    if (::posix_spawn(&process_, pointers[0], &actions, nullptr, pointers.data(), environ) != 0)
      std::abort();
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    output_ = ends[0];
  }
  ~Child() {
    ::waitpid(process_, nullptr, 0);
    ::close(output_);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// The next number of its output; false at the end.
  bool read(std::int64_t& number) const {
    return ::read(output_, &number, sizeof number) == sizeof number;
  }

 private:
  pid_t process_ = 0;
  int output_ = -1;
};

void tellParent(std::int64_t number) {
  if (::write(STDOUT_FILENO, &number, sizeof number) != sizeof number) std::abort();
}

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
  const Clock::time_point start = Clock::now();
  const bool isRight = open(key) == manyKeys / 2;
  const std::chrono::nanoseconds took = Clock::now() - start;
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

std::int64_t now() { return Clock::now().time_since_epoch() / std::chrono::nanoseconds(1); }

/// Writes the time of the monotonic clock, which all processes share, every 2 to 3 ms.
template <class Write>
void writeStamps(Write write) {
  for (int i = 0; i < stampCount; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(2000 + 100 * (i % 10)));
    write(now());
  }
}

void writeStampsToStore() {
  UserDefaults::setDirectory(folder);
  const auto store = UserDefaults::suite("latency");
  writeStamps([&](std::int64_t stamp) { store->set(stamp, "stamp"); });
}

/// Nanoseconds from each stamp until this process has it.
using Latencies = std::vector<std::int64_t>;

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

Latencies latenciesOfPipe() {
  Latencies latencies;
  const Child writer({"--stamp-pipe", folder});
  for (std::int64_t stamp = 0; writer.read(stamp);) latencies.push_back(now() - stamp);
  return latencies;
}

void addLatency(const char* name, Latencies (*measureLatencies)()) {
  benchmark::RegisterBenchmark(
      name,
      [=](benchmark::State& state) {
        for (auto _ : state) {
          Latencies latencies = measureLatencies();
          if (latencies.size() != stampCount)
            return state.SkipWithError("not every write was heard");
          std::sort(latencies.begin(), latencies.end());
          state.SetIterationTime(static_cast<double>(latencies[stampCount / 2]) * 1e-9);
          state.counters["p99_us"] = static_cast<double>(latencies[stampCount * 99 / 100]) * 1e-3;
        }
      })
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMicrosecond);
}

void registerLatency() {
  addLatency("latency/UserDefaults observer", latenciesOfStore);
  addLatency("latency/floor: a pipe, read by a waiting thread", latenciesOfPipe);
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
