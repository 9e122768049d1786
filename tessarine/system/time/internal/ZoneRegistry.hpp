#pragma once

#include <string_view>

#include "tessarine/system/time/internal/ZoneRules.hpp"

namespace tessarine::internal {

// Rules are kept for the life of the process, so that a zone is a pointer. Any thread.

/// By a name of the system's data or as an offset; null when there is none.
const ZoneRules* zoneNamed(std::string_view identifier);
/// At most 18 hours either way.
const ZoneRules& zoneAtOffset(int seconds);
const ZoneRules& gmtZone() noexcept;

/// The host's zone.
const ZoneRules& currentZone() noexcept;
/// Lets the next look at the current zone ask the host again.
void forgetCurrentZone() noexcept;

/// Where the system's zone files lie, with a slash at the end.
std::string_view zoneFolder();

}  // namespace tessarine::internal
