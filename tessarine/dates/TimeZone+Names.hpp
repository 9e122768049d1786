#pragma once

#include <optional>
#include <string>

#include "tessarine/export.hpp"
#include "tessarine/system/time/TimeZone.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

// Labels for zones, for people to read: none of them names a zone to the library. Any thread.

/// The zone's name in the current locale: that of standard time or daylight saving time at a date,
/// else the one for both. Absent when the locale has none. Kept for the next call.
TESSARINE_EXPORT std::optional<std::string> localName(const TimeZone& zone,
                                                      std::optional<Date> date = std::nullopt);
/// The same with the city in brackets behind it.
TESSARINE_EXPORT std::optional<std::string> localName(const TimeZone& zone,
                                                      std::optional<Date> date, bool includeCity);
/// "New York" of America/New_York; the name itself where it has no parts.
TESSARINE_EXPORT std::optional<std::string> cityName(const TimeZone& zone);
/// How far the zone is ahead of GMT now: "GMT +1", "GMT -3:30".
TESSARINE_EXPORT std::string offsetString(const TimeZone& zone);
/// How far the zone is ahead of another now: "+5:30 hrs", in short "+5.5". The unit is the text
/// of `Bundle::main` for "hr" or "hrs".
TESSARINE_EXPORT std::string offset(const TimeZone& zone, const TimeZone& from, bool isShort);

}  // namespace tessarine
