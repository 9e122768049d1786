#include "tessarine/animation/rounding.hpp"

#include <cmath>
#include <limits>

namespace tessarine {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

/// The next double towards `direction`; what is not finite stays what it is.
double step(double value, double direction) noexcept {
  return std::isfinite(value) ? std::nextafter(value, direction) : value;
}

double truncated(double value, double multiple) noexcept {
  return value - std::fmod(value, multiple);
}

/// Just short of one multiple further from zero, so that an exact one is not passed.
double shortOfNextAbove(double value, double multiple) noexcept {
  return step(value + multiple, -infinity);
}
double shortOfNextBelow(double value, double multiple) noexcept {
  return step(value - multiple, infinity);
}

}  // namespace

double roundedToNearest(double value, double multiple) noexcept {
  return value - std::remainder(value, multiple);
}

double roundedTowardZero(double value, double multiple) noexcept {
  return truncated(value, multiple);
}

double roundedAwayFromZero(double value, double multiple) noexcept {
  return truncated(
      value >= 0 ? shortOfNextAbove(value, multiple) : shortOfNextBelow(value, multiple), multiple);
}

double roundedDown(double value, double multiple) noexcept {
  return truncated(value < 0 ? shortOfNextBelow(value, multiple) : value, multiple);
}

double roundedUp(double value, double multiple) noexcept {
  return truncated(value > 0 ? shortOfNextAbove(value, multiple) : value, multiple);
}

}  // namespace tessarine
