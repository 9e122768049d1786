#pragma once

#include <concepts>
#include <utility>

#include "tessarine/animation/SimulationFunction.hpp"

namespace tessarine {

namespace detail {

/// The pull of a spring on any number of lanes.
template <class Vector>
struct SpringPull {
  Vector target;
  double tension;
  double damping;

  Vector acceleration(Vector value, Vector velocity) const {
    return -tension * (value - target) - damping * velocity;
  }
};

}  // namespace detail

/// A damped spring of unit mass: pulled to `target` by `tension` times the distance (1/s^2), slowed
/// by `damping` times the speed (1/s). At rest, on the target itself, once every lane of distance
/// and speed lies within `threshold`; a negative one is never reached.
template <VectorConvertible ValueType>
struct SpringFunction {
  using Value = ValueType;
  using Vector = VectorType<Value>;

  SpringFunction(Value toTarget, double withTension, double withDamping, double atThreshold)
      : target(std::move(toTarget)),
        tension(withTension),
        damping(withDamping),
        threshold(atThreshold) {}

  Vector acceleration(Vector value, Vector velocity) const {
    return detail::SpringPull<Vector>{vectorOf(target), tension, damping}.acceleration(value,
                                                                                       velocity);
  }
  /// The same for two lanes of four.
  auto pair(SIMD2 SIMD4::*lanes) const requires std::same_as<Vector, SIMD4> {
    return detail::SpringPull<SIMD2>{vectorOf(target).*lanes, tension, damping};
  }

  Convergence<Value> convergence(Vector value, Vector velocity) const {
    const Vector lo = Vector::filledWith(-threshold);
    const Vector hi = Vector::filledWith(threshold);
    if (!(clamp(velocity, lo, hi) == velocity)) return Convergence<Value>::keepRunning();
    const Vector end = vectorOf(target);
    const Vector diff = value - end;
    if (!(clamp(diff, lo, hi) == diff)) return Convergence<Value>::keepRunning();
    return Convergence<Value>::converge(end);
  }

  Value target;
  double tension;
  double damping;
  double threshold;
};

}  // namespace tessarine
