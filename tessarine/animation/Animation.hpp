#pragma once

#include "tessarine/animation/TimingFunction.hpp"
#include "tessarine/animation/VectorConvertible.hpp"

namespace tessarine::detail {

/// One tween from `from` to `to`, moved on by spans of time; hosts reach it through `Animator`.
template <VectorConvertible Value>
class Animation {
 public:
  Animation(Value from, Value to, double duration, TimingFunction timingFunction)
      : from_(from), to_(to), duration_(duration), timingFunction_(timingFunction), value_(from) {}

  const Value& value() const noexcept { return value_; }
  /// The average over the last `advance`, a second.
  const Value& velocity() const noexcept { return velocity_; }
  bool isFinished() const noexcept { return duration_ <= elapsed_; }

  /// Moves on by `dt` seconds.
  void advance(double dt) {
    using Vector = VectorType<Value>;
    const Vector previous = vectorOf(value_);
    elapsed_ += dt;
    double progress = elapsed_ / duration_;
    if (progress <= 0.0) progress = 0.0;
    if (progress > 1.0) progress = 1.0;
    // A longer tween shows smaller steps, so it solves its curve more finely.
    const double eased = timingFunction_.solve(progress, 1.0 / (duration_ * 1000.0));
    value_ = valueOf<Value>(interpolate(vectorOf(from_), vectorOf(to_), eased));
    const Vector delta = vectorOf(value_) - previous;
    velocity_ = valueOf<Value>(Vector::filledWith(1.0 / dt) * delta);
  }

 private:
  Value from_;
  Value to_;
  double duration_;
  TimingFunction timingFunction_;
  Value value_;
  Value velocity_ = zero<Value>();
  double elapsed_ = 0.0;
};

}  // namespace tessarine::detail
