#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tessarine/values/Date.hpp"

namespace tessarine::tool {

/// The ISO 8601 text of `date` in UTC with as many fraction digits as it takes to read the same
/// double back. Absent for dates before year 0 or after year 9999, and for those that are no
/// number.
std::optional<std::string> isoText(Date date);

/// Reads such a text: "YYYY-MM-DDThh:mm:ss", a fraction of any length, "Z" or an offset "+hh:mm".
std::optional<Date> dateFromIso(std::string_view text);

}  // namespace tessarine::tool
