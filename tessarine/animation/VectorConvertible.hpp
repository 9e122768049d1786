#pragma once

#include <concepts>
#include <type_traits>

#include "tessarine/animation/SIMD2.hpp"
#include "tessarine/animation/SIMD4.hpp"
#include "tessarine/values/CGPoint.hpp"
#include "tessarine/values/CGRect.hpp"
#include "tessarine/values/CGSize.hpp"
#include "tessarine/values/CGVector.hpp"

namespace tessarine {

/// How a type of the host becomes a vector of lanes and comes back. One specialisation makes any
/// type with equality a thing to animate:
///
///     template <>
///     struct tessarine::VectorConversion<Color> {
///       using VectorType = SIMD4;
///       static VectorType vector(const Color& c) { return {c.red, c.green, c.blue, c.alpha}; }
///       static Color value(VectorType v) { return {v[0], v[1], v[2], v[3]}; }
///     };
template <class Value>
struct VectorConversion;

/// Values with equality that a `VectorConversion` turns into two or four lanes of doubles. `double`
/// (and so `CGFloat`), `float`, `CGPoint`, `CGSize`, `CGVector` and `CGRect` are such.
template <class Value>
concept VectorConvertible = std::equality_comparable<Value> && std::copyable<Value> &&
    (std::is_same_v<typename VectorConversion<Value>::VectorType, SIMD2> ||
     std::is_same_v<typename VectorConversion<Value>::VectorType,
                    SIMD4>)&&requires(const Value& value,
                                      typename VectorConversion<Value>::VectorType vector) {
  {
    VectorConversion<Value>::vector(value)
    } -> std::same_as<typename VectorConversion<Value>::VectorType>;
  { VectorConversion<Value>::value(vector) } -> std::same_as<Value>;
};

/// The lanes that `Value` is carried in.
template <VectorConvertible Value>
using VectorType = typename VectorConversion<Value>::VectorType;

template <VectorConvertible Value>
VectorType<Value> vectorOf(const Value& value) {
  return VectorConversion<Value>::vector(value);
}

template <VectorConvertible Value>
Value valueOf(VectorType<Value> vector) {
  return VectorConversion<Value>::value(vector);
}

/// The value whose lanes are all 0.
template <VectorConvertible Value>
Value zero() {
  return valueOf<Value>(VectorType<Value>());
}

template <>
struct VectorConversion<double> {
  using VectorType = SIMD2;
  static VectorType vector(double value) noexcept { return {value, 0.0}; }
  static double value(VectorType vector) noexcept { return vector[0]; }
};

template <>
struct VectorConversion<float> {
  using VectorType = SIMD2;
  static VectorType vector(float value) noexcept { return {static_cast<double>(value), 0.0}; }
  static float value(VectorType vector) noexcept { return static_cast<float>(vector[0]); }
};

template <>
struct VectorConversion<CGPoint> {
  using VectorType = SIMD2;
  static VectorType vector(const CGPoint& value) noexcept { return {value.x, value.y}; }
  static CGPoint value(VectorType vector) noexcept { return {vector[0], vector[1]}; }
};

template <>
struct VectorConversion<CGSize> {
  using VectorType = SIMD2;
  static VectorType vector(const CGSize& value) noexcept { return {value.width, value.height}; }
  static CGSize value(VectorType vector) noexcept { return {vector[0], vector[1]}; }
};

template <>
struct VectorConversion<CGVector> {
  using VectorType = SIMD2;
  static VectorType vector(const CGVector& value) noexcept { return {value.dx, value.dy}; }
  static CGVector value(VectorType vector) noexcept { return {vector[0], vector[1]}; }
};

template <>
struct VectorConversion<CGRect> {
  using VectorType = SIMD4;
  static VectorType vector(const CGRect& value) noexcept {
    return {value.origin.x, value.origin.y, value.size.width, value.size.height};
  }
  static CGRect value(VectorType vector) noexcept {
    return {{vector[0], vector[1]}, {vector[2], vector[3]}};
  }
};

namespace detail {

/// `from` and `alpha` of the way to `to`, lane by lane; `alpha` is not clamped.
template <class Vector>
Vector interpolate(Vector from, Vector to, double alpha) noexcept {
  return from + alpha * (to - from);
}

}  // namespace detail
}  // namespace tessarine
