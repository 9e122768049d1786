#pragma once

#include <cstdint>

namespace tessarine {

/// Wishes about how a block is run. Advice like `DispatchQoS`, met as things are: a block of a
/// serial queue runs alone, and a block has no context but its closure.
enum class DispatchWorkItemFlags : std::uint8_t {
  none = 0,
  barrier = 1,
  detached = 2,
  assignCurrentContext = 4,
  noQoS = 8,
  inheritQoS = 16,
  enforceQoS = 32
};

constexpr DispatchWorkItemFlags operator|(DispatchWorkItemFlags a, DispatchWorkItemFlags b) {
  return static_cast<DispatchWorkItemFlags>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}

}  // namespace tessarine
