#pragma once

#include <cmath>
#include <cstdint>
#include <optional>

#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/system/time/internal/Instant.hpp"
#include "tessarine/system/time/internal/ZoneRules.hpp"

namespace tessarine::internal {

constexpr std::int64_t nanosecondsASecond = 1'000'000'000;

/// The length of an hour, a minute or a second; 0 for other units.
constexpr std::int64_t secondsOf(Calendar::Component unit) noexcept {
  switch (unit) {
    case Calendar::Component::hour:
      return 3600;
    case Calendar::Component::minute:
      return 60;
    case Calendar::Component::second:
      return 1;
    default:
      return 0;
  }
}

/// What the clocks of a zone show at an instant.
struct LocalTime {
  std::int64_t second;  ///< as if there were no zone, since 1970
  std::int64_t day;     ///< since 1970-01-01
  int secondOfDay;
  std::int32_t offset;

  LocalTime(const ZoneRules& zone, const Instant& instant) noexcept
      : LocalTime(instant, zone.offsetAt(instant.second)) {}
  LocalTime(const Instant& instant, std::int32_t secondsAheadOfGMT) noexcept
      : offset(secondsAheadOfGMT) {
    // Non-negative numbers are divided in one multiplication; this bias is a whole number of days.
    constexpr std::int64_t biasDays = std::int64_t{1} << 30U;
    second = instant.second + offset;
    const auto biased = static_cast<std::uint64_t>(second + biasDays * secondsADay);
    const std::uint64_t biasedDay = biased / secondsADay;
    day = static_cast<std::int64_t>(biasedDay) - biasDays;
    secondOfDay = static_cast<int>(biased - biasedDay * secondsADay);
  }
};

/// The date at which clocks first show that local second; absent where no calendar reaches.
inline std::optional<Date> dateOfLocal(const ZoneRules& zone, std::int64_t localSecond,
                                       double fraction = 0) noexcept {
  constexpr auto greatest = static_cast<std::int64_t>(2 * greatestInterval);
  if (localSecond < -greatest || localSecond > greatest) return std::nullopt;
  const std::int64_t second = zone.utcOfLocal(localSecond);
  if (!Instant::isKnown(second)) return std::nullopt;
  return Instant(second, fraction).date();
}

inline std::optional<Date> dateOfLocalDay(const ZoneRules& zone, std::int64_t day,
                                          int secondOfDay = 0, double fraction = 0) noexcept {
  constexpr std::int64_t greatest = std::int64_t{1} << 40U;
  if (day < -greatest || day > greatest) return std::nullopt;
  return dateOfLocal(zone, day * secondsADay + secondOfDay, fraction);
}

/// Of a date's second. A double holds today's dates to a tenth of a microsecond: where whole
/// microseconds make the same double, they are meant.
inline std::int64_t nanosecondOf(const Instant& instant) noexcept {
  const double second = static_cast<double>(instant.second - referenceSecond);
  const double date = second + instant.fraction;
  const double microseconds = std::nearbyint(instant.fraction * 1e6);
  const bool isWhole = microseconds < 1e6 && second + microseconds * 1e-6 == date;
  const auto nanoseconds = static_cast<std::int64_t>(
      isWhole ? microseconds * 1e3 : std::nearbyint(instant.fraction * 1e9));
  return nanoseconds < nanosecondsASecond ? nanoseconds : nanosecondsASecond - 1;
}

}  // namespace tessarine::internal
