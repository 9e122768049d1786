#pragma once

#include "tessarine/values/CGFloat.hpp"

namespace tessarine {

/// A place in a plane.
struct CGPoint {
  CGFloat x = 0;
  CGFloat y = 0;

  bool operator==(const CGPoint&) const noexcept = default;
};

}  // namespace tessarine
