#pragma once

namespace tessarine {

/// Stands for an absent value where a container of dynamic values needs one in its place.
struct NSNull {
  constexpr bool operator==(const NSNull&) const noexcept = default;
};

}  // namespace tessarine
