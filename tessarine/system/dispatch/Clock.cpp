#include "tessarine/system/dispatch/Clock.hpp"

#include <ctime>

#include "tessarine/system/dispatch/internal/ManualTime.hpp"

namespace tessarine {

std::uint64_t detail::realTime() noexcept {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000U +
         static_cast<std::uint64_t>(time.tv_nsec);
}

DispatchTime Clock::now() noexcept {
  const std::uint64_t manual = detail::manualTime.load(std::memory_order_acquire);
  return DispatchTime(manual ? manual : detail::realTime());
}

}  // namespace tessarine
