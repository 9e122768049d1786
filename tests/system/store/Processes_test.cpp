// Several processes on one domain.
#include <condition_variable>
#include <mutex>

#include "tessarine/system/store/UserDefaults.hpp"
#include "tessarine/system/store/internal/Domain.hpp"
#include "tests/system/store/support/ChildProcess.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"
#include "tests/system/store/support/writes.hpp"

#include <gtest/gtest.h>

namespace tessarine::detail {
namespace {

std::shared_ptr<UserDefaults> suiteIn(const TemporaryFolder& folder) {
  UserDefaults::setDirectory(folder / "");
  return UserDefaults::suite("domain");
}

std::uint64_t integer(const Domain::Object& value) {
  return dynamicCast<std::uint64_t>(value).value_or(0);
}

constexpr int written = 1500;

/// Writes what wraps the ring a few times, beside the other one and on the same keys.
bool writeBeside(const TemporaryFolder& folder, const std::string& name, const Channel& parent) {
  Domain domain(folder / "domain");
  parent.send(1);
  parent.receive();
  for (int i = 0; i < written; ++i) {
    set(domain, name + std::to_string(i), std::string(2000, name.front()));
    set(domain, "same " + std::to_string(i % 30), name);
    if (i % 500 == 0) set(domain, name + "large", std::string(400'000, name.front()));
  }
  return domain.synchronize();
}

TEST(Processes, WriteBesideEachOther) {
  const TemporaryFolder folder;
  ChildProcess one([&](const Channel& parent) { return writeBeside(folder, "a", parent); });
  ChildProcess two([&](const Channel& parent) { return writeBeside(folder, "b", parent); });
  for (auto* child : {&one, &two}) child->receive();
  for (auto* child : {&one, &two}) child->send(1);
  EXPECT_TRUE(one.end());
  EXPECT_TRUE(two.end());

  Domain domain(folder / "domain");
  const auto values = domain.dictionary();
  EXPECT_EQ(values.size(), 2 * written + 2 + 30);
  for (const std::string name : {"a", "b"}) {
    const PreferenceObject whole(std::string(2000, name.front()));
    for (int i = 0; i < written; ++i) EXPECT_EQ(values.at(name + std::to_string(i)), whole);
  }
  EXPECT_TRUE(folder.names("damaged").empty());
}

TEST(Processes, SeeEachOthersWritesWithTheNextRead) {
  const TemporaryFolder folder;
  ChildProcess child([&](const Channel& parent) {
    const auto defaults = suiteIn(folder);
    bool isRight = integer(defaults->object("n")) == 0 && defaults->isCurrent();
    parent.send(1);
    while (const auto n = parent.receive()) {
      isRight = isRight && !defaults->isCurrent() && integer(defaults->object("n")) == *n &&
                defaults->isCurrent();
      parent.send(isRight ? 1 : 0);
      if (*n == 3) break;
    }
    defaults->set(4, "n");
    parent.send(1);
    return isRight;
  });
  EXPECT_EQ(child.receive(), 1U);
  Domain domain(folder / "domain");
  for (std::uint64_t n = 1; n <= 3; ++n) {
    if (n == 2) set(domain, "large", std::string(300'000, 'x'));
    if (n == 3) {
      for (int i = 0; i < 100; ++i) set(domain, "much", std::string(50'000, 'x'));
    }
    set(domain, "n", n);
    child.send(n);
    ASSERT_EQ(child.receive(), 1U) << n;
  }
  child.receive();
  EXPECT_EQ(integer(domain.object("n")), 4U);
  EXPECT_TRUE(child.end());
}

// The observer of "gate" holds the listening process up while more is written than the ring holds.
TEST(Processes, ObserversHearOfWritesHoweverLateTheyAre) {
  const TemporaryFolder folder;
  ChildProcess child([&](const Channel& parent) {
    std::mutex mutex;
    std::condition_variable heard;
    std::optional<ChangeDictionary> change;
    parent.receive();
    const auto defaults = suiteIn(folder);
    const auto gate = defaults->observe("gate", [&](const auto&) {
      parent.send(1);
      parent.receive();
    });
    const auto token = defaults->observe(
        "n",
        [&](const ChangeDictionary& now) {
          const std::lock_guard lock(mutex);
          change = now;
          heard.notify_one();
        },
        KeyValueObservingOptions::newAndOldValue);
    parent.send(1);
    std::unique_lock lock(mutex);
    heard.wait(lock, [&] { return change.has_value(); });
    return integer(std::any_cast<PreferenceObject>(change->at(NSKeyValueChangeNewKey))) == 2 &&
           integer(std::any_cast<PreferenceObject>(change->at(NSKeyValueChangeOldKey))) == 1;
  });
  Domain domain(folder / "domain");
  set(domain, "n", 1);
  child.send(1);
  child.receive();
  set(domain, "gate", true);
  child.receive();
  for (int i = 0; i < 60; ++i) set(domain, "much", std::string(60'000, 'x'));
  set(domain, "n", 2);
  child.send(1);
  EXPECT_TRUE(child.end());
}

// A large batch is in the database before the others are told of it: they never heard of one whose
// writer died in between.
TEST(Processes, GoOnAfterOneThatDiedWithTheLockHeld) {
  const TemporaryFolder folder;
  ChildProcess child([&](const Channel& parent) {
    { Domain(folder / "domain").synchronize(); }
    parent.send(1);
    parent.receive();
    std::error_code error;
    const auto journal = Journal::open(folder / "domain.journal", 0, error);
    const JournalLock lock(*journal);
    Database database(folder / "domain.sqlite");
    database.apply([](std::uint64_t folded) {
      static const std::string three("\x02\3\0\0\0\0\0\0\0", 9);
      static const Database::Row row{.key = "n", .value = three, .written = 9e9};
      return Database::Batch{.rows = {&row, 1}, .folded = folded};
    });
    parent.send(1);
    return parent.receive().has_value();
  });
  child.receive();
  Domain domain(folder / "domain");
  EXPECT_EQ(domain.object("n"), std::nullopt);
  child.send(1);
  child.receive();
  child.kill();
  set(domain, "other", 1);
  EXPECT_EQ(domain.object("n"), PreferenceObject(3)) << "read anew, like every other process";
  EXPECT_TRUE(domain.synchronize());
}

// The reader knows "b" when it looks "a" up in the database, which may be ahead of the journal.
TEST(Processes, SeeBatchesWhole) {
  const TemporaryFolder folder;
  ChildProcess child([&](const Channel& parent) {
    Domain domain(folder / "domain");
    parent.send(1);
    for (int i = 1; i <= 300; ++i) {
      PreferenceObject::Dictionary batch{{"a", i}, {"b", i}};
      if (i % 3 == 0) batch.emplace("volume", std::string(300'000, 'x'));
      setAll(domain, batch);
      if (i % 10 == 0) domain.synchronize();
    }
    return true;
  });
  child.receive();
  for (std::uint64_t a = 0; a < 300;) {
    Domain domain(folder / "domain");
    domain.object("b");
    a = integer(domain.object("a"));
    ASSERT_GE(integer(domain.object("b")), a);
    const auto values = domain.dictionary();
    ASSERT_EQ(values.contains("a") ? values.at("a") : 0, values.contains("b") ? values.at("b") : 0);
  }
  EXPECT_TRUE(child.end());
}

TEST(Processes, MayEndAtAnyMoment) {
  struct Row {
    const char* moment;
    void (*end)(UserDefaults& defaults, const Channel& parent);
  };
  static const auto onChange = [](UserDefaults& defaults) {
    // Not destroyed at the end, when the observer's own thread may still be about.
    static auto* token = new auto(defaults.observe("n", [](const auto&) { std::exit(0); }));
    (void)token;
  };
  const Row rows[] = {
      {"in an observer, on the writing thread",
       [](UserDefaults& defaults, const Channel&) {
         onChange(defaults);
         defaults.set(1, "n");
       }},
      {"in an observer, on the store's thread",
       [](UserDefaults& defaults, const Channel& parent) {
         onChange(defaults);
         parent.send(1);
         while (parent.receive()) {
         }
       }},
      {"while other threads write",
       [](UserDefaults& defaults, const Channel&) {
         for (int i = 0; i < 2; ++i) {
           std::thread([&defaults] {
             for (int n = 0;; ++n) defaults.set(n, "other");
           }).detach();
         }
         defaults.set(1, "n");
         std::exit(0);
       }},
      {"as a child that has none of the threads",
       [](UserDefaults& defaults, const Channel&) {
         defaults.set(1, "n");
         const pid_t child = ::fork();
         if (child == 0) std::exit(0);
         int status = 0;
         ::waitpid(child, &status, 0);
         ::_exit(WIFEXITED(status) ? 0 : 1);
       }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.moment);
    const TemporaryFolder folder;
    ChildProcess child([&](const Channel& parent) {
      const auto defaults = suiteIn(folder);
      row.end(*defaults, parent);
      return false;
    });
    if (child.receive()) {
      Domain domain(folder / "domain");
      set(domain, "n", 1);
    }
    EXPECT_TRUE(child.end());
    EXPECT_EQ(Domain(folder / "domain").object("n"), PreferenceObject(1));
  }
}

}  // namespace
}  // namespace tessarine::detail
