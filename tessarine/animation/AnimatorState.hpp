#pragma once

#include <utility>
#include <variant>

#include "tessarine/animation/Animation.hpp"
#include "tessarine/animation/CompletionReason.hpp"
#include "tessarine/animation/Simulation.hpp"

namespace tessarine::detail {

/// What an animator is doing, with the completion that is still to be called.
template <VectorConvertible Value>
class AnimatorState {
 public:
  struct AtRest {
    Value value;
  };
  struct Animating {
    Animation<Value> animation;
    MotionCompletion completion;
  };
  struct Simulating {
    Simulation<Value> simulation;
    MotionCompletion completion;
  };

  explicit AnimatorState(Value restingOn) : state_(AtRest{std::move(restingOn)}) {}

  template <class Alternative>
  void become(Alternative next) {
    // One that was moved from takes a value like any other.
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.Move)
    state_.template emplace<Alternative>(std::move(next));
  }

  Animating* animating() noexcept { return std::get_if<Animating>(&state_); }
  Simulating* simulating() noexcept { return std::get_if<Simulating>(&state_); }

  bool isAtRest() const noexcept { return std::holds_alternative<AtRest>(state_); }

  Value value() const {
    if (const auto* tween = std::get_if<Animating>(&state_)) return tween->animation.value();
    if (const auto* physics = std::get_if<Simulating>(&state_)) return physics->simulation.value();
    return std::get<AtRest>(state_).value;
  }

  Value velocity() const {
    if (const auto* tween = std::get_if<Animating>(&state_)) return tween->animation.velocity();
    if (const auto* physics = std::get_if<Simulating>(&state_))
      return physics->simulation.velocity();
    return zero<Value>();
  }

  /// Takes the completion out; empty at rest.
  MotionCompletion takeCompletion() noexcept {
    if (auto* const tween = animating()) return std::exchange(tween->completion, {});
    if (auto* const physics = simulating()) return std::exchange(physics->completion, {});
    return {};
  }

 private:
  std::variant<AtRest, Animating, Simulating> state_;
};

}  // namespace tessarine::detail
