#pragma once

#include <string>
#include <vector>

#include "tessarine/system/time/internal/DaySystem.hpp"

namespace tessarine::internal {

/// The calendars that ICU counts. Each thread keeps one of its objects a calendar.
class IcuDays final : public DaySystem {
 public:
  explicit IcuDays(Calendar::Identifier identifier) : identifier_(identifier) {}

  DayFields fields(std::int64_t day) const override;
  std::optional<std::int64_t> day(const DayRequest& request) const override;
  std::optional<std::int64_t> addingMonths(std::int64_t day, std::int64_t count) const override;
  std::optional<std::int64_t> addingYears(std::int64_t day, std::int64_t count) const override;
  std::optional<std::int64_t> addingEras(std::int64_t day, std::int64_t count) const override;
  std::int64_t firstDayOfYear(std::int64_t extendedYear) const override;
  int daysInMonth(std::int64_t day) const override;
  int monthsInYear(std::int64_t day) const override;
  std::vector<std::string> monthSymbols(const std::string& locale) const override;

 private:
  Calendar::Identifier identifier_;
};

/// ICU's name of a calendar.
const char* icuCalendarName(Calendar::Identifier identifier);

std::vector<std::string> icuMonthSymbols(const std::string& calendar, const std::string& locale);

}  // namespace tessarine::internal
