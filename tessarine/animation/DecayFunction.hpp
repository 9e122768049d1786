#pragma once

#include "tessarine/animation/SimulationFunction.hpp"

namespace tessarine {

/// A throw that friction ends: slowed by `drag` times the speed (1/s), at rest where it is once
/// every lane of the speed lies within `threshold`.
template <VectorConvertible ValueType>
struct DecayFunction {
  using Value = ValueType;
  using Vector = VectorType<Value>;

  DecayFunction(double atThreshold, double withDrag) : threshold(atThreshold), drag(withDrag) {}

  Vector acceleration(Vector, Vector velocity) const { return -drag * velocity; }

  Convergence<Value> convergence(Vector value, Vector velocity) const {
    const Vector lo = Vector::filledWith(-threshold);
    const Vector hi = Vector::filledWith(threshold);
    return clamp(velocity, lo, hi) == velocity ? Convergence<Value>::converge(value)
                                               : Convergence<Value>::keepRunning();
  }

  double threshold;
  double drag;
};

}  // namespace tessarine
