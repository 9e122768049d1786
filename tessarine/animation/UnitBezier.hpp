#pragma once

#include "tessarine/export.hpp"

namespace tessarine {

/// A cubic curve from (0, 0) to (1, 1) by its two inner control points, as timing functions use it:
/// x is the time that has passed, y how far the motion has come.
struct UnitBezier {
  struct ControlPoint {
    double x = 0;
    double y = 0;
    bool operator==(const ControlPoint&) const noexcept = default;
  };

  constexpr UnitBezier(ControlPoint firstPoint, ControlPoint secondPoint) noexcept
      : first(firstPoint), second(secondPoint) {}
  constexpr UnitBezier(double firstX, double firstY, double secondX, double secondY) noexcept
      : first{firstX, firstY}, second{secondX, secondY} {}

  bool operator==(const UnitBezier&) const noexcept = default;

  /// The curve's y where its x is within `epsilon` of `x`, by Newton's method, or bisection where
  /// that fails. An `x` outside of 0...1 follows the curve on as far as Newton's method finds it,
  /// else it counts as the nearer end. Never endless: an `epsilon` too fine for doubles, zero,
  /// negative or not a number gives the nearest that bisection reaches. Not a number gives itself.
  TESSARINE_EXPORT double solve(double x, double epsilon) const noexcept;

  ControlPoint first;
  ControlPoint second;
};

}  // namespace tessarine
