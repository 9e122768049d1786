#include "tessarine/preferences/UserDefaultValueCache.hpp"

#include "tessarine/preferences/userDefaultChanged.hpp"

namespace tessarine {

AnyUserDefaultValueCache::AnyUserDefaultValueCache(
    const std::shared_ptr<UserDefaults>& userDefaults, std::string key, const std::type_info& type)
    : queue_(std::make_shared<DispatchQueue>("com.nimbrel.tessarine.defaultvaluecache")),
      observingKey_(std::move(key)),
      userDefaults_(userDefaults),
      type_(type) {}

AnyUserDefaultValueCache::~AnyUserDefaultValueCache() { stopObserving(); }

void AnyUserDefaultValueCache::observe() {
  const auto userDefaults = userDefaults_.lock();
  if (userDefaults) userDefaults->addObserver(shared_from_this(), observingKey_);
}

void AnyUserDefaultValueCache::stopObserving() {
  const auto userDefaults = userDefaults_.lock();
  if (userDefaults) userDefaults->removeObserver(*this, observingKey_);
}

bool AnyUserDefaultValueCache::isChangingValue() const {
  return queue_->sync([&] { return changing_ > 0; });
}

void AnyUserDefaultValueCache::setIsChangingValue(bool isChanging) {
  queue_->sync([&] { changing_ += isChanging ? 1 : -1; });
}

AnyUserDefaultValueCache::Ticket AnyUserDefaultValueCache::ticketForReading() const {
  return queue_->sync([&] { return Ticket{events_, changing_ == 0}; });
}

AnyUserDefaultValueCache::Ticket AnyUserDefaultValueCache::beginWrite() {
  return queue_->sync([&] {
    ++changing_;
    return Ticket{++events_, true};
  });
}

void AnyUserDefaultValueCache::endWrite(const Ticket& ticket) {
  queue_->sync([&] {
    --changing_;
    // Another write began during this one: neither may believe that it was the last.
    if (events_ != ticket.events) ++events_;
  });
}

void AnyUserDefaultValueCache::drop() {
  queue_->sync([&] {
    ++events_;
    dropOnQueue();
  });
}

void AnyUserDefaultValueCache::observeValue(std::string_view keyPath, UserDefaults& /*object*/,
                                            const ChangeDictionary& change, void* /*context*/) {
  if (keyPath != observingKey_) return;
  const bool isOwn = queue_->sync([&] {
    if (changing_ > 0) return true;
    ++events_;
    dropOnQueue();
    return false;
  });
  if (!isOwn) detail::postUserDefaultChangedLater(observingKey_, change);
}

}  // namespace tessarine
