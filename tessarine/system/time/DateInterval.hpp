#pragma once

#include "tessarine/values/Date.hpp"

namespace tessarine {

/// A date and how many seconds lie behind it.
class DateInterval {
 public:
  constexpr DateInterval() noexcept = default;
  /// A duration below 0, or that is no number, counts as 0.
  constexpr DateInterval(Date start, double duration) noexcept
      : start_(start), duration_(duration > 0 ? duration : 0) {}
  /// An end before the start counts as the start.
  constexpr DateInterval(Date start, Date end) noexcept
      : DateInterval(
            start, end.timeIntervalSinceReferenceDate() - start.timeIntervalSinceReferenceDate()) {}

  constexpr Date start() const noexcept { return start_; }
  constexpr double duration() const noexcept { return duration_; }
  constexpr Date end() const noexcept {
    return Date(start_.timeIntervalSinceReferenceDate() + duration_);
  }

  /// Its start and its end included.
  constexpr bool contains(Date date) const noexcept { return date >= start_ && date <= end(); }

  constexpr bool operator==(const DateInterval&) const noexcept = default;

 private:
  Date start_;
  double duration_ = 0;
};

}  // namespace tessarine
