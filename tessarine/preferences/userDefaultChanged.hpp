#pragma once

#include <any>
#include <optional>
#include <string>
#include <utility>

#include "tessarine/export.hpp"
#include "tessarine/preferences/UserDefaultConfiguration.hpp"
#include "tessarine/system/store/NotificationCenter.hpp"
#include "tessarine/system/store/UserDefaults.hpp"
#include "tessarine/values/NSNull.hpp"
#include "tessarine/values/NSNumber.hpp"

namespace tessarine {

/// The name of the notification that a preference has changed: posted on the default centre, on the
/// main thread, about no object. Its user information holds the preference's key, a `std::string`,
/// under "key", and a `ChangeDictionary` under "change".
///
/// It tells of every change of a key that a caching accessor has read, when anything but an
/// accessor made it; the change dictionary then holds the new value as a `PreferenceObject`. With
/// `UserDefaultConfiguration::publishesOwnChanges` it also tells of writes through accessors that
/// change the value; the dictionary then holds old and new value in the accessor's type, those of
/// an enumeration as `NSNumber`, and an `NSNull` for one that is absent.
inline constexpr auto userDefaultChanged = "userDefaultChanged";

namespace detail {
/// Posts on the main queue, never inside this call.
TESSARINE_EXPORT void postUserDefaultChangedLater(const std::string& key, ChangeDictionary change);

template <class T>
std::any anyOrNull(const std::optional<T>& value) {
  return value ? std::any(*value) : std::any(NSNull());
}
}  // namespace detail

/// Posts `userDefaultChanged` with old and new value: at once on the main thread, else later on the
/// main queue.
TESSARINE_EXPORT void postWrapperOwnedChange(const std::string& key, std::any oldValue,
                                             std::any newValue);

/// The same if the host asked for own changes and the two values differ.
template <class T>
void publishWrapperOwnedChange(const std::string& key, const T& oldValue, const T& newValue) {
  if (UserDefaultConfiguration::publishesOwnChanges() && !(oldValue == newValue)) {
    postWrapperOwnedChange(key, std::any(oldValue), std::any(newValue));
  }
}

/// The same for values that may be absent: two absent ones are equal.
template <class T>
void publishNullableWrapperOwnedChange(const std::string& key, const std::optional<T>& oldValue,
                                       const std::optional<T>& newValue) {
  if (UserDefaultConfiguration::publishesOwnChanges() && !(oldValue == newValue)) {
    postWrapperOwnedChange(key, detail::anyOrNull(oldValue), detail::anyOrNull(newValue));
  }
}

/// The same for values that are stored as numbers: those are what is told.
template <class T>
void publishEnumWrapperOwnedChange(const std::string& key, T oldValue, T newValue,
                                   const std::optional<NSNumber>& oldPersistedValue,
                                   NSNumber newPersistedValue) {
  if (UserDefaultConfiguration::publishesOwnChanges() && oldValue != newValue) {
    postWrapperOwnedChange(key, detail::anyOrNull(oldPersistedValue), std::any(newPersistedValue));
  }
}

}  // namespace tessarine
