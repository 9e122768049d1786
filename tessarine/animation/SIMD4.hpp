#pragma once

#include <cstddef>

#include "tessarine/animation/SIMD2.hpp"

namespace tessarine {

/// Four doubles that are worked on lane by lane, as `SIMD2` does it with two. Two registers, as a
/// single wide one would have other calling conventions in hosts built for wider machines.
struct SIMD4 {
  static constexpr std::size_t scalarCount = 4;

  SIMD4() noexcept = default;
  SIMD4(double lane0, double lane1, double lane2, double lane3)
  noexcept : low(lane0, lane1), high(lane2, lane3) {}
  SIMD4(SIMD2 lanes01, SIMD2 lanes23) noexcept : low(lanes01), high(lanes23) {}

  static SIMD4 filledWith(double lane) noexcept { return {lane, lane, lane, lane}; }
  double operator[](std::size_t lane) const noexcept {
    return lane < 2 ? low[lane] : high[lane - 2];
  }

  friend SIMD4 operator+(SIMD4 a, SIMD4 b) noexcept { return {a.low + b.low, a.high + b.high}; }
  friend SIMD4 operator-(SIMD4 a, SIMD4 b) noexcept { return {a.low - b.low, a.high - b.high}; }
  friend SIMD4 operator*(SIMD4 a, SIMD4 b) noexcept { return {a.low * b.low, a.high * b.high}; }
  friend SIMD4 operator*(double scale, SIMD4 a) noexcept { return filledWith(scale) * a; }
  friend bool operator==(SIMD4 a, SIMD4 b) noexcept {
    return static_cast<int>(a.low == b.low) & static_cast<int>(a.high == b.high);
  }

  friend SIMD4 clamp(SIMD4 value, SIMD4 min, SIMD4 max) noexcept {
    return {clamp(value.low, min.low, max.low), clamp(value.high, min.high, max.high)};
  }

  SIMD2 low;
  SIMD2 high;
};

}  // namespace tessarine
