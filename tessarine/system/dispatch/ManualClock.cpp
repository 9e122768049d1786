#include "tessarine/system/dispatch/ManualClock.hpp"

#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/dispatch/internal/ManualTime.hpp"
#include "tessarine/system/dispatch/internal/TimerService.hpp"
#include "tessarine/system/dispatch/internal/WorkerPool.hpp"

namespace tessarine {

using detail::TimerService;

ManualClock::ManualClock() { TimerService::shared().startManual(DispatchTime(detail::realTime())); }

ManualClock::~ManualClock() { TimerService::shared().endManual(); }

void ManualClock::advance(double seconds) {
  settle();
  const DispatchTime limit = Clock::now() + (seconds > 0 ? seconds : 0);
  while (TimerService::shared().fireNextManual(limit)) settle();
  detail::manualTime.store(limit.uptimeNanoseconds(), std::memory_order_release);
}

void ManualClock::advanceWithoutSettling(double seconds) {
  const DispatchTime limit = Clock::now() + (seconds > 0 ? seconds : 0);
  while (TimerService::shared().fireNextManual(limit)) {
  }
  detail::manualTime.store(limit.uptimeNanoseconds(), std::memory_order_release);
}

void ManualClock::settle() {
  do {
    detail::WorkerPool::shared().awaitRest();
  } while (MainQueue::isMainThread() && MainQueue::drain() != 0);
}

}  // namespace tessarine
