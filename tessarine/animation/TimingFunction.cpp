#include "tessarine/animation/TimingFunction.hpp"

namespace tessarine {
namespace {

UnitBezier::ControlPoint controlPoint(const CAMediaTimingFunction& function, std::size_t index) {
  const auto [x, y] = function.getControlPointAtIndex(index);
  return {static_cast<double>(x), static_cast<double>(y)};
}

}  // namespace

TimingFunction::TimingFunction(const CAMediaTimingFunction& function) noexcept
    : bezier_(UnitBezier(controlPoint(function, 1), controlPoint(function, 2))) {}

}  // namespace tessarine
