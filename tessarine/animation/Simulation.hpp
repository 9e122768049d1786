#pragma once

#include <memory>
#include <type_traits>
#include <utility>

#include "tessarine/animation/SimulationFunction.hpp"

namespace tessarine::detail {

/// Where a motion is, and where it was one step before.
template <VectorConvertible Value>
struct SimulationProgress {
  using State = MotionState<VectorType<Value>>;

  double timeAccumulator = 0.0;  // seconds; what the state is ahead of the frames, negative
  State current;
  State previous;
};

/// A law whose type is forgotten. All steps of a frame are one virtual call, so that they are
/// compiled together with the law and keep the state in registers.
template <VectorConvertible Value>
class AnySimulationFunction {
 public:
  using Progress = SimulationProgress<Value>;
  using State = typename Progress::State;

  template <class F>
  requires SimulationFunctionOf<F, Value>
  static AnySimulationFunction of(F function) {
    return AnySimulationFunction(std::make_shared<const Erased<F>>(std::move(function)));
  }

  /// Takes steps of `timeStep` seconds until the frame is reached.
  void advance(Progress& progress, double timeStep) const { law_->advance(progress, timeStep); }
  Convergence<Value> convergence(const State& state) const { return law_->convergence(state); }

 private:
  struct Law {
    Law() = default;
    virtual ~Law() = default;
    Law(const Law&) = delete;
    Law& operator=(const Law&) = delete;
    virtual void advance(Progress& progress, double timeStep) const = 0;
    virtual Convergence<Value> convergence(const State& state) const = 0;
  };

  template <class F>
  struct Erased final : Law {
    explicit Erased(F law) : function(std::move(law)) {}
    void advance(Progress& progress, double timeStep) const override {
      // A copy that nobody else can reach stays in registers; one that may allocate is not made.
      using Copy = std::conditional_t<std::is_trivially_copyable_v<F>, const F, const F&>;
      Copy law = function;
      double timeAccumulator = progress.timeAccumulator;
      State current = progress.current;
      State previous = current;
      while (timeAccumulator > 0.0) {
        previous = current;
        current = integrate(law, current.value, current.velocity, timeStep);
        timeAccumulator += -timeStep;
      }
      progress = {timeAccumulator, current, previous};
    }
    Convergence<Value> convergence(const State& state) const override {
      return function.convergence(state.value, state.velocity);
    }
    F function;
  };

  explicit AnySimulationFunction(std::shared_ptr<const Law> law) : law_(std::move(law)) {}

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
      : function_(AnySimulationFunction<Value>::of(std::move(function))),
        progress_{.current = {vectorOf(initialValue), vectorOf(initialVelocity)}},
        interpolated_(progress_.current) {
    convergeIfPossible();
  }

  Value value() const { return valueOf<Value>(interpolated_.value); }
  Value velocity() const { return valueOf<Value>(interpolated_.velocity); }
  bool hasConverged() const noexcept { return hasConverged_; }

  /// Moves on by `dt` seconds.
  void advance(double dt) {
    if (hasConverged_) return;
    progress_.timeAccumulator += dt < maximumFrameTime ? dt : maximumFrameTime;
    function_.advance(progress_, timeStep);
    convergeIfPossible();
    if (hasConverged_) return;
    const auto& [timeAccumulator, current, previous] = progress_;
    const double alpha = (timeAccumulator + timeStep) / timeStep;
    interpolated_ = {interpolate(previous.value, current.value, alpha),
                     interpolate(previous.velocity, current.velocity, alpha)};
  }

  /// Goes on under another law with place, speed and time as they are; also after rest.
  template <class F>
  requires SimulationFunctionOf<F, Value>
  void use(F function) {
    function_ = AnySimulationFunction<Value>::of(std::move(function));
    hasConverged_ = false;
    convergeIfPossible();
  }

 private:
  void convergeIfPossible() {
    if (hasConverged_) return;
    const auto convergence = function_.convergence(progress_.current);
    if (!convergence.vector()) return;
    progress_.current = {*convergence.vector(), VectorType<Value>()};
    interpolated_ = progress_.current;
    hasConverged_ = true;
  }

  AnySimulationFunction<Value> function_;
  bool hasConverged_ = false;
  SimulationProgress<Value> progress_;
  MotionState<VectorType<Value>> interpolated_;
};

}  // namespace tessarine::detail
