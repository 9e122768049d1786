#pragma once

#include <cstdint>
#include <optional>

#include "tessarine/export.hpp"
#include "tessarine/system/time/Calendar.hpp"

namespace tessarine {

/// Fields of a date, or amounts of them. What is absent is not said.
///
///     const DateComponents noon{.year = 2024, .month = 5, .day = 1, .hour = 12};
struct TESSARINE_EXPORT DateComponents {
  std::optional<Calendar> calendar = std::nullopt;
  std::optional<TimeZone> timeZone = std::nullopt;
  std::optional<std::int64_t> era = std::nullopt;
  std::optional<std::int64_t> year = std::nullopt;
  std::optional<std::int64_t> month = std::nullopt;
  std::optional<std::int64_t> day = std::nullopt;
  std::optional<std::int64_t> hour = std::nullopt;
  std::optional<std::int64_t> minute = std::nullopt;
  std::optional<std::int64_t> second = std::nullopt;
  std::optional<std::int64_t> nanosecond = std::nullopt;
  std::optional<std::int64_t> weekday = std::nullopt;
  std::optional<std::int64_t> weekdayOrdinal = std::nullopt;
  std::optional<std::int64_t> quarter = std::nullopt;
  std::optional<std::int64_t> weekOfMonth = std::nullopt;
  std::optional<std::int64_t> weekOfYear = std::nullopt;
  std::optional<std::int64_t> yearForWeekOfYear = std::nullopt;
  std::optional<bool> isLeapMonth = std::nullopt;  ///< of calendars that repeat a month

  /// The field of that name; absent for `calendar` and `timeZone`.
  std::optional<std::int64_t> value(Calendar::Component component) const noexcept;
  /// Does nothing for `calendar` and `timeZone`.
  void setValue(std::optional<std::int64_t> value, Calendar::Component component) noexcept;

  /// By their calendar; absent without one.
  std::optional<Date> date() const;

  bool operator==(const DateComponents&) const noexcept = default;
};

}  // namespace tessarine
