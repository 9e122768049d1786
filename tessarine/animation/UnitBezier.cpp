#include "tessarine/animation/UnitBezier.hpp"

#include <bit>
#include <cmath>
#include <cstdint>

#include "tessarine/animation/SIMD2.hpp"

namespace tessarine {
namespace {

SIMD2 lanesOf(UnitBezier::ControlPoint point) { return {point.x, point.y}; }

/// Beyond this a slope is no flat one; smaller ones, negative ones and not a number ask on. The
/// bits of doubles above 0 have the order of the doubles, and are sooner compared.
constexpr double flattest = 1e-6;
bool isSteep(double slope) {
  return std::bit_cast<std::int64_t>(slope) >= std::bit_cast<std::int64_t>(flattest);
}

/// The polynomials of one curve: x in the first lanes, y in the second.
struct UnitBezierSolver {
  SIMD2 a, b, c;

  explicit UnitBezierSolver(const UnitBezier& curve) noexcept : c(3 * lanesOf(curve.first)) {
    b = 3 * (lanesOf(curve.second) - lanesOf(curve.first)) - c;
    a = SIMD2::filledWith(1) - c - b;
  }

  double sampleX(double t) const noexcept { return t * (c[0] + t * (b[0] + t * a[0])); }
  double sampleY(double t) const noexcept { return t * (c[1] + t * (b[1] + a[1] * t)); }
  double derivX(double t) const noexcept { return c[0] + t * (2 * b[0] + t * (3 * a[0])); }

  /// The curve's parameter for `x`. The time goes into a chain of operations that one turn hands to
  /// the next, so what only decides whether to go on stays out of the units that work on it.
  double solveCurveX(double x, double eps) const noexcept {
    constexpr int iterations = 8;
    // Without the sign bit; nothing is below a tolerance that is no number.
    const std::uint64_t limit = eps > 0 ? std::bit_cast<std::uint64_t>(eps) << 1 : 0;
    double t = x;
    for (int i = 0; i < iterations; ++i) {
      const double err = sampleX(t) - x;
      if (std::bit_cast<std::uint64_t>(err) << 1 < limit) return t;
      const double d = derivX(t);
      if (!isSteep(d) && std::fabs(d) < flattest) break;
      t -= err / d;
    }
    return bisect(x, eps);
  }

  [[gnu::cold, gnu::noinline]] double bisect(double x, double eps) const noexcept {
    if (x < 0.0) return 0.0;
    if (x > 1.0) return 1.0;
    double lo = 0.0;
    double hi = 1.0;
    double t = x;
    do {
      const double s = sampleX(t);
      if (std::fabs(s - x) < eps) return t;
      (s < x ? lo : hi) = t;
      const double middle = lo + (hi - lo) * 0.5;
      // Nothing lies between the bounds any more, so a finer tolerance cannot be met.
      if (middle == t) return t;
      t = middle;
    } while (lo < hi);
    return t;
  }
};

}  // namespace

double UnitBezier::solve(double x, double epsilon) const noexcept {
  const UnitBezierSolver solver(*this);
  return solver.sampleY(solver.solveCurveX(x, epsilon));
}

}  // namespace tessarine
