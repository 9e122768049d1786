#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/export.hpp"
#include "tessarine/system/time/DateParsing.hpp"
#include "tessarine/system/time/TimeZone.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

namespace internal {
class DatePattern;
}

/// Dates as ISO 8601 writes them: 2024-05-01T12:34:56Z, or another of its forms. The Gregorian
/// calendar throughout, years 0 to 9999. Immutable; copies share one layout; any thread. In the
/// order of 50 ns each way.
class TESSARINE_EXPORT ISO8601DateFormatter {
 public:
  /// A form is a sum of bits. Without `withMonth` a day is that of the year, with `withWeekOfYear`
  /// of the week.
  static constexpr int withYear = 1;
  static constexpr int withMonth = 2;
  static constexpr int withWeekOfYear = 4;
  static constexpr int withDay = 16;
  static constexpr int withTime = 32;
  static constexpr int withTimeZone = 64;
  static constexpr int withSpaceBetweenDateAndTime = 128;
  static constexpr int withDashSeparatorInDate = 256;
  static constexpr int withColonSeparatorInTime = 512;
  static constexpr int withColonSeparatorInTimeZone = 1024;
  static constexpr int withFractionalSeconds = 2048;
  static constexpr int withFullDate = 275;
  static constexpr int withInternetDateTime = 1907;

  /// Bits that are none of the above do nothing. `timeZone` is that of texts, also of those without
  /// one; offsets are of whole minutes, as ISO 8601 has them.
  explicit ISO8601DateFormatter(int formatOptions = withInternetDateTime,
                                TimeZone timeZone = TimeZone::gmt());

  /// The internet date-time form in GMT, one for everybody.
  static const ISO8601DateFormatter& shared() noexcept;

  int formatOptions() const noexcept { return formatOptions_; }
  TimeZone timeZone() const noexcept { return zone_; }

  /// The second that `date` lies in, or with `withFractionalSeconds` the millisecond; the rest is
  /// cut. Empty when the year is not one of 0 to 9999, or the date is no number.
  std::string string(Date date) const;
  /// The same behind a text, which spares an allocation where there is room.
  void append(Date date, std::string& text) const;

  /// The date of a text as a whole: upper-case T, zone "Z", "+hh:mm" or "-hh:mm" up to 23:59
  /// (without colon in forms without), a fraction of 1 to 9 digits exactly in forms with one.
  /// Absent for any other text and for a day or time that does not exist, such as 29 February 2023,
  /// hour 24 or second 60.
  std::optional<Date> date(std::string_view text) const noexcept { return parse(text).date; }
  /// The same, with the place of what does not fit.
  DateParsing parse(std::string_view text) const noexcept;

 private:
  int formatOptions_;
  TimeZone zone_;
  std::shared_ptr<const internal::DatePattern> pattern_;
};

}  // namespace tessarine
