#pragma once

#include <cstdint>

namespace tessarine {

/// How urgent a block is. Advice, which this system does not heed so far: the workers share one
/// priority, and a serial queue keeps its order whatever is urgent.
enum class DispatchQoS : std::uint8_t {
  unspecified,
  background,
  utility,
  default_,
  userInitiated,
  userInteractive
};

}  // namespace tessarine
