#pragma once

#include "tessarine/values/CGFloat.hpp"

namespace tessarine {

/// A width and a height; either may be negative.
struct CGSize {
  CGFloat width = 0;
  CGFloat height = 0;

  bool operator==(const CGSize&) const noexcept = default;
};

}  // namespace tessarine
