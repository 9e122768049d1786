#include "MotionRun.hpp"

#include <algorithm>
#include <cmath>

#include "Command.hpp"
#include "tessarine/animation.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"

namespace tessarine::tool {
namespace {

using Lanes = MotionInput::Lanes;

template <class Value>
Value valueFrom(const Lanes& lanes) {
  if constexpr (std::is_same_v<Value, double>)
    return lanes[0];
  else if constexpr (std::is_same_v<Value, CGPoint>)
    return {lanes[0], lanes[1]};
  else
    return {{lanes[0], lanes[1]}, {lanes[2], lanes[3]}};
}

template <class Value>
Lanes lanesOf(const Value& value, std::size_t count) {
  const auto vector = vectorOf(value);
  Lanes lanes(count);
  for (std::size_t i = 0; i < count; ++i) lanes[i] = vector[i];
  return lanes;
}

/// Feeds frames to what moves and writes down where it is.
class Stage {
 public:
  explicit Stage(const MotionInput& input) : input_(input) {}

  const std::shared_ptr<FrameSource>& frames() const { return frames_; }

  /// `change` is told the time of each frame before it is fed, and answers when it has to be told
  /// again even if nothing moves.
  template <class Moved, class Change>
  MotionRun run(Moved& moved, double lastChange, Change change) {
    constexpr double mostFrames = 10'000'000;
    const double end = input_.seconds.value_or(lastChange + longestMotion);
    // A frame that falls on the end belongs to it, whatever its product with the span rounds to.
    const double frames = std::floor(end / input_.frame + 1e-9);
    if (!(frames <= mostFrames)) throw UsageError("too many frames");
    MotionRun run;
    write(run, 0, moved);
    for (int n = 1; n <= frames; ++n) {
      const bool isToChange = change(n * input_.frame);
      if (!isMoving_ && !isToChange) break;
      // The span is the given one to the last bit.
      frames_->frame({0, input_.frame});
      MainQueue::drain();
      write(run, n * input_.frame, moved);
    }
    run.rests = !isMoving_;
    return run;
  }

 private:
  template <class Moved>
  void write(MotionRun& run, double time, const Moved& moved) const {
    run.rows.push_back({time, lanesOf(moved.value(), input_.from.size()),
                        lanesOf(moved.velocity(), input_.from.size())});
  }

  const MotionInput& input_;
  bool isMoving_ = false;
  const std::shared_ptr<FrameSource> frames_ =
      FrameSource::hostDriven([this](bool isWanted) { isMoving_ = isWanted; });
};

template <class Value>
MotionRun tween(const MotionInput& input) {
  Stage stage(input);
  Animator<Value> animator(valueFrom<Value>(input.from), stage.frames());
  animator.animate(valueFrom<Value>(input.to), input.duration, input.curve, {});
  return stage.run(animator, std::max(0.0, input.duration), [](double) { return false; });
}

template <class Value>
MotionRun spring(const MotionInput& input) {
  Stage stage(input);
  Spring<Value> spring(valueFrom<Value>(input.from), stage.frames());
  spring.setTension(input.tension);
  spring.setDamping(input.damping);
  spring.setThreshold(input.threshold);
  spring.setTarget(valueFrom<Value>(input.to));
  if (input.velocity) spring.setVelocity(valueFrom<Value>(*input.velocity));
  auto next = input.retargets.begin();
  const double last = input.retargets.empty() ? 0 : input.retargets.back().time;
  return stage.run(spring, last, [&](double time) {
    for (; next != input.retargets.end() && next->time < time; ++next)
      spring.setTarget(valueFrom<Value>(next->target));
    return next != input.retargets.end();
  });
}

template <class Value>
MotionRun decay(const MotionInput& input) {
  Stage stage(input);
  Animator<Value> animator(valueFrom<Value>(input.from), stage.frames());
  animator.simulate(DecayFunction<Value>(input.threshold, input.drag),
                    valueFrom<Value>(*input.velocity));
  return stage.run(animator, 0, [](double) { return false; });
}

std::string numbered(const char* name, std::size_t lane, std::size_t count) {
  std::string text(name);
  if (count > 1) text.append(" ").append(std::to_string(lane + 1));
  return text;
}

}  // namespace

MotionRun runTween(const MotionInput& input) {
  if (input.from.size() == 1) return tween<double>(input);
  return input.from.size() == 2 ? tween<CGPoint>(input) : tween<CGRect>(input);
}

MotionRun runSpring(const MotionInput& input) {
  if (input.from.size() == 1) return spring<double>(input);
  return input.from.size() == 2 ? spring<CGPoint>(input) : spring<CGRect>(input);
}

MotionRun runDecay(const MotionInput& input) {
  if (input.from.size() == 1) return decay<double>(input);
  return input.from.size() == 2 ? decay<CGPoint>(input) : decay<CGRect>(input);
}

Plot motionPlot(const std::string& title, const MotionRun& run,
                const std::vector<std::pair<double, double>>& target) {
  Plot plot{
      .title = title, .xLabel = "time (s)", .panels = {{"value", {}}, {"velocity (1/s)", {}}}};
  const std::size_t lanes = run.rows.front().value.size();
  for (std::size_t lane = 0; lane < lanes; ++lane) {
    Plot::Series value{.name = numbered("value", lane, lanes), .points = {}};
    Plot::Series velocity{.name = numbered("velocity", lane, lanes), .points = {}};
    for (const auto& row : run.rows) {
      value.points.emplace_back(row.time, row.value[lane]);
      velocity.points.emplace_back(row.time, row.velocity[lane]);
    }
    plot.panels[0].series.push_back(std::move(value));
    plot.panels[1].series.push_back(std::move(velocity));
  }
  if (!target.empty())
    plot.panels[0].series.push_back({.name = "target", .points = target, .isDashed = true});
  return plot;
}

}  // namespace tessarine::tool
