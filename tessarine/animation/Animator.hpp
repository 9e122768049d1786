#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "tessarine/animation/AnimatorState.hpp"
#include "tessarine/animation/CompletionReason.hpp"
#include "tessarine/animation/DisplayLink.hpp"
#include "tessarine/animation/FrameSource.hpp"
#include "tessarine/animation/SimulationFunction.hpp"
#include "tessarine/animation/TimingFunction.hpp"

namespace tessarine {

namespace detail {
template <VectorConvertible Value>
class AnimatorCore;
}  // namespace detail

/// Owns a value and moves it, once a frame, by a tween or under a law. For values that follow a
/// target, a `Spring` is simpler.
///
///     Animator<CGPoint> position({0, 0});
///     position.setOnChange([&](CGPoint p) { view.moveTo(p); });
///     position.animate({300, 0}, 0.25, TimingFunction::swiftOut(), [](CompletionReason) {});
///
/// Main queue only: anything but `onChange` off it is a programmer error that names the operation.
/// Callbacks run there too, inside a frame or inside the call that caused them, with the new state
/// in force, and may do anything with the animator, destroying it included: then no more are
/// called.
///
/// Each start ends in exactly one completion: `finished` from the frame that brought the motion to
/// rest, after `onChange` for its last value; `interrupted` from what took its place, be it another
/// start, `setValue` or `cancelRunningAnimation`. Only destroying the animator calls none. Of the
/// exceptions of callbacks, the first reaches the caller when all are done; in a frame it is told
/// on standard error.
///
/// A duration of 0 or less ends with the next frame, on the end value if it is 0 and on the start
/// if it is less. An infinite one, or one that is not a number, never ends by itself. While the
/// value rests no frame comes; a frame allocates nothing.
template <VectorConvertible Value>
class Animator {
 public:
  using CompletionReason = tessarine::CompletionReason;
  using Completion = MotionCompletion;
  using OnChange = std::function<void(Value)>;

  /// At rest on `initialValue`; `frames` as for a `DisplayLink`.
  explicit Animator(Value initialValue, std::shared_ptr<FrameSource> frames = nullptr) {
    detail::requireMainQueue("Animator::Animator");
    core_ =
        std::make_shared<detail::AnimatorCore<Value>>(std::move(initialValue), std::move(frames));
    core_->listen();
  }
  ~Animator() {
    detail::requireMainQueue("Animator::~Animator");
    core_->close();
  }
  Animator(const Animator&) = delete;
  Animator& operator=(const Animator&) = delete;

  Value value() const {
    detail::requireMainQueue("Animator::value");
    return core_->state().value();
  }
  /// Rests on `value`.
  void setValue(Value value) {
    detail::requireMainQueue("Animator::setValue");
    hold()->enter(AtRest{std::move(value)});
  }

  /// A second, lane for lane; of a tween the average over its last frame. Zero at rest.
  Value velocity() const {
    detail::requireMainQueue("Animator::velocity");
    return core_->state().velocity();
  }

  /// Called with the new value whenever it differs from the one before.
  OnChange onChange() const { return core_->onChange(); }
  void setOnChange(OnChange onChange) { core_->setOnChange(std::move(onChange)); }

  /// A tween from the present value to `to` in `duration` seconds. It begins without speed.
  void animate(Value to, double duration, TimingFunction timingFunction, Completion completion) {
    detail::requireMainQueue("Animator::animate");
    hold()->enter(Animating{{core_->state().value(), std::move(to), duration, timingFunction},
                            std::move(completion)});
  }

  /// A motion under `function` from the present value on, with `initialVelocity` a second.
  template <class F>
  requires SimulationFunctionOf<F, Value>
  void simulate(F function, Value initialVelocity, Completion completion = {}) {
    detail::requireMainQueue("Animator::simulate");
    const auto core = hold();
    core->enter(Simulating{{std::move(function), core->state().value(), std::move(initialVelocity)},
                           std::move(completion)});
  }

  /// The same with the speed that the value has. A motion under a law goes on under the new one
  /// without a jump in place, speed or time.
  template <class F>
  requires SimulationFunctionOf<F, Value>
  void simulate(F function, Completion completion = {}) {
    detail::requireMainQueue("Animator::simulate");
    const auto core = hold();
    if (const auto* running = core->state().simulating()) {
      auto simulation = running->simulation;
      simulation.use(std::move(function));
      core->enter(Simulating{std::move(simulation), std::move(completion)});
    } else {
      core->enter(Simulating{{std::move(function), core->state().value(), core->state().velocity()},
                             std::move(completion)});
    }
  }

  /// Rests where it is.
  void cancelRunningAnimation() {
    detail::requireMainQueue("Animator::cancelRunningAnimation");
    hold()->enter(AtRest{core_->state().value()});
  }

 private:
  using State = detail::AnimatorState<Value>;
  using AtRest = typename State::AtRest;
  using Animating = typename State::Animating;
  using Simulating = typename State::Simulating;

  /// Callbacks may destroy the animator, so its inside is held while they run.
  std::shared_ptr<detail::AnimatorCore<Value>> hold() const { return core_; }

  std::shared_ptr<detail::AnimatorCore<Value>> core_;
};

namespace detail {

/// Calls `first`, then `second` whatever happens; what the first one to throw threw goes on.
template <class First, class Second>
void callBoth(First first, Second second) {
  try {
    first();
  } catch (...) {
    try {
      second();
    } catch (...) {
      // Only one exception can go on, and the first says what went wrong.
    }
    throw;
  }
  second();
}

/// The inside of an animator. Main queue only.
template <VectorConvertible Value>
class AnimatorCore : public std::enable_shared_from_this<AnimatorCore<Value>> {
 public:
  using State = AnimatorState<Value>;
  using OnChange = std::function<void(Value)>;

  AnimatorCore(Value initialValue, std::shared_ptr<FrameSource> frames)
      : link_(std::in_place, std::move(frames)), state_(std::move(initialValue)) {}

  void listen() {
    link_->setOnFrame([weak = this->weak_from_this()](const DisplayLink::Frame& frame) {
      if (const auto core = weak.lock()) core->advance(frame.timestamp - frame.previousTimestamp);
    });
  }

  /// The animator is destroyed: nothing is called any more.
  void close() {
    link_.reset();
    onChange_.reset();
    const State dropped = exchangeState(typename State::AtRest{state_.value()});
  }

  State& state() noexcept { return state_; }
  OnChange onChange() const { return onChange_ ? *onChange_ : OnChange(); }
  void setOnChange(OnChange onChange) {
    auto replaced = std::make_shared<const OnChange>(std::move(onChange));
    onChange_.swap(replaced);
  }

  /// `next` is one of the alternatives of `State`.
  template <class Next>
  void enter(Next next) {
    change(std::move(next), CompletionReason::interrupted);
  }

 private:
  /// One frame.
  void advance(double dt) {
    requireMainQueue("Animator::advance");
    if (auto* const tween = state_.animating()) {
      advance(tween->animation, dt, [](const auto& moved) { return moved.isFinished(); });
    } else if (auto* const physics = state_.simulating()) {
      advance(physics->simulation, dt, [](const auto& moved) { return moved.hasConverged(); });
    }
  }

  template <class Motion, class IsOver>
  void advance(Motion& motion, double dt, IsOver isOver) {
    const std::uint64_t changesBefore = changes_;
    Motion moved = motion;
    moved.advance(dt);
    // A law of the host may have used the animator; then this motion is another's past.
    if (changesBefore != changes_) return;
    if (isOver(moved)) {
      change(typename State::AtRest{moved.value()}, CompletionReason::finished);
      return;
    }
    const Value oldValue = motion.value();
    motion = std::move(moved);
    react(oldValue);
  }

  /// Makes `next` the state, then tells: first the value, then the motion that ended with it. That
  /// it ended is settled here, whatever `onChange` does to the state.
  template <class Next>
  void change(Next next, CompletionReason reason) {
    if (!link_) return;  // a law of the host has destroyed the animator that is to begin with it
    State old = exchangeState(std::move(next));
    MotionCompletion completion = old.takeCompletion();
    callBoth([&] { react(old.value()); },
             [&] {
               if (completion && link_) completion(reason);
             });
  }

  template <class Next>
  State exchangeState(Next next) {
    ++changes_;
    State old(std::move(state_));
    state_.become(std::move(next));
    return old;
  }

  /// What follows from a new state.
  void react(const Value& oldValue) {
    link_->setIsPaused(state_.isAtRest());
    const Value value = state_.value();
    if (value == oldValue) return;
    if (const auto onChange = onChange_; onChange && *onChange) (*onChange)(value);
  }

  std::optional<DisplayLink> link_;  // absent once closed
  State state_;
  std::shared_ptr<const OnChange> onChange_;
  std::uint64_t changes_ = 0;
};

}  // namespace detail
}  // namespace tessarine
