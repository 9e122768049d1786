#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tessarine/system/dispatch/ManualClock.hpp"
#include "tessarine/system/store/EmbeddedCloudHub.hpp"
#include "tessarine/system/store/NSUbiquitousKeyValueStore.hpp"
#include "tessarine/system/store/NotificationCenter.hpp"
#include "tessarine/values/ManualDate.hpp"
#include "tests/system/store/support/ChildProcess.hpp"
#include "tests/system/store/support/Machine.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using Store = NSUbiquitousKeyValueStore;
using Keys = std::vector<std::string>;

TEST(CloudStore, TheLaterWriteStaysWhicheverArrivesFirst) {
  const TemporaryFolder folder;
  ManualDate clock(Date(1000));
  Machine a(folder / "a", folder / "hub");
  Machine b(folder / "b", folder / "hub");
  a.store->set(1, "k");
  clock.advance(10);
  b.store->set(2, "k");
  EXPECT_TRUE(b.store->exchange().error.empty());
  EXPECT_EQ(a.store->exchange().sent, 0U) << "an earlier write does not go out any more";
  EXPECT_EQ(a.value("k"), 2);
  EXPECT_EQ(a.keys, Keys{"k"});
  EXPECT_EQ(a.reasons, std::vector<int>{1});
  EXPECT_EQ(*a.store->dictionaryRepresentation(), *b.store->dictionaryRepresentation());
  // A removal is a write like any other.
  clock.advance(10);
  a.store->removeObject("k");
  EXPECT_EQ(a.store->exchange().sent, 1U);
  b.store->exchange();
  EXPECT_EQ(b.value("k"), std::nullopt);
  EXPECT_EQ(b.reasons, std::vector<int>{0});
  EXPECT_EQ(b.store->exchange().received, 0U);
  EXPECT_EQ(a.store->exchange().sent, 0U);
}

TEST(CloudStore, WhatIsWrittenInOneStepArrivesInOneStep) {
  const TemporaryFolder folder;
  Machine a(folder / "a", folder / "hub");
  Machine b(folder / "b", folder / "hub");
  const std::vector<PreferenceChange> changes{{"x", 1}, {"y", 1}};
  a.store->setAll(changes);
  a.store->set(2, "y");
  a.store->exchange();
  b.store->exchange();
  EXPECT_EQ(b.keys, (Keys{"x", "y"}));
  EXPECT_EQ(b.value("y"), 2);
  // What was written long ago takes effect only where nothing was written since.
  a.store->setAll(std::vector<PreferenceChange>{{"y", 7}, {"z", 7}}, Date(0));
  EXPECT_EQ(a.value("y"), 2);
  EXPECT_EQ(a.value("z"), 7);
}

/// Clocks that were ahead, the hub's too, are put right.
TEST(CloudStore, WritesGoOnWhenAllClocksAreSetBack) {
  const TemporaryFolder folder;
  ManualDate clock(Date(800'000'000));
  Machine a(folder / "a", folder / "hub");
  Machine b(folder / "b", folder / "hub");
  clock.advance(366 * 86'400.0);
  a.store->set(1, "k");
  a.store->exchange();
  b.store->exchange();
  clock.set(Date(800'000'000));
  for (int value = 2; value < 6; ++value) {
    const auto [writer, reader] = value % 2 == 0 ? std::pair(&a, &b) : std::pair(&b, &a);
    writer->store->set(value - 100, "k");
    writer->store->set(value, "k");
    writer->store->exchange();
    reader->store->exchange();
    EXPECT_EQ(reader->value("k"), value);
    EXPECT_EQ(writer->store->exchange().sent, 0U);
  }
}

TEST(CloudStore, RefusesWhatPassesALimit) {
  const TemporaryFolder folder;
  Machine a(folder / "a", folder / "hub",
            {.limits = {.bytesOfValue = 100, .keys = 3, .bytes = 200}});
  const auto expectRefused = [&](const std::vector<PreferenceChange>& changes) {
    const auto before = *a.store->dictionaryRepresentation();
    a.reasons.clear();
    a.store->setAll(changes);
    EXPECT_EQ(a.reasons, std::vector<int>{2});
    EXPECT_EQ(a.keys.size(), changes.size());
    EXPECT_EQ(*a.store->dictionaryRepresentation(), before);
  };
  expectRefused({{"long", std::string(101, 'x')}});
  a.store->set(std::string(90, 'x'), "1");
  a.store->set(std::string(90, 'x'), "2");
  expectRefused({{"3", std::string(30, 'x')}});
  a.store->set(1, "2");
  a.store->set(1, "3");
  expectRefused({{"4", 1}});
  expectRefused({{"1", std::nullopt}, {"4", 1}, {"5", 1}});
  a.reasons.clear();
  a.store->set(2, "3");
  a.store->setAll(std::vector<PreferenceChange>{{"1", std::nullopt}, {"4", 1}});
  a.store->removeObject("2");
  EXPECT_TRUE(a.reasons.empty());
  EXPECT_EQ(a.store->exchange().sent, 4U);
  // Beyond the limits by what another machine wrote, everything goes that makes nothing more.
  Machine b(folder / "b", folder / "hub");
  for (const char* const key : {"5", "6", "7"}) b.store->set(std::string(150, 'x'), key);
  b.store->exchange();
  a.store->exchange();
  a.reasons.clear();
  a.store->set(std::string(120, 'x'), "5");
  a.store->setAll(std::vector<PreferenceChange>{{"6", std::nullopt}, {"8", 1}});
  EXPECT_TRUE(a.reasons.empty());
  expectRefused({{"6", 1}});
  expectRefused({{"3", std::string(50, 'x')}});
}

TEST(CloudStore, KeepsToItsBudgetAndSendsTheLastValue) {
  const TemporaryFolder folder;
  ManualClock clock;
  Machine a(folder / "a", folder / "hub",
            {.budget = Store::Budget{.writesPerMinute = 20, .writesPerHour = 100}});
  Machine b(folder / "b", folder / "hub");
  std::vector<double> sent;
  double time = 0;
  int value = 0;
  const auto pass = [&](double seconds, bool isDragged) {
    const int quarters = static_cast<int>(seconds * 4);
    for (int i = 0; i < quarters; ++i, time += 0.25) {
      clock.advance(0.25);
      if (isDragged) a.store->set(++value, "slider");
      if (a.store->exchange().sent > 0) sent.push_back(time);
    }
  };
  pass(1'800, true);
  pass(120, false);
  const auto mostIn = [&](double span) {
    std::size_t most = 0;
    for (auto first = sent.begin(); first != sent.end(); ++first) {
      const auto end = std::lower_bound(first, sent.end(), *first + span);
      most = std::max(most, static_cast<std::size_t>(end - first));
    }
    return most;
  };
  EXPECT_LE(mostIn(60), 20U);
  EXPECT_GE(mostIn(60), 15U);
  EXPECT_LE(sent.size(), 100U);
  EXPECT_GE(sent.size(), 55U) << "half an hour";
  b.store->exchange();
  EXPECT_EQ(b.value("slider"), value);
}

TEST(CloudStore, KeepsEachUsersPairsApart) {
  const TemporaryFolder folder;
  Machine a(folder / "a", "");
  EXPECT_FALSE(a.store->synchronize());
  a.store->set(1, "k");
  EXPECT_EQ(a.store->exchange().error, "nobody is signed in");
  a.signIn("ann", folder / "hub");
  EXPECT_TRUE(a.reasons.empty()) << "what was nobody's is the first user's";
  EXPECT_TRUE(a.store->synchronize());
  a.store->signOut();
  a.store->set(2, "k");  // still hers
  a.signIn("bob", folder / "hub");
  EXPECT_EQ(a.reasons, std::vector<int>{3});
  EXPECT_EQ(a.keys, Keys{"k"});
  EXPECT_EQ(a.value("k"), std::nullopt);
  a.store->set(3, "k");
  EXPECT_EQ(a.store->exchange().sent, 1U);
  a.signIn("ann", folder / "hub");
  EXPECT_EQ(a.value("k"), 2);
  EXPECT_EQ(a.store->exchange().sent, 1U);
  Machine b(folder / "b", folder / "hub");
  b.store->exchange();
  EXPECT_EQ(b.value("k"), 2);
}

/// Another process of the machine may be somebody else's, who chose last.
TEST(CloudStore, KeepsToItsUserWhateverOtherProcessesChoose) {
  const TemporaryFolder folder;
  Machine ann(folder / "a", folder / "hub");
  ann.store->set("ann's", "k");
  ann.store->exchange();
  Machine bob(folder / "a", "");
  bob.signIn("bob", folder / "hub");
  bob.store->set("bob's", "k");
  bob.store->set("secret", "bob");
  EXPECT_EQ(ann.store->exchange().sent, 0U);
  EXPECT_EQ(ann.store->status().user, "ann");
  EXPECT_EQ(ann.store->object("k"), PreferenceObject("ann's"));
  ann.store->set("hers", "k");
  ann.store->exchange();
  EXPECT_EQ(bob.store->object("k"), PreferenceObject("bob's"));
  Machine other(folder / "b", folder / "hub");
  other.store->exchange();
  EXPECT_EQ(other.store->object("k"), PreferenceObject("hers"));
  EXPECT_EQ(other.store->object("bob"), std::nullopt);
}

TEST(CloudStore, SharesAReplicaBetweenProcesses) {
  const TemporaryFolder folder;
  Machine one(folder / "a", folder / "hub");
  Machine two(folder / "a", folder / "hub");
  Machine other(folder / "b", folder / "hub");
  one.store->set(1, "k");
  EXPECT_EQ(two.value("k"), 1);
  EXPECT_EQ(two.store->exchange().sent, 1U);
  EXPECT_EQ(one.store->exchange().sent, 0U);
  other.store->exchange();
  other.store->set(2, "k");
  other.store->exchange();
  two.store->exchange();
  EXPECT_EQ(one.value("k"), 2);
  one.store->exchange();
  EXPECT_EQ(one.keys, Keys{"k"}) << "it tells of what the other one received";
}

TEST(CloudStore, SetsADamagedReplicaAsideAndWorksWithoutAFile) {
  const TemporaryFolder folder;
  std::ofstream(folder / "a") << std::string(5'000, 'x');
  Machine a(folder / "a", folder / "hub");
  a.store->set(1, "k");
  EXPECT_EQ(folder.names("a.damaged-").size(), 1U);
  a.store->exchange();
  // A folder in the file's place: what is written is in memory.
  std::filesystem::create_directory(folder / "c");
  Machine c(folder / "c", folder / "hub");
  c.store->set(2, "l");
  EXPECT_EQ(c.value("l"), 2);
  EXPECT_EQ(c.store->exchange().sent, 1U);
  EXPECT_EQ(c.value("k"), 1);
}

TEST(CloudStore, BearsAnyKeyValueAndClock) {
  const TemporaryFolder folder;
  ManualDate clock(Date(0));
  Machine a(folder / "a", folder / "hub", {.limits = {.bytes = 10'000'000}});
  Machine b(folder / "b", folder / "hub");
  const std::string keys[] = {"", std::string("\0a\0", 3), std::string(200'000, 'k'), "\xff\xfe"};
  PreferenceObject nested(1);
  for (int i = 0; i < 511; ++i) nested = PreferenceObject::Array{nested};
  constexpr double infinite = std::numeric_limits<double>::infinity();
  int number = 0;
  for (const double time : {0.0, infinite, -infinite, -63'114'076'800.0, 1e300, 800'000'000.0}) {
    clock.set(Date(time));
    for (const auto& key : keys) a.store->set(++number, key);
    a.store->setAll(std::vector<PreferenceChange>{{"twice", 1}, {"twice", nested}});
    a.store->setAll(std::vector<PreferenceChange>{{"past", 1}}, Date(-time));
    EXPECT_EQ(a.store->exchange().error, "");
    EXPECT_EQ(b.store->exchange().error, "");
    EXPECT_EQ(*a.store->dictionaryRepresentation(), *b.store->dictionaryRepresentation()) << time;
    EXPECT_EQ(b.value(keys[0]), number - 3) << time;
  }
  EXPECT_EQ(b.store->object("twice"), nested);
}

/// The stores' own threads: no exchange is asked for here.
TEST(CloudStore, ExchangesByItself) {
  const TemporaryFolder folder;
  const auto open = [&](const std::string& name) {
    auto store = Store::open(folder / name);
    store->signIn("ann", std::make_shared<EmbeddedCloudHub>(folder / "hub", "ann"));
    return store;
  };
  const auto a = open("a");
  const auto b = open("b");
  std::mutex mutex;
  std::condition_variable arrived;
  int last = 0;
  const auto token = NotificationCenter::defaultCenter().addObserver(
      NSUbiquitousKeyValueStoreDidChangeExternallyNotification, b.get(),
      [&](const Notification& /*news*/) {
        const std::scoped_lock lock(mutex);
        last = dynamicCast<int>(b->object("k")).value_or(0);
        arrived.notify_all();
      });
  for (int value = 1; value <= 20; ++value) {
    a->set(value, "k");
    std::unique_lock lock(mutex);
    arrived.wait(lock, [&] { return last == value; });
  }
  a->signOut();
  b->signOut();
}

TEST(CloudStore, AcceptedWritesSurviveTheDeathOfTheProcess) {
  const TemporaryFolder folder;
  std::mt19937_64 random(7);
  std::uint64_t acknowledged = 0;
  for (int round = 0; round < 10; ++round) {
    ChildProcess writer([&, first = acknowledged + 1](const Channel& parent) {
      const auto store = Store::open(folder / "a", {.exchangesByItself = false});
      store->signIn("ann", std::make_shared<EmbeddedCloudHub>(folder / "hub", "ann"));
      for (std::uint64_t number = first;; ++number) {
        store->setAll(std::vector<PreferenceChange>{{"x", number}, {"y", number}});
        parent.send(number);
        if (number % 8 == 0) store->exchange();
      }
      return true;
    });
    const std::uint64_t reads = 1 + random() % 40;
    for (std::uint64_t i = 0; i < reads; ++i) acknowledged = writer.receive().value();
    writer.kill();
    while (const auto rest = writer.receive()) acknowledged = *rest;

    Machine a(folder / "a", folder / "hub");
    const auto x = dynamicCast<std::uint64_t>(a.store->object("x"));
    EXPECT_GE(x, acknowledged);
    EXPECT_LE(x, acknowledged + 1);
    EXPECT_EQ(a.store->object("x"), a.store->object("y"));
    a.store->exchange();
    Machine b(folder / std::to_string(round), folder / "hub");
    b.store->exchange();
    EXPECT_EQ(b.store->object("x"), PreferenceObject(*x));
    acknowledged = *x;
  }
}

}  // namespace
}  // namespace tessarine
