#include "tessarine/preferences/userDefaultChanged.hpp"

#include "tessarine/system/dispatch/DispatchQueue.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"

namespace tessarine {
namespace {

void post(const std::string& key, const ChangeDictionary& change) {
  NotificationCenter::defaultCenter().post(userDefaultChanged, nullptr,
                                           {{"key", key}, {"change", change}});
}

}  // namespace

void detail::postUserDefaultChangedLater(const std::string& key, ChangeDictionary change) {
  DispatchQueue::main()->async([key, change = std::move(change)] { post(key, change); });
}

void postWrapperOwnedChange(const std::string& key, std::any oldValue, std::any newValue) {
  ChangeDictionary change;
  change.emplace(NSKeyValueChangeOldKey, std::move(oldValue));
  change.emplace(NSKeyValueChangeNewKey, std::move(newValue));
  if (MainQueue::isMainThread()) {
    post(key, change);
  } else {
    detail::postUserDefaultChangedLater(key, std::move(change));
  }
}

}  // namespace tessarine
