// Preferences beside QSettings, GSettings, SQLite and a plain map behind a mutex. Data: 100 int
// keys of 18 or 19 characters, asked for in turn; files lie in a fresh folder under the folder for
// temporary files, removed afterwards. Rows:
//   read         one value by an accessor, or by a peer with its key made beforehand
//   two threads  the same by two threads with half of the keys each; the time is wall time a read,
//                so half the time of one thread is perfect; on cores 0 and 1
//   read, text   a text of 24 characters
//   unchanged    write what is there already; checks that nothing reaches the store
//   write        one new value, kept when the process dies; without a rest, so carrying the journal
//                or log home is in it. Peers that keep it in memory only say so
//   write after rest  a hundred writes after 20 ms of rest, per write
//   observed     write with one observer of the key, called before the write returns
// The counter "allocations" is what goes through operator new, per operation and in all threads;
// what GLib and Qt take from malloc is not seen by it.

#include <any>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "allocations.hpp"
#include "pinning.hpp"
#include "preferences_peers.hpp"
#include "program.hpp"
#include "tessarine/preferences/UserDefaultNullable.hpp"
#include "tessarine/preferences/UserDefaults+PropWrapper.hpp"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

using tessarine::UserDefault;
using tessarine::UserDefaultNullable;
using tessarine::UserDefaults;
using Clock = std::chrono::steady_clock;

constexpr auto text = "a text of 24 characters.";

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// ---- what all rows run ----

/// Runs `operation(i)` for the keys in turn; several threads share them out, a core each.
template <class Operation>
void measure(benchmark::State& state, Operation operation) {
  const Pinned pinned(state.threads() > 1 ? state.thread_index() : unpinned);
  const std::size_t share = keyCount / static_cast<std::size_t>(state.threads());
  const std::size_t first = share * static_cast<std::size_t>(state.thread_index());
  for (std::size_t i = first; i < first + share; ++i) operation(i);
  const std::uint64_t before = allocations.load();
  std::size_t i = first;
  for (auto _ : state) {
    operation(i);
    if (++i == first + share) i = first;
  }
  if (state.threads() > 1) return;
  state.counters["allocations"] =
      static_cast<double>(allocations.load() - before) / static_cast<double>(state.iterations());
}

template <class Operation>
void measureAfterRest(benchmark::State& state, Operation operation) {
  for (auto _ : state) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const Clock::time_point start = Clock::now();
    for (std::size_t i = 0; i < keyCount; ++i) operation(i);
    state.SetIterationTime(secondsSince(start) / keyCount);
  }
}

using Row = void (*)(benchmark::State& state);

/// A row whose work is that of its thread: CPU time is the better figure on a busy machine.
benchmark::internal::Benchmark* add(const char* name, Row row) {
  return benchmark::RegisterBenchmark(name, row);
}

/// The same by one thread and by two.
void addThreads(const std::string& name, Row row) {
  add(("read/" + name).c_str(), row);
  add(("two threads/" + name).c_str(), row)->Threads(2)->UseRealTime();
}

/// A write by `write(i)`, where other threads and the file system take part: wall time.
template <class Write>
void addWrite(const std::string& name, Write write) {
  benchmark::RegisterBenchmark(("write/" + name).c_str(), [write](benchmark::State& state) {
    measure(state, write);
  })->UseRealTime();
}

/// The same, and also in bursts after a rest.
template <class Write>
void addWriteAndBurst(const std::string& name, Write write) {
  addWrite(name, write);
  benchmark::RegisterBenchmark(("write after rest/" + name).c_str(),
                               [write](benchmark::State& state) { measureAfterRest(state, write); })
      ->UseManualTime()
      ->Iterations(20);
}

// ---- the library ----

enum class Caching { off, on };

template <class T>
std::vector<UserDefault<T>> accessors(const char* suite, Caching caching, T value) {
  std::vector<UserDefault<T>> all;
  for (std::size_t i = 0; i < keyCount; ++i) {
    all.push_back(UserDefault<T>(
        keyOf(i), {.defaultValue = {}, .suiteName = suite, .cacheValues = caching == Caching::on}));
    all.back().setWrappedValue(value);
  }
  return all;
}

template <Caching caching>
void readInt(benchmark::State& state) {
  static const auto all = accessors("read", caching, 7);
  measure(state, [](std::size_t i) { benchmark::DoNotOptimize(all[i].wrappedValue()); });
}

template <Caching caching>
void readText(benchmark::State& state) {
  static const auto all = accessors<std::string>("text", caching, text);
  measure(state, [](std::size_t i) { benchmark::DoNotOptimize(all[i].wrappedValue()); });
}

/// An accessor that finds its store by name at each use past the cache.
template <Caching caching>
void readNullable(benchmark::State& state) {
  static const auto all = [] {
    accessors("nullable", Caching::off, 7);
    std::vector<UserDefaultNullable<int>> made;
    for (std::size_t i = 0; i < keyCount; ++i) {
      made.emplace_back(keyOf(i),
                        tessarine::UserDefaultNullableOptions<int>{
                            .suiteName = "nullable", .cacheValues = caching == Caching::on});
    }
    return made;
  }();
  measure(state, [](std::size_t i) { benchmark::DoNotOptimize(all[i].wrappedValue()); });
}

std::vector<std::optional<tessarine::Date>> timesOfWrites(const char* suite) {
  std::vector<std::optional<tessarine::Date>> times;
  for (std::size_t i = 0; i < keyCount; ++i)
    times.push_back(UserDefaults::suite(suite)->lastWritten(keyOf(i)));
  return times;
}

template <Caching caching>
void writeUnchanged(benchmark::State& state) {
  static auto all = accessors("unchanged", caching, 7);
  const auto before = timesOfWrites("unchanged");
  measure(state, [](std::size_t i) { all[i].setWrappedValue(7); });
  if (timesOfWrites("unchanged") != before) state.SkipWithError("it did write");
}

/// A new value each time.
template <Caching caching>
void writeInt(std::size_t i) {
  // A domain each: the caches of one row would observe what the other writes.
  static auto all = accessors(caching == Caching::on ? "write-cached" : "write", caching, 7);
  static int value = 7;
  all[i].setWrappedValue(++value);
}

void writeObserved(benchmark::State& state) {
  static auto all = accessors("observed", Caching::off, 7);
  static int value = 7;
  int heard = 0;
  std::vector<std::shared_ptr<void>> tokens;
  for (std::size_t i = 0; i < keyCount; ++i)
    tokens.push_back(
        UserDefaults::suite("observed")->observe(keyOf(i), [&](const auto&) { ++heard; }));
  const int before = value;
  measure(state, [](std::size_t i) { all[i].setWrappedValue(++value); });
  if (heard != value - before) state.SkipWithError("the observers heard something else");
}

void registerOwn() {
  addThreads("UserDefault<int>, cached", readInt<Caching::on>);
  addThreads("UserDefault<int>, uncached", readInt<Caching::off>);
  addThreads("UserDefaultNullable<int>, cached", readNullable<Caching::on>);
  addThreads("UserDefaultNullable<int>, uncached", readNullable<Caching::off>);
  add("read, text/UserDefault<std::string>, cached", readText<Caching::on>);
  add("read, text/UserDefault<std::string>, uncached", readText<Caching::off>);
  add("unchanged/UserDefault<int>, cached", writeUnchanged<Caching::on>);
  add("unchanged/UserDefault<int>, uncached", writeUnchanged<Caching::off>);
  addWriteAndBurst("UserDefault<int>, cached", writeInt<Caching::on>);
  addWriteAndBurst("UserDefault<int>, uncached", writeInt<Caching::off>);
  add("observed/UserDefault<int>, uncached", writeObserved)->UseRealTime();
}

// ---- floors ----

struct LockedMap {
  std::mutex mutex;
  std::unordered_map<std::string, std::any> values;
};

void readMap(benchmark::State& state) {
  static LockedMap map;
  static std::vector<std::string> keys;
  static std::once_flag filled;
  std::call_once(filled, [] {
    for (std::size_t i = 0; i < keyCount; ++i) map.values[keys.emplace_back(keyOf(i))] = 7;
  });
  measure(state, [](std::size_t i) {
    const std::lock_guard lock(map.mutex);
    benchmark::DoNotOptimize(std::any_cast<int>(map.values.find(keys[i])->second));
  });
}

/// What two threads can reach on this machine.
void readAtomic(benchmark::State& state) {
  static std::array<std::atomic<int>, keyCount> values;
  measure(state, [](std::size_t i) {
    benchmark::DoNotOptimize(values[i].load(std::memory_order_acquire));
  });
}

void registerFloors() {
  addThreads("floor: mutex + unordered_map<string, any>", readMap);
  addThreads("floor: an atomic each", readAtomic);
  addWriteAndBurst("floor: append of 64 bytes", [](std::size_t /*key*/) {
    static const int file =
        ::open((folder + "/append").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    constexpr ssize_t size = 64;
    static constexpr std::array<char, size> record{};
    if (::write(file, record.data(), size) != size) std::abort();
  });
  addWrite("floor: mutex + unordered_map<string, any>, in memory only", [](std::size_t i) {
    static LockedMap map;
    static int value = 0;
    const std::lock_guard lock(map.mutex);
    map.values[keyOf(i)] = ++value;
  });
}

// ---- SQLite ----

void registerSqlite() {
  addWriteAndBurst("SQLite upsert, WAL, NORMAL", [](std::size_t i) {
    static auto& table = *new SqliteTable(folder + "/write-peer.sqlite");
    static int value = 0;
    table.set(keyOf(i), ++value);
  });
}

// ---- QSettings ----

#ifdef TESSARINE_BENCH_QT
void readQt(benchmark::State& state) {
  static QSettingsPeer peer("read");
  measure(state, [](std::size_t i) {
    benchmark::DoNotOptimize(peer.settings().value(peer.key(i)).toInt());
  });
}

void readTextQt(benchmark::State& state) {
  static QSettingsPeer peer("text");
  for (std::size_t i = 0; i < keyCount; ++i) peer.settings().setValue(peer.key(i), text);
  measure(state, [](std::size_t i) {
    benchmark::DoNotOptimize(peer.settings().value(peer.key(i)).toString());
  });
}

void registerQt() {
  addThreads("QSettings::value, INI", readQt);
  add("read, text/QSettings::value, INI", readTextQt);
  add("unchanged/QSettings::setValue, in memory only", [](benchmark::State& state) {
    static QSettingsPeer peer("unchanged");
    measure(state, [](std::size_t i) { peer.settings().setValue(peer.key(i), 7); });
  });
  addWrite("QSettings::setValue + sync, INI", [](std::size_t i) {
    static QSettingsPeer peer("write");
    static int value = 7;
    peer.settings().setValue(peer.key(i), ++value);
    peer.settings().sync();
  });
}
#else
void registerQt() { std::puts("Qt was absent at build time: its rows are skipped"); }
#endif

// ---- GSettings ----

#ifdef TESSARINE_BENCH_SCHEMAS
void registerGSettings() {
  addThreads("g_settings_get_int, memory backend", [](benchmark::State& state) {
    static const GSettingsPeer peer;
    measure(state, [](std::size_t i) { benchmark::DoNotOptimize(peer.get(i)); });
  });
  add("unchanged/g_settings_set_int, in memory only", [](benchmark::State& state) {
    static GSettingsPeer peer;
    measure(state, [](std::size_t i) { peer.set(i, 7); });
  });
  addWrite("g_settings_set_int, in memory only", [](std::size_t i) {
    static GSettingsPeer peer;
    static int value = 7;
    peer.set(i, ++value);
  });
  add("observed/g_settings_set_int, in memory only", [](benchmark::State& state) {
    static int value = 7;
    GSettingsPeer& peer = *new GSettingsPeer;
    int heard = 0;
    peer.observe(heard);
    const int before = value;
    measure(state, [&](std::size_t i) { peer.set(i, ++value); });
    if (heard != value - before) state.SkipWithError("the handler heard something else");
  })->UseRealTime();
}
#else
void registerGSettings() {
  std::puts("GSettings or its schema compiler was absent at build time: its rows are skipped");
}
#endif

void registerRows() {
  makeFolder();
  UserDefaults::setDirectory(folder);
  registerOwn();
  registerFloors();
  registerSqlite();
  registerQt();
  registerGSettings();
}

}  // namespace

int main(int argc, char** argv) {
  return runRows(argc, argv, registerRows, [] { std::filesystem::remove_all(folder); });
}
