#pragma once

#include "tessarine/export.hpp"
#include "tessarine/system/time/DateFormatter.hpp"
#include "tessarine/system/time/ISO8601DateFormatter.hpp"

namespace tessarine {

/// The shared formatters for dates between programs. Each is made on first use and lives as long as
/// the process; any thread, without a lock. All are in GMT.
struct TESSARINE_EXPORT Formatter {
  /// 2024-05-01T12:34:56Z
  static const ISO8601DateFormatter& iso8601();
  /// 2024-05-01T12:34:56.789Z
  static const ISO8601DateFormatter& iso8601withFractionalSeconds();
  /// 2024-05-01
  static const ISO8601DateFormatter& iso8601DateOnly();

  // The same by patterns: Gregorian days in the locale that is the same everywhere.

  /// "yyyy-MM-dd'T'HH:mm:ss.SSSXXXXX"
  static const DateFormatter& iso8601withFractionalSecondsLegacy();
  /// "yyyy-MM-dd'T'HH:mm:ss.SSSSSSS", which has no zone: GMT is meant.
  static const DateFormatter& iso8601withFractionalSecondsUTC();
  /// "yyyy-MM-dd"
  static const DateFormatter& iso8601withDateOnlyLegacy();
};

}  // namespace tessarine
