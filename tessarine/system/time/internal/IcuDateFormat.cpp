#include "tessarine/system/time/internal/IcuDateFormat.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "tessarine/system/time/internal/IcuDays.hpp"
#include "tessarine/system/time/internal/LocalTime.hpp"

#include <unicode/simpletz.h>
#include <unicode/timezone.h>

namespace tessarine::internal {
namespace {

constexpr double millisecondsASecond = 1000;

/// Whether a letter outside quotes asks for a zone.
bool hasZoneField(std::string_view pattern) {
  bool isQuoted = false;
  for (const char c : pattern) {
    if (c == '\'') isQuoted = !isQuoted;
    if (!isQuoted && std::string_view("zZOvVXx").find(c) != std::string_view::npos) return true;
  }
  return false;
}

}  // namespace

icu::UnicodeString icuText(std::string_view utf8) {
  return icu::UnicodeString::fromUTF8({utf8.data(), static_cast<std::int32_t>(utf8.size())});
}

std::string utf8Text(const icu::UnicodeString& text) {
  std::string utf8;
  text.toUTF8String(utf8);
  return utf8;
}

icu::Locale icuLocale(const Locale& locale, Calendar::Identifier calendar) {
  icu::Locale result(locale.identifier().c_str());
  UErrorCode status = U_ZERO_ERROR;
  // ISO 8601 is the Gregorian calendar as far as texts go, and has no names of its own.
  const char* const name = isGregorian(calendar) ? "gregorian" : icuCalendarName(calendar);
  result.setKeywordValue("calendar", name, status);
  return result;
}

IcuDateFormat::IcuDateFormat(const std::string& pattern, const Locale& locale,
                             const Calendar& calendar)
    : zone_(calendar.timeZone()), hasZoneField_(hasZoneField(pattern)) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale place = icuLocale(locale, calendar.identifier());
  auto format = std::make_unique<icu::SimpleDateFormat>(icuText(pattern), place, status);
  std::unique_ptr<icu::Calendar> prototype(icu::Calendar::createInstance(
      icu::TimeZone::createTimeZone(icuText(zone_.identifier())), place, status));
  if (U_FAILURE(status)) return;
  prototype->setFirstDayOfWeek(static_cast<UCalendarDaysOfWeek>(calendar.firstWeekday()));
  prototype->setMinimalDaysInFirstWeek(
      static_cast<std::uint8_t>(calendar.minimumDaysInFirstWeek()));
  prototype->setLenient(0);
  format->setLenient(0);
  format_ = std::move(format);
  calendar_ = std::move(prototype);
}

/// ICU's data of a zone may be older than the system's; then its offset is told and its name kept.
std::unique_ptr<icu::Calendar> IcuDateFormat::calendarAt(Date date) const {
  std::unique_ptr<icu::Calendar> calendar(calendar_->clone());
  const double milliseconds = std::floor(date.timeIntervalSince1970() * millisecondsASecond);
  const int offset = zone_.secondsFromGMT(date) * 1000;
  UErrorCode status = U_ZERO_ERROR;
  std::int32_t raw = 0;
  std::int32_t saving = 0;
  calendar->getTimeZone().getOffset(milliseconds, 0, raw, saving, status);
  if (raw + saving != offset) {
    calendar->adoptTimeZone(new icu::SimpleTimeZone(offset, icuText(zone_.identifier())));
  }
  calendar->setTime(milliseconds, status);
  return calendar;
}

std::string IcuDateFormat::string(Date date) const {
  if (format_ == nullptr) return {};
  const auto calendar = calendarAt(date);
  icu::UnicodeString text;
  icu::FieldPosition ignored;
  format_->format(*calendar, text, ignored);
  return utf8Text(text);
}

DateParsing IcuDateFormat::parse(std::string_view utf8) const {
  constexpr std::string_view expected = "what the pattern has there";
  DateParsing failure{.date = std::nullopt, .position = 0, .expected = expected};
  if (format_ == nullptr) return failure;
  std::unique_ptr<icu::Calendar> calendar(calendar_->clone());
  // A text without a zone is a clock's; what it means is for the system's zones to say.
  if (!hasZoneField_) calendar->adoptTimeZone(icu::TimeZone::getGMT()->clone());
  calendar->clear();
  const icu::UnicodeString text = icuText(utf8);
  icu::ParsePosition position(0);
  format_->parse(text, *calendar, position);
  const int index = position.getErrorIndex() >= 0 ? position.getErrorIndex() : position.getIndex();
  // Ill-formed bytes are longer once they are replaced.
  failure.position = std::min(utf8Text(text.tempSubString(0, index)).size(), utf8.size());
  if (position.getErrorIndex() >= 0 || position.getIndex() != text.length()) return failure;
  UErrorCode status = U_ZERO_ERROR;
  const double milliseconds = calendar->getTime(status);
  if (U_FAILURE(status) || !(std::fabs(milliseconds / millisecondsASecond) <= greatestInterval)) {
    return failure;
  }
  const double whole = std::floor(milliseconds / millisecondsASecond);
  const double fraction = (milliseconds - whole * millisecondsASecond) / millisecondsASecond;
  const auto second = static_cast<std::int64_t>(whole);
  const std::int64_t utc = hasZoneField_ ? second : zone_.rules().utcOfLocal(second);
  return {.date = Instant(utc, fraction).date(), .position = utf8.size(), .expected = {}};
}

}  // namespace tessarine::internal
