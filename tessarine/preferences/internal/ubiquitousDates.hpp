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

/// The value under `key`.
inline std::optional<PreferenceObject> valueIn(const PreferenceObject::Dictionary& pairs,
                                               std::string_view key) {
  const auto found = pairs.find(key);
  return found != pairs.end() ? std::optional(found->second) : std::nullopt;
}

/// Whether both are missing, or both the same to the kind of number.
inline bool isSame(const std::optional<PreferenceObject>& left,
                   const std::optional<PreferenceObject>& right) {
  if (!left || !right) return left.has_value() == right.has_value();
  return left->isIdenticalTo(*right);
}

/// The present moment, put together from its fields in the current calendar and zone.
std::optional<Date> baseStamp();

}  // namespace tessarine::internal
