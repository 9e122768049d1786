#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "tessarine/animation/Animator.hpp"
#include "tessarine/animation/SpringFunction.hpp"

namespace tessarine {

/// A value that follows `target` like a mass on a damped spring, whatever it was doing when the
/// target changed.
///
///     Spring<CGPoint> follower({0, 0});
///     follower.setOnChange([&](CGPoint p) { view.moveTo(p); });
///     follower.setTarget(pointer);  // on every move of the pointer
///
/// Main queue only, as `Animator`. Any write of a parameter sets it going; at the target it rests
/// again with the next frame. Its fixed step of 8 ms follows the exact motion within 1e-5 of the
/// way for the defaults and is stable up to a tension of some 120 000/s^2 or a damping of some
/// 340/s; docs/animation.md has the ranges.
template <VectorConvertible Value>
class Spring {
 public:
  using OnChange = typename Animator<Value>::OnChange;

  static constexpr double defaultTension = 120.0;
  static constexpr double defaultDamping = 12.0;
  static constexpr double defaultThreshold = 0.1;

  /// At rest on `initialValue`, which is the target too; `frames` as for a `DisplayLink`.
  explicit Spring(Value initialValue, std::shared_ptr<FrameSource> frames = nullptr)
      : function_(initialValue, defaultTension, defaultDamping, defaultThreshold) {
    detail::requireMainQueue("Spring::Spring");
    animator_ = std::make_shared<std::optional<Animator<Value>>>();
    animator_->emplace(std::move(initialValue), std::move(frames));
  }
  ~Spring() {
    detail::requireMainQueue("Spring::~Spring");
    animator_->reset();
  }
  Spring(const Spring&) = delete;
  Spring& operator=(const Spring&) = delete;

  /// Called with the new value whenever it differs from the one before.
  OnChange onChange() const { return animator().onChange(); }
  void setOnChange(OnChange onChange) { animator().setOnChange(std::move(onChange)); }

  Value value() const { return animator().value(); }
  /// Jumps to `value` and goes on from there with the speed that it has.
  void setValue(Value value) {
    detail::requireMainQueue("Spring::setValue");
    const auto held = animator_;  // `onChange` may destroy the spring
    const Value velocity = (*held)->velocity();
    detail::callBoth([&] { (*held)->setValue(std::move(value)); },
                     [&] {
                       if (*held) (*held)->simulate(function_, velocity);
                     });
  }

  /// A second.
  Value velocity() const { return animator().velocity(); }
  void setVelocity(Value velocity) {
    detail::requireMainQueue("Spring::setVelocity");
    animator().simulate(function_, std::move(velocity));
  }

  const Value& target() const noexcept { return function_.target; }
  void setTarget(Value target) {
    write("Spring::setTarget", &SpringFunction<Value>::target, std::move(target));
  }

  /// The pull for a distance of 1, 1/s^2.
  double tension() const noexcept { return function_.tension; }
  void setTension(double tension) {
    write("Spring::setTension", &SpringFunction<Value>::tension, tension);
  }

  /// The loss for a speed of 1, 1/s. At 0 it swings on, and need never rest.
  double damping() const noexcept { return function_.damping; }
  void setDamping(double damping) {
    write("Spring::setDamping", &SpringFunction<Value>::damping, damping);
  }

  /// How near and how slow it has to be to rest, in units of `Value` and of `Value` a second.
  double threshold() const noexcept { return function_.threshold; }
  void setThreshold(double threshold) {
    write("Spring::setThreshold", &SpringFunction<Value>::threshold, threshold);
  }

  /// Stands still at `value`, which is the new target.
  void reset(Value value) {
    detail::requireMainQueue("Spring::reset");
    function_.target = value;
    animator().setValue(std::move(value));
  }

 private:
  Animator<Value>& animator() const { return **animator_; }

  template <class Field>
  void write(const char* operation, Field SpringFunction<Value>::*field, Field value) {
    detail::requireMainQueue(operation);
    function_.*field = std::move(value);
    animator().simulate(function_);
  }

  SpringFunction<Value> function_;
  /// Shared with the calls that are under way; empty once the spring is destroyed.
  std::shared_ptr<std::optional<Animator<Value>>> animator_;
};

}  // namespace tessarine
