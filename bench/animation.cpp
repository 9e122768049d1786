// Curves, springs and frames. What the rows time:
//   curve    the y of a cubic timing curve for 1024 x of [0, 1] in random order, and an x; beside
//            QEasingCurve with the same curve. `error` is the greatest distance from the exact y
//   step     one Runge-Kutta step of 8 ms of a spring: one spring through ten steps a frame, or
//            one, beside hand-written code on plain doubles, and beside 18 additions of which
//            each needs the one before, as many as the longest chain of the method has operations
//   frame    one frame of 16.7 ms of one running animator, callback and all
//   springs  one such frame of 10 000 running springs on one source
//   link     how late the main queue takes a frame of the timer, over 5 s, on whatever else the
//            machine does; `timer`: how late its thread had it; `unhindered`: without the time for
//            which the two threads, woken and ready, waited for a core that others had; and how
//            late a thread is that does nothing but sleep to such frames

#include "tessarine/animation.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "allocations.hpp"
#include "tessarine/system/dispatch/Clock.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>

#ifdef TESSARINE_BENCH_QT
#include <QEasingCurve>
#include <QPointF>
#endif

namespace {

using namespace tessarine;

constexpr std::size_t inputCount = 1024;
constexpr double frameTime = 1.0 / 60.0;
constexpr int stepsOfFrame = 10;

const std::vector<double>& inputs() {
  static const auto made = [] {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> spread(0, 1);
    std::vector<double> values(inputCount);
    for (double& each : values) each = spread(random);
    return values;
  }();
  return made;
}

struct NamedCurve {
  const char* name;
  UnitBezier curve;
};
const std::array<NamedCurve, 3> curves{{{"ease", {0.25, 0.1, 0.25, 1}},
                                        {"ease-in-out", {0.42, 0, 0.58, 1}},
                                        {"steep", {0.9, 0, 0.1, 1}}}};

/// The curve's y in extended precision, by bisection.
double exactY(const UnitBezier& curve, double x) {
  const auto sample = [](long double first, long double second, long double t) {
    const long double u = 1 - t;
    return 3 * u * u * t * first + 3 * u * t * t * second + t * t * t;
  };
  long double low = 0;
  long double high = 1;
  for (int i = 0; i < 70; ++i) {
    const long double middle = (low + high) / 2;
    (sample(curve.first.x, curve.second.x, middle) < x ? low : high) = middle;
  }
  return static_cast<double>(sample(curve.first.y, curve.second.y, low));
}

template <class Solve>
void measureCurve(const std::string& name, const UnitBezier& curve, Solve solve) {
  benchmark::RegisterBenchmark(name.c_str(), [curve, solve](benchmark::State& state) {
    const std::vector<double>& xs = inputs();
    for (auto _ : state)
      for (const double x : xs) benchmark::DoNotOptimize(solve(x));
    state.counters["ns_per_x"] = benchmark::Counter(
        static_cast<double>(inputCount) * 1e-9,
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    double error = 0;
    for (const double x : xs) error = std::max(error, std::fabs(solve(x) - exactY(curve, x)));
    state.counters["error"] = error;
  });
}

void registerCurves() {
  for (const auto& [name, curve] : curves) {
    const std::string prefix = std::string("curve/") + name + "/";
    measureCurve(prefix + "UnitBezier 1e-3", curve,
                 [curve = curve](double x) { return curve.solve(x, 1e-3); });
    measureCurve(prefix + "UnitBezier 1e-6", curve,
                 [curve = curve](double x) { return curve.solve(x, 1e-6); });
#ifdef TESSARINE_BENCH_QT
    QEasingCurve peer(QEasingCurve::BezierSpline);
    peer.addCubicBezierSegment(QPointF(curve.first.x, curve.first.y),
                               QPointF(curve.second.x, curve.second.y), QPointF(1, 1));
    measureCurve(prefix + "QEasingCurve", curve,
                 [peer](double x) { return peer.valueForProgress(x); });
#endif
  }
}

// ---- steps ----

constexpr double tension = 120;

/// The same method on plain doubles.
template <int lanes>
struct PlainSpring {
  std::array<double, lanes> value{};
  std::array<double, lanes> velocity{};
  double target = 100;
  double damping = 0;

  void step(double h) {
    constexpr double sixth = 0.16666666666666666;
    for (int i = 0; i < lanes; ++i) {
      const double x = value[i];
      const double v = velocity[i];
      const auto pull = [&](double at, double speed) {
        return -tension * (at - target) - damping * speed;
      };
      const double dv1 = pull(x, v);
      const double dx2 = v + h * 0.5 * dv1;
      const double dv2 = pull(x + h * 0.5 * v, dx2);
      const double dx3 = v + h * 0.5 * dv2;
      const double dv3 = pull(x + h * 0.5 * dx2, dx3);
      const double dx4 = v + h * dv3;
      const double dv4 = pull(x + h * dx3, dx4);
      value[i] = x + h * (sixth * (v + 2 * (dx2 + dx3) + dx4));
      velocity[i] = v + h * (sixth * (dv1 + 2 * (dv2 + dv3) + dv4));
    }
  }
};

/// Undamped, so that it goes on.
template <class Value>
SpringFunction<Value> springTo(Value target) {
  return {target, tension, 0, 1e-9};
}

template <class Value>
void measureSteps(const std::string& lanes, Value target) {
  const auto add = [&](const std::string& name, double dt, int steps) {
    benchmark::RegisterBenchmark(
        (name + lanes).c_str(), [target, dt, steps](benchmark::State& state) {
          detail::Simulation<Value> simulation(springTo(target), zero<Value>(), zero<Value>());
          for (auto _ : state) simulation.advance(dt);
          benchmark::DoNotOptimize(simulation.value());
          state.counters["ns_per_step"] = benchmark::Counter(
              static_cast<double>(steps) * 1e-9,
              benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
        });
  };
  add("step/Simulation, ten a frame, ", 0.08, stepsOfFrame);
  add("step/Simulation, one a frame, ", 0.008, 1);
}

template <int lanes>
void measurePlain() {
  const std::string name =
      "step/hand-written, " + std::to_string(lanes) + (lanes == 1 ? " lane" : " lanes");
  benchmark::RegisterBenchmark(name.c_str(), [](benchmark::State& state) {
    PlainSpring<lanes> spring;
    benchmark::DoNotOptimize(spring);
    for (auto _ : state) {
      for (int i = 0; i < stepsOfFrame; ++i) spring.step(0.008);
      benchmark::DoNotOptimize(spring);
    }
    state.counters["ns_per_step"] = benchmark::Counter(
        static_cast<double>(stepsOfFrame) * 1e-9,
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  });
}

/// From the speed before a step to the speed after: the pull (2 operations), thrice the next speed
/// and its pull (4), and the mean (4). A product takes as long as an addition on common processors.
constexpr int operationsOfChain = 18;

void measureChain() {
  benchmark::RegisterBenchmark("step/18 additions in a chain", [](benchmark::State& state) {
    double summand = 1;
    benchmark::DoNotOptimize(summand);
    double sum = 0;
    for (auto _ : state)
      for (int step = 0; step < stepsOfFrame; ++step)
        for (int i = 0; i < operationsOfChain; ++i) sum += summand;
    benchmark::DoNotOptimize(sum);
    state.counters["ns_per_step"] = benchmark::Counter(
        static_cast<double>(stepsOfFrame) * 1e-9,
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  });
}

// ---- accuracy ----

/// The exact way from 0 to 1, from a standstill.
double exactSpring(double stiffness, double damping, double time) {
  const std::complex<double> half =
      std::sqrt(std::complex<double>(damping * damping / 4 - stiffness));
  const double mean = -damping / 2;
  if (std::abs(half) < 1e-9) return 1 + std::exp(mean * time) * (mean * time - 1);
  const auto motion = -std::cosh(half * time) + mean * std::sinh(half * time) / half;
  return 1 + std::exp(mean * time) * motion.real();
}

void registerAccuracy() {
  for (const double stiffness : {50.0, 120.0, 190.0, 500.0, 1000.0, 5000.0})
    for (const double ratio : {0.0, 0.1, 0.55, 1.0, 2.0}) {
      char name[64];
      std::snprintf(name, sizeof name, "accuracy/tension %g, ratio %g", stiffness, ratio);
      benchmark::RegisterBenchmark(name, [stiffness, ratio](benchmark::State& state) {
        const double damping = 2 * ratio * std::sqrt(stiffness);
        double worst = 0;
        for (auto _ : state) {
          detail::Simulation<double> spring(SpringFunction<double>(1, stiffness, damping, 0), 0, 0);
          for (int i = 1; i <= 250; ++i) {
            spring.advance(0.008);
            worst = std::max(
                worst, std::fabs(spring.value() - exactSpring(stiffness, damping, i * 0.008)));
          }
        }
        state.counters["error"] = worst;
      })->Iterations(1);
    }
}

// ---- frames ----

void giveFrame(FrameSource& frames) {
  frames.frame({0, frameTime});
  MainQueue::drain();
}

void countAllocations(benchmark::State& state, std::uint64_t before) {
  state.counters["allocations"] =
      static_cast<double>(allocations.load() - before) / static_cast<double>(state.iterations());
}

void registerFrames() {
  benchmark::RegisterBenchmark("frame/Animator, tween", [](benchmark::State& state) {
    const auto frames = FrameSource::hostDriven();
    Animator<CGPoint> animator({}, frames);
    double sum = 0;
    animator.setOnChange([&sum](CGPoint point) { sum += point.x; });
    animator.animate({100, 100}, 1e9, TimingFunction::ease(), {});
    giveFrame(*frames);
    const std::uint64_t before = allocations.load();
    for (auto _ : state) giveFrame(*frames);
    countAllocations(state, before);
  });
  benchmark::RegisterBenchmark("frame/Animator, spring", [](benchmark::State& state) {
    const auto frames = FrameSource::hostDriven();
    Animator<CGRect> animator({}, frames);
    double sum = 0;
    animator.setOnChange([&sum](const CGRect& rect) { sum += rect.origin.x; });
    animator.simulate(springTo(CGRect{{100, 100}, {100, 100}}));
    giveFrame(*frames);
    const std::uint64_t before = allocations.load();
    for (auto _ : state) giveFrame(*frames);
    countAllocations(state, before);
  });
  benchmark::RegisterBenchmark("springs/10 000, one frame", [](benchmark::State& state) {
    const auto frames = FrameSource::hostDriven();
    std::deque<Spring<CGPoint>> springs;
    double sum = 0;
    for (int i = 0; i < 10'000; ++i) {
      auto& spring = springs.emplace_back(CGPoint{}, frames);
      spring.setOnChange([&sum](CGPoint point) { sum += point.x; });
      spring.setDamping(0);
      spring.setTarget({100, 100});
    }
    giveFrame(*frames);
    const std::uint64_t before = allocations.load();
    for (auto _ : state) giveFrame(*frames);
    countAllocations(state, before);
  })->Unit(benchmark::kMicrosecond);
}

/// How long this thread has waited, ready to run, for a core that others had: microseconds, as the
/// system counts them; 0 where it does not.
double waitForCores() {
  thread_local const int file = open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC);
  std::array<char, 80> text{};
  if (pread(file, text.data(), text.size() - 1, 0) <= 0) return 0;
  char* end = nullptr;
  std::strtod(text.data(), &end);  // the time on a core comes first
  return std::strtod(end, nullptr) * 1e-3;
}

double microseconds(DispatchTime time) {
  return static_cast<double>(time.uptimeNanoseconds()) * 1e-3;
}

/// A link that notes what its thread goes through before the frame is handed on.
class WatchedLink final : public CVDisplayLink {
 public:
  void setOutputHandler(OutputHandler handler) override {
    link_->setOutputHandler(
        [this, handler = std::move(handler)](const CVTimeStamp& now, const CVTimeStamp& output) {
          arrived = microseconds(Clock::now());
          waited = waitForCores();
          return handler(now, output);
        });
  }
  void start() override { link_->start(); }
  void stop() override { link_->stop(); }

  // Written before the frame is put on the main queue, which reads them long before the next one.
  std::atomic<double> arrived{0};
  std::atomic<double> waited{0};

 private:
  const std::shared_ptr<CVDisplayLink> link_ = CVDisplayLinkCreateWithRefreshRate(60);
};

void count(benchmark::State& state, const std::string& name, std::vector<double> values) {
  std::sort(values.begin(), values.end());
  state.counters[name + "_median_us"] = values[values.size() / 2];
  state.counters[name + "_p99_us"] = values[values.size() * 99 / 100];
  state.counters[name + "_worst_us"] = values.back();
}

void registerLink() {
  benchmark::RegisterBenchmark(
      "link/lateness of 300 frames",
      [](benchmark::State& state) {
        const auto watched = std::make_shared<WatchedLink>();
        std::vector<double> late;
        std::vector<double> lateAtTimer;
        std::vector<double> unhindered;
        double waited = waitForCores();
        double waitedAtTimer = 0;
        DisplayLink link(std::make_shared<FrameSource>(watched));
        link.setOnFrame([&](const DisplayLink::Frame& frame) {
          const double before = waited + waitedAtTimer;
          late.push_back(microseconds(Clock::now()) - frame.previousTimestamp * 1e6);
          lateAtTimer.push_back(watched->arrived - frame.previousTimestamp * 1e6);
          waited = waitForCores();
          waitedAtTimer = watched->waited;
          unhindered.push_back(late.back() - (waited + waitedAtTimer - before));
          if (late.size() == 300) MainQueue::stop();
        });
        link.setIsPaused(false);
        for (auto _ : state) MainQueue::run();
        count(state, "main", late);
        count(state, "timer", lateAtTimer);
        // The first frame has no wait of the timer thread to compare with.
        unhindered.erase(unhindered.begin());
        count(state, "unhindered", unhindered);
      })
      ->Iterations(1)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

/// A thread that does nothing but sleep to the frames of a 60 Hz clock: what the machine allows.
void registerSleeper() {
  benchmark::RegisterBenchmark(
      "link/lateness of a sleeper",
      [](benchmark::State& state) {
        prctl(PR_SET_TIMERSLACK, 1UL);
        constexpr long second = 1'000'000'000;
        timespec deadline{};
        clock_gettime(CLOCK_MONOTONIC, &deadline);
        std::vector<double> late;
        for (auto _ : state) {
          while (late.size() < 300) {
            deadline.tv_nsec += second / 60;
            if (deadline.tv_nsec >= second) {
              deadline.tv_nsec -= second;
              ++deadline.tv_sec;
            }
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr);
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            late.push_back(static_cast<double>(now.tv_sec - deadline.tv_sec) * 1e6 +
                           static_cast<double>(now.tv_nsec - deadline.tv_nsec) * 1e-3);
          }
        }
        prctl(PR_SET_TIMERSLACK, 0UL);  // back to what the thread began with
        count(state, "sleeper", late);
      })
      ->Iterations(1)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
#ifndef NDEBUG
  std::puts("WARNING: a debug build; its figures mean nothing");
#endif
#ifndef TESSARINE_BENCH_QT
  std::puts("Qt was absent at build time: its rows are skipped");
#endif
  registerCurves();
  measureSteps("1 lane", 100.0);
  measureSteps("2 lanes", CGPoint{100, 100});
  measureSteps("4 lanes", CGRect{{100, 100}, {100, 100}});
  measurePlain<1>();
  measurePlain<2>();
  measurePlain<4>();
  measureChain();
  registerAccuracy();
  registerFrames();
  registerLink();
  registerSleeper();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
