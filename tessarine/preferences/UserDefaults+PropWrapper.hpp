#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tessarine/preferences/PreferenceAccessor.hpp"
#include "tessarine/preferences/userDefaultChanged.hpp"
#include "tessarine/system/store/UserDefaults.hpp"
#include "tessarine/values/AnyHashable.hpp"
#include "tessarine/values/PreferenceObject.hpp"

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
class UserDefault : public detail::PreferenceAccessor<T, T> {
 public:
  UserDefault(std::string key, const UserDefaultOptions<T>& options)
      : detail::PreferenceAccessor<T, T>(std::move(key), options), form_(options) {
    this->keepStores();
  }

  /// The value. Throws `NSInternalInconsistencyException` when `storeAsHashable` is set without
  /// `readFromNullableHashable` and the value is not cached.
  T wrappedValue() const {
    return this->readValue(
        [&](std::optional<PreferenceObject>&& object) { return form_.read(std::move(object)); });
  }

  /// Stores `newValue` unless store and mirror hold it already; with `storeAsHashable` always.
  /// Returns when it is safe from the death of the process.
  void setWrappedValue(const T& newValue) {
    const T oldValue = wrappedValue();
    // A hashable form is stored every time. What changes nothing is told from the rest before any
    // flag is raised: store, mirror and caches hold the value already.
    if (!form_.isHashable() && !changesAnything(newValue, oldValue)) return;
    this->writeValue(
        newValue, [&] { return form_.of(newValue, this->key_); },
        [&] { publishWrapperOwnedChange(this->key_, oldValue, newValue); });
  }

 private:
  bool differs(const std::shared_ptr<UserDefaults>& store, const T& newValue) const {
    const auto stored = dynamicCast<T>(store->object(this->key_));
    return !stored || !(*stored == newValue);
  }

  bool changesAnything(const T& newValue, const T& oldValue) const {
    return !(newValue == oldValue) || differs(this->userDefaults_, newValue) ||
           (this->copyToDefaults_ && differs(this->copyToDefaults_, newValue));
  }

  detail::StoredForm<T> form_;
};

}  // namespace tessarine
