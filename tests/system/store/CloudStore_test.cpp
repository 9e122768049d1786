#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tessarine/system/store/EmbeddedCloudHub.hpp"
#include "tessarine/system/store/NSUbiquitousKeyValueStore.hpp"
#include "tessarine/system/store/NotificationCenter.hpp"
#include "tessarine/values/ManualDate.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using Store = NSUbiquitousKeyValueStore;
using Keys = std::vector<std::string>;

/// A store that exchanges when it is told to, and what it posted.
struct Machine {
  Machine(const std::string& replica, const std::string& hub, Store::Options options = {})
      : store(Store::open(replica,
                          [&] {
                            options.exchangesByItself = false;
                            return options;
                          }())),
        token(NotificationCenter::defaultCenter().addObserver(
            NSUbiquitousKeyValueStoreDidChangeExternallyNotification, store.get(),
            [this](const Notification& notification) {
              reasons.push_back(std::any_cast<int>(
                  notification.userInfo.at(NSUbiquitousKeyValueStoreChangeReasonKey)));
              keys = std::any_cast<Keys>(
                  notification.userInfo.at(NSUbiquitousKeyValueStoreChangedKeysKey));
            })) {
    if (!hub.empty()) store->signIn("ann", std::make_shared<EmbeddedCloudHub>(hub, "ann"));
  }

  std::optional<int> value(std::string_view key) const {
    return dynamicCast<int>(store->object(key));
  }

  std::shared_ptr<Store> store;
  std::vector<int> reasons;
  Keys keys;
  NotificationCenter::Token token;
};

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

}  // namespace
}  // namespace tessarine
