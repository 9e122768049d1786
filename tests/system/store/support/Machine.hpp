#pragma once

#include <any>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tessarine/system/store/EmbeddedCloudHub.hpp"
#include "tessarine/system/store/NSUbiquitousKeyValueStore.hpp"
#include "tessarine/system/store/NotificationCenter.hpp"

namespace tessarine {

/// A store that exchanges when it is told to, and what it posted.
struct Machine {
  using Store = NSUbiquitousKeyValueStore;
  using Keys = std::vector<std::string>;

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
    if (!hub.empty()) signIn("ann", hub);
  }

  std::optional<int> value(std::string_view key) const {
    return dynamicCast<int>(store->object(key));
  }

  /// Signs in as somebody else would.
  void signIn(const std::string& user, const std::string& hub) const {
    store->signIn(user, std::make_shared<EmbeddedCloudHub>(hub, user));
  }

  std::shared_ptr<Store> store;
  std::vector<int> reasons;
  Keys keys;
  NotificationCenter::Token token;
};

}  // namespace tessarine
