#include "tessarine/preferences/UserDefaultCache.hpp"

#include <array>
#include <stdexcept>
#include <thread>

#include "tessarine/preferences/userDefaultChanged.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/values/AnyHashable.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

class UserDefaultCacheTest : public testing::Test {
 protected:
  void SetUp() override {
    MainQueue::drain();  // what earlier tests left
    token_ = NotificationCenter::defaultCenter().addObserver(
        userDefaultChanged, nullptr, [this](const auto& n) { posted.push_back(n.userInfo); });
  }
  template <class T>
  std::shared_ptr<UserDefaultValueCache<T>> filled(T value) {
    cache.setValue<T>(value, key, "key", defaults);
    return cache.cachedValue<T>(key);
  }

  std::shared_ptr<UserDefaults> defaults = UserDefaults::temporary();
  const UserDefaultCacheKey key{defaults->name(), "key"};
  UserDefaultCache& cache = UserDefaultCache::shared();
  std::vector<UserInfo> posted;

 private:
  NotificationCenter::Token token_;
};

TEST_F(UserDefaultCacheTest, TellsACachedAbsenceFromAMiss) {
  EXPECT_EQ(cache.value<int>(key), std::nullopt);
  EXPECT_EQ(cache.cachedValue<int>(key), nullptr);
  cache.setValueForExistingCache<int>(1, key);
  EXPECT_EQ(cache.cachedValue<int>(key), nullptr) << "none is made for a mirror";

  cache.setValue<int>(std::nullopt, key, "key", defaults);
  EXPECT_EQ(cache.value<int>(key), std::nullopt);
  EXPECT_TRUE(cache.cachedValue<int>(key)->hasCachedValue());
  cache.setValueForExistingCache<int>(1, key);
  EXPECT_EQ(cache.value<int>(key), 1);
}

TEST_F(UserDefaultCacheTest, AnEntryOfAnotherTypeIsNotSeenAndReplacedOnStoring) {
  auto numbers = filled<int>(1);
  EXPECT_EQ(cache.cachedValue<std::string>(key), nullptr);
  EXPECT_EQ(cache.value<int>(key), 1) << "looking does not replace";
  filled<std::string>("text");
  EXPECT_EQ(cache.cachedValue<int>(key), nullptr);
  EXPECT_EQ(cache.value<std::string>(key), "text");

  defaults->set(5, "key");
  MainQueue::drain();
  EXPECT_EQ(posted.size(), 1U) << "the replaced cache observes no longer";
  cache.setValue<int>(7, key, "key", defaults);
  EXPECT_EQ(cache.cachedValue<int>(key), numbers) << "memory does not grow with each replacement";
  EXPECT_EQ(cache.value<int>(key), 7);
  defaults->set(6, "key");
  EXPECT_FALSE(numbers->hasCachedValue()) << "and observes again";
}

TEST_F(UserDefaultCacheTest, AChangeFromOutsideEmptiesAndIsPostedLaterOnce) {
  const auto entry = filled<int>(1);
  defaults->set(2, "other");
  EXPECT_TRUE(entry->hasCachedValue());
  defaults->set(2, "key");
  EXPECT_FALSE(entry->hasCachedValue());
  EXPECT_EQ(entry->value(), std::nullopt);
  EXPECT_TRUE(posted.empty()) << "asynchronous even on the main thread";
  MainQueue::drain();
  ASSERT_EQ(posted.size(), 1U);
  EXPECT_EQ(dynamicCast<std::string>(posted[0].at("key")), "key");
  const auto change = dynamicCast<ChangeDictionary>(posted[0].at("change")).value();
  EXPECT_EQ(dynamicCast<int>(change.at(NSKeyValueChangeNewKey)), 2);
  EXPECT_FALSE(change.contains(NSKeyValueChangeOldKey));
}

TEST_F(UserDefaultCacheTest, AnInternalWriteKeepsTheCacheAndPostsNothing) {
  const auto entry = filled<int>(1);
  const std::array keys{key, UserDefaultCacheKey{"nowhere", "key"}};
  bool ran = false;
  cache.performInternalWrite<int>(keys, 2, [&] {
    ran = true;
    EXPECT_TRUE(entry->isChangingValue());
    defaults->set(2, "key");
    std::thread([&] { defaults->set(3, "key"); }).join();
  });
  EXPECT_TRUE(ran);
  EXPECT_FALSE(entry->isChangingValue());
  EXPECT_EQ(cache.value<int>(key), 2)
      << "a change by another thread during the write is ignored too";
  MainQueue::drain();
  EXPECT_TRUE(posted.empty());
}

TEST_F(UserDefaultCacheTest, AnInternalWriteThatThrowsLowersTheFlagAndLeavesTheCacheEmpty) {
  const auto entry = filled<int>(1);
  const std::array keys{key};
  EXPECT_THROW(cache.performInternalWrite<int>(keys, 2, [] { throw std::runtime_error("no"); }),
               std::runtime_error);
  EXPECT_FALSE(entry->isChangingValue());
  EXPECT_FALSE(entry->hasCachedValue());
}

TEST_F(UserDefaultCacheTest, ASlowReaderNeverPutsAnOldValueOverANewerOne) {
  const auto entry = filled<int>(1);
  const auto before = entry->ticketForReading();
  defaults->set(2, "key");
  entry->fill(1, before);
  EXPECT_FALSE(entry->hasCachedValue());

  const auto during = [&] {
    const auto write = entry->beginWrite();
    const auto reading = entry->ticketForReading();
    entry->endWrite(write);
    entry->settle(3, write);
    return reading;
  }();
  entry->fill(1, during);
  EXPECT_EQ(entry->value(), 3);

  // Two writes that cross: nobody can tell which value the store holds.
  const auto first = entry->beginWrite();
  const auto second = entry->beginWrite();
  entry->endWrite(first);
  entry->settle(4, first);
  entry->endWrite(second);
  entry->settle(5, second);
  EXPECT_FALSE(entry->hasCachedValue());
}

TEST_F(UserDefaultCacheTest, LargeAndSmallValuesAreReadWholeWhileBeingWritten) {
  struct Wide {
    std::int64_t low;
    std::int64_t high;
    bool operator==(const Wide&) const = default;
  };
  const auto words = UserDefaultValueCache<Wide>::make(defaults, "wide");
  const auto texts = UserDefaultValueCache<std::string>::make(defaults, "text");
  std::atomic<bool> done = false;
  std::thread writer([&] {
    for (int i = 0; i < 20000; ++i) {
      words->fill(Wide{i, i}, words->ticketForReading());
      texts->fill(std::string(40, static_cast<char>('a' + i % 26)), texts->ticketForReading());
    }
    done = true;
  });
  while (!done) {
    const auto word = words->value();
    EXPECT_TRUE(!word || word->low == word->high);
    const auto text = texts->value();
    EXPECT_TRUE(!text || *text == std::string(40, text->front()));
  }
  writer.join();
}

}  // namespace
}  // namespace tessarine
