#pragma once

#include <cstddef>
#include <functional>

namespace tessarine {

/// Stands for an absent value where a container of dynamic values needs one in its place.
struct NSNull {
  constexpr bool operator==(const NSNull&) const noexcept = default;
};

}  // namespace tessarine

template <>
struct std::hash<tessarine::NSNull> {
  std::size_t operator()(const tessarine::NSNull& /*null*/) const noexcept { return 0; }
};
