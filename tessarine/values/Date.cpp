#include "tessarine/values/Date.hpp"

#include <chrono>

namespace tessarine {

Date Date::now() noexcept {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  // Whole and fractional seconds apart: a double of nanoseconds since 1970 would lose digits.
  const auto whole = std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch);
  const std::chrono::duration<double> fraction = sinceEpoch - whole;
  return Date(static_cast<double>(whole.count()) - timeIntervalBetween1970AndReferenceDate +
              fraction.count());
}

}  // namespace tessarine
