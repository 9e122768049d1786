#pragma once

#include <optional>
#include <string_view>

#include "tessarine/values/Date.hpp"
#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine::internal {

/// The date under `key`; absent when the key is missing or holds anything else.
inline std::optional<Date> dateIn(const PreferenceObject::Dictionary& pairs, std::string_view key) {
  const auto found = pairs.find(key);
  if (found == pairs.end() || found->second.date() == nullptr) return std::nullopt;
  return *found->second.date();
}

/// The present moment, put together from its fields in the current calendar and zone.
std::optional<Date> baseStamp();

}  // namespace tessarine::internal
