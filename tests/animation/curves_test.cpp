#include <algorithm>
#include <array>
#include <cmath>
#include <concepts>
#include <limits>
#include <vector>

#include "tessarine/animation/TimingFunction.hpp"
#include "tessarine/animation/rounding.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

static_assert(std::equality_comparable<UnitBezier>);
static_assert(!std::equality_comparable<TimingFunction>);

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

/// The curve in extended precision.
struct Exact {
  UnitBezier curve;

  static long double sample(double first, double second, long double t) {
    const long double u = 1 - t;
    return 3 * u * u * t * first + 3 * u * t * t * second + t * t * t;
  }
  long double x(long double t) const { return sample(curve.first.x, curve.second.x, t); }
  long double y(long double t) const { return sample(curve.first.y, curve.second.y, t); }

  /// Where x(t) passes `value`; for curves whose x never turns back.
  long double parameter(long double value) const {
    long double low = 0;
    long double high = 1;
    for (int i = 0; i < 70; ++i) (x((low + high) / 2) < value ? low : high) = (low + high) / 2;
    return low;
  }
};

/// Whether `y` is the curve's own for an x within `epsilon`.
bool isWithin(const Exact& exact, double x, double epsilon, double y) {
  const long double from = exact.parameter(x - epsilon);
  const long double to = exact.parameter(x + epsilon);
  long double low = std::min(exact.y(from), exact.y(to));
  long double high = std::max(exact.y(from), exact.y(to));
  for (int i = 1; i < 40; ++i) {
    const long double between = exact.y(from + (to - from) * i / 40);
    low = std::min(low, between);
    high = std::max(high, between);
  }
  // Between the samples and in the last bits of the solver itself.
  const double slack = 1e-3 * epsilon + 1e-13;
  return y >= low - slack && y <= high + slack;
}

// A loop a coordinate of the grid is plainer than any helper.
// NOLINTNEXTLINE(readability-function-cognitive-complexity)
TEST(UnitBezier, SolvesWithinEpsilonOverAGridOfCurves) {
  const std::vector<double> xs{0, 1e-9, 0.1, 1.0 / 3, 0.42, 0.75, 1};
  const std::vector<double> ys{-1, 0, 1.0 / 3, 1, 2.5};
  int solved = 0;
  for (const double x1 : xs)
    for (const double x2 : xs)
      for (const double y1 : ys)
        for (const double y2 : ys)
          for (const double epsilon : {1e-2, 1e-6, 1e-10}) {
            const UnitBezier curve(x1, y1, x2, y2);
            for (int i = 0; i <= 25; ++i) {
              const double x = i / 25.0;
              const double y = curve.solve(x, epsilon);
              const bool isNear = isWithin({curve}, x, epsilon, y);
              solved += isNear ? 1 : 0;
              if (!isNear)
                ADD_FAILURE() << x1 << "," << y1 << "," << x2 << "," << y2 << " at " << x
                              << " within " << epsilon << " gave " << y;
            }
          }
  EXPECT_EQ(solved, 7 * 7 * 5 * 5 * 3 * 26);
}

TEST(UnitBezier, KnownPoints) {
  for (const double x : {0.0, 0.25, 0.5, 1.0}) {
    EXPECT_NEAR(UnitBezier(0, 0, 1, 1).solve(x, 1e-6), x, 1e-6);
    EXPECT_NEAR(UnitBezier(1.0 / 3, 1.0 / 3, 2.0 / 3, 2.0 / 3).solve(x, 1e-6), x, 1e-6);
  }
  EXPECT_NEAR(TimingFunction::easeInEaseOut().solve(0.5, 1e-6), 0.5, 1e-6);
  EXPECT_EQ(TimingFunction::swiftOut().solve(0, 1e-3), 0);
  EXPECT_EQ(TimingFunction::swiftOut().solve(1, 1e-3), 1);
}

TEST(UnitBezier, OutsideItFollowsTheCurveAsFarAsNewtonGoes) {
  EXPECT_NEAR(UnitBezier(1.0 / 3, 0, 2.0 / 3, 1).solve(-0.25, 1e-9), -0.25 * -0.25 * 3.5, 1e-8);
  // Flat at the start, so Newton gives up at once.
  const UnitBezier flat(0, 0.5, 0, 0.5);
  EXPECT_EQ(flat.solve(-1e-8, 1e-9), 0);
  EXPECT_EQ(flat.solve(0, 1e-9), 0);
}

TEST(UnitBezier, EndsForAnyTolerancesAndPoints) {
  std::vector<double> odd{nan, infinity, -infinity, -1e300, 1e300, -1, -1e-9, 0, 1e-320, 0.5, 1, 3};
  for (const double a : odd)
    for (const double b : odd)
      for (const double epsilon : {nan, -1.0, 0.0, 1e-320, 1e-17, infinity})
        for (const double x : {nan, -infinity, -0.5, 0.0, 1e-310, 0.3, 1.0, 2.0, infinity}) {
          UnitBezier(a, 0, b, 1).solve(x, epsilon);
          UnitBezier(0.2, a, 0.7, b).solve(x, epsilon);
        }
  EXPECT_TRUE(std::isnan(TimingFunction::ease().solve(nan, 1e-3)));
  // What the tolerance cannot reach is as near as doubles come.
  for (const double epsilon : {0.0, -1.0, nan, 1e-300}) {
    const double y = UnitBezier(0.42, 0, 0.58, 1).solve(0.3, epsilon);
    EXPECT_TRUE(isWithin({{0.42, 0, 0.58, 1}}, 0.3, 1e-14, y)) << epsilon << " " << y;
  }
}

TEST(TimingFunction, Presets) {
  struct Row {
    TimingFunction timing;
    UnitBezier curve;
  };
  const std::vector<Row> rows{{TimingFunction::swiftOut(), {0.4, 0.0, 0.2, 1.0}},
                              {TimingFunction::easeIn(), {0.42, 0.0, 1.0, 1.0}},
                              {TimingFunction::easeOut(), {0.0, 0.0, 0.58, 1.0}},
                              {TimingFunction::easeInEaseOut(), {0.42, 0.0, 0.58, 1.0}},
                              {TimingFunction::easeInOut(), {0.42, 0.0, 0.58, 1.0}},
                              {TimingFunction::ease(), {0.25, 0.1, 0.25, 1.0}},
                              {{1, 2, 3, 4}, {1, 2, 3, 4}}};
  for (const auto& [timing, curve] : rows) {
    EXPECT_EQ(timing.bezier(), curve);
    EXPECT_EQ(timing.solve(0.3, 1e-4), curve.solve(0.3, 1e-4));
  }
  EXPECT_FALSE(TimingFunction::linear().bezier());
  EXPECT_EQ(TimingFunction::linear().solve(7.0, 0.001), 7.0) << "not clamped";
}

TEST(TimingFunction, TakesThePointsOfAPlatformCurve) {
  const TimingFunction timing(CAMediaTimingFunction(0.1F, 0.2F, 0.3F, 0.4F));
  EXPECT_EQ(timing.bezier(), UnitBezier(static_cast<double>(0.1F), static_cast<double>(0.2F),
                                        static_cast<double>(0.3F), static_cast<double>(0.4F)));
  EXPECT_TRUE(TimingFunction(CAMediaTimingFunction(0, 0, 1, 1)).bezier()) << "a line is one too";
}

TEST(Rounding, ToMultiples) {
  using Rounding = double (*)(double, double) noexcept;
  struct Row {
    Rounding round;
    double value, multiple, rounded;
  };
  const std::vector<Row> rows{
      {roundedToNearest, 22.5, 15, 30},
      {roundedToNearest, 7.5, 15, 0},
      {roundedToNearest, -22.5, 15, -30},
      {roundedToNearest, 8, 15, 15},
      {roundedTowardZero, 14.9, 5, 10},
      {roundedTowardZero, -14.9, 5, -10},
      {roundedAwayFromZero, 10, 5, 10},
      {roundedAwayFromZero, -10.1, 5, -15},
      {roundedAwayFromZero, 10.1, 5, 15},
      {roundedAwayFromZero, -10, 5, -10},
      {roundedAwayFromZero, 0, 5, 0},
      {roundedDown, -10, 5, -10},
      {roundedDown, -10.1, 5, -15},
      {roundedDown, 14, 5, 10},
      {roundedUp, 10, 5, 10},
      {roundedUp, 10.1, 5, 15},
      {roundedUp, -14, 5, -10},
      {roundedUp, infinity, 5, nan},
      {roundedUp, 3, infinity, nan},
      {roundedTowardZero, 3, infinity, 0},
      {roundedToNearest, 3, 0, nan},
      {roundedDown, nan, 5, nan},
  };
  for (const auto& row : rows) {
    const double rounded = row.round(row.value, row.multiple);
    EXPECT_TRUE(rounded == row.rounded || (std::isnan(rounded) && std::isnan(row.rounded)))
        << &row - rows.data() << ": " << rounded;
  }
  // Multiples stay, and what lies between goes to its side.
  for (int i = -1000; i <= 1000; ++i)
    for (const double multiple : {0.25, 5.0, 1024.0}) {
      const double exact = i * multiple;
      for (const Rounding round :
           {roundedToNearest, roundedTowardZero, roundedAwayFromZero, roundedDown, roundedUp})
        EXPECT_EQ(round(exact, multiple), exact);
      EXPECT_EQ(roundedUp(exact + multiple / 8, multiple), exact + multiple);
      EXPECT_EQ(roundedDown(exact + multiple / 8, multiple), exact);
    }
}

}  // namespace
}  // namespace tessarine
