#include "tessarine/system/time/DateFormatter.hpp"

#include <cmath>

#include "tessarine/system/time/internal/DatePattern.hpp"
#include "tessarine/system/time/internal/DaySystem.hpp"
#include "tessarine/system/time/internal/IcuDateFormat.hpp"
#include "tessarine/system/time/internal/LocaleFacts.hpp"

#include <unicode/datefmt.h>
#include <unicode/dtptngen.h>
#include <unicode/smpdtfmt.h>

namespace tessarine {
namespace {

constexpr std::size_t longestPattern = 4096;
constexpr std::size_t longestText = std::size_t{1} << 20U;

icu::DateFormat::EStyle icuStyle(DateFormatter::Style style) {
  using Style = DateFormatter::Style;
  switch (style) {
    case Style::shortStyle:
      return icu::DateFormat::kShort;
    case Style::mediumStyle:
      return icu::DateFormat::kMedium;
    case Style::longStyle:
      return icu::DateFormat::kLong;
    case Style::fullStyle:
      return icu::DateFormat::kFull;
    case Style::none:
      break;
  }
  return icu::DateFormat::kNone;
}

Calendar calendarOf(const DateFormatter::Options& options) {
  Calendar calendar = options.calendar ? *options.calendar : Calendar::current();
  if (options.timeZone) calendar.setTimeZone(*options.timeZone);
  return calendar;
}

Locale localeOf(const DateFormatter::Options& options) {
  return options.locale ? *options.locale : Locale::current();
}

std::optional<std::string> patternFromTemplate(std::string_view dateTemplate,
                                               const icu::Locale& locale) {
  if (dateTemplate.size() > longestPattern) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::DateTimePatternGenerator> generator(
      icu::DateTimePatternGenerator::createInstance(locale, status));
  if (U_FAILURE(status)) return std::nullopt;
  const icu::UnicodeString pattern =
      generator->getBestPattern(internal::icuText(dateTemplate), status);
  if (U_FAILURE(status) || pattern.isEmpty()) return std::nullopt;
  return internal::utf8Text(pattern);
}

}  // namespace

struct DateFormatter::Parts {
  Parts(std::string_view dateFormat, Locale place, const Calendar& days)
      : pattern(dateFormat), locale(place), calendar(days) {
    if (pattern.size() > longestPattern) return;
    if (internal::isGregorian(calendar.identifier()) && locale.facts().hasLatinDigits()) {
      numbers = internal::DatePattern::compile(pattern);
    }
    if (!numbers) icu = std::make_unique<internal::IcuDateFormat>(pattern, locale, calendar);
  }

  std::string pattern;
  Locale locale;
  Calendar calendar;
  // One of the two; none for a pattern that is too long.
  std::optional<internal::DatePattern> numbers;
  std::unique_ptr<const internal::IcuDateFormat> icu;
};

DateFormatter::DateFormatter(std::string_view dateFormat, const Options& options)
    : parts_(std::make_shared<const Parts>(dateFormat, localeOf(options), calendarOf(options))) {}

DateFormatter DateFormatter::withStyles(Style dateStyle, Style timeStyle, const Options& options) {
  if (dateStyle == Style::none && timeStyle == Style::none) return DateFormatter("", options);
  const std::unique_ptr<icu::DateFormat> format(icu::DateFormat::createDateTimeInstance(
      icuStyle(dateStyle), icuStyle(timeStyle),
      internal::icuLocale(localeOf(options), calendarOf(options).identifier())));
  icu::UnicodeString pattern;
  if (const auto* const simple = dynamic_cast<const icu::SimpleDateFormat*>(format.get())) {
    simple->toPattern(pattern);
  }
  return {internal::utf8Text(pattern), options};
}

DateFormatter DateFormatter::withLocalizedDateFormatFromTemplate(std::string_view dateTemplate,
                                                                 const Options& options) {
  const auto locale = internal::icuLocale(localeOf(options), calendarOf(options).identifier());
  return {patternFromTemplate(dateTemplate, locale).value_or(""), options};
}

std::optional<std::string> DateFormatter::dateFormatFromTemplate(std::string_view dateTemplate,
                                                                 Locale locale) {
  return patternFromTemplate(dateTemplate, icu::Locale(locale.identifier().c_str()));
}

const std::string& DateFormatter::dateFormat() const noexcept { return parts_->pattern; }
Locale DateFormatter::locale() const noexcept { return parts_->locale; }
Calendar DateFormatter::calendar() const noexcept { return parts_->calendar; }
TimeZone DateFormatter::timeZone() const noexcept { return parts_->calendar.timeZone(); }

void DateFormatter::append(Date date, std::string& text) const {
  if (!(std::fabs(date.timeIntervalSinceReferenceDate()) <= internal::greatestInterval)) return;
  if (parts_->numbers) {
    const internal::Instant instant(date);
    parts_->numbers->append(text, instant, timeZone().rules().offsetAt(instant.second));
  } else if (parts_->icu != nullptr) {
    text += parts_->icu->string(date);
  }
}

DateParsing DateFormatter::parse(std::string_view text) const {
  if (parts_->numbers) return parts_->numbers->parse(text, timeZone().rules());
  if (parts_->icu == nullptr || text.size() > longestText) {
    return {.date = std::nullopt, .position = 0, .expected = "a shorter text or pattern"};
  }
  return parts_->icu->parse(text);
}

}  // namespace tessarine
