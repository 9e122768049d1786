#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/export.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

/// Dates by a pattern of the Unicode date pattern language (UTS 35, "yyyy-MM-dd HH:mm:ss").
/// Immutable; copies share one formatter; any thread.
class TESSARINE_EXPORT DateFormatter {
 public:
  /// Gregorian calendar. `locale` is an identifier such as "de_DE"; "en_US_POSIX" is the same
  /// everywhere. `timeZone` is a name such as "Europe/Paris" or "GMT+02:00"; one that nobody knows
  /// counts as GMT. A pattern that is none gives empty texts and reads nothing.
  explicit DateFormatter(std::string_view dateFormat, std::string_view locale = "en_US_POSIX",
                         std::string_view timeZone = "GMT");

  const std::string& dateFormat() const noexcept;

  /// Empty when the date is no finite number.
  std::string string(Date date) const;
  /// The date of a text that fits the pattern as a whole, absent for any other.
  std::optional<Date> date(std::string_view text) const;

 private:
  struct Parts;
  std::shared_ptr<const Parts> parts_;
};

}  // namespace tessarine
