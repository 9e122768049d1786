#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "SvgPlot.hpp"
#include "tessarine/animation/TimingFunction.hpp"

namespace tessarine::tool {

/// What is moved and which frames it is fed. All values have 1, 2 or 4 lanes, the same number.
struct MotionInput {
  using Lanes = std::vector<double>;
  struct Retarget {
    double time;
    Lanes target;
  };

  Lanes from;
  Lanes to;                       // of a tween and a spring
  std::optional<Lanes> velocity;  // of a spring and a decay
  double duration = 0;
  TimingFunction curve = TimingFunction::linear();
  double tension = 0;
  double damping = 0;
  double threshold = 0;
  double drag = 0;
  std::vector<Retarget> retargets;
  double frame = 1.0 / 60.0;      // seconds, above 0
  std::optional<double> seconds;  // frames up to there; until it rests when absent
};

/// A motion as a host sees it: the start, then each frame.
struct MotionRun {
  struct Row {
    double time;
    std::vector<double> value;
    std::vector<double> velocity;
  };
  std::vector<Row> rows;
  bool rests = false;  // at the last row
};

/// How long a motion without a given end is waited for after its last change, in seconds.
inline constexpr double longestMotion = 60;

// Each drives the library's own animators by hand, frame by frame, on the main thread.
MotionRun runTween(const MotionInput& input);
MotionRun runSpring(const MotionInput& input);
MotionRun runDecay(const MotionInput& input);

/// Value and velocity over time, with `target` drawn beside the value when there is one.
Plot motionPlot(const std::string& title, const MotionRun& run,
                const std::vector<std::pair<double, double>>& target = {});

}  // namespace tessarine::tool
