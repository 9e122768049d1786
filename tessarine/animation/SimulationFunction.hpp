#pragma once

#include <concepts>
#include <optional>

#include "tessarine/animation/VectorConvertible.hpp"

namespace tessarine {

/// What a law says of a state: that the motion goes on, or that it ends on a vector.
template <VectorConvertible Value>
class Convergence {
 public:
  static Convergence converge(VectorType<Value> vector) noexcept { return Convergence(vector); }
  static Convergence keepRunning() noexcept { return Convergence(std::nullopt); }

  /// Where the motion ends; absent while it goes on.
  const std::optional<VectorType<Value>>& vector() const noexcept { return vector_; }

 private:
  explicit Convergence(std::optional<VectorType<Value>> vector) noexcept : vector_(vector) {}
  std::optional<VectorType<Value>> vector_;
};

/// A law of motion: the acceleration at a place and speed, and when it has come to rest. Hosts
/// write their own beside `SpringFunction` and `DecayFunction`:
///
///     struct Gravity {
///       using Value = CGPoint;
///       SIMD2 acceleration(SIMD2, SIMD2) const { return {0, 981}; }
///       Convergence<CGPoint> convergence(SIMD2 value, SIMD2) const {
///         return value[1] < 500 ? Convergence<CGPoint>::keepRunning()
///                               : Convergence<CGPoint>::converge({value[0], 500});
///       }
///     };
///
/// Both are called on the main thread; an exception ends the operation or frame that called.
template <class F>
concept SimulationFunction = std::copyable<F> && VectorConvertible<typename F::Value> &&
    requires(const F& function, VectorType<typename F::Value> vector) {
  { function.acceleration(vector, vector) } -> std::same_as<VectorType<typename F::Value>>;
  { function.convergence(vector, vector) } -> std::same_as<Convergence<typename F::Value>>;
};

/// A law for motions of `Value`.
template <class F, class Value>
concept SimulationFunctionOf = SimulationFunction<F> && std::same_as<typename F::Value, Value>;

/// A place and a speed, or the rates at which they change.
template <class Vector>
struct MotionState {
  Vector value;
  Vector velocity;
};

namespace detail {

/// The rates of change `time` after (`value`, `velocity`), if these change as `derivative` says.
template <class F, class Vector>
[[gnu::always_inline]] inline MotionState<Vector> evaluate(const F& function, Vector value,
                                                           Vector velocity, double time,
                                                           MotionState<Vector> derivative) {
  const Vector x = value + time * derivative.value;
  const Vector v = velocity + time * derivative.velocity;
  return {v, function.acceleration(x, v)};
}

/// What the rates at the start and the middle of a step add to its mean rate.
template <class Vector>
inline Vector startAndMiddle(Vector a, Vector b, Vector c) {
  return a + 2.0 * (b + c);
}

/// One step of the method, for vectors of any width.
template <class F, class Vector>
[[gnu::always_inline]] inline MotionState<Vector> rungeKutta(const F& function, Vector value,
                                                             Vector velocity, double time) {
  constexpr double sixth = 0.16666666666666666;
  // No time after the start: adding a change of 0 could but turn a negative zero.
  const MotionState<Vector> a{velocity, function.acceleration(value, velocity)};
  const auto b = evaluate(function, value, velocity, time * 0.5, a);
  const auto c = evaluate(function, value, velocity, time * 0.5, b);
  // Summed up as far as it goes before the last rates are there, which keeps it in registers.
  const Vector values = startAndMiddle(a.value, b.value, c.value);
  const Vector velocities = startAndMiddle(a.velocity, b.velocity, c.velocity);
  const auto d = evaluate(function, value, velocity, time, c);
  return {value + time * (sixth * (values + d.value)),
          velocity + time * (sixth * (velocities + d.velocity))};
}

}  // namespace detail

/// One step of `time` seconds under `function`, by the classical Runge-Kutta method of fourth
/// order. A law of four lanes that says how two of them move alone, by `pair`, is taken in two
/// halves, one after the other: that leaves registers for all of it.
template <SimulationFunction F>
[[gnu::always_inline]] inline MotionState<VectorType<typename F::Value>> integrate(
    const F& function, VectorType<typename F::Value> value, VectorType<typename F::Value> velocity,
    double time) {
  if constexpr (requires { function.pair(&SIMD4::low); }) {
    const auto low = detail::rungeKutta(function.pair(&SIMD4::low), value.low, velocity.low, time);
    const auto high =
        detail::rungeKutta(function.pair(&SIMD4::high), value.high, velocity.high, time);
    return {{low.value, high.value}, {low.velocity, high.velocity}};
  } else {
    return detail::rungeKutta(function, value, velocity, time);
  }
}

}  // namespace tessarine
