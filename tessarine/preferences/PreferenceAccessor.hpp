#pragma once

#include <array>
#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "tessarine/export.hpp"
#include "tessarine/preferences/PreferenceConversion.hpp"
#include "tessarine/preferences/UserDefaultCache.hpp"
#include "tessarine/system/store/UserDefaults.hpp"
#include "tessarine/values/AnyHashable.hpp"
#include "tessarine/values/NSInternalInconsistencyException.hpp"

namespace tessarine {
class UbiquitousController;
}

namespace tessarine::detail {

// What the typed preferences have in common. Hosts meet it only as the key and the default of an
// accessor.

/// Where a preference lies: its key, its store and mirror, and the place of its cache.
class TESSARINE_EXPORT PreferenceSite {
 public:
  const std::string& key() const noexcept { return key_; }
  /// Whether the host asked for cloud sync of this key.
  bool iCloud() const noexcept { return iCloud_; }
  /// The controller that the key was enrolled with; null where it stays local: where it was not
  /// asked for, or the process may not use the cloud, or the store itself was handed in.
  const std::shared_ptr<UbiquitousController>& ubiquitousController() const noexcept {
    return ubiquitousController_;
  }

 protected:
  using Store = std::shared_ptr<UserDefaults>;

  template <class Options>
  PreferenceSite(std::string key, const Options& options)
      : userDefaults_(options.userDefaults),
        copyToDefaults_(options.copyToUserDefaults),
        key_(std::move(key)),
        cacheKey_{userDefaults_ ? userDefaults_->name() : options.suiteName.value_or("standard"),
                  key_},
        iCloud_(options.iCloud) {
    if (copyToDefaults_) {
      copyToCacheKey_ = UserDefaultCacheKey{copyToDefaults_->name(), key_};
    } else if (options.copyToSuiteName) {
      copyToCacheKey_ = UserDefaultCacheKey{*options.copyToSuiteName, key_};
    }
    if (options.cacheValues) place_ = &UserDefaultCache::shared().place(cacheKey_);
    if (iCloud_ && !userDefaults_) enrol(options.suiteName, options.copyToSuiteName);
  }

  /// Finds store and mirror now and for good. Without it they are found by name at each use.
  void keepStores();

  /// The store: the one that is kept, or that of the name, else the standard one, put into `found`.
  const Store& store(Store& found) const {
    return userDefaults_ ? userDefaults_ : (found = findStore());
  }
  /// The same for the mirror; null when there is none.
  const Store& mirror(Store& found) const {
    return copyToDefaults_ || !copyToCacheKey_ ? copyToDefaults_ : (found = findMirror());
  }

  bool cachesValues() const noexcept { return place_ != nullptr; }

  /// Whether what other processes wrote has reached the caches of this key.
  bool isCacheCurrent() const noexcept {
    if (userDefaults_) [[likely]]
      return userDefaults_->isCurrent();
    const UserDefaults* const domain = place_->domain();
    return domain != nullptr && domain->isCurrent();
  }

  /// Up while an accessor that caches writes.
  struct ChangingScope {
    ChangingScope() { UserDefaultCache::shared().setIsChanging(true); }
    ~ChangingScope() { UserDefaultCache::shared().setIsChanging(false); }
    ChangingScope(const ChangingScope&) = delete;
    ChangingScope& operator=(const ChangingScope&) = delete;
  };

  // What a cached read needs comes first, side by side.
  UserDefaultCachePlace* place_ = nullptr;  // of the cache; null without caching
  Store userDefaults_;                      // null when it is found by name at each use
  Store copyToDefaults_;                    // the same
  std::string key_;
  UserDefaultCacheKey cacheKey_;
  std::optional<UserDefaultCacheKey> copyToCacheKey_;
  bool iCloud_;
  std::shared_ptr<UbiquitousController> ubiquitousController_;

 private:
  void enrol(const std::optional<std::string>& suiteName,
             const std::optional<std::string>& copyToSuiteName);
  Store findStore() const;
  Store findMirror() const;
};

/// What a cached absence is to a read: a hit that gives the default, or as good as no cache.
enum class CachedAbsence { isHit, isMiss };

/// Reads and writes of a preference whose cache holds `T` and whose default is a `Value`: `T`, or
/// an optional one. How a stored object becomes a `T` and back is the accessor's own.
template <class T, class Value, CachedAbsence cachedAbsence = CachedAbsence::isHit>
class PreferenceAccessor : public PreferenceSite {
 public:
  const Value& defaultValue() const noexcept { return defaultValue_; }

 protected:
  template <class Options>
  PreferenceAccessor(std::string key, const Options& options)
      : PreferenceSite(std::move(key), options),
        defaultValue_(options.defaultValue),
        alternateValueCallback_(options.alternateValueCallback) {}

  /// The value from the cache or the store. `convert` makes a `T` of a stored object, both absent
  /// when there is none.
  template <class Convert>
  Value readValue(const Convert& convert) const {
    if (cachesValues()) {
      if (auto* const cache = place_->template cache<T>(); cache != nullptr && isCacheCurrent())
          [[likely]] {
        auto cached = cache->state();
        if (isHit(cached)) [[likely]] {
          // Straight on: an optional value that goes by `alternated` is taken apart and put
          // together again, which costs six nanoseconds of twenty.
          if (!alternateValueCallback_) [[likely]]
            return orDefault(std::move(cached.value));
          return alternated(orDefault(std::move(cached.value)));
        }
      }
    }
    return readPastCache(convert);
  }

  /// Stores what `form` gives, an absent form removing the key, and then runs `publish`.
  template <class Form, class Publish>
  void writeValue(const Value& newValue, const Form& form, const Publish& publish) const {
    std::optional<ChangingScope> changing;
    if (cachesValues()) changing.emplace();
    Store foundStore;
    Store foundMirror;
    const Store& primary = store(foundStore);
    const Store& copy = mirror(foundMirror);
    const auto updates = [&] {
      const std::optional<PreferenceObject> object = form();
      primary->set(object, key_);
      if (copy) copy->set(object, key_);
    };
    if (!cachesValues()) {
      updates();
    } else {
      if (place_->template cache<T>() == nullptr) cacheFor(primary);
      const std::array keys{cacheKey_, copyToCacheKey_.value_or(UserDefaultCacheKey{})};
      UserDefaultCache::shared().performInternalWrite<T>(std::span(keys).first(copy ? 2 : 1),
                                                         newValue, updates);
    }
    publish();
  }

 private:
  using State = typename UserDefaultValueCache<T>::State;

  static bool isHit(const State& cached) noexcept {
    return cached.hasValue && (cachedAbsence == CachedAbsence::isHit || cached.value.has_value());
  }

  Value orDefault(std::optional<T>&& value) const {
    if (!value) return defaultValue_;
    if constexpr (std::same_as<Value, T>) {
      return std::move(*value);
    } else {
      return std::move(value);
    }
  }

  Value alternated(Value value) const {
    if (!alternateValueCallback_) return value;
    if constexpr (std::same_as<Value, T>) {
      return alternateValueCallback_(std::move(value));
    } else {
      return value ? Value(alternateValueCallback_(std::move(*value))) : value;
    }
  }

  /// The cache, made when there is none. The domain of a name lives as long as the process, and so
  /// does the cache's observer.
  std::shared_ptr<UserDefaultValueCache<T>> cacheFor(const Store& primary) const {
    if (!userDefaults_) place_->setDomain(*primary);
    return UserDefaultCache::shared().cache<T>(cacheKey_, key_, primary);
  }

  /// Apart, so that a cached read is short enough to be put in its place by the compiler.
  template <class Convert>
  [[gnu::noinline]] Value readPastCache(const Convert& convert) const {
    if (cachesValues()) return alternated(readAndCache(convert));
    Store found;
    return alternated(orDefault(convert(store(found)->object(key_))));
  }

  /// Reads past an empty cache, and fills it.
  template <class Convert>
  Value readAndCache(const Convert& convert) const {
    Store found;
    const Store& primary = store(found);
    primary->refresh();
    const auto cache = cacheFor(primary);
    if (primary->isCurrent()) {
      auto cached = cache->state();
      if (isHit(cached)) return orDefault(std::move(cached.value));
    }
    const auto ticket = cache->ticketForReading();
    Value value = orDefault(convert(primary->object(key_)));
    cache->fill(value, ticket);
    Store foundMirror;
    if (mirror(foundMirror)) {
      UserDefaultCache::shared().setValueForExistingCache<T>(value, *copyToCacheKey_);
    }
    return value;
  }

  Value defaultValue_;
  std::function<T(T)> alternateValueCallback_;
};

[[noreturn]] TESSARINE_EXPORT void failForMissingRead();
[[noreturn]] TESSARINE_EXPORT void failForNoPropertyList(const std::string& key);

/// How a value of any type is stored: by the host's two callbacks, else as the property-list value
/// that it is.
template <class T>
class StoredForm {
 public:
  template <class Options>
  explicit StoredForm(const Options& options)
      : storeAsHashable_(options.storeAsHashable),
        readFromNullableHashable_(options.readFromNullableHashable) {}

  bool isHashable() const noexcept { return storeAsHashable_ != nullptr; }

  /// The value of a stored object; never absent by the callbacks, which own the default.
  std::optional<T> read(std::optional<PreferenceObject>&& object) const {
    if (!storeAsHashable_) return typedUserDefaultScalarValue<T>(object);
    if (!readFromNullableHashable_) failForMissingRead();
    return readFromNullableHashable_(object ? std::optional<AnyHashable>(std::move(*object))
                                            : std::nullopt);
  }

  PreferenceObject of(const T& value, const std::string& key) const {
    if (storeAsHashable_) {
      if (!readFromNullableHashable_) failForMissingRead();
      const AnyHashable form = storeAsHashable_(value);
      const PreferenceObject* const object = form.preferenceObject();
      if (object == nullptr) failForNoPropertyList(key);
      return *object;
    }
    if constexpr (PreferenceBridged<T>) {
      return PreferenceBridge<T>::toObject(value);
    } else {
      failForNoPropertyList(key);
    }
  }

 private:
  std::function<AnyHashable(const T&)> storeAsHashable_;
  std::function<T(const std::optional<AnyHashable>&)> readFromNullableHashable_;
};

}  // namespace tessarine::detail
