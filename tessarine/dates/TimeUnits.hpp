#pragma once

#include <concepts>
#include <type_traits>

#include "tessarine/values/fatal.hpp"

namespace tessarine {

// Counts of a unit of time as seconds. On integers an overflow is a programmer error. A month is 4
// weeks here, and a year 12 such months: 336 days.

namespace detail {
template <class Number>
constexpr Number times(Number count, int factor) {
  if constexpr (std::integral<Number>) {
    Number product = 0;
    if (__builtin_mul_overflow(count, factor, &product)) {
      fatal("time units: that many seconds do not fit into the number");
    }
    return product;
  } else {
    return count * static_cast<Number>(factor);
  }
}
template <class Number>
concept Count =
    (std::integral<Number> && !std::same_as<Number, bool>) || std::floating_point<Number>;
}  // namespace detail

constexpr auto minutesToSeconds(detail::Count auto count) { return detail::times(count, 60); }
constexpr auto hoursToSeconds(detail::Count auto count) {
  return detail::times(minutesToSeconds(count), 60);
}
constexpr auto daysToSeconds(detail::Count auto count) {
  return detail::times(hoursToSeconds(count), 24);
}
constexpr auto weeksToSeconds(detail::Count auto count) {
  return detail::times(daysToSeconds(count), 7);
}
constexpr auto monthToSeconds(detail::Count auto count) {
  return detail::times(weeksToSeconds(count), 4);
}
constexpr auto yearToSeconds(detail::Count auto count) {
  return detail::times(monthToSeconds(count), 12);
}

}  // namespace tessarine
