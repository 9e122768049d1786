#pragma once

#include <optional>

namespace tessarine::detail {

/// The refreshes a second of the fastest display that the X server of this session drives. Absent
/// without a server, without its libraries (they are loaded here, on the first call), or when it
/// has not answered within a quarter of a second; then the question is left to end on its own.
std::optional<double> randrRefreshRate();

}  // namespace tessarine::detail
