#pragma once

#include <optional>

#include "tessarine/animation/UnitBezier.hpp"
#include "tessarine/export.hpp"
#include "tessarine/system/desktop/CAMediaTimingFunction.hpp"

namespace tessarine {

/// How a tween spreads its way over its time: along a curve, or evenly. The presets `easeIn`,
/// `easeOut`, `ease` and `easeInOut` are the CSS curves `ease-in`, `ease-out`, `ease` and
/// `ease-in-out`.
///
///     TimingFunction::swiftOut().solve(0.5, 1e-3);  // 0.775...: most of the way by half the time
class TESSARINE_EXPORT TimingFunction {
 public:
  static constexpr TimingFunction bezier(UnitBezier curve) noexcept {
    return TimingFunction(curve);
  }
  static constexpr TimingFunction linear() noexcept { return TimingFunction(std::nullopt); }

  /// Along the curve with the control points (x1, y1) and (x2, y2).
  constexpr TimingFunction(double x1, double y1, double x2, double y2) noexcept
      : bezier_(UnitBezier(x1, y1, x2, y2)) {}
  /// Along the curve of `function`, also where that is a straight line.
  explicit TimingFunction(const CAMediaTimingFunction& function) noexcept;

  static constexpr TimingFunction swiftOut() noexcept { return {0.4, 0.0, 0.2, 1.0}; }
  static constexpr TimingFunction easeIn() noexcept { return {0.42, 0.0, 1.0, 1.0}; }
  static constexpr TimingFunction easeOut() noexcept { return {0.0, 0.0, 0.58, 1.0}; }
  static constexpr TimingFunction easeInEaseOut() noexcept { return {0.42, 0.0, 0.58, 1.0}; }
  static constexpr TimingFunction ease() noexcept { return {0.25, 0.1, 0.25, 1.0}; }
  static constexpr TimingFunction easeInOut() noexcept { return easeInEaseOut(); }

  /// The curve; absent for `linear`.
  constexpr const std::optional<UnitBezier>& bezier() const noexcept { return bezier_; }

  /// How far the motion has come when the part `at` of its time has passed; `at` itself for
  /// `linear`, else as `UnitBezier::solve`.
  double solve(double at, double epsilon) const noexcept {
    return bezier_ ? bezier_->solve(at, epsilon) : at;
  }

 private:
  constexpr explicit TimingFunction(std::optional<UnitBezier> curve) noexcept : bezier_(curve) {}

  std::optional<UnitBezier> bezier_;
};

}  // namespace tessarine
