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

/// What a typed preference that may be absent may ask for besides its key.
template <class T>
struct UserDefaultNullableOptions {
  /// What a read gives when the store has nothing usable.
  std::optional<T> defaultValue = std::nullopt;
  /// The domain; the standard one when absent, and also when no domain can have that name.
  std::optional<std::string> suiteName = std::nullopt;
  /// A second domain that every write goes to as well. No mirror when no domain can have that name.
  std::optional<std::string> copyToSuiteName = std::nullopt;
  /// Keep the value, or its absence, in memory until somebody else changes the key.
  bool cacheValues = false;
  /// Applied to every present value that a read returns, never to what is stored or cached.
  std::function<T(T)> alternateValueCallback = nullptr;
  /// Gives the stored form of a value that is no property-list value itself. Needs the next one
  /// too.
  std::function<AnyHashable(const T&)> storeAsHashable = nullptr;
  /// Turns the stored form, absent for a missing key, back into a value. `defaultValue` plays no
  /// part when the store is read.
  std::function<T(const std::optional<AnyHashable>&)> readFromNullableHashable = nullptr;
  /// Keep the key in step with the user's other machines, where a cloud store can be used.
  bool iCloud = false;
  /// The store itself, for domains that have no suite name, such as temporary ones.
  std::shared_ptr<UserDefaults> userDefaults = nullptr;
  std::shared_ptr<UserDefaults> copyToUserDefaults = nullptr;
};

/// A typed preference that may be absent: writing an absent value removes the key, and a read then
/// gives `defaultValue`, which may be absent itself. For one that always has a value see
/// `UserDefault`.
///
/// ```cpp
/// tessarine::UserDefaultNullable<std::string> lastFolder{"lastFolder", {}};
/// lastFolder.setWrappedValue("/home/ada");
/// lastFolder.setWrappedValue(std::nullopt);
/// ```
///
/// A value type: copies share store and cache. Store and mirror are found by name at each use past
/// the cache, so one made before `UserDefaults::setDirectory` goes by it. Threads, conversion and
/// exceptions are those of `UserDefault`. A cached read of a small value takes no lock (some
/// nanoseconds); any other use costs a look-up besides (one to two hundred).
template <class T>
requires std::equality_comparable<T> && std::copy_constructible<T>
class UserDefaultNullable : public detail::PreferenceAccessor<T, std::optional<T>> {
 public:
  explicit UserDefaultNullable(std::string key, const UserDefaultNullableOptions<T>& options = {})
      : detail::PreferenceAccessor<T, std::optional<T>>(std::move(key), options), form_(options) {}

  /// The value. Throws `NSInternalInconsistencyException` when `storeAsHashable` is set without
  /// `readFromNullableHashable` and the value is not cached.
  std::optional<T> wrappedValue() const {
    return this->readValue(
        [&](std::optional<PreferenceObject>&& object) { return form_.read(std::move(object)); });
  }

  /// Stores `newValue` in store and mirror, or removes the key from both; also when nothing
  /// changes. Returns when that is safe from the death of the process.
  void setWrappedValue(const std::optional<T>& newValue) {
    const std::optional<T> oldValue = wrappedValue();
    this->writeValue(
        newValue,
        [&] { return newValue ? std::optional(form_.of(*newValue, this->key_)) : std::nullopt; },
        [&] { publishNullableWrapperOwnedChange(this->key_, oldValue, newValue); });
  }

 private:
  detail::StoredForm<T> form_;
};

}  // namespace tessarine
