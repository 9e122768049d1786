#pragma once

#include <cstddef>

namespace tessarine::internal {

/// Nesting beyond this is refused in both directions.
inline constexpr std::size_t deepestJSON = 512;

}  // namespace tessarine::internal
