#pragma once

#include <array>
#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <utility>

#include "tessarine/preferences/PreferenceConversion.hpp"
#include "tessarine/preferences/UserDefaultCache.hpp"
#include "tessarine/preferences/UserDefaultConfiguration.hpp"
#include "tessarine/preferences/userDefaultChanged.hpp"
#include "tessarine/system/store/UserDefaults.hpp"
#include "tessarine/values/AnyHashable.hpp"
#include "tessarine/values/NSInternalInconsistencyException.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

/// What a typed preference may ask for besides its key.
template <class T>
struct UserDefaultOptions {
  /// What a read gives when the store has nothing usable.
  T defaultValue;
  /// The domain; the standard one when absent, and also when no domain can have that name.
  std::optional<std::string> suiteName = std::nullopt;
  /// A second domain that every write goes to as well. No mirror when no domain can have that name.
  std::optional<std::string> copyToSuiteName = std::nullopt;
  /// Keep the value in memory until somebody else changes the key.
  bool cacheValues = false;
  /// Applied to every value that a read returns, never to what is stored or cached.
  std::function<T(T)> alternateValueCallback = nullptr;
  /// Gives the stored form of a value that is no property-list value itself. Needs the next one
  /// too.
  std::function<AnyHashable(const T&)> storeAsHashable = nullptr;
  /// Turns the stored form, absent for a missing key, back into a value. `defaultValue` plays no
  /// part.
  std::function<T(const std::optional<AnyHashable>&)> readFromNullableHashable = nullptr;
  /// Keep the key in step with the user's other machines, where a cloud store can be used.
  bool iCloud = false;
  /// The store itself, for domains that have no suite name, such as temporary ones.
  std::shared_ptr<UserDefaults> userDefaults = nullptr;
  std::shared_ptr<UserDefaults> copyToUserDefaults = nullptr;
};

/// A typed preference: what a host declares for each of its settings. Reading gives a value that is
/// never absent; writing goes to the store, the mirror and the cache, and costs no store write when
/// nothing changes.
///
/// ```cpp
/// tessarine::UserDefault<int> fontSize{"fontSize", {.defaultValue = 12, .cacheValues = true}};
/// fontSize.setWrappedValue(fontSize.wrappedValue() + 1);
/// ```
///
/// A value type: copies share store and cache. Any thread; of two writers of one key the later one
/// wins. A cached read of a small value takes no lock (some nanoseconds), any other read a lock and
/// a conversion (some ten). A stored object of another type converts as
/// `typedUserDefaultScalarValue` tells. A `T` that is no property-list value and has no
/// `storeAsHashable` is a programmer error named at the write. Exceptions of callbacks and
/// observers reach the caller; store and cache then hold the old or the new value whole.
template <class T>
requires std::equality_comparable<T> && std::copy_constructible<T>
class UserDefault {
 public:
  UserDefault(std::string key, UserDefaultOptions<T> options)
      : key_(std::move(key)),
        userDefaults_(options.userDefaults ? options.userDefaults : storeOf(options.suiteName)),
        cacheKey_{options.userDefaults ? options.userDefaults->name()
                                       : options.suiteName.value_or("standard"),
                  key_},
        useCachedValue_(options.cacheValues),
        iCloud_(options.iCloud),
        defaultValue_(std::move(options.defaultValue)),
        alternateValueCallback_(std::move(options.alternateValueCallback)),
        storeAsHashable_(std::move(options.storeAsHashable)),
        readFromNullableHashable_(std::move(options.readFromNullableHashable)) {
    if (options.copyToUserDefaults) {
      copyToDefaults_ = std::move(options.copyToUserDefaults);
      copyToCacheKey_ = UserDefaultCacheKey{copyToDefaults_->name(), key_};
    } else if (options.copyToSuiteName) {
      copyToDefaults_ = UserDefaults::suite(*options.copyToSuiteName);
      copyToCacheKey_ = UserDefaultCacheKey{*options.copyToSuiteName, key_};
    }
    if (useCachedValue_) place_ = &UserDefaultCache::shared().place(cacheKey_);
  }

  const std::string& key() const noexcept { return key_; }
  const T& defaultValue() const noexcept { return defaultValue_; }
  /// Whether the host asked for cloud sync of this key.
  bool iCloud() const noexcept { return iCloud_; }

  /// The value. Throws `NSInternalInconsistencyException` when `storeAsHashable` is set without
  /// `readFromNullableHashable` and the value is not cached.
  T wrappedValue() const {
    if (place_ != nullptr) {
      if (auto* const cache = place_->template cache<T>();
          cache != nullptr && userDefaults_->isCurrent()) [[likely]] {
        auto cached = cache->state();
        if (cached.hasValue) [[likely]] {
          return alternated(cached.value ? std::move(*cached.value) : defaultValue_);
        }
      }
      return alternated(readAndCache());
    }
    return alternated(read());
  }

  /// Stores `newValue` unless store and mirror hold it already; with `storeAsHashable` always.
  /// Returns when it is safe from the death of the process.
  void setWrappedValue(const T& newValue) {
    const T oldValue = wrappedValue();
    set(newValue, oldValue);
  }

 private:
  static std::shared_ptr<UserDefaults> storeOf(const std::optional<std::string>& suiteName) {
    auto suite = suiteName ? UserDefaults::suite(*suiteName) : nullptr;
    return suite ? suite : UserDefaults::standard();
  }

  T alternated(T value) const {
    if (alternateValueCallback_) return alternateValueCallback_(std::move(value));
    return value;
  }

  void requireReadFromNullableHashable() const {
    if (readFromNullableHashable_) return;
    throw NSInternalInconsistencyException(
        "readFromNullableHashable must also be set. Programmer error.");
  }

  T read() const {
    auto object = userDefaults_->object(key_);
    if (storeAsHashable_) {
      requireReadFromNullableHashable();
      return readFromNullableHashable_(object ? std::optional<AnyHashable>(std::move(*object))
                                              : std::nullopt);
    }
    auto value = typedUserDefaultScalarValue<T>(object);
    return value ? std::move(*value) : defaultValue_;
  }

  /// Reads past an empty cache, and fills it.
  T readAndCache() const {
    userDefaults_->refresh();
    auto& caches = UserDefaultCache::shared();
    const auto cache = caches.cache<T>(cacheKey_, key_, userDefaults_);
    if (userDefaults_->isCurrent()) {
      auto cached = cache->state();
      if (cached.hasValue) return cached.value ? std::move(*cached.value) : defaultValue_;
    }
    const auto ticket = cache->ticketForReading();
    T value = read();
    updateCache(value, *cache, ticket);
    return value;
  }

  void updateCache(const T& value, UserDefaultValueCache<T>& cache,
                   const AnyUserDefaultValueCache::Ticket& ticket) const {
    cache.fill(value, ticket);
    if (copyToCacheKey_ && copyToDefaults_) {
      UserDefaultCache::shared().setValueForExistingCache<T>(value, *copyToCacheKey_);
    }
  }

  void set(const T& newValue, const T& oldValue) {
    // A hashable form is stored every time. What changes nothing is told from the rest before any
    // flag is raised: store, mirror and caches hold the value already.
    if (!storeAsHashable_ && !changesAnything(newValue, oldValue)) return;
    if (!useCachedValue_) {
      writeToStores(newValue);
    } else {
      const ChangingScope changing;
      const auto keys = internalWriteCacheKeys();
      UserDefaultCache::shared().performInternalWrite<T>(
          std::span(keys).first(copyToCacheKey_ ? 2 : 1), newValue,
          [&] { writeToStores(newValue); });
    }
    publishWrapperOwnedChange(key_, oldValue, newValue);
  }

  std::array<UserDefaultCacheKey, 2> internalWriteCacheKeys() const {
    return {cacheKey_, copyToCacheKey_.value_or(UserDefaultCacheKey{})};
  }

  bool differs(const std::shared_ptr<UserDefaults>& store, const T& newValue) const {
    const auto stored = dynamicCast<T>(store->object(key_));
    return !stored || !(*stored == newValue);
  }

  bool changesAnything(const T& newValue, const T& oldValue) const {
    return !(newValue == oldValue) || differs(userDefaults_, newValue) ||
           (copyToDefaults_ && differs(copyToDefaults_, newValue));
  }

  void writeToStores(const T& newValue) const {
    if (storeAsHashable_) {
      requireReadFromNullableHashable();
      const AnyHashable form = storeAsHashable_(newValue);
      const PreferenceObject* const object = form.preferenceObject();
      if (object == nullptr) failForNoPropertyList();
      store(*object);
    } else if constexpr (PreferenceBridged<T>) {
      store(PreferenceBridge<T>::toObject(newValue));
    } else {
      failForNoPropertyList();
    }
  }

  void store(const PreferenceObject& object) const {
    userDefaults_->set(object, key_);
    if (copyToDefaults_) copyToDefaults_->set(object, key_);
  }

  [[noreturn]] void failForNoPropertyList() const {
    fatal("the value for the preference \"" + key_ +
          "\" is no property-list value: set storeAsHashable and readFromNullableHashable");
  }

  struct ChangingScope {
    ChangingScope() { UserDefaultCache::shared().setIsChanging(true); }
    ~ChangingScope() { UserDefaultCache::shared().setIsChanging(false); }
    ChangingScope(const ChangingScope&) = delete;
    ChangingScope& operator=(const ChangingScope&) = delete;
  };

  std::string key_;
  std::shared_ptr<UserDefaults> userDefaults_;
  std::shared_ptr<UserDefaults> copyToDefaults_;
  UserDefaultCacheKey cacheKey_;
  std::optional<UserDefaultCacheKey> copyToCacheKey_;
  UserDefaultCachePlace* place_ = nullptr;  // of the cache; null without caching
  bool useCachedValue_;
  bool iCloud_;
  T defaultValue_;
  std::function<T(T)> alternateValueCallback_;
  std::function<AnyHashable(const T&)> storeAsHashable_;
  std::function<T(const std::optional<AnyHashable>&)> readFromNullableHashable_;
};

}  // namespace tessarine
