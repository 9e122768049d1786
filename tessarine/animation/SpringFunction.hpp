#pragma once

#include <utility>

#include "tessarine/animation/SimulationFunction.hpp"

namespace tessarine {

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
    return -tension * (value - vectorOf(target)) - damping * velocity;
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
