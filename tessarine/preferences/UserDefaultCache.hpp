#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <typeinfo>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/preferences/UserDefaultValueCache.hpp"
#include "tessarine/system/dispatch/DispatchQueue.hpp"

namespace tessarine {

/// Names one cached preference: the suite ("standard" for the default domain) and the key in it.
struct UserDefaultCacheKey {
  std::string suiteName;
  std::string key;
  bool operator==(const UserDefaultCacheKey&) const = default;
};

}  // namespace tessarine

template <>
struct std::hash<tessarine::UserDefaultCacheKey> {
  std::size_t operator()(const tessarine::UserDefaultCacheKey& key) const noexcept {
    const std::size_t suite = std::hash<std::string>{}(key.suiteName);
    return suite * 31 + std::hash<std::string>{}(key.key);
  }
};

namespace tessarine {

/// Where the value cache of one key stands. An accessor finds its place once and then reads the
/// cache without a look-up; places live until the process ends, and so does every cache that ever
/// stood in one, so a reader without a lock never holds a dangling pointer.
class TESSARINE_EXPORT UserDefaultCachePlace {
 public:
  /// The cache for values of exactly this type, null when there is none or one of another type.
  template <class T>
  UserDefaultValueCache<T>* cache() const noexcept {
    auto* const cache = current_.load(std::memory_order_acquire);
    return cache != nullptr && cache->type() == typeid(T)
               ? static_cast<UserDefaultValueCache<T>*>(cache)
               : nullptr;
  }

  /// The domain that was last found by name for this place, null before that: such a domain lives
  /// as long as the process. By it an accessor that holds no store tells whether its cache is
  /// current.
  const UserDefaults* domain() const noexcept { return domain_.load(std::memory_order_acquire); }
  void setDomain(const UserDefaults& domain) noexcept {
    domain_.store(&domain, std::memory_order_release);
  }

 private:
  friend class UserDefaultCache;
  std::shared_ptr<AnyUserDefaultValueCache> replace(std::shared_ptr<AnyUserDefaultValueCache> next);
  std::shared_ptr<AnyUserDefaultValueCache> retired(const std::type_info& type) const;

  std::atomic<AnyUserDefaultValueCache*> current_ = nullptr;
  std::atomic<const UserDefaults*> domain_ = nullptr;
  std::vector<std::shared_ptr<AnyUserDefaultValueCache>> all_;  // one a type; on the access queue
};

/// The value caches of the process, one a suite and key. Entries are never removed; one whose type
/// differs from what an accessor asks for is not seen by it, and is replaced when that one stores a
/// value. Any thread.
class TESSARINE_EXPORT UserDefaultCache {
 public:
  static UserDefaultCache& shared();

  /// Up while an accessor that caches writes.
  bool isChanging() const noexcept { return isChanging_.load(std::memory_order_relaxed); }
  void setIsChanging(bool isChanging) noexcept {
    isChanging_.store(isChanging, std::memory_order_relaxed);
  }

  /// The place of `key`, for good.
  UserDefaultCachePlace& place(const UserDefaultCacheKey& key);

  /// The cached value; absent for a cached absence as well as for a miss.
  template <class T>
  std::optional<T> value(const UserDefaultCacheKey& key) {
    const auto cache = cachedValue<T>(key);
    return cache && cache->hasCachedValue() ? cache->value() : std::nullopt;
  }

  /// The cache of `key`, null when there is none of exactly this type.
  template <class T>
  std::shared_ptr<UserDefaultValueCache<T>> cachedValue(const UserDefaultCacheKey& key) {
    return std::static_pointer_cast<UserDefaultValueCache<T>>(find(key, typeid(T)));
  }

  /// The same, made when there is none: it observes `observedKey` of `userDefaults`.
  template <class T>
  std::shared_ptr<UserDefaultValueCache<T>> cache(
      const UserDefaultCacheKey& key, const std::string& observedKey,
      const std::shared_ptr<UserDefaults>& userDefaults) {
    if (auto cache = cachedValue<T>(key)) return cache;
    const auto make = [&]() -> std::shared_ptr<AnyUserDefaultValueCache> {
      return UserDefaultValueCache<T>::make(userDefaults, observedKey);
    };
    return std::static_pointer_cast<UserDefaultValueCache<T>>(insert(key, typeid(T), make));
  }

  /// Puts `value` into the cache of `key`, which is made when there is none.
  template <class T>
  void setValue(std::optional<T> value, const UserDefaultCacheKey& key,
                const std::string& observedKey, const std::shared_ptr<UserDefaults>& userDefaults) {
    put(*cache<T>(key, observedKey, userDefaults), std::move(value));
  }

  /// The same, but only where there is a cache already: how that of a mirror suite stays right.
  template <class T>
  void setValueForExistingCache(std::optional<T> value, const UserDefaultCacheKey& key) {
    if (const auto cache = cachedValue<T>(key)) put(*cache, std::move(value));
  }

  /// Runs `updates` on this thread while the existing caches of `keys` are flagged as changing, so
  /// that they ignore what it writes; they hold `written` afterwards. When `updates` throws they
  /// are empty, and the exception goes on.
  template <class T, class Updates>
  void performInternalWrite(std::span<const UserDefaultCacheKey> keys,
                            const std::optional<T>& written, Updates updates) {
    struct Flagged {
      std::shared_ptr<UserDefaultValueCache<T>> cache;
      AnyUserDefaultValueCache::Ticket ticket;
    };
    std::vector<Flagged> all;
    all.reserve(keys.size());
    for (const auto& key : keys) {
      if (auto cache = cachedValue<T>(key)) {
        const auto ticket = cache->beginWrite();
        all.push_back({std::move(cache), ticket});
      }
    }
    try {
      updates();
    } catch (...) {
      for (const auto& [cache, ticket] : all) {
        cache->drop();
        cache->endWrite(ticket);
      }
      throw;
    }
    for (const auto& [cache, ticket] : all) cache->endWrite(ticket);
    for (const auto& [cache, ticket] : all) cache->settle(written, ticket);
  }

 private:
  UserDefaultCache();

  template <class T>
  static void put(UserDefaultValueCache<T>& cache, std::optional<T> value) {
    const auto ticket = cache.beginWrite();
    cache.setValue(std::move(value));
    cache.setHasCachedValue(true);
    cache.endWrite(ticket);
  }

  using Make = std::function<std::shared_ptr<AnyUserDefaultValueCache>()>;
  std::shared_ptr<AnyUserDefaultValueCache> find(const UserDefaultCacheKey& key,
                                                 const std::type_info& type);
  std::shared_ptr<AnyUserDefaultValueCache> insert(const UserDefaultCacheKey& key,
                                                   const std::type_info& type, const Make& make);

  std::atomic<bool> isChanging_ = false;
  const std::shared_ptr<DispatchQueue> accessQueue_;  // guards the places
  std::unordered_map<UserDefaultCacheKey, UserDefaultCachePlace> store_;
};

}  // namespace tessarine
