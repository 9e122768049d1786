#pragma once

#include <cstdint>

#include "tessarine/values/Date.hpp"

namespace tessarine::internal {

constexpr std::int64_t secondsADay = 86400;
constexpr auto referenceSecond =
    static_cast<std::int64_t>(Date::timeIntervalBetween1970AndReferenceDate);

/// The dates that calendars know lie at most this many seconds, two million years, from the
/// reference date.
constexpr double greatestInterval = 63'113'904'000'000.0;

/// A date as whole seconds since 1970, rounded down, and what is left of a second.
struct Instant {
  std::int64_t second;
  double fraction;  ///< 0 up to but not including 1

  constexpr Instant(std::int64_t wholeSecond, double rest) noexcept
      : second(wholeSecond), fraction(rest) {}

  /// Dates that no calendar knows count as the nearest that it does; one that is no number as the
  /// reference date.
  explicit constexpr Instant(Date date) noexcept : second(0), fraction(0) {
    double interval = date.timeIntervalSinceReferenceDate();
    if (!(interval >= -greatestInterval && interval <= greatestInterval)) [[unlikely]] {
      interval = interval > 0 ? greatestInterval : interval < 0 ? -greatestInterval : 0;
    }
    const auto truncated = static_cast<std::int64_t>(interval);
    second = truncated + referenceSecond;
    fraction = interval - static_cast<double>(truncated);
    // Fractions of dates before the reference date. Told to be so rare that it stays a branch, on
    // which nothing has to wait.
    if (__builtin_expect_with_probability(static_cast<long>(fraction < 0), 0, 0.999) != 0) {
      --second;
      fraction = interval - static_cast<double>(truncated - 1);
    }
  }

  constexpr Date date() const noexcept {
    return Date(static_cast<double>(second - referenceSecond) + fraction);
  }

  /// Whether calendars know that second.
  static constexpr bool isKnown(std::int64_t secondSince1970) noexcept {
    constexpr auto greatest = static_cast<std::int64_t>(greatestInterval);
    return secondSince1970 >= referenceSecond - greatest &&
           secondSince1970 <= referenceSecond + greatest;
  }
};

}  // namespace tessarine::internal
