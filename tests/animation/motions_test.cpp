#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "tessarine/animation/Animation.hpp"
#include "tessarine/animation/DecayFunction.hpp"
#include "tessarine/animation/Simulation.hpp"
#include "tessarine/animation/SpringFunction.hpp"

#include <gtest/gtest.h>

namespace tessarine {

/// A type of a host.
struct Color {
  double red = 0, green = 0, blue = 0, alpha = 0;
  bool operator==(const Color&) const = default;
};
template <>
struct VectorConversion<Color> {
  using VectorType = SIMD4;
  static VectorType vector(const Color& c) { return {c.red, c.green, c.blue, c.alpha}; }
  static Color value(VectorType v) { return {v[0], v[1], v[2], v[3]}; }
};

namespace {

using detail::Animation;
using detail::Simulation;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double step = Simulation<double>::timeStep;

static_assert(VectorConvertible<double> && VectorConvertible<float> && VectorConvertible<CGPoint>);
static_assert(VectorConvertible<CGSize> && VectorConvertible<CGVector> &&
              VectorConvertible<CGRect> && VectorConvertible<Color>);
static_assert(!VectorConvertible<int>, "has no conversion");
static_assert(SimulationFunctionOf<SpringFunction<Color>, Color>);
static_assert(!SimulationFunctionOf<DecayFunction<CGPoint>, CGVector>);

template <class Value>
std::vector<double> lanesOf(const Value& value) {
  const auto vector = vectorOf(value);
  std::vector<double> lanes;
  lanes.reserve(vector.scalarCount);
  for (std::size_t i = 0; i < vector.scalarCount; ++i) lanes.push_back(vector[i]);
  return lanes;
}

TEST(VectorConvertible, LanesStandInOrderAndComeBack) {
  EXPECT_EQ(lanesOf(2.5), (std::vector{2.5, 0.0}));
  EXPECT_EQ(lanesOf(0.1F), (std::vector{static_cast<double>(0.1F), 0.0}));
  EXPECT_EQ(lanesOf(CGPoint{1, 2}), (std::vector{1.0, 2.0}));
  EXPECT_EQ(lanesOf(CGSize{.width = 1, .height = 2}), (std::vector{1.0, 2.0}));
  EXPECT_EQ(lanesOf(CGVector{.dx = 1, .dy = 2}), (std::vector{1.0, 2.0}));
  EXPECT_EQ(lanesOf(CGRect{{1, 2}, {3, 4}}), (std::vector{1.0, 2.0, 3.0, 4.0}));
  const auto comesBack = [](const auto& value) {
    return valueOf<std::decay_t<decltype(value)>>(vectorOf(value)) == value;
  };
  EXPECT_TRUE(comesBack(0.1) && comesBack(0.1F) && comesBack(CGPoint{1, 2}));
  EXPECT_TRUE(comesBack(CGSize{1, 2}) && comesBack(CGVector{1, 2}));
  EXPECT_TRUE(comesBack(CGRect{{1, 2}, {3, 4}}) && comesBack(Color{1, 2, 3, 4}));
  EXPECT_EQ(zero<CGRect>(), CGRect());
  EXPECT_EQ(zero<float>(), 0.0F);
}

TEST(SIMD, ClampTreatsEachLaneAndLeavesNotANumber) {
  const SIMD4 clamped = clamp(SIMD4(-5, nan, 5, 0.5), SIMD4::filledWith(-1), SIMD4::filledWith(1));
  EXPECT_EQ(clamped[0], -1);
  EXPECT_TRUE(std::isnan(clamped[1]));
  EXPECT_EQ(clamped[2], 1);
  EXPECT_EQ(clamped[3], 0.5);
  EXPECT_EQ(clamp(SIMD2(0, 7), SIMD2(1, nan), SIMD2(-1, nan)), SIMD2(1, 7)) << "min comes first";
  EXPECT_FALSE(clamped == clamped) << "not a number is unequal";
}

// ---- tweens ----

TEST(Animation, StepsAsTheFormulaHasIt) {
  Animation<double> tween(0.0, 1.0, 0.2, TimingFunction::linear());
  EXPECT_EQ(tween.value(), 0.0);
  EXPECT_EQ(tween.velocity(), 0.0);
  EXPECT_FALSE(tween.isFinished());
  for (const double value : {0.5, 1.0}) {
    tween.advance(0.1);
    EXPECT_EQ(tween.value(), value);
    EXPECT_EQ(tween.velocity(), 5.0);
  }
  EXPECT_TRUE(tween.isFinished());

  Animation<CGPoint> curved({10, 20}, {20, 0}, 2, TimingFunction::swiftOut());
  double before = 10;
  for (int i = 1; i <= 25; ++i) {
    curved.advance(0.1);
    const double eased = TimingFunction::swiftOut().solve(std::min(i * 0.1 / 2, 1.0), 1 / 2000.0);
    EXPECT_NEAR(curved.value().x, 10 + 10 * eased, 1e-12);
    EXPECT_NEAR(curved.velocity().x, (curved.value().x - before) / 0.1, 1e-9);
    before = curved.value().x;
  }
  EXPECT_EQ(curved.value(), (CGPoint{20, 0}));
}

TEST(Animation, OddDurationsAndSpans) {
  struct Row {
    double duration, dt, value;
    bool isFinished;
  };
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const auto& [duration, dt, value, isFinished] :
       {Row{0, 0.1, 10, true}, Row{0.05, 7, 10, true}, Row{-1, 0.1, 0, true},
        Row{-infinity, 0.1, 0, true}, Row{infinity, 1e9, 0, false}, Row{1, -0.5, 0, false}})
    for (const TimingFunction timing : {TimingFunction::linear(), TimingFunction::ease()}) {
      Animation<double> tween(0, 10, duration, timing);
      tween.advance(dt);
      EXPECT_EQ(tween.value(), value) << duration;
      EXPECT_EQ(tween.isFinished(), isFinished) << duration;
      EXPECT_DOUBLE_EQ(tween.velocity(), value / dt);
    }
  Animation<double> unknown(0, 10, nan, TimingFunction::ease());
  unknown.advance(0.1);
  EXPECT_TRUE(std::isnan(unknown.value()) && !unknown.isFinished());
  Animation<float> narrow(0.0F, 1.0F, 3, TimingFunction::linear());
  narrow.advance(1);
  EXPECT_EQ(narrow.velocity(), 1.0F / 3) << "the speed of what is shown, rounded";
}

// ---- laws ----

/// The exact motion of a spring that begins at 0 with speed `speed` and ends at 1.
double exactSpring(double tension, double damping, double speed, double time) {
  using Complex = std::complex<double>;
  const Complex half = std::sqrt(Complex(damping * damping / 4 - tension));
  const double mean = -damping / 2;
  if (std::abs(half) < 1e-9) return 1 + std::exp(mean * time) * (-1 + (speed + mean) * time);
  // -1 at time 0, and the given speed there.
  const Complex sinh = std::sinh(half * time) / half;
  return 1 + std::exp(mean * time) * (-std::cosh(half * time) + (speed + mean) * sinh).real();
}

/// The greatest distance from the exact motion over 2 seconds, in parts of the way.
double springError(double tension, double damping, double speed) {
  Simulation<double> simulation(SpringFunction<double>(1, tension, damping, 0), 0, speed);
  double worst = 0;
  for (int i = 1; i <= 250; ++i) {
    simulation.advance(step);
    const double error =
        std::fabs(simulation.value() - exactSpring(tension, damping, speed, i * step));
    if (!(error <= worst)) worst = error;
  }
  return worst;
}

TEST(SpringFunction, FollowsTheExactSpring) {
  EXPECT_LT(springError(120, 12, 0), 1e-5) << "the defaults";
  EXPECT_GT(springError(120, 12, 0), 1e-8) << "so an error of the method would show";
  // The range that the guide names.
  for (int tension = 10; tension <= 190; tension += 10)
    for (int tenths = 1; tenths <= 20; ++tenths)
      EXPECT_LT(springError(tension, 2 * 0.1 * tenths * std::sqrt(tension), 0), 1e-5)
          << tension << " " << tenths;
  EXPECT_LT(springError(120, 2 * std::sqrt(120.0), 5), 1e-5) << "critical, with a speed";
}

TEST(SpringFunction, ItsStepIsStableAsFarAsTheMethodIs) {
  const auto growth = [](double tension, double damping) {
    Simulation<double> simulation(SpringFunction<double>(0, tension, damping, -1), 1, 0);
    for (int i = 0; i < 20'000; ++i) simulation.advance(step);
    return std::fabs(simulation.value()) + std::fabs(simulation.velocity());
  };
  EXPECT_LT(growth(120'000, 0), 1e3);
  EXPECT_FALSE(growth(130'000, 0) < 1e6) << "grows, at last to what is no number";
  EXPECT_LT(growth(1, 345), 1e3);
  EXPECT_FALSE(growth(1, 355) < 1e6);
}

TEST(DecayFunction, FollowsTheExactThrow) {
  Simulation<double> thrown(DecayFunction<double>(1e-6, 3), 5, 100);
  for (int i = 1; i <= 125; ++i) {
    thrown.advance(step);
    EXPECT_NEAR(thrown.value(), 5 + 100 / 3.0 * (1 - std::exp(-3 * i * step)), 1e-6);
  }
  for (int i = 0; i < 10'000 && !thrown.hasConverged(); ++i) thrown.advance(0.1);
  EXPECT_NEAR(thrown.value(), 5 + 100 / 3.0, 1e-5);
  EXPECT_EQ(thrown.velocity(), 0);
  EXPECT_TRUE(Simulation<double>(DecayFunction<double>(1, 3), 5, 0).hasConverged());
}

/// The method once more, on single doubles and in the order that fixes its rounding.
struct PlainSpring {
  double target, tension, damping, value, velocity;

  double pull(double x, double v) const { return -tension * (x - target) - damping * v; }
  void advance(double h) {
    const double va = velocity + 0.0;
    const double aa = pull(value + 0.0, va);
    const double vb = velocity + h * 0.5 * aa;
    const double ab = pull(value + h * 0.5 * va, vb);
    const double vc = velocity + h * 0.5 * ab;
    const double ac = pull(value + h * 0.5 * vb, vc);
    const double vd = velocity + h * ac;
    const double ad = pull(value + h * vc, vd);
    value += h * (0.16666666666666666 * (va + 2.0 * (vb + vc) + vd));
    velocity += h * (0.16666666666666666 * (aa + 2.0 * (ab + ac) + ad));
  }
};

TEST(Simulation, EveryLaneRoundsAsPlainDoublesDo) {
  std::mt19937_64 random(3);
  std::uniform_real_distribution<double> any(-1000, 1000);
  for (int run = 0; run < 200; ++run) {
    const Color target{any(random), any(random), any(random), any(random)};
    const Color from{any(random), any(random), any(random), any(random)};
    const Color speed{any(random), any(random), any(random), any(random)};
    const double tension = std::fabs(any(random));
    const double damping = std::fabs(any(random)) / 50;
    Simulation<Color> simulation(SpringFunction<Color>(target, tension, damping, 0), from, speed);
    std::vector<PlainSpring> plain;
    for (std::size_t lane = 0; lane < 4; ++lane)
      plain.push_back(
          {vectorOf(target)[lane], tension, damping, vectorOf(from)[lane], vectorOf(speed)[lane]});
    for (int i = 0; i < 50; ++i) {
      simulation.advance(step);
      for (std::size_t lane = 0; lane < 4; ++lane) {
        plain[lane].advance(step);
        ASSERT_EQ(vectorOf(simulation.value())[lane], plain[lane].value) << run;
        ASSERT_EQ(vectorOf(simulation.velocity())[lane], plain[lane].velocity) << run;
      }
    }
  }
}

TEST(Simulation, MovesTheSameWhateverTheFrames) {
  // The states at each step, between which every frame rate shows the line.
  std::vector<double> states;
  Simulation<double> stepped(SpringFunction<double>(100, 120, 12, 0), 0, 0);
  for (int i = 0; i <= 260; ++i) {
    states.push_back(stepped.value());
    stepped.advance(step);
  }
  std::mt19937_64 random(4);
  std::uniform_real_distribution<double> jitter(0.001, 0.05);
  for (const double rate : {30.0, 59.94, 60.0, 75.0, 120.0, 144.0, 240.0, 0.0}) {
    Simulation<double> shown(SpringFunction<double>(100, 120, 12, 0), 0, 0);
    double time = 0;
    while (time < 1.9) {
      const double dt = rate > 0 ? 1 / rate : jitter(random);
      shown.advance(dt);
      time += dt;
      const double at = time / step;
      const auto below = static_cast<std::size_t>(at);
      const double between =
          states[below] + (states[below + 1] - states[below]) * (at - static_cast<double>(below));
      // A frame between two steps that took none shows the step ahead of it.
      if (std::fabs(shown.value() - states[below + 1]) < 1e-12 && dt < step) continue;
      ASSERT_NEAR(shown.value(), between, 1e-9) << rate << " Hz at " << time;
    }
  }
}

/// Counts the steps that are taken: four evaluations each.
struct CountingLaw {
  using Value = double;
  std::shared_ptr<int> evaluations;
  SIMD2 acceleration(SIMD2, SIMD2) const {
    ++*evaluations;
    return {1, 0};
  }
  Convergence<double> convergence(SIMD2, SIMD2) const { return Convergence<double>::keepRunning(); }
};

TEST(Simulation, AFrameTakesAsManyStepsAsItNeedsAndNoMoreThanTen) {
  const auto evaluations = std::make_shared<int>(0);
  const auto stepsOf = [&](Simulation<double>& simulation, double dt) {
    *evaluations = 0;
    simulation.advance(dt);
    return *evaluations / 4;
  };
  for (const double dt : {1.0, 3600.0, 0.08, std::numeric_limits<double>::infinity()}) {
    Simulation<double> simulation(CountingLaw{evaluations}, 0, 0);
    const int steps = stepsOf(simulation, dt);
    EXPECT_TRUE(steps == 10 || steps == 11) << dt << ": " << steps;
    EXPECT_LE(stepsOf(simulation, 0), 1);
  }
  Simulation<double> sixty(CountingLaw{evaluations}, 0, 0);
  int all = 0;
  for (int i = 0; i < 600; ++i) {
    const int steps = stepsOf(sixty, 1 / 60.0);
    EXPECT_TRUE(steps == 2 || steps == 3) << steps;
    all += steps;
  }
  EXPECT_EQ(all, 1250);
  Simulation<double> fast(CountingLaw{evaluations}, 0, 0);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(stepsOf(fast, 0.004), 1 - i % 2);
}

TEST(Simulation, AFrameCopiesNoLawThatMayAllocate) {
  const auto copies = std::make_shared<int>(0);
  struct Law {
    using Value = double;
    explicit Law(std::shared_ptr<int> counter) : copies(std::move(counter)) {}
    Law(const Law& other) : copies(other.copies) { ++*copies; }
    Law& operator=(const Law&) = default;
    ~Law() = default;
    SIMD2 acceleration(SIMD2, SIMD2) const { return {1, 0}; }
    Convergence<double> convergence(SIMD2, SIMD2) const {
      return Convergence<double>::keepRunning();
    }
    std::shared_ptr<int> copies;
  };
  Simulation<double> simulation(Law{copies}, 0, 0);
  *copies = 0;
  simulation.advance(0.08);
  EXPECT_EQ(*copies, 0);
}

TEST(Simulation, RestsByTheThreshold) {
  const auto converged = [](double threshold, double value, double velocity) {
    return Simulation<double>(SpringFunction<double>(1, 120, 12, threshold), value, velocity)
        .hasConverged();
  };
  EXPECT_TRUE(converged(0.25, 1.25, -0.25)) << "the bounds belong to it";
  EXPECT_FALSE(converged(0.25, 1.26, 0));
  EXPECT_FALSE(converged(0.25, 1, 0.26));
  EXPECT_TRUE(converged(0, 1, 0));
  EXPECT_FALSE(converged(-1, 1, 0)) << "a negative one is never reached";
  EXPECT_FALSE(converged(0.25, nan, 0));
  EXPECT_FALSE(converged(0.25, 1, nan));
  Simulation<CGPoint> near(SpringFunction<CGPoint>({1, 2}, 120, 12, 0.1), {1.05, 2}, {0, 0.1});
  EXPECT_EQ(near.value(), (CGPoint{1, 2})) << "on the target itself";
  near.advance(1);
  EXPECT_EQ(near.velocity(), CGPoint());
  near.use(SpringFunction<CGPoint>({5, 5}, 120, 12, 0.1));
  EXPECT_FALSE(near.hasConverged());
  near.advance(0.02);
  EXPECT_GT(near.value().x, 1);
}

TEST(Simulation, AnotherLawGoesOnWithoutAJump) {
  Simulation<double> simulation(SpringFunction<double>(100, 120, 12, 0.1), 0, 0);
  simulation.advance(0.1);
  const double value = simulation.value();
  const double velocity = simulation.velocity();
  simulation.use(SpringFunction<double>(-100, 300, 1, 0.1));
  EXPECT_EQ(simulation.value(), value);
  EXPECT_EQ(simulation.velocity(), velocity);
}

}  // namespace
}  // namespace tessarine
