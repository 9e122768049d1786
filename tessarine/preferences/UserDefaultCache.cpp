#include "tessarine/preferences/UserDefaultCache.hpp"

#include <algorithm>

namespace tessarine {

/// Puts `next` in place of what stands here, and returns that.
std::shared_ptr<AnyUserDefaultValueCache> UserDefaultCachePlace::replace(
    std::shared_ptr<AnyUserDefaultValueCache> next) {
  auto* const before = current_.exchange(next.get(), std::memory_order_acq_rel);
  if (retired(next->type()) == nullptr) all_.push_back(std::move(next));
  return before != nullptr ? before->shared_from_this() : nullptr;
}

/// The cache of that type that stands or once stood here.
std::shared_ptr<AnyUserDefaultValueCache> UserDefaultCachePlace::retired(
    const std::type_info& type) const {
  const auto found = std::find_if(all_.begin(), all_.end(),
                                  [&](const auto& cache) { return cache->type() == type; });
  return found != all_.end() ? *found : nullptr;
}

UserDefaultCache::UserDefaultCache()
    : accessQueue_(std::make_shared<DispatchQueue>("com.nimbrel.tessarine.cache.accessQueue")) {}

UserDefaultCache& UserDefaultCache::shared() {
  static auto& cache = *new UserDefaultCache;  // never destroyed: statics of hosts may outlive us
  return cache;
}

UserDefaultCachePlace& UserDefaultCache::place(const UserDefaultCacheKey& key) {
  return accessQueue_->sync([&]() -> UserDefaultCachePlace& { return store_[key]; });
}

std::shared_ptr<AnyUserDefaultValueCache> UserDefaultCache::find(const UserDefaultCacheKey& key,
                                                                 const std::type_info& type) {
  return accessQueue_->sync([&]() -> std::shared_ptr<AnyUserDefaultValueCache> {
    const auto found = store_.find(key);
    if (found == store_.end()) return nullptr;
    auto* const cache = found->second.current_.load(std::memory_order_relaxed);
    return cache != nullptr && cache->type() == type ? cache->shared_from_this() : nullptr;
  });
}

/// The store is told of observers outside of the queue. Of two threads that come here at once, the
/// later one finds the other's cache standing and lets go of its own.
std::shared_ptr<AnyUserDefaultValueCache> UserDefaultCache::insert(const UserDefaultCacheKey& key,
                                                                   const std::type_info& type,
                                                                   const Make& make) {
  const bool isNew = accessQueue_->sync([&] { return store_[key].retired(type) == nullptr; });
  auto cache = isNew ? make() : nullptr;
  bool isRevived = false;
  std::shared_ptr<AnyUserDefaultValueCache> before;
  cache = accessQueue_->sync([&] {
    auto& place = store_[key];
    auto* const current = place.current_.load(std::memory_order_relaxed);
    if (current != nullptr && current->type() == type) return current->shared_from_this();
    if (auto retired = place.retired(type)) {
      isRevived = true;
      cache.swap(retired);
    }
    before = place.replace(cache);
    return cache;
  });
  if (before) before->stopObserving();
  if (isRevived) {
    cache->drop();
    cache->observe();
  }
  return cache;
}

}  // namespace tessarine
