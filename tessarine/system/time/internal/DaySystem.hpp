#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tessarine/system/time/Calendar.hpp"

namespace tessarine::internal {

/// What a calendar calls a day.
struct DayFields {
  int era;
  std::int64_t year;          ///< of the era
  std::int64_t extendedYear;  ///< counted through all eras
  int month;                  ///< from 1
  int day;                    ///< of the month, from 1
  int dayOfYear;              ///< from 1
  bool isLeapMonth;
};

/// A day as somebody asks for it; years of an era or, without one, of the calendar's present era.
struct DayRequest {
  std::optional<std::int64_t> era;
  std::int64_t year = 1;
  std::int64_t month = 1;
  std::int64_t day = 1;
  bool isLeapMonth = false;
};

/// The days, months and years of one kind of calendar. Days are counted from 1970-01-01 and lie
/// within those of `Instant`. Neither zones nor weeks nor times of day matter here. Any thread.
class DaySystem {
 public:
  DaySystem(const DaySystem&) = delete;
  DaySystem& operator=(const DaySystem&) = delete;

  virtual DayFields fields(std::int64_t day) const = 0;
  /// Months and days outside their range carry over.
  virtual std::optional<std::int64_t> day(const DayRequest& request) const = 0;
  /// The day of the month is kept as far as the month there has it.
  virtual std::optional<std::int64_t> addingMonths(std::int64_t day, std::int64_t count) const = 0;
  virtual std::optional<std::int64_t> addingYears(std::int64_t day, std::int64_t count) const = 0;
  virtual std::optional<std::int64_t> addingEras(std::int64_t day, std::int64_t count) const = 0;
  virtual std::int64_t firstDayOfYear(std::int64_t extendedYear) const = 0;
  /// Of the month, and the year, that hold the day.
  virtual int daysInMonth(std::int64_t day) const = 0;
  virtual int monthsInYear(std::int64_t day) const = 0;
  virtual std::vector<std::string> monthSymbols(const std::string& locale) const = 0;

 protected:
  DaySystem() = default;
  ~DaySystem() = default;  // they live as long as the process
};

const DaySystem& daySystem(Calendar::Identifier identifier);

constexpr bool isGregorian(Calendar::Identifier identifier) noexcept {
  return identifier == Calendar::Identifier::gregorian ||
         identifier == Calendar::Identifier::iso8601;
}

}  // namespace tessarine::internal
