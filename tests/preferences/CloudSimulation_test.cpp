// Machines with clocks of their own write, crash, lose their replicas and come back, over a hub
// that loses and delays what it is sent and is restored from copies. Once all is well again, they
// agree.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tessarine/preferences/UbiquitousController.hpp"
#include "tessarine/system/dispatch/ManualClock.hpp"
#include "tessarine/system/store/CloudTransport.hpp"
#include "tessarine/values/ManualDate.hpp"
#include "tests/support/thoroughness.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using Value = std::optional<PreferenceObject>;
using Random = std::mt19937_64;

/// Those of the standard domain, and of a suite beside it.
const std::vector<std::string>& allKeys() {
  static const std::vector<std::string> keys{"a", "b", "c", "d", "suite1", "suite2"};
  return keys;
}
bool isOfSuite(const std::string& key) { return key.size() > 1; }

/// A hub in memory after the description of the interface, that fails as it is told to.
class Hub {
 public:
  struct Held {
    CloudEntry entry;
    std::uint64_t push;
  };
  struct State {
    std::map<std::string, Held> entries;
    std::vector<std::uint64_t> pushes;  // their identities
  };

  void push(std::span<const CloudEntry> entries) {
    bool isNew = false;
    const std::uint64_t number = state.pushes.size() + 1;
    for (const CloudEntry& entry : entries) {
      greatest[entry.key] = std::max(greatest[entry.key], entry.stamp);
      const auto found = state.entries.find(entry.key);
      if (found != state.entries.end() && !(found->second.entry.stamp < entry.stamp)) continue;
      state.entries.insert_or_assign(entry.key, Held{entry, number});
      isNew = true;
    }
    if (!isNew) return;
    state.pushes.push_back(++identities);
    ++batches;
  }

  CloudTransport::News pull(const std::string& position) const {
    const std::size_t number = position.empty() ? 0 : std::stoul(position);
    const bool isKnown = number > 0 && number <= state.pushes.size() && position == text(number);
    CloudTransport::News news;
    for (const auto& [key, held] : state.entries) {
      if (!isKnown || held.push > number) news.entries.push_back(held.entry);
    }
    news.position = state.pushes.empty() ? "" : text(state.pushes.size());
    news.isWhole = !isKnown;
    news.now = static_cast<std::int64_t>(now.timeIntervalSince1970() * 1e6);
    return news;
  }

  State state;
  Date now;
  std::map<std::string, CloudStamp> greatest;  // ever sent, by key
  std::uint64_t batches = 0;
  double faults = 0;  // how probable one is
  std::deque<std::vector<CloudEntry>> delayed;

 private:
  std::string text(std::size_t number) const {
    return std::to_string(number).append("/").append(std::to_string(state.pushes[number - 1]));
  }
  std::uint64_t identities = 0;
};

class FaultyTransport : public CloudTransport {
 public:
  FaultyTransport(Hub& hub, Random& random) : hub_(hub), random_(random) {}

  News pull(const UUID& /*replica*/, const std::string& position) override {
    if (fails()) throw CloudTransportError("lost on the way");
    return hub_.pull(position);
  }
  void push(std::span<const CloudEntry> entries) override {
    if (!fails()) return hub_.push(entries);
    const auto kind = random_() % 3;
    if (kind == 0) hub_.push(entries);  // and only the answer is lost
    if (kind == 1) hub_.delayed.emplace_back(entries.begin(), entries.end());
    throw CloudTransportError("lost on the way");
  }
  bool isBudgeted() const override { return false; }

 private:
  bool fails() { return std::uniform_real_distribution<double>(0, 1)(random_) < hub_.faults; }
  Hub& hub_;
  Random& random_;
};

struct Machine {
  std::string name;
  std::string replica;
  double skew = 0;
  std::array<std::shared_ptr<UserDefaults>, 2> domains{UserDefaults::temporary(),
                                                       UserDefaults::temporary()};
  std::vector<std::string> enrolled;
  std::shared_ptr<FaultyTransport> transport;
  std::shared_ptr<NSUbiquitousKeyValueStore> store;
  std::array<std::shared_ptr<UbiquitousController>, 2> controllers;

  bool isUp() const { return store != nullptr; }
  UserDefaults& domain(const std::string& key) const { return *domains[isOfSuite(key) ? 1 : 0]; }
  UbiquitousController& controller(const std::string& key) const {
    return *controllers[isOfSuite(key) ? 1 : 0];
  }
};

class Simulation {
 public:
  Simulation(std::uint64_t seed, const std::string& folder)
      : random_(seed), folder_(folder), isSkewed_(seed % 2 == 1), restores_(seed % 4 >= 2) {
    hub_.faults = 0.2;
    const std::size_t count = 2 + pick(2);
    for (std::size_t i = 0; i < count; ++i) join();
  }

  void run() {
    for (int i = 0; i < 60; ++i) act();
    heal();
  }

  const Hub& hub() const { return hub_; }
  std::string history() const { return history_.str(); }

  /// Empty, or what is not as it has to be.
  std::string fault() {
    for (const auto& machine : machines_) {
      if (*machine.store->dictionaryRepresentation() !=
          *machines_.front().store->dictionaryRepresentation()) {
        return "replicas differ: " + machine.name;
      }
      for (const auto& key : allKeys()) {
        if (machine.domain(key).object(key) != machine.store->object(key)) {
          return key + " of " + machine.name + " is not what its replica holds";
        }
      }
    }
    for (const auto& key : allKeys()) {
      const auto held = hub_.state.entries.find(key);
      if (!restores_ && held != hub_.state.entries.end() &&
          held->second.entry.stamp != hub_.greatest[key]) {
        return key + " has not the greatest stamp";
      }
      const auto last = last_.find(key);
      const Value expected = last != last_.end() ? last->second : std::nullopt;
      if (!isSkewed_ && machines_.front().domain(key).object(key) != expected) {
        return key + " is not what was written last";
      }
    }
    return silence();
  }

 private:
  std::size_t pick(std::size_t count) { return random_() % count; }

  template <class... Parts>
  void say(const Parts&... parts) {
    history_ << "  " << time_ << " s: ";
    (history_ << ... << parts) << "\n";
  }

  /// What the machine does happens by its clock, and is waited for.
  template <class Act>
  void on(Machine& machine, Act act) {
    hub_.now = later(time_);
    date_.set(later(time_ + machine.skew));
    act();
    clock_.settle();
  }
  static Date later(double seconds) { return Date(800'000'000 + seconds); }

  void join() {
    Machine& machine = machines_.emplace_back();
    machine.name = std::string("M").append(std::to_string(machines_.size()));
    machine.replica = folder_ + "/" + machine.name;
    if (isSkewed_) {
      constexpr double year = 366 * 86400;
      const double skews[] = {0, 3600, -3600, 100, -100, year, -year};
      machine.skew = skews[pick(std::size(skews))];
    }
    say(machine.name, " joins, clock off by ", machine.skew);
    start(machine);
  }

  void start(Machine& machine) {
    if (machine.isUp()) return;
    say(machine.name, " starts");
    on(machine, [&] {
      machine.store =
          NSUbiquitousKeyValueStore::open(machine.replica, {.exchangesByItself = false});
      machine.transport = std::make_shared<FaultyTransport>(hub_, random_);
      machine.store->signIn("ann", machine.transport);
      for (std::size_t i = 0; i < machine.domains.size(); ++i) {
        auto controller =
            UbiquitousController::make(machine.domains[i], ubiquitousDefaults(machine.store), true);
        controller->setVesperline({nullptr, {}});
        controller->start(true);
        machine.controllers[i] = std::move(controller);
      }
      machine.controllers[0]->mirrorCloudImports("a", "mirror" + machine.name);
      for (const auto& key : machine.enrolled) machine.controller(key).startObserving({key});
    });
  }

  void crash(Machine& machine) {
    say(machine.name, " crashes");
    machine.controllers = {};
    machine.store.reset();
    clock_.settle();
  }

  void enrol(Machine& machine, const std::string& key) {
    say(machine.name, " enrols ", key);
    machine.enrolled.push_back(key);
    if (machine.isUp()) on(machine, [&] { machine.controller(key).startObserving({key}); });
  }

  void write(Machine& machine, const std::string& key) {
    Value value;
    if (pick(4) > 0) value = ++values_;
    if (!value && !machine.domain(key).object(key)) return;  // it would be no write
    say(machine.name, machine.isUp() ? "" : " (down)", " writes ", key, " = ",
        value ? std::to_string(values_) : "nothing");
    on(machine, [&] { machine.domain(key).set(value, key); });
    last_[key] = value;
  }

  void exchange(Machine& machine) {
    if (!machine.isUp()) return;
    on(machine, [&] {
      const auto result = machine.store->exchange();
      say(machine.name, " exchanges: ", result.received, " in, ", result.sent, " out",
          result.error.empty() ? "" : ", then loses touch");
    });
  }

  void act() {
    time_ += 1 + static_cast<double>(pick(100));
    Machine& machine = machines_[pick(machines_.size())];
    const std::string& key = allKeys()[pick(allKeys().size())];
    switch (pick(16)) {
      case 0:
        return crash(machine);
      case 1:
        crash(machine);
        say(machine.name, " loses its replica");
        for (const char* part : {"", "-wal", "-shm"})
          std::filesystem::remove(machine.replica + part);
        return start(machine);
      case 2:
        if (machines_.size() < 5) join();
        return;
      case 3:
        say("the hub is copied");
        copy_ = hub_.state;
        return;
      case 4:
        if (!copy_ || !restores_) return;
        say("the hub is restored from the copy");
        hub_.state = *copy_;
        return;
      case 5:
        if (hub_.delayed.empty()) return;
        say("what was delayed arrives");
        hub_.push(hub_.delayed[pick(hub_.delayed.size())]);
        return;
      case 6:
        if (machine.isUp())
          on(machine, [&] { machine.controllers[0]->sync({"a", "b", "c", "d"}); });
        return;
      case 7:
        return enrol(machine, key);
      case 8:
      case 9:
        return start(machine);
      case 10:
      case 11:
      case 12:
        return write(machine, key);
      default:
        return exchange(machine);
    }
  }

  void heal() {
    say("all is well from now on");
    time_ += 1000;
    hub_.faults = 0;
    for (Machine& machine : machines_) {
      start(machine);
      for (const auto& key : allKeys()) enrol(machine, key);
    }
    for (int round = 0; round < 4; ++round) {
      for (Machine& machine : machines_) exchange(machine);
    }
  }

  /// Nothing goes on when nobody writes.
  std::string silence() {
    int calls = 0;
    std::vector<std::shared_ptr<void>> observations;
    for (Machine& machine : machines_) {
      for (const auto& domain : machine.domains) {
        observations.push_back(domain->observeAllKeys([&](auto, const auto&) { ++calls; }));
      }
    }
    for (int round = 0; round < 2; ++round) {
      for (Machine& machine : machines_) {
        on(machine, [&] {
          const auto result = machine.store->exchange();
          calls += static_cast<int>(result.sent + result.received);
        });
      }
    }
    return calls == 0 ? "" : "no silence";
  }

  ManualClock clock_;
  ManualDate date_{later(0)};
  Random random_;
  const std::string folder_;
  const bool isSkewed_;
  const bool restores_;  // the hub, from copies
  double time_ = 0;
  int values_ = 0;
  Hub hub_;
  std::optional<Hub::State> copy_;
  std::deque<Machine> machines_;
  std::map<std::string, Value> last_;
  std::ostringstream history_;
};

TEST(CloudSimulation, MachinesAgreeOnceAllIsWell) {
  const char* const chosen = std::getenv("TESSARINE_SEED");
  const std::uint64_t first = chosen != nullptr ? std::stoul(chosen) : 0;
  const char* const wanted = std::getenv("TESSARINE_SEEDS");
  const std::uint64_t count =
      wanted != nullptr ? std::stoul(wanted) : std::uint64_t{100} * test::thoroughness;
  const TemporaryFolder suites;
  UserDefaults::setDirectory(suites / "");
  for (std::uint64_t seed = first; seed < first + count; ++seed) {
    const TemporaryFolder folder = TemporaryFolder::inMemory();
    Simulation simulation(seed, folder / "");
    simulation.run();
    const std::string fault = simulation.fault();
    ASSERT_EQ(fault, "") << "TESSARINE_SEED=" << seed << " TESSARINE_SEEDS=1\n"
                         << simulation.history();
  }
}

/// Machines with good clocks on a hub that never fails, started and enrolled.
class CloudRound : public testing::Test {
 protected:
  CloudRound() {
    for (int i = 0; i < 4; ++i) {
      Machine& machine = machines_.emplace_back();
      machine.store = NSUbiquitousKeyValueStore::open("", {.exchangesByItself = false});
      machine.store->signIn("ann", std::make_shared<FaultyTransport>(hub_, random_));
      auto& controller = machine.controllers[0];
      controller =
          UbiquitousController::make(machine.domains[0], ubiquitousDefaults(machine.store), true);
      controller->setVesperline({nullptr, {}});
      controller->startObserving({"a", "b.c"});
    }
  }

  void round() {
    for (Machine& machine : machines_) {
      date_.advance(1);
      machine.store->exchange();
      clock_.settle();
    }
  }
  static std::optional<int> valueOf(const Machine& machine) {
    return dynamicCast<int>(machine.domains[0]->object("a"));
  }

  ManualClock clock_;
  ManualDate date_{Date(800'000'000)};
  Random random_{1};
  Hub hub_;
  std::deque<Machine> machines_;
};

TEST_F(CloudRound, OneWriteIsOneBatchAndOneCallAMachine) {
  std::mutex mutex;  // an export notes its date on the controller's queue
  std::map<std::string, int> calls;
  const auto count = [&](const std::string& key) {
    return [&mutex, &calls, key](const ChangeDictionary& /*change*/) {
      const std::scoped_lock lock(mutex);
      ++calls[key];
    };
  };
  std::vector<std::shared_ptr<void>> observations;
  for (Machine& machine : machines_) {
    for (const std::string key : {"a", "udcDate.a"}) {
      observations.push_back(machine.domains[0]->observe(key, count(key)));
    }
  }
  machines_[1].domains[0]->set(1, "a");
  machines_[1].domains[0]->set(1, "b.c");
  clock_.settle();
  for (int i = 0; i < 2; ++i) round();
  EXPECT_EQ(hub_.batches, 1U);
  EXPECT_EQ(calls, (std::map<std::string, int>{{"a", 4}, {"udcDate.a", 4}}));
  EXPECT_EQ(hub_.state.entries.size(), 3U) << "value and two dates, and nothing of the key refused";
  for (const Machine& machine : machines_) EXPECT_EQ(valueOf(machine), 1);
  for (int i = 0; i < 2; ++i) round();
  EXPECT_EQ(hub_.batches, 1U);
  EXPECT_EQ(calls["a"], 4);
}

/// The import is decided, and waits for the main queue, when the host writes.
TEST_F(CloudRound, AnImportOnItsWayGivesWayToAWrite) {
  Machine& one = machines_[0];
  Machine& two = machines_[1];
  two.domains[0]->set(1, "a");
  clock_.settle();
  two.store->exchange();
  date_.advance(1);
  one.store->exchange();
  static_cast<void>(one.controllers[0]->observedKeys());  // decided
  one.domains[0]->set(2, "a");
  clock_.settle();
  EXPECT_EQ(valueOf(one), 2);
  round();
  round();
  for (const Machine& machine : machines_) EXPECT_EQ(valueOf(machine), 2);

  // The same with an export that is done before the import's turn.
  two.domains[0]->set(3, "a");
  clock_.settle();
  two.store->exchange();
  date_.advance(1);
  one.store->exchange();
  static_cast<void>(one.controllers[0]->observedKeys());
  one.domains[0]->set(4, "a");
  static_cast<void>(one.controllers[0]->observedKeys());  // exported
  clock_.settle();
  EXPECT_EQ(valueOf(one), 4);
  round();
  round();
  for (const Machine& machine : machines_) EXPECT_EQ(valueOf(machine), 4);
}

}  // namespace
}  // namespace tessarine
