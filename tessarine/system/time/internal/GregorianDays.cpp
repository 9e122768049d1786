#include "tessarine/system/time/internal/GregorianDays.hpp"

#include <algorithm>

#include "tessarine/system/time/internal/IcuDays.hpp"

namespace tessarine::internal {
namespace {

/// Beyond the years that calendars know, and small enough to count with.
constexpr std::int64_t greatestAmount = std::int64_t{1} << 32U;

bool isSmall(std::int64_t amount) { return amount > -greatestAmount && amount < greatestAmount; }

}  // namespace

const GregorianDays& GregorianDays::shared() {
  static const GregorianDays days;
  return days;
}

DayFields GregorianDays::fields(std::int64_t day) const {
  const CivilDay date = gregorianFromDays(day);
  const bool isOurEra = date.year > 0;
  return {.era = isOurEra ? 1 : 0,
          .year = isOurEra ? date.year : 1 - date.year,
          .extendedYear = date.year,
          .month = date.month,
          .day = date.day,
          .dayOfYear = gregorianDayOfYear(day, date),
          .isLeapMonth = false};
}

std::optional<std::int64_t> GregorianDays::day(const DayRequest& request) const {
  if (!isSmall(request.year) || !isSmall(request.month) || !isSmall(request.day)) {
    return std::nullopt;
  }
  const bool isBefore = request.era.value_or(1) < 1;
  const std::int64_t year = isBefore ? 1 - request.year : request.year;
  const std::int64_t months = year * 12 + request.month - 1;
  const std::int64_t monthYear = floorDivide(months, 12);
  const int month = static_cast<int>(months - monthYear * 12) + 1;
  const int length = gregorianDaysInMonth(monthYear, month);
  if (request.day >= 1 && request.day <= length) {
    return daysFromGregorian({monthYear, month, static_cast<int>(request.day)});
  }
  return daysFromGregorian({monthYear, month, 1}) + request.day - 1;
}

std::optional<std::int64_t> GregorianDays::addingMonths(std::int64_t day,
                                                        std::int64_t count) const {
  if (!isSmall(count)) return std::nullopt;
  return gregorianDayPlusMonths(day, count);
}

std::optional<std::int64_t> GregorianDays::addingYears(std::int64_t day, std::int64_t count) const {
  if (!isSmall(count)) return std::nullopt;
  return addingMonths(day, count * 12);
}

std::optional<std::int64_t> GregorianDays::addingEras(std::int64_t day, std::int64_t count) const {
  const DayFields now = fields(day);
  const std::int64_t era = std::clamp<std::int64_t>(count, -1, 1) + now.era;
  if (era == now.era || era < 0 || era > 1) return day;
  return gregorianDayInMonth((1 - now.extendedYear) * 12 + now.month - 1, now.day);
}

std::int64_t GregorianDays::firstDayOfYear(std::int64_t extendedYear) const {
  return daysFromGregorian({extendedYear, 1, 1});
}

int GregorianDays::daysInMonth(std::int64_t day) const {
  const CivilDay date = gregorianFromDays(day);
  return gregorianDaysInMonth(date.year, date.month);
}

int GregorianDays::monthsInYear(std::int64_t /*day*/) const { return 12; }

std::vector<std::string> GregorianDays::monthSymbols(const std::string& locale) const {
  return icuMonthSymbols("gregorian", locale);
}

}  // namespace tessarine::internal
