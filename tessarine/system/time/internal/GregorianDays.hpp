#pragma once

#include "tessarine/system/time/internal/DaySystem.hpp"
#include "tessarine/system/time/internal/GregorianDay.hpp"

namespace tessarine::internal {

class GregorianDays final : public DaySystem {
 public:
  static const GregorianDays& shared();

  DayFields fields(std::int64_t day) const override;
  std::optional<std::int64_t> day(const DayRequest& request) const override;
  std::optional<std::int64_t> addingMonths(std::int64_t day, std::int64_t count) const override;
  std::optional<std::int64_t> addingYears(std::int64_t day, std::int64_t count) const override;
  std::optional<std::int64_t> addingEras(std::int64_t day, std::int64_t count) const override;
  std::int64_t firstDayOfYear(std::int64_t extendedYear) const override;
  int daysInMonth(std::int64_t day) const override;
  int monthsInYear(std::int64_t day) const override;
  std::vector<std::string> monthSymbols(const std::string& locale) const override;
};

}  // namespace tessarine::internal
