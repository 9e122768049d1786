#include "tessarine/system/time/internal/IcuDays.hpp"

#include <array>
#include <cmath>
#include <limits>
#include <memory>

#include "tessarine/system/time/internal/CivilDay.hpp"
#include "tessarine/system/time/internal/GregorianDays.hpp"
#include "tessarine/system/time/internal/Instant.hpp"

#include <unicode/calendar.h>
#include <unicode/dtfmtsym.h>
#include <unicode/timezone.h>

namespace tessarine::internal {
namespace {

using Identifier = Calendar::Identifier;

constexpr double millisecondsADay = 86'400'000;
constexpr auto identifierCount = static_cast<std::size_t>(Identifier::islamicUmmAlQura) + 1;
/// Amounts that lead out of every calendar, and with which ICU's 32 bits do not overflow.
constexpr std::int64_t greatestAmount = 40'000'000;
/// Of the last days known to calendars, a little more for zones.
constexpr auto greatestDay =
    static_cast<double>(referenceSecond) / secondsADay + greatestInterval / secondsADay + 400;

bool isSmall(std::int64_t amount) { return amount >= -greatestAmount && amount <= greatestAmount; }

icu::Calendar& calendarOf(Identifier identifier) {
  thread_local std::array<std::unique_ptr<icu::Calendar>, identifierCount> calendars;
  auto& calendar = calendars.at(static_cast<std::size_t>(identifier));
  if (calendar == nullptr) {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale locale("");
    locale.setKeywordValue("calendar", icuCalendarName(identifier), status);
    calendar.reset(icu::Calendar::createInstance(icu::TimeZone::getGMT()->clone(), locale, status));
  }
  return *calendar;
}

icu::Calendar& calendarAt(Identifier identifier, std::int64_t day) {
  icu::Calendar& calendar = calendarOf(identifier);
  UErrorCode status = U_ZERO_ERROR;
  calendar.setTime(static_cast<double>(day) * millisecondsADay, status);
  return calendar;
}

/// The calendar whose rules hold from that day on. Behind the last of its tables, in 2174, Umm
/// al-Qura counts as the civil calendar does, and ICU would look through all years since.
Identifier ruling(Identifier identifier, std::int64_t day) {
  constexpr std::int64_t tablesEnd = 75'000;
  return identifier == Identifier::islamicUmmAlQura && day > tablesEnd ? Identifier::islamicCivil
                                                                       : identifier;
}

std::optional<std::int64_t> dayOf(const icu::Calendar& calendar) {
  UErrorCode status = U_ZERO_ERROR;
  const double day = std::floor(calendar.getTime(status) / millisecondsADay);
  if (U_FAILURE(status) || !(std::fabs(day) <= greatestDay)) return std::nullopt;
  return static_cast<std::int64_t>(day);
}

std::optional<std::int64_t> adding(Identifier identifier, std::int64_t day,
                                   UCalendarDateFields field, std::int64_t count) {
  if (!isSmall(count)) return std::nullopt;
  icu::Calendar& calendar = calendarAt(count > 0 ? ruling(identifier, day) : identifier, day);
  UErrorCode status = U_ZERO_ERROR;
  calendar.add(field, static_cast<std::int32_t>(count), status);
  return U_SUCCESS(status) ? dayOf(calendar) : std::nullopt;
}

int lengthOf(Identifier identifier, std::int64_t day, UCalendarDateFields field) {
  UErrorCode status = U_ZERO_ERROR;
  return calendarAt(ruling(identifier, day), day).getActualMaximum(field, status);
}

}  // namespace

const char* icuCalendarName(Identifier identifier) {
  constexpr std::array names = {
      "gregorian",           "buddhist", "chinese", "coptic", "ethiopic",
      "ethiopic-amete-alem", "hebrew",   "iso8601", "indian", "islamic",
      "islamic-civil",       "japanese", "persian", "roc",    "islamic-tbla",
      "islamic-umalqura"};
  return names.at(static_cast<std::size_t>(identifier));
}

DayFields IcuDays::fields(std::int64_t day) const {
  const icu::Calendar& calendar = calendarAt(ruling(identifier_, day), day);
  UErrorCode status = U_ZERO_ERROR;
  const auto get = [&](UCalendarDateFields field) { return calendar.get(field, status); };
  return {.era = get(UCAL_ERA),
          .year = get(UCAL_YEAR),
          .extendedYear = get(UCAL_EXTENDED_YEAR),
          .month = get(UCAL_MONTH) + 1,
          .day = get(UCAL_DATE),
          .dayOfYear = get(UCAL_DAY_OF_YEAR),
          .isLeapMonth = get(UCAL_IS_LEAP_MONTH) != 0};
}

std::optional<std::int64_t> IcuDays::day(const DayRequest& request) const {
  if (!isSmall(request.year) || !isSmall(request.month) || !isSmall(request.day) ||
      !isSmall(request.era.value_or(0))) {
    return std::nullopt;
  }
  icu::Calendar& calendar = calendarOf(identifier_);
  calendar.clear();
  if (request.era) calendar.set(UCAL_ERA, static_cast<std::int32_t>(*request.era));
  calendar.set(UCAL_YEAR, static_cast<std::int32_t>(request.year));
  calendar.set(UCAL_MONTH, static_cast<std::int32_t>(request.month - 1));
  calendar.set(UCAL_DATE, static_cast<std::int32_t>(request.day));
  if (request.isLeapMonth) calendar.set(UCAL_IS_LEAP_MONTH, 1);
  return dayOf(calendar);
}

std::optional<std::int64_t> IcuDays::addingMonths(std::int64_t day, std::int64_t count) const {
  return adding(identifier_, day, UCAL_MONTH, count);
}

std::optional<std::int64_t> IcuDays::addingYears(std::int64_t day, std::int64_t count) const {
  return adding(identifier_, day, UCAL_EXTENDED_YEAR, count);
}

std::optional<std::int64_t> IcuDays::addingEras(std::int64_t day, std::int64_t count) const {
  return adding(identifier_, day, UCAL_ERA, count);
}

std::int64_t IcuDays::firstDayOfYear(std::int64_t extendedYear) const {
  icu::Calendar& calendar = calendarOf(identifier_);
  calendar.clear();
  calendar.set(UCAL_EXTENDED_YEAR, static_cast<std::int32_t>(extendedYear));
  return dayOf(calendar).value_or(0);
}

int IcuDays::daysInMonth(std::int64_t day) const { return lengthOf(identifier_, day, UCAL_DATE); }

int IcuDays::monthsInYear(std::int64_t day) const {
  return lengthOf(identifier_, day, UCAL_MONTH) + 1;
}

std::vector<std::string> IcuDays::monthSymbols(const std::string& locale) const {
  return icuMonthSymbols(icuCalendarName(identifier_), locale);
}

std::vector<std::string> icuMonthSymbols(const std::string& calendar, const std::string& locale) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::DateFormatSymbols symbols(icu::Locale(locale.c_str()), calendar.c_str(), status);
  std::int32_t count = 0;
  const icu::UnicodeString* const months =
      symbols.getMonths(count, icu::DateFormatSymbols::STANDALONE, icu::DateFormatSymbols::WIDE);
  std::vector<std::string> names;
  if (U_FAILURE(status)) return names;
  names.resize(static_cast<std::size_t>(count));
  for (std::size_t i = 0; i < names.size(); ++i) months[i].toUTF8String(names[i]);
  return names;
}

const DaySystem& daySystem(Identifier identifier) {
  if (isGregorian(identifier)) return GregorianDays::shared();
  static const auto systems = []<std::size_t... i>(std::index_sequence<i...>) {
    return std::array<IcuDays, sizeof...(i)>{IcuDays(static_cast<Identifier>(i))...};
  }
  (std::make_index_sequence<identifierCount>());
  return systems.at(static_cast<std::size_t>(identifier));
}

}  // namespace tessarine::internal
