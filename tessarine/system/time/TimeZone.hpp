#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/system/time/Locale.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

namespace internal {
class ZoneRules;
}

/// A zone of the system's time-zone data, or a fixed offset from GMT. A small value to pass by
/// copy; what it stands for is read once and kept for the life of the process. Any thread.
class TESSARINE_EXPORT TimeZone {
 public:
  enum class NameStyle : std::uint8_t {
    standard,
    shortStandard,
    daylightSaving,
    shortDaylightSaving,
    generic,
    shortGeneric
  };

  /// GMT.
  TimeZone() noexcept;

  static TimeZone gmt() noexcept { return {}; }
  /// The host's zone: what TZ names, else what /etc/localtime leads to, else GMT. A change is seen
  /// within a second, at once after `resetSystemTimeZone`.
  static TimeZone current() noexcept;
  static void resetSystemTimeZone() noexcept;

  /// "Europe/Paris", "UTC", "GMT+05:30", "GMT-8"; absent for a name that the system's data do not
  /// have.
  static std::optional<TimeZone> withIdentifier(std::string_view identifier);
  /// "GMT", "UTC", offsets as above, and those few that mean one zone everywhere, such as "CET" or
  /// "PDT". Absent for others, and so for "IST" and "CST", which mean several.
  static std::optional<TimeZone> withAbbreviation(std::string_view abbreviation);
  /// Absent beyond 18 hours.
  static std::optional<TimeZone> withSecondsFromGMT(int seconds);

  /// The names of the system's data, in ascending order. Reads the folder.
  static std::vector<std::string> knownTimeZoneIdentifiers();

  const std::string& identifier() const noexcept;
  const std::string& name() const noexcept { return identifier(); }

  /// Seconds ahead of GMT at that instant. Constant time; dates beyond those of `Calendar` count as
  /// its last.
  int secondsFromGMT(Date date) const noexcept;
  /// Whether the greater of the zone's two offsets is in use, also where the data call winter the
  /// exception.
  bool isDaylightSavingTime(Date date) const noexcept;
  /// As the data have it: "EST", "+03".
  const std::string& abbreviation(Date date) const noexcept;
  /// The first instant after `date` at which clocks or the abbreviation change; absent when none.
  std::optional<Date> nextTransition(Date date) const noexcept;

  /// For people to read: "Central European Summer Time". Absent when the locale data have none.
  std::optional<std::string> localizedName(NameStyle style, const Locale& locale) const;

  /// By identifier.
  bool operator==(const TimeZone&) const noexcept = default;

  /// What the time services work with.
  const internal::ZoneRules& rules() const noexcept { return *rules_; }

 private:
  explicit TimeZone(const internal::ZoneRules& rules) noexcept : rules_(&rules) {}

  const internal::ZoneRules* rules_;
};

}  // namespace tessarine
