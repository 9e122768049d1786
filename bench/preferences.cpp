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
//   open         a domain of 100 000 keys in a process that has opened none, and read one key; its
//                file is in the page cache
//   latency      from a write in one process until the observer in another runs; median of 500
// The counter "allocations" is what goes through operator new, per operation and in all threads;
// what GLib and Qt take from malloc is not seen by it.

#include <algorithm>
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
#include "tessarine/preferences/UserDefaults+PropWrapper.hpp"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef TESSARINE_BENCH_SCHEMAS
#define G_SETTINGS_ENABLE_BACKEND
#include <gio/gio.h>
#include <gio/gsettingsbackend.h>
#endif
#ifdef TESSARINE_BENCH_QT
#include <QSettings>
#endif

namespace {

using tessarine::UserDefault;
using tessarine::UserDefaults;
using Clock = std::chrono::steady_clock;

constexpr std::size_t keyCount = 100;
constexpr int manyKeys = 100'000;
constexpr int stampCount = 500;
constexpr auto text = "a text of 24 characters.";

std::string folder;  // of this run's files

std::string keyOf(std::size_t number) { return "editor-setting-no" + std::to_string(number); }

std::string manyKeyOf(int number) { return "setting-" + std::to_string(1'000'000'000 + number); }

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

/// One table of keys and values, with its statements prepared.
class SqliteTable {
 public:
  explicit SqliteTable(const std::string& path) {
    check(sqlite3_open(path.c_str(), &database_));
    execute("PRAGMA journal_mode = WAL");
    execute("PRAGMA synchronous = NORMAL");
    execute(
        "CREATE TABLE IF NOT EXISTS entries(key TEXT PRIMARY KEY, value INTEGER) WITHOUT ROWID");
    prepare(upsert_,
            "INSERT INTO entries VALUES(?1, ?2) ON CONFLICT(key) DO UPDATE"
            " SET value = excluded.value");
    prepare(select_, "SELECT value FROM entries WHERE key = ?1");
  }
  ~SqliteTable() {
    sqlite3_finalize(upsert_);
    sqlite3_finalize(select_);
    sqlite3_close(database_);
  }
  SqliteTable(const SqliteTable&) = delete;
  SqliteTable& operator=(const SqliteTable&) = delete;

  void execute(const char* sql) { check(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr)); }
  void set(const std::string& key, int value) {
    bind(upsert_, key);
    sqlite3_bind_int(upsert_, 2, value);
    check(sqlite3_step(upsert_));
    sqlite3_reset(upsert_);
  }
  int get(const std::string& key) {
    bind(select_, key);
    check(sqlite3_step(select_));
    const int value = sqlite3_column_int(select_, 0);
    sqlite3_reset(select_);
    return value;
  }

 private:
  static void check(int code) {
    if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE) std::abort();
  }
  static void bind(sqlite3_stmt* statement, const std::string& key) {
    sqlite3_bind_text(statement, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
  }
  void prepare(sqlite3_stmt*& statement, const char* sql) {
    check(sqlite3_prepare_v3(database_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr));
  }

  sqlite3* database_ = nullptr;
  sqlite3_stmt* upsert_ = nullptr;
  sqlite3_stmt* select_ = nullptr;
};

void registerSqlite() {
  addWriteAndBurst("SQLite upsert, WAL, NORMAL", [](std::size_t i) {
    static auto& table = *new SqliteTable(folder + "/write-peer.sqlite");
    static int value = 0;
    table.set(keyOf(i), ++value);
  });
}

// ---- QSettings ----

#ifdef TESSARINE_BENCH_QT
class QSettingsPeer {
 public:
  explicit QSettingsPeer(const char* name)
      : settings_(QString::fromStdString(folder + "/" + name + ".ini"), QSettings::IniFormat) {
    for (std::size_t i = 0; i < keyCount; ++i) {
      keys_.push_back(QString::fromStdString(keyOf(i)));
      settings_.setValue(keys_.back(), 7);
    }
    settings_.sync();
  }
  QSettings& settings() { return settings_; }
  const QString& key(std::size_t i) const { return keys_[i]; }

 private:
  QSettings settings_;
  std::vector<QString> keys_;
};

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
/// In memory only: its backends that keep values take longer.
class GSettingsPeer {
 public:
  GSettingsPeer() {
    for (std::size_t i = 0; i < keyCount; ++i) keys_.push_back(keyOf(i));
    GSettingsSchemaSource* const source = g_settings_schema_source_new_from_directory(
        TESSARINE_BENCH_SCHEMAS, nullptr, FALSE, nullptr);
    GSettingsSchema* const schema =
        g_settings_schema_source_lookup(source, "com.nimbrel.tessarine.bench", FALSE);
    settings_ = g_settings_new_full(schema, g_memory_settings_backend_new(), nullptr);
    for (std::size_t i = 0; i < keyCount; ++i) set(i, 7);
  }
  int get(std::size_t i) const { return g_settings_get_int(settings_, keys_[i].c_str()); }
  void set(std::size_t i, int value) { g_settings_set_int(settings_, keys_[i].c_str(), value); }
  void observe(int& heard) { g_signal_connect(settings_, "changed", G_CALLBACK(count), &heard); }

 private:
  static void count(GSettings* /*settings*/, const char* /*key*/, gpointer heard) {
    ++*static_cast<int*>(heard);
  }

  GSettings* settings_;
  std::vector<std::string> keys_;
};

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

void makeFolder() {
  folder = (std::filesystem::temp_directory_path() / "tessarine-bench-XXXXXX").string();
  if (::mkdtemp(folder.data()) == nullptr) std::abort();
  constexpr auto ext4 = 0xef53;
  struct statfs status {};
  ::statfs(folder.c_str(), &status);
  if (status.f_type != ext4) std::puts("NOTE: the folder for temporary files is not on ext4");
  UserDefaults::setDirectory(folder);
}

void runBenchmarks() {
  makeFolder();
  registerOwn();
  registerFloors();
  registerSqlite();
  registerQt();
  registerGSettings();
  registerOpen();
  registerLatency();
  benchmark::RunSpecifiedBenchmarks();
  std::filesystem::remove_all(folder);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && roles.contains(argv[1])) {
    folder = argv[2];
    roles.at(argv[1])(argc > 3 ? argv[3] : "");
    return 0;
  }
#ifndef NDEBUG
  std::puts("WARNING: a debug build; its figures mean nothing");
#endif
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  runBenchmarks();
  std::fflush(stdout);
  // The domains' threads run on; leaving by exit would carry journals into files that are gone.
  std::_Exit(0);
}
