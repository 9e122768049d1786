#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/export.hpp"
#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/system/time/DateParsing.hpp"
#include "tessarine/system/time/Locale.hpp"
#include "tessarine/system/time/TimeZone.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

/// Dates by a pattern of the Unicode date pattern language (UTS 35, "yyyy-MM-dd HH:mm:ss").
/// Immutable; copies share one formatter; any thread, without a lock.
///
/// Patterns of ASCII numbers alone (yyyy, M, d, H, m, s, S, X, x, Z, in Gregorian dates and a
/// locale that writes 0 to 9) take about 100 ns. All others go through ICU: microseconds a call,
/// and tens of them to make one.
class TESSARINE_EXPORT DateFormatter {
 public:
  enum class Style : std::uint8_t { none, shortStyle, mediumStyle, longStyle, fullStyle };

  struct Options {
    std::optional<Locale> locale = std::nullopt;      ///< else the current one
    std::optional<Calendar> calendar = std::nullopt;  ///< else the current one
    std::optional<TimeZone> timeZone = std::nullopt;  ///< else that of the calendar
  };

  /// A pattern that is none, or longer than 4096 bytes, gives empty texts and reads nothing.
  explicit DateFormatter(std::string_view dateFormat) : DateFormatter(dateFormat, Options()) {}
  DateFormatter(std::string_view dateFormat, const Options& options);
  /// The locale's own formats for a date, a time, or both.
  static DateFormatter withStyles(Style dateStyle, Style timeStyle) {
    return withStyles(dateStyle, timeStyle, Options());
  }
  static DateFormatter withStyles(Style dateStyle, Style timeStyle, const Options& options);
  /// The locale's order and signs for the fields of a template such as "MMMMd".
  static DateFormatter withLocalizedDateFormatFromTemplate(std::string_view dateTemplate) {
    return withLocalizedDateFormatFromTemplate(dateTemplate, Options());
  }
  static DateFormatter withLocalizedDateFormatFromTemplate(std::string_view dateTemplate,
                                                           const Options& options);

  /// The pattern that the locale has for the fields of a template, in which "j" stands for its
  /// hour; absent when it has none.
  static std::optional<std::string> dateFormatFromTemplate(std::string_view dateTemplate,
                                                           Locale locale);

  const std::string& dateFormat() const noexcept;
  Locale locale() const noexcept;
  Calendar calendar() const noexcept;
  TimeZone timeZone() const noexcept;

  /// Empty when calendars do not know the date.
  std::string string(Date date) const {
    std::string text;
    append(date, text);
    return text;
  }
  /// The same behind a text, which spares an allocation where there is room.
  void append(Date date, std::string& text) const;
  /// The date of a text that fits the pattern as a whole, absent for any other. Fields that the
  /// pattern lacks are those of 1970-01-01 00:00; a time that clocks skip moves forward by what
  /// they skip.
  ///
  /// Numbers have at least the digits of their pattern, years four, fractions 1 to 9 whatever the
  /// pattern says; days and times that do not exist are none. Texts beyond a megabyte are none.
  std::optional<Date> date(std::string_view text) const { return parse(text).date; }
  /// The same, with the place of what does not fit.
  DateParsing parse(std::string_view text) const;

 private:
  struct Parts;
  std::shared_ptr<const Parts> parts_;
};

}  // namespace tessarine
