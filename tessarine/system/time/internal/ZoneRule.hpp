#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/system/time/internal/ZoneRules.hpp"

namespace tessarine::internal {

/// When in a year clocks change (POSIX.1, TZ).
struct ZoneChange {
  enum class Day : std::uint8_t { julian, zeroBased, weekday };
  Day kind = Day::weekday;
  int day = 0;    ///< of the year: 1 to 365 without 29 February, or 0 to 365; of the week: 0 to 6
  int week = 0;   ///< 1 to 5, 5 being the last
  int month = 0;  ///< 1 to 12
  int time = 2 * 3600;  ///< seconds after midnight by the clock before the change

  /// The second by that clock, since 1970.
  std::int64_t inYear(std::int64_t year) const noexcept;
};

/// A zone that follows one rule each year.
struct ZoneRule {
  std::string standard, daylight;  ///< abbreviations; the second empty without daylight saving
  int standardOffset = 0, daylightOffset = 0;  ///< seconds ahead of GMT
  ZoneChange toDaylight, toStandard;

  bool changes() const noexcept { return !daylight.empty(); }
  static std::optional<ZoneRule> parse(std::string_view text);
  /// Lets the table go on by the rule behind its last span, through 400 years that then repeat.
  void continueTable(ZoneRules::Table& table) const;
};

}  // namespace tessarine::internal
