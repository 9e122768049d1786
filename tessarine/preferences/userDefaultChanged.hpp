#pragma once

#include <any>
#include <string>
#include <utility>

#include "tessarine/export.hpp"
#include "tessarine/preferences/UserDefaultConfiguration.hpp"
#include "tessarine/system/store/NotificationCenter.hpp"
#include "tessarine/system/store/UserDefaults.hpp"

namespace tessarine {

/// The name of the notification that a preference has changed: posted on the default centre, on the
/// main thread, about no object. Its user information holds the preference's key, a `std::string`,
/// under "key", and a `ChangeDictionary` under "change".
///
/// It tells of every change of a key that a caching accessor has read, when anything but an
/// accessor made it; the change dictionary then holds the new value as a `PreferenceObject`. With
/// `UserDefaultConfiguration::publishesOwnChanges` it also tells of writes through accessors that
/// change the value; the dictionary then holds old and new value in the accessor's type.
inline constexpr auto userDefaultChanged = "userDefaultChanged";

namespace detail {
/// Posts on the main queue, never inside this call.
TESSARINE_EXPORT void postUserDefaultChangedLater(const std::string& key, ChangeDictionary change);
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

}  // namespace tessarine
