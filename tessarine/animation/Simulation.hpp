#pragma once

#include <memory>
#include <utility>

#include "tessarine/animation/SimulationFunction.hpp"

namespace tessarine::detail {

/// A law whose type is forgotten. A whole step is one virtual call, so that the four evaluations
/// inside it are compiled together with the law.
template <VectorConvertible Value>
class AnySimulationFunction {
 public:
  using State = MotionState<VectorType<Value>>;

  template <class F>
  requires SimulationFunctionOf<F, Value>
  explicit AnySimulationFunction(F function)
      : law_(std::make_shared<const Erased<F>>(std::move(function))) {}

  State integrate(const State& state, double time) const { return law_->integrate(state, time); }
  Convergence<Value> convergence(const State& state) const { return law_->convergence(state); }

 private:
  struct Law {
    Law() = default;
    virtual ~Law() = default;
    Law(const Law&) = delete;
    Law& operator=(const Law&) = delete;
    virtual State integrate(const State& state, double time) const = 0;
    virtual Convergence<Value> convergence(const State& state) const = 0;
  };

  template <class F>
  struct Erased final : Law {
    explicit Erased(F law) : function(std::move(law)) {}
    State integrate(const State& state, double time) const override {
      return tessarine::integrate(function, state.value, state.velocity, time);
    }
    Convergence<Value> convergence(const State& state) const override {
      return function.convergence(state.value, state.velocity);
    }
    F function;
  };

  std::shared_ptr<const Law> law_;
};

/// A motion under a law, in fixed steps whatever the frames; hosts reach it through `Animator`.
template <VectorConvertible Value>
class Simulation {
 public:
  static constexpr double timeStep = 0.008;
  /// The most of one frame's time that counts: after a stall the motion goes on where it was.
  static constexpr double maximumFrameTime = 0.08;

  template <class F>
  requires SimulationFunctionOf<F, Value> Simulation(F function, Value initialValue,
                                                     Value initialVelocity)
      : function_(std::move(function)),
        current_{vectorOf(initialValue), vectorOf(initialVelocity)},
        interpolated_(current_) {
    convergeIfPossible();
  }

  Value value() const { return valueOf<Value>(interpolated_.value); }
  Value velocity() const { return valueOf<Value>(interpolated_.velocity); }
  bool hasConverged() const noexcept { return hasConverged_; }

  /// Moves on by `dt` seconds.
  void advance(double dt) {
    if (hasConverged_) return;
    timeAccumulator_ += dt < maximumFrameTime ? dt : maximumFrameTime;
    State previous = current_;
    while (timeAccumulator_ > 0.0) {
      previous = current_;
      current_ = function_.integrate(current_, timeStep);
      timeAccumulator_ += -timeStep;
    }
    convergeIfPossible();
    if (hasConverged_) return;
    const double alpha = (timeAccumulator_ + timeStep) / timeStep;
    interpolated_ = {interpolate(previous.value, current_.value, alpha),
                     interpolate(previous.velocity, current_.velocity, alpha)};
  }

  /// Goes on under another law with place, speed and time as they are; also after rest.
  template <class F>
  requires SimulationFunctionOf<F, Value>
  void use(F function) {
    function_ = AnySimulationFunction<Value>(std::move(function));
    hasConverged_ = false;
    convergeIfPossible();
  }

 private:
  using State = MotionState<VectorType<Value>>;

  void convergeIfPossible() {
    if (hasConverged_) return;
    const auto convergence = function_.convergence(current_);
    if (!convergence.vector()) return;
    current_ = {*convergence.vector(), VectorType<Value>()};
    interpolated_ = current_;
    hasConverged_ = true;
  }

  AnySimulationFunction<Value> function_;
  double timeAccumulator_ = 0.0;
  bool hasConverged_ = false;
  State current_;
  State interpolated_;
};

}  // namespace tessarine::detail
