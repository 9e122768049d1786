// Key-value observers of a store.
#include <stdexcept>
#include <thread>

#include "tessarine/system/store/UserDefaults.hpp"
#include "tessarine/system/store/internal/Domain.hpp"
#include "tessarine/values/NSNull.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"
#include "tests/system/store/support/writes.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

std::string textOf(const ChangeDictionary& change, const char* key) {
  const auto found = change.find(key);
  if (found == change.end()) return "-";
  if (std::any_cast<NSNull>(&found->second) != nullptr) return "null";
  return std::to_string(dynamicCast<int>(std::any_cast<PreferenceObject>(found->second)).value());
}

/// Notes "NAME key old new" of every call.
struct Listener : KeyValueObserving {
  Listener(std::string& log, std::string name) : heard(log), prefix(std::move(name)) {}
  void observeValue(std::string_view keyPath, UserDefaults&, const ChangeDictionary& change,
                    void* context) override {
    EXPECT_EQ(std::any_cast<int>(change.at(NSKeyValueChangeKindKey)), 1);
    heard += prefix + " " + std::string(keyPath) + " " + textOf(change, NSKeyValueChangeOldKey) +
             " " + textOf(change, NSKeyValueChangeNewKey) + (context != nullptr ? " c; " : "; ");
  }
  std::string& heard;
  std::string prefix;
};

using Options = KeyValueObservingOptions;

TEST(Observers, AreCalledBeforeSetReturnsInOrderWithWhatTheyAskedFor) {
  const auto defaults = UserDefaults::temporary();
  std::string log;
  const auto a = std::make_shared<Listener>(log, "a");
  const auto b = std::make_shared<Listener>(log, "b");
  defaults->addObserver(a, "k", Options::newAndOldValue);
  defaults->addObserver(b, "k");
  defaults->addObserver(a, "k", Options::oldValue, &log);
  defaults->addObserver(b, "other");
  defaults->set(1, "k");
  EXPECT_EQ(std::exchange(log, ""), "a k null 1; b k - 1; a k null - c; ");
  defaults->set(1, "k");
  EXPECT_EQ(std::exchange(log, ""), "a k 1 1; b k - 1; a k 1 - c; ") << "equal values as well";
  defaults->removeObject("k");
  EXPECT_EQ(std::exchange(log, ""), "a k 1 null; b k - null; a k 1 - c; ");
  defaults->removeObject("k");
  EXPECT_EQ(log, "") << "nothing was removed";
  defaults->setAll({{"k", 2}, {"other", 3}});
  EXPECT_EQ(std::exchange(log, ""), "a k null 2; b k - 2; a k null - c; b other - 3; ");
}

TEST(Observers, EndWithRemovalAndWithTheObserver) {
  const auto defaults = UserDefaults::temporary();
  std::string log;
  auto a = std::make_shared<Listener>(log, "a");
  auto b = std::make_shared<Listener>(log, "b");
  defaults->addObserver(a, "k", Options::newValue, &log);
  defaults->addObserver(a, "k");
  defaults->addObserver(b, "k");
  EXPECT_EQ(b.use_count(), 1) << "it is not kept alive";
  defaults->removeObserver(*a, "k", &log);
  defaults->removeObserver(*a, "other");
  b.reset();
  defaults->set(1, "k");
  EXPECT_EQ(std::exchange(log, ""), "a k - 1; ");

  auto token = defaults->observe("k", [&](const auto&) { log += "t; "; });
  defaults->set(2, "k");
  token.reset();
  defaults->removeObserver(*a, "k");
  defaults->set(3, "k");
  EXPECT_EQ(log, "a k - 2; t; ");
}

TEST(Observers, ThatThrowAreToldToTheWriterAfterAllWereCalled) {
  const auto defaults = UserDefaults::temporary();
  std::string log;
  const auto thrower = defaults->observe("k", [](const auto&) { throw std::runtime_error("one"); });
  const auto second = defaults->observe("k", [&](const auto&) {
    log += "called";
    throw std::runtime_error("two");
  });
  try {
    defaults->set(1, "k");
    FAIL() << "the first exception reaches the writer";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "one");
  }
  EXPECT_EQ(log, "called");
  EXPECT_EQ(defaults->object("k"), PreferenceObject(1));
  EXPECT_TRUE(defaults->isCurrent());
}

// An observer that another one had removed during the same change was still called.
TEST(Observers, MayWriteRegisterAndRemoveDuringACall) {
  const auto defaults = UserDefaults::temporary();
  std::string log;
  const auto removed = std::make_shared<Listener>(log, "removed");
  std::shared_ptr<void> late;
  std::shared_ptr<void> dropsItself;
  const auto first = defaults->observe("k", [&](const ChangeDictionary& change) {
    defaults->removeObserver(*removed, "k");
    if (!late) late = defaults->observe("k", [&](const auto&) { log += "late; "; });
    const int value = dynamicCast<int>(defaults->object("k")).value();
    EXPECT_EQ(textOf(change, NSKeyValueChangeNewKey), std::to_string(value));
    if (value < 3) defaults->set(value + 1, "k");
    log += std::to_string(value) + "; ";
  });
  dropsItself = defaults->observe("k", [&](const auto&) { dropsItself.reset(); });
  defaults->addObserver(removed, "k");
  defaults->set(1, "k");
  EXPECT_EQ(log, "3; late; 2; late; 1; ");
  EXPECT_EQ(dropsItself, nullptr);
  EXPECT_EQ(defaults->object("k"), PreferenceObject(3));
}

TEST(Observers, MayUseTheStoreWhenDestroyed) {
  const auto defaults = UserDefaults::temporary();
  struct Guard {
    explicit Guard(std::shared_ptr<UserDefaults> defaults) : store(std::move(defaults)) {}
    ~Guard() { store->set(store->object("k"), "copy"); }
    std::shared_ptr<UserDefaults> store;
  };
  defaults->set(1, "k");
  auto token = defaults->observe("k", [guard = std::make_shared<Guard>(defaults)](const auto&) {});
  token.reset();
  const auto next = defaults->observe("k", [](const auto&) {});  // sweeps the former away
  EXPECT_EQ(defaults->object("copy"), PreferenceObject(1));
}

TEST(Observers, WriteReadAndComeAndGoOnManyThreads) {
  constexpr int rounds = 300;
  std::atomic<int> heard = 0;  // outlives the domains, whose own threads may still be telling
  const TemporaryFolder folder;
  detail::Domain one(folder / "domain");
  detail::Domain two(folder / "domain");  // as if in another process
  const auto keep = std::make_shared<int>();
  for (auto* domain : {&one, &two}) {
    domain->addObserver("k", keep, nullptr, [&](auto&&...) { ++heard; });
  }
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      detail::Domain& domain = thread % 2 == 0 ? one : two;
      for (int i = 0; i < rounds; ++i) {
        const auto passing = std::make_shared<int>();
        domain.addObserver("k", passing, &one, [&](auto&&...) { domain.object("k"); });
        detail::set(domain, "k", i);
        detail::set(domain, std::to_string(thread), std::string(3000, 'x'));
        domain.dictionary();
        if (i % 2 == 0) domain.removeObserver("k", passing.get(), &one);
        if (i % 50 == 0) domain.synchronize();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (auto* domain : {&one, &two}) domain->refresh();
  EXPECT_GE(heard, 4 * rounds) << "each write was heard where it was made";
  EXPECT_EQ(one.object("k"), two.object("k"));
}

}  // namespace
}  // namespace tessarine
