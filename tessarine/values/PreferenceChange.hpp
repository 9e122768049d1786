#pragma once

#include <optional>
#include <string>

#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine {

/// What becomes of one key: it is set to `value`, or removed where that is absent.
struct PreferenceChange {
  std::string key;
  std::optional<PreferenceObject> value;
};

}  // namespace tessarine
