// The cloud controller on the embedded hub, beside what it stands on. Files lie in a fresh folder
// under the folder for temporary files, removed afterwards. Rows:
//   write        a key of a domain in memory, enrolled and not: the difference is the observer's
//   observer     the controller's observer alone, on the thread that writes
//   export       one enrolled key: its dates and value into the replica, and the hub asked to
//   exchange;
//                the thread that exchanges is at work meanwhile
//   import       a notification that lists 10 000 enrolled keys, decided and imported; the exchange
//                that brings them
//   latency      from a write in one process until the observer in another runs, by way of the hub
//                and the other's main queue; median of 500
#include <any>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "preferences_peers.hpp"
#include "processes.hpp"
#include "program.hpp"
#include "tessarine/preferences.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/store/EmbeddedCloudHub.hpp"

#include <benchmark/benchmark.h>
#include <poll.h>

namespace {

using tessarine::CloudAccount;
using tessarine::EmbeddedCloudHub;
using tessarine::MainQueue;
using tessarine::NSUbiquitousKeyValueStore;
using tessarine::PreferenceChange;
using tessarine::UbiquitousController;
using tessarine::UbiquitousControllerDataStore;
using tessarine::UserDefaults;

constexpr NSUbiquitousKeyValueStore::Limits roomy{
    .bytesOfValue = 1'000'000, .keys = 100'000, .bytes = 100'000'000};

std::string hubUrl() { return "file:" + folder + "/hub"; }

std::shared_ptr<NSUbiquitousKeyValueStore> machine(const std::string& name) {
  auto store = NSUbiquitousKeyValueStore::open(folder + "/" + name,
                                               {.limits = roomy, .exchangesByItself = false});
  store->signIn("bench", std::make_shared<EmbeddedCloudHub>(folder + "/hub-of-many", "bench"));
  return store;
}

std::shared_ptr<UbiquitousController> controllerOf(
    const std::shared_ptr<UserDefaults>& domain,
    const std::shared_ptr<NSUbiquitousKeyValueStore>& store) {
  auto controller = UbiquitousController::make(domain, tessarine::ubiquitousDefaults(store), true);
  controller->setVesperline({nullptr, {}});
  return controller;
}

// ---- one machine ----

/// `UserDefaults::standard` in this run's folder, signed in, with one key enrolled.
UbiquitousController& own() {
  static const auto controller = [] {
    UserDefaults::setDirectory(folder + "/own");
    CloudAccount::signIn({.user = "own", .hub = hubUrl()});
    auto made = UbiquitousController::shared();
    made->setVesperline({nullptr, {}});
    made->startObserving({"key"});
    return made;
  }();
  return *controller;
}

/// Holds the controller's queue up while somebody holds the gate.
class Gate final : public tessarine::UbiquitousDefaultsProviding {
 public:
  std::shared_ptr<const Pairs> dictionaryRepresentation() const override {
    return std::make_shared<Pairs>();
  }
  std::optional<tessarine::PreferenceObject> object(std::string_view /*key*/) const override {
    return std::nullopt;
  }
  void set(std::optional<tessarine::PreferenceObject> /*value*/,
           std::string_view /*key*/) override {
    const std::scoped_lock lock(mutex);
  }
  void removeObject(std::string_view /*key*/) override {}
  bool synchronize() override { return false; }

  std::mutex mutex;
};

/// Only what the writer does: what its observer submits waits until the round has been timed.
void write(benchmark::State& state, bool isEnrolled) {
  constexpr int round = 1'000;
  const auto domain = UserDefaults::temporary();
  const auto gate = std::make_shared<Gate>();
  const auto controller = UbiquitousController::make(domain, gate, true);
  controller->setVesperline({nullptr, {}});
  if (isEnrolled) controller->startObserving({"key"});
  std::int64_t value = 0;
  for (auto _ : state) {
    std::chrono::nanoseconds took{};
    {
      const std::scoped_lock lock(gate->mutex);
      domain->set(++value, "key");  // its export stands at the gate
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      const auto start = std::chrono::steady_clock::now();
      for (int i = 0; i < round; ++i) domain->set(++value, "key");
      took = std::chrono::steady_clock::now() - start;
    }
    static_cast<void>(controller->observedKeys());
    state.SetIterationTime(static_cast<double>(took.count()) * 1e-9 / round);
  }
}

void observer(benchmark::State& state) {
  const auto domain = UserDefaults::temporary();
  const auto controller =
      controllerOf(domain, NSUbiquitousKeyValueStore::open("", {.exchangesByItself = false}));
  const tessarine::ChangeDictionary change;
  for (auto _ : state) controller->observeValue("key", *domain, change, nullptr);
  static_cast<void>(controller->observedKeys());
}

void exportOne(benchmark::State& state) {
  auto& controller = own();
  UserDefaults::standard()->set(1, "key");
  for (auto _ : state) controller.sync({"key"}, UbiquitousControllerDataStore::local);
}

void sqliteRows(benchmark::State& state) {
  SqliteTable table(folder + "/floor.sqlite");
  int value = 0;
  for (auto _ : state) {
    table.execute("BEGIN IMMEDIATE");
    for (const char* const key : {"udcDate", "udcDate.key", "key"}) table.set(key, ++value);
    table.execute("COMMIT");
  }
}

// ---- many keys ----

constexpr int manyKeys = 10'000;

std::string manyKeyOf(int number) { return "setting-" + std::to_string(1'000'000'000 + number); }

void importMany(benchmark::State& state) {
  std::vector<std::string> keys;
  keys.reserve(manyKeys);
  for (int i = 0; i < manyKeys; ++i) keys.push_back(manyKeyOf(i));
  const auto writer = machine("writer");
  const auto reader = machine("reader");
  const auto domain = UserDefaults::temporary();
  const auto controller = controllerOf(domain, reader);
  controller->startObserving(keys);
  const auto settle = [&] {
    do {
      static_cast<void>(controller->observedKeys());
    } while (MainQueue::drain() > 0);
  };
  std::int64_t value = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<PreferenceChange> changes;
    const tessarine::Date now = tessarine::Date::now();
    changes.push_back({"udcDate", now});
    for (const auto& key : keys) {
      changes.push_back({"udcDate." + key, now});
      changes.push_back({key, ++value});
    }
    writer->setAll(changes);
    writer->exchange();
    settle();
    state.ResumeTiming();
    reader->exchange();
    settle();
    if (domain->object(keys.back()) != tessarine::PreferenceObject(value))
      return state.SkipWithError("not imported");
  }
}

// ---- from machine to machine ----

void writeStampsToCloud() {
  UserDefaults::setDirectory(folder + "/far");
  CloudAccount::signIn({.user = "latency", .hub = hubUrl()});
  const auto controller = UbiquitousController::shared();
  controller->setVesperline({nullptr, {}});
  controller->startObserving({"stamp"});
  const auto store = UserDefaults::standard();
  // Slower than it takes, so that each stamp has the way for itself.
  for (int i = 0; i < stampCount; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(10'000 + 100 * (i % 10)));
    store->set(now(), "stamp");
  }
  std::this_thread::sleep_for(std::chrono::seconds(1));
}

/// The one machine's main thread; the other is a child.
void showStamps() {
  UserDefaults::setDirectory(folder + "/near");
  CloudAccount::signIn({.user = "latency", .hub = hubUrl()});
  const auto controller = UbiquitousController::shared();
  controller->setVesperline({nullptr, {}});
  controller->startObserving({"stamp"});
  int shown = 0;
  const auto token = UserDefaults::standard()->observe("stamp", [&](const auto& change) {
    const auto& value = std::any_cast<const tessarine::PreferenceObject&>(
        change.find(tessarine::NSKeyValueChangeNewKey)->second);
    tellParent(now() - tessarine::dynamicCast<std::int64_t>(value).value());
    ++shown;
  });
  const Child writer({"--stamp-cloud", folder});
  pollfd file{MainQueue::fileDescriptor(), POLLIN, 0};
  constexpr int longestSilence = 3'000;  // milliseconds
  while (shown<stampCount&& ::poll(&file, 1, longestSilence)> 0) MainQueue::drain();
}

Latencies latenciesOfCloud() {
  Latencies latencies;
  const Child reader({"--show", folder});
  for (std::int64_t latency = 0; reader.read(latency);) latencies.push_back(latency);
  return latencies;
}

// ---- the program ----

const std::unordered_map<std::string, void (*)()> roles{
    {"--stamp-cloud", writeStampsToCloud}, {"--show", showStamps}, {"--stamp-pipe", [] {
                                                                      writeStamps(tellParent);
                                                                    }}};

void registerRows() {
  makeFolder();
  using benchmark::RegisterBenchmark;
  addLatency("latency/two machines, hub in a file", latenciesOfCloud);
  addLatency("latency/floor: a pipe, read by a waiting thread",
             [] { return latenciesOfPipe(folder); });
  RegisterBenchmark("write/key that is not enrolled", write, false)
      ->UseManualTime()
      ->Iterations(20);
  RegisterBenchmark("write/enrolled key", write, true)->UseManualTime()->Iterations(20);
  RegisterBenchmark("observer/on the writing thread", observer);
  RegisterBenchmark("export/one key", exportOne)->UseRealTime();
  RegisterBenchmark("export/floor: SQLite, three rows in a transaction", sqliteRows)->UseRealTime();
  RegisterBenchmark("import/10 000 keys", importMany)
      ->Iterations(3)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && roles.contains(argv[1])) {
    folder = argv[2];
    roles.at(argv[1])();
    return 0;
  }
  return runRows(argc, argv, registerRows, [] {
    CloudAccount::signOut();
    std::error_code ignored;  // of what the stores' threads just write
    std::filesystem::remove_all(folder, ignored);
  });
}
