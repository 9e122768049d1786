#pragma once

#include "tessarine/values/CGFloat.hpp"

namespace tessarine {

/// A distance in a plane, with its direction.
struct CGVector {
  CGFloat dx = 0;
  CGFloat dy = 0;

  bool operator==(const CGVector&) const noexcept = default;
};

}  // namespace tessarine
