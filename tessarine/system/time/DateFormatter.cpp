#include "tessarine/system/time/DateFormatter.hpp"

#include <cmath>

#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

namespace tessarine {
namespace {

constexpr double millisecondsASecond = 1000;

icu::UnicodeString fromUtf8(std::string_view text) {
  return icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
}

}  // namespace

/// ICU's objects change while they work, so that each call works with copies of the calendar.
struct DateFormatter::Parts {
  std::string pattern;
  std::unique_ptr<icu::SimpleDateFormat> format;  // null for a pattern that is none
  std::unique_ptr<icu::GregorianCalendar> calendar;
};

DateFormatter::DateFormatter(std::string_view dateFormat, std::string_view locale,
                             std::string_view timeZone) {
  auto parts = std::make_shared<Parts>();
  parts->pattern = dateFormat;
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale place(std::string(locale).c_str());
  auto format = std::make_unique<icu::SimpleDateFormat>(fromUtf8(dateFormat), place, status);
  auto calendar = std::make_unique<icu::GregorianCalendar>(
      icu::TimeZone::createTimeZone(fromUtf8(timeZone)), place, status);
  if (U_SUCCESS(status)) {
    calendar->setLenient(0);
    format->setLenient(0);
    parts->format = std::move(format);
    parts->calendar = std::move(calendar);
  }
  parts_ = std::move(parts);
}

const std::string& DateFormatter::dateFormat() const noexcept { return parts_->pattern; }

std::string DateFormatter::string(Date date) const {
  const double since1970 = date.timeIntervalSince1970();
  std::string text;
  if (parts_->format == nullptr || !std::isfinite(since1970)) return text;
  icu::GregorianCalendar calendar(*parts_->calendar);
  UErrorCode status = U_ZERO_ERROR;
  calendar.setTime(std::floor(since1970 * millisecondsASecond), status);
  icu::UnicodeString written;
  icu::FieldPosition ignored;
  parts_->format->format(calendar, written, ignored);
  if (U_SUCCESS(status)) written.toUTF8String(text);
  return text;
}

std::optional<Date> DateFormatter::date(std::string_view text) const {
  if (parts_->format == nullptr) return std::nullopt;
  icu::GregorianCalendar calendar(*parts_->calendar);
  calendar.clear();
  const icu::UnicodeString read = fromUtf8(text);
  icu::ParsePosition position(0);
  parts_->format->parse(read, calendar, position);
  if (position.getErrorIndex() >= 0 || position.getIndex() != read.length()) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  const double milliseconds = calendar.getTime(status);
  if (U_FAILURE(status)) return std::nullopt;
  return Date::since1970(milliseconds / millisecondsASecond);
}

}  // namespace tessarine
