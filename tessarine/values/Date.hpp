#pragma once

#include <compare>
#include <functional>

#include "tessarine/export.hpp"

namespace tessarine {

/// An instant: seconds since the reference date, 2001-01-01 00:00:00 UTC, as one 64-bit double.
/// A plain value; comparison is that of the double.
class TESSARINE_EXPORT Date {
 public:
  /// The reference date lies this many seconds after 1970-01-01 00:00:00 UTC.
  static constexpr double timeIntervalBetween1970AndReferenceDate = 978307200.0;

  /// Now, by the system's clock.
  static Date now() noexcept;
  /// Stand for no date: before, and after, what anybody means. Beginnings of the years 1 and 4001.
  static constexpr Date distantPast() noexcept { return Date(-63114076800.0); }
  static constexpr Date distantFuture() noexcept { return Date(63113904000.0); }

  constexpr Date() noexcept = default;
  explicit constexpr Date(double secondsSinceReferenceDate) noexcept
      : seconds_(secondsSinceReferenceDate) {}
  static constexpr Date since1970(double seconds) noexcept {
    return Date(seconds - timeIntervalBetween1970AndReferenceDate);
  }

  constexpr double timeIntervalSinceReferenceDate() const noexcept { return seconds_; }
  constexpr double timeIntervalSince1970() const noexcept {
    return seconds_ + timeIntervalBetween1970AndReferenceDate;
  }

  constexpr bool operator==(const Date&) const noexcept = default;
  constexpr auto operator<=>(const Date&) const noexcept = default;

 private:
  double seconds_ = 0;
};

}  // namespace tessarine

template <>
struct std::hash<tessarine::Date> {
  std::size_t operator()(const tessarine::Date& date) const noexcept {
    return std::hash<double>{}(date.timeIntervalSinceReferenceDate());
  }
};
