#pragma once

#include <atomic>
#include <cstdint>

namespace tessarine::detail {

/// What `Clock` shows instead of the real time; 0 while no `ManualClock` lives.
inline constinit std::atomic<std::uint64_t> manualTime{0};

/// The system's monotonic clock in nanoseconds.
std::uint64_t realTime() noexcept;

}  // namespace tessarine::detail
