#pragma once

#include "tessarine/values/CGPoint.hpp"
#include "tessarine/values/CGSize.hpp"

namespace tessarine {

/// A rectangle along the axes, by one corner and its extent.
struct CGRect {
  CGPoint origin;
  CGSize size;

  bool operator==(const CGRect&) const noexcept = default;
};

}  // namespace tessarine
