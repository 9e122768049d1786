#include "tour/AnimationChapter.hpp"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "SvgPlot.hpp"
#include "tessarine/animation.hpp"
#include "tessarine/system/dispatch/Clock.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"

namespace tessarine::tool {
namespace {

constexpr double firstTarget = 100;
constexpr double secondTarget = -40;
constexpr double change = 0.25;    // seconds until the target changes
constexpr double tweenTime = 0.6;  // seconds a tween
constexpr double wholeTime = 2.0;  // seconds of the chapter, more if something still moves
constexpr double longestTime = 10;
constexpr int springCount = 10'000;

double now() { return static_cast<double>(Clock::now().uptimeNanoseconds()) * 1e-9; }

/// What both did, by the time of the frames.
struct Flight {
  Plot::Series spring{.name = "spring", .points = {}};
  Plot::Series tween{.name = "tween", .points = {}};
  Plot::Series target{.name = "target", .points = {}, .isDashed = true};
  Plot::Series springSpeed{.name = "spring", .points = {}};
  Plot::Series tweenSpeed{.name = "tween", .points = {}};
  std::vector<double> lateness;  // seconds from the refresh to the call
  double springEnd = 0;
  double tweenEnd = 0;
  int finished = 0;
  int interrupted = 0;
};

Flight fly() {
  Flight flight;
  const auto frames = std::make_shared<FrameSource>();
  Spring<double> spring(0.0, frames);
  Animator<double> tween(0.0, frames);
  const auto count = [&](CompletionReason reason) {
    ++(reason == CompletionReason::finished ? flight.finished : flight.interrupted);
  };
  const auto aim = [&](double target) {
    spring.setTarget(target);
    tween.animate(target, tweenTime, TimingFunction::easeInEaseOut(), count);
  };
  double time = 0;
  double target = firstTarget;
  // Joins last, so that it sees what the frame has done.
  aim(target);
  DisplayLink watcher(frames);
  watcher.setOnFrame([&](const DisplayLink::Frame& frame) {
    flight.lateness.push_back(now() - frame.previousTimestamp);
    time += frame.timestamp - frame.previousTimestamp;
    flight.spring.points.emplace_back(time, spring.value());
    flight.tween.points.emplace_back(time, tween.value());
    flight.springSpeed.points.emplace_back(time, spring.velocity());
    flight.tweenSpeed.points.emplace_back(time, tween.velocity());
    flight.target.points.emplace_back(time, target);
    if (target == firstTarget && time >= change) {
      flight.target.points.emplace_back(time, secondTarget);
      aim(target = secondTarget);
    }
    // On a machine that stalls, the spring takes longer: of a long frame 80 ms count.
    const bool rests = flight.finished == 1 && spring.value() == target;
    if ((time >= wholeTime && rests) || time >= longestTime) MainQueue::stop();
  });
  watcher.setIsPaused(false);
  MainQueue::run();
  flight.springEnd = spring.value();
  flight.tweenEnd = tween.value();
  std::sort(flight.lateness.begin(), flight.lateness.end());
  return flight;
}

/// Microseconds that one frame of many springs takes.
double microsecondsOfManySprings() {
  const auto frames = FrameSource::hostDriven();
  std::vector<std::unique_ptr<Spring<CGPoint>>> springs;
  springs.reserve(springCount);
  for (int i = 0; i < springCount; ++i) {
    springs.push_back(std::make_unique<Spring<CGPoint>>(CGPoint{}, frames));
    springs.back()->setTarget({firstTarget, static_cast<double>(i)});
  }
  constexpr int count = 20;
  const double begin = now();
  for (int i = 0; i < count; ++i) {
    frames->frame({0, 1.0 / 60});
    MainQueue::drain();
  }
  return (now() - begin) * 1e6 / count;
}

}  // namespace

bool writeAnimationChapter(Report& report) {
  report.chapter("A spring beside a tween");
  const Flight flight = fly();
  report.text(
      "Two values set out for 100, one on a spring, one as a tween of 0.6 s. In flight the target "
      "becomes -40. The spring takes its speed along; the tween is interrupted, and the next one "
      "begins from a standstill.");
  report.figure(svgPlot({.title = "A new target in flight",
                         .xLabel = "time (s)",
                         .panels = {{"value", {flight.spring, flight.tween, flight.target}},
                                    {"velocity (1/s)", {flight.springSpeed, flight.tweenSpeed}}}}),
                "Every point is a frame of the display link as it ran here.");
  const auto late = [&](double part) {
    const auto place = part * static_cast<double>(flight.lateness.size() - 1);
    return fixed(flight.lateness[static_cast<std::size_t>(place)] * 1e6, 0);
  };
  report.table(
      {{"Measured here", ""},
       {"Frames", std::to_string(flight.lateness.size())},
       {"Median lateness of a frame, microseconds", late(0.5)},
       {"99th percentile, microseconds", late(0.99)},
       {"Tweens that were interrupted", std::to_string(flight.interrupted)},
       {"Tweens that finished", std::to_string(flight.finished)},
       {"Where the spring rests", fixed(flight.springEnd, 3)},
       {"Where the tween rests", fixed(flight.tweenEnd, 3)},
       {"One frame of 10 000 springs, microseconds", fixed(microsecondsOfManySprings(), 0)}});
  return flight.interrupted == 1 && flight.finished == 1 && flight.springEnd == secondTarget &&
         std::fabs(flight.tweenEnd - secondTarget) < 1e-9;
}

}  // namespace tessarine::tool
