#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tessarine/export.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

/// Dates as ISO 8601 writes them, in the internet date-time form and in GMT: 2024-05-01T12:34:56Z.
/// Immutable; any thread. The Gregorian calendar throughout.
class TESSARINE_EXPORT ISO8601DateFormatter {
 public:
  /// The form is a sum of bits; the internet date-time form is a full date with dashes, a time with
  /// colons, and a zone with a colon.
  static constexpr int withInternetDateTime = 1907;

  /// One for everybody.
  static const ISO8601DateFormatter& shared() noexcept;

  int formatOptions() const noexcept { return withInternetDateTime; }

  /// The second that `date` lies in; fractions are cut. Empty when the year is not one of 0 to
  /// 9999, or the date is no number.
  std::string string(Date date) const;

  /// The date of a text as a whole: four-digit year, upper-case T, zone "Z", "+hh:mm" or "-hh:mm"
  /// up to 23:59. Absent for any other text and for a day or time that does not exist, such as 29
  /// February 2023, hour 24 or second 60.
  std::optional<Date> date(std::string_view text) const noexcept;
};

}  // namespace tessarine
