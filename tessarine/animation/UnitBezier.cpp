#include "tessarine/animation/UnitBezier.hpp"

#include <cmath>

namespace tessarine {
namespace {

/// The polynomials of one curve.
struct UnitBezierSolver {
  double ax, bx, cx;
  double ay, by, cy;

  explicit UnitBezierSolver(const UnitBezier& curve) noexcept
      : cx(3 * curve.first.x), cy(3 * curve.first.y) {
    bx = 3 * (curve.second.x - curve.first.x) - cx;
    ax = 1 - cx - bx;
    by = 3 * (curve.second.y - curve.first.y) - cy;
    ay = 1 - cy - by;
  }

  double sampleX(double t) const noexcept { return t * (cx + t * (bx + t * ax)); }
  double derivX(double t) const noexcept { return cx + t * (2 * bx + t * (3 * ax)); }

  /// The curve's parameter for `x`.
  double solveCurveX(double x, double eps) const noexcept {
    constexpr int iterations = 8;
    constexpr double flattest = 1e-6;
    double t = x;
    for (int i = 0; i < iterations; ++i) {
      const double err = sampleX(t) - x;
      if (std::fabs(err) < eps) return t;
      const double d = derivX(t);
      if (std::fabs(d) < flattest) break;
      t -= err / d;
    }
    return bisect(x, eps);
  }

  double bisect(double x, double eps) const noexcept {
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
  const double t = solver.solveCurveX(x, epsilon);
  return t * (solver.cy + t * (solver.by + solver.ay * t));
}

}  // namespace tessarine
