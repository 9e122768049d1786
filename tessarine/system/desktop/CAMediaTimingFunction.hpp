#pragma once

#include <array>
#include <cstddef>

namespace tessarine {

/// A timing curve in the form that documents and toolkits hand over: four control points in single
/// precision, of which the first is (0, 0) and the last (1, 1).
class CAMediaTimingFunction {
 public:
  constexpr CAMediaTimingFunction(float firstX, float firstY, float secondX, float secondY) noexcept
      : points_{{{0, 0}, {firstX, firstY}, {secondX, secondY}, {1, 1}}} {}

  /// The x and y of control point `index`, 0 to 3; what lies beyond counts as 3.
  constexpr std::array<float, 2> getControlPointAtIndex(std::size_t index) const noexcept {
    return points_[index < points_.size() ? index : points_.size() - 1];
  }

 private:
  std::array<std::array<float, 2>, 4> points_;
};

}  // namespace tessarine
