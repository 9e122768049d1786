#include "tessarine/animation/Animator.hpp"

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tessarine/animation/DecayFunction.hpp"
#include "tessarine/animation/SpringFunction.hpp"
#include "tests/animation/Frames.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

static_assert(!std::is_copy_constructible_v<Animator<double>>);
static_assert(static_cast<int>(CompletionReason::finished) == 0 &&
              static_cast<int>(CompletionReason::interrupted) == 1);

using Reasons = std::vector<CompletionReason>;
constexpr auto finished = CompletionReason::finished;
constexpr auto interrupted = CompletionReason::interrupted;
const auto linear = TimingFunction::linear();

SpringFunction<double> springTo(double target) { return {target, 400, 40, 0.01}; }

/// An animator whose every call back is written down.
struct Watched {
  Frames frames;
  Animator<double> animator{0.0, frames.source};
  std::vector<double> values;
  Reasons old;       // of the motion that the state began with
  Reasons started;   // of the one that the trigger started
  std::string told;  // v for a value, c for a completion

  Watched() {
    animator.setOnChange([this](double value) {
      values.push_back(value);
      told += 'v';
    });
  }
  auto into(Reasons& reasons) {
    return [this, &reasons](CompletionReason reason) {
      reasons.push_back(reason);
      told += 'c';
    };
  }
  void forget() {
    values.clear();
    told.clear();
  }
  /// Frames until it rests; the number says which motion was in force.
  double settled() {
    for (int i = 0; i < 2000 && frames.isWanted; ++i) frames.give(0.02);
    EXPECT_FALSE(frames.isWanted);
    return animator.value();
  }
};

enum Start { atRest, animating, simulating };

void bring(Watched& w, Start start) {
  if (start == animating) w.animator.animate(10, 1, linear, w.into(w.old));
  if (start == simulating) w.animator.simulate(springTo(20), 5.0, w.into(w.old));
  if (start != atRest) w.frames.give(0.1);
  w.forget();
}

struct Trigger {
  const char* name;
  void (*pull)(Watched& w);
  bool moves;          // whether frames are wanted after it
  double end;          // where it all rests; not a number for where it stands
  bool writes;         // onChange by the trigger itself
  bool startsAMotion;  // whose own completion is then `finished`
};

constexpr double here = std::numeric_limits<double>::quiet_NaN();
const std::array<Trigger, 6> triggers{{
    {"animate", [](Watched& w) { w.animator.animate(30, 0.5, linear, w.into(w.started)); }, true,
     30, false, true},
    {"simulate with velocity",
     [](Watched& w) { w.animator.simulate(springTo(40), 7.0, w.into(w.started)); }, true, 40, false,
     true},
    {"simulate", [](Watched& w) { w.animator.simulate(springTo(50), w.into(w.started)); }, true, 50,
     false, true},
    {"cancel", [](Watched& w) { w.animator.cancelRunningAnimation(); }, false, here, false, false},
    {"write", [](Watched& w) { w.animator.setValue(60); }, false, 60, true, false},
    {"write what is there", [](Watched& w) { w.animator.setValue(w.animator.value()); }, false,
     here, false, false},
}};

TEST(Animator, EveryTransition) {
  for (const Start start : {atRest, animating, simulating})
    for (const Trigger& trigger : triggers) {
      SCOPED_TRACE(std::to_string(start) + " " + trigger.name);
      Watched w;
      bring(w, start);
      const double value = w.animator.value();
      const double velocity = w.animator.velocity();
      const int changes = w.frames.changes;
      trigger.pull(w);
      EXPECT_EQ(w.old, start == atRest ? Reasons{} : Reasons{interrupted});
      EXPECT_EQ(w.values, trigger.writes ? std::vector{60.0} : std::vector<double>{});
      EXPECT_EQ(w.told, std::string(trigger.writes ? "v" : "") + (start == atRest ? "" : "c"));
      EXPECT_EQ(w.frames.isWanted, trigger.moves);
      EXPECT_EQ(w.frames.changes - changes, (start != atRest) == trigger.moves ? 0 : 1)
          << "the link starts and stops only when rest begins or ends";
      if (!trigger.writes) {
        EXPECT_EQ(w.animator.value(), value) << "no jump";
      }
      const std::string name = trigger.name;
      const double expected = name == "simulate" && start != atRest ? velocity
                              : name == "simulate with velocity"    ? 7.0
                                                                    : 0.0;
      EXPECT_EQ(w.animator.velocity(), expected);
      w.forget();
      const double end = std::isnan(trigger.end) ? value : trigger.end;
      EXPECT_EQ(w.settled(), end);
      EXPECT_EQ(w.animator.velocity(), 0);
      EXPECT_EQ(w.started, trigger.startsAMotion ? Reasons{finished} : Reasons{});
      EXPECT_EQ(w.told.empty(), !trigger.startsAMotion);
      if (trigger.startsAMotion) {
        EXPECT_EQ(w.told.substr(w.told.size() - 2), "vc") << "the last value comes first";
        EXPECT_EQ(w.values.back(), end);
      }
      EXPECT_EQ(w.old.size() + w.started.size(),
                (start == atRest ? 0U : 1U) + (trigger.startsAMotion ? 1U : 0U));
    }
}

TEST(Animator, AMotionThatIsOverAtOnceEndsWithTheNextFrame) {
  Watched w;
  w.animator.animate(0, 0.05, linear, w.into(w.started));
  EXPECT_TRUE(w.frames.isWanted);
  w.frames.give(0.04);
  EXPECT_TRUE(w.started.empty());
  w.frames.give(0.04);
  EXPECT_EQ(w.started, Reasons{finished});
  EXPECT_EQ(w.told, "c") << "the value never moved";

  w.animator.animate(3, 0, linear, w.into(w.old));
  EXPECT_EQ(w.animator.value(), 0);
  w.frames.give(0.001);
  EXPECT_EQ(w.animator.value(), 3);
  EXPECT_EQ(w.old, Reasons{finished});

  // A spring that begins within its threshold is on the target right away.
  w.forget();
  w.animator.simulate(SpringFunction<double>(3.05, 120, 12, 0.1), w.into(w.old));
  EXPECT_EQ(w.values, std::vector{3.05});
  EXPECT_TRUE(w.frames.isWanted);
  EXPECT_EQ(w.old.size(), 1U);
  w.frames.give(0.001);
  EXPECT_EQ(w.old.size(), 2U);
  EXPECT_FALSE(w.frames.isWanted);
}

TEST(Animator, ASimulationTakesOverTheSpeedOfATween) {
  Watched w;
  w.animator.animate(10, 1, linear, {});
  w.frames.give(0.1);
  EXPECT_DOUBLE_EQ(w.animator.velocity(), 10);
  w.animator.simulate(DecayFunction<double>(0.1, 0));
  w.frames.give(0.08);
  EXPECT_NEAR(w.animator.value(), 1 + 0.08 * 10, 1e-12);
}

TEST(Animator, CallbacksSeeTheNewStateAndMayStartAnother) {
  Watched w;
  w.animator.animate(10, 1, linear, [&](CompletionReason reason) {
    EXPECT_EQ(reason, interrupted);
    EXPECT_TRUE(w.frames.isWanted);
    w.animator.animate(30, 0.1, linear, w.into(w.started));
  });
  w.animator.animate(20, 1, linear, w.into(w.old));
  EXPECT_EQ(w.old, Reasons{interrupted}) << "by what the completion started";
  const int changes = w.frames.changes;
  EXPECT_EQ(w.settled(), 30);
  EXPECT_EQ(w.started, Reasons{finished});
  EXPECT_EQ(w.frames.changes - changes, 1);

  // From inside of `finished` the link, stopped a moment before, starts again.
  w.animator.animate(0, 0.1, linear, [&](CompletionReason reason) {
    EXPECT_EQ(reason, finished);
    EXPECT_FALSE(w.frames.isWanted);
    w.animator.animate(5, 0.1, linear, w.into(w.started));
    EXPECT_TRUE(w.frames.isWanted);
  });
  EXPECT_EQ(w.settled(), 5);
  EXPECT_EQ(w.started, (Reasons{finished, finished}));
}

TEST(Animator, OnChangeMayUseTheAnimatorToo) {
  // Cancelled in the middle by its own value: one completion, from the cancelling.
  Watched w;
  w.animator.setOnChange([&](double) { w.animator.cancelRunningAnimation(); });
  w.animator.animate(10, 1, linear, w.into(w.old));
  w.frames.give(0.5);
  EXPECT_EQ(w.old, Reasons{interrupted});
  EXPECT_EQ(w.animator.value(), 5);
  // Started again by its last value: the first has finished all the same.
  w.animator.setOnChange([&](double value) {
    if (value == 10) w.animator.animate(20, 1, linear, w.into(w.started));
  });
  w.animator.animate(10, 0.5, linear, w.into(w.old));
  w.frames.give(1);
  EXPECT_EQ(w.old, (Reasons{interrupted, finished}));
  EXPECT_TRUE(w.frames.isWanted && w.started.empty());
  // A handler that replaces itself goes on to its end.
  const auto token = std::make_shared<int>(7);
  int seen = 0;
  w.animator.setOnChange([&, token](double) {
    w.animator.setOnChange({});
    seen = *token;
  });
  w.animator.setValue(1);
  w.animator.setValue(2);
  EXPECT_EQ(seen, 7);
}

TEST(Animator, CallbacksMayDestroyIt) {
  enum Place { onChangeOfFrame, onChangeOfCall, onFinished, onInterrupted };
  for (const Place place : {onChangeOfFrame, onChangeOfCall, onFinished, onInterrupted}) {
    Frames frames;
    auto animator = std::make_unique<Animator<double>>(0.0, frames.source);
    int completions = 0;
    const auto destroy = [&animator, token = std::make_shared<int>(3)] {
      animator.reset();
      EXPECT_EQ(*token, 3);
    };
    if (place == onChangeOfFrame || place == onChangeOfCall)
      animator->setOnChange([destroy](double) { destroy(); });
    animator->animate(10, 0.1, linear, [&completions, destroy, place](CompletionReason) {
      ++completions;
      if (place == onFinished || place == onInterrupted) destroy();
    });
    if (place == onChangeOfCall)
      animator->setValue(5);
    else if (place == onInterrupted)
      animator->animate(3, 1, linear, [&](CompletionReason) { ++completions; });
    else
      frames.give(1);
    EXPECT_FALSE(animator);
    EXPECT_FALSE(frames.isWanted);
    EXPECT_EQ(completions, place == onFinished || place == onInterrupted ? 1 : 0);
    frames.give(1);
  }
}

TEST(Animator, DestroyingItReleasesWhatItHeld) {
  Frames frames;
  const auto token = std::make_shared<int>();
  {
    Animator<double> animator(0.0, frames.source);
    animator.setOnChange([token](double) {});
    animator.animate(1, 1, linear, [token](CompletionReason) { ADD_FAILURE(); });
    EXPECT_EQ(token.use_count(), 3);
  }
  EXPECT_EQ(token.use_count(), 1);
  EXPECT_FALSE(frames.isWanted);
}

TEST(Animator, WhatCallbacksThrowReachesTheCallerWhenAllIsDone) {
  Watched w;
  const auto fails = [](double) { throw std::runtime_error("first"); };
  w.animator.animate(10, 1, linear, [&](CompletionReason reason) {
    w.old.push_back(reason);
    throw std::runtime_error("second");
  });
  w.animator.setOnChange(fails);
  try {
    w.animator.setValue(4);
    ADD_FAILURE();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "first");
  }
  EXPECT_EQ(w.old, Reasons{interrupted});
  EXPECT_EQ(w.animator.value(), 4);
  // In a frame it is told, and the motion goes on.
  testing::internal::CaptureStderr();
  w.animator.animate(10, 0.1, linear, w.into(w.started));
  w.frames.give(0.05);
  w.frames.give(0.1);
  EXPECT_EQ(w.started, Reasons{finished});
  EXPECT_NE(testing::internal::GetCapturedStderr().find("handler of a frame: first"),
            std::string::npos);
}

/// A law that uses the animator it drives.
struct MeddlingLaw {
  using Value = double;
  Animator<double>* animator;
  SIMD2 acceleration(SIMD2, SIMD2) const {
    animator->setValue(77);
    return {0, 0};
  }
  Convergence<double> convergence(SIMD2, SIMD2) const { return Convergence<double>::keepRunning(); }
};

TEST(Animator, ALawMayUseTheAnimator) {
  Watched w;
  w.animator.simulate(MeddlingLaw{&w.animator}, w.into(w.started));
  w.frames.give(0.1);
  EXPECT_EQ(w.animator.value(), 77);
  EXPECT_EQ(w.started, Reasons{interrupted});
  EXPECT_FALSE(w.frames.isWanted);
}

/// A law that ends the animator as soon as it is asked.
struct EndingLaw {
  using Value = double;
  std::unique_ptr<Animator<double>>* animator;
  SIMD2 acceleration(SIMD2, SIMD2) const { return {1, 0}; }
  Convergence<double> convergence(SIMD2, SIMD2) const {
    animator->reset();
    return Convergence<double>::keepRunning();
  }
};

TEST(Animator, WhatItAsksOfTheHostMayDestroyIt) {
  Frames frames;
  for (const bool isRunning : {false, true}) {
    auto animator = std::make_unique<Animator<double>>(0.0, frames.source);
    if (isRunning) animator->simulate(springTo(5));
    animator->simulate(EndingLaw{&animator}, [](CompletionReason) { ADD_FAILURE(); });
    EXPECT_FALSE(animator);
    EXPECT_FALSE(frames.isWanted);
  }
  // The asking for frames, of a source that nobody else holds.
  std::unique_ptr<Animator<double>> animator;
  animator = std::make_unique<Animator<double>>(0.0, FrameSource::hostDriven([&](bool isWanted) {
                                                  if (isWanted) animator.reset();
                                                }));
  animator->animate(1, 1, linear, [](CompletionReason) { ADD_FAILURE(); });
  EXPECT_FALSE(animator);
}

// ---- any sequence ----

/// Starts, cancels and throws at random, from outside and from inside of callbacks, and counts what
/// each start is told.
class Chaos {
 public:
  explicit Chaos(std::uint64_t seed) : random_(seed) {
    animator_.setOnChange([this](double) { meddle(); });
  }

  void run() {
    for (int i = 0; i < 300; ++i) {
      try {
        if (dice(3) == 0)
          act();
        else
          frames_.give(0.01 * (1 + dice(30)));
      } catch (const std::logic_error&) {
      }
      check();
    }
  }

 private:
  int dice(int sides) { return std::uniform_int_distribution(0, sides - 1)(random_); }

  Animator<double>::Completion completion() {
    completions_.emplace_back();
    return [this, id = completions_.size() - 1](CompletionReason reason) {
      completions_[id].push_back(reason);
      meddle();
    };
  }

  void act() {
    const double to = dice(5);
    switch (dice(6)) {
      case 0:
        return animator_.animate(to, 0.1 * dice(4), linear, completion());
      case 1:
        return animator_.simulate(springTo(to), dice(100), completion());
      case 2:
        return animator_.simulate(springTo(to), completion());
      case 3:
        return animator_.simulate(DecayFunction<double>(0.5, 10), completion());
      case 4:
        return animator_.cancelRunningAnimation();
      default:
        return animator_.setValue(to);
    }
  }

  void meddle() {
    if (depth_ > 3) return;
    ++depth_;
    const std::shared_ptr<void> leave(nullptr, [this](void*) { --depth_; });
    if (dice(3) == 0) act();
    if (dice(6) == 0) throw std::logic_error("thrown on purpose");
  }

  /// Every start but the one in force has ended once; that one not at all.
  void check() {
    std::size_t open = 0;
    for (const auto& reasons : completions_) {
      ASSERT_LE(reasons.size(), 1U);
      if (reasons.empty()) ++open;
    }
    ASSERT_EQ(open, frames_.isWanted ? 1U : 0U);
  }

  std::mt19937_64 random_;
  Frames frames_;
  Animator<double> animator_{0.0, frames_.source};
  std::vector<Reasons> completions_;
  int depth_ = 0;
};

TEST(Animator, EveryStartEndsExactlyOnceInAnySequence) {
  testing::internal::CaptureStderr();  // what frames tell of exceptions
  std::uint64_t seed = 1;
  for (; seed <= 300 && !testing::Test::HasFailure(); ++seed) Chaos(seed).run();
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(seed, 301U) << "failed with the seed before";
}

TEST(AnimatorDeath, OffTheMainQueueTheOperationIsNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Frames frames;
  Animator<double> animator(0.0, frames.source);
  const auto elsewhere = [](auto action) { std::thread(action).join(); };
  EXPECT_DEATH(elsewhere([&] { animator.animate(1, 1, linear, {}); }),
               "Animator::animate is called off the main queue");
  EXPECT_DEATH(elsewhere([&] { animator.simulate(springTo(1)); }), "Animator::simulate is");
  EXPECT_DEATH(elsewhere([&] { animator.simulate(springTo(1), 1.0); }), "Animator::simulate is");
  EXPECT_DEATH(elsewhere([&] { animator.cancelRunningAnimation(); }), "::cancelRunningAnimation");
  EXPECT_DEATH(elsewhere([&] { animator.setValue(1); }), "Animator::setValue");
  EXPECT_DEATH(elsewhere([&] { static_cast<void>(animator.value()); }), "Animator::value");
  EXPECT_DEATH(elsewhere([&] { static_cast<void>(animator.velocity()); }), "Animator::velocity");
  EXPECT_DEATH(elsewhere([] { Animator<double> made(0.0); }), "Animator::Animator");
  elsewhere([&] { animator.setOnChange(animator.onChange()); });  // no such demand
}

}  // namespace
}  // namespace tessarine
