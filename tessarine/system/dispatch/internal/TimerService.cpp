#include "tessarine/system/dispatch/internal/TimerService.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

#include "tessarine/system/dispatch/internal/ManualTime.hpp"
#include "tessarine/system/dispatch/internal/QuietThread.hpp"
#include "tessarine/system/dispatch/internal/Waiting.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine::detail {

bool Timer::schedule(DispatchTime time) { return TimerService::shared().schedule(*this, time); }

bool Timer::cancel() { return TimerService::shared().cancel(*this); }

bool Timer::isPending() const { return TimerService::shared().isPending(*this); }

TimerService& TimerService::shared() {
  static auto* const service = new TimerService;
  return *service;
}

bool TimerService::schedule(Timer& timer, DispatchTime deadline) {
  MutexLock lock(mutex_);
  TimerWheel& wheel = manual_ ? *manual_ : real_;
  const bool wasPending = timer.wheel != nullptr;
  if (timer.wheel == &wheel) {
    wheel.move(timer, deadline.uptimeNanoseconds());
  } else {
    if (wasPending) timer.wheel->remove(timer);
    timer.deadline = deadline.uptimeNanoseconds();
    wheel.add(timer);
  }
  // What is only put off is still filed where the thread will look.
  const bool mustWake = &wheel == &real_ && timer.deadline < wakesAt_;
  bool hadThread = true;
  if (mustWake) {
    wakesAt_ = timer.deadline;
    hadThread = std::exchange(hasThread_, true);
  }
  lock.unlock();
  if (mustWake) wakeThread(hadThread);
  return !wasPending;
}

bool TimerService::cancel(Timer& timer) {
  const MutexLock lock(mutex_);
  if (!timer.wheel) return false;
  timer.wheel->remove(timer);
  return true;
}

bool TimerService::isPending(const Timer& timer) {
  const MutexLock lock(mutex_);
  return timer.wheel != nullptr;
}

void TimerService::wakeThread(bool hadThread) {
  wakeCalls_.fetch_add(1, std::memory_order_release);
  if (hadThread)
    wakeSleepers(wakeCalls_, 1);
  else if (!startQuietThread("tessarine-timer", [this] { run(); }))
    fatal("The system grants no thread to wait for deadlines on.");
}

/// Calls what is due, without the lock that is held before and after.
void TimerService::callDue(TimerWheel& wheel, std::uint64_t now,
                           MutexLock& lock) TESSARINE_NO_THREAD_SAFETY_ANALYSIS {
  while (WheelEntry* const entry = wheel.takeDue(now)) {
    auto& timer = static_cast<Timer&>(*entry);
    const Timer::Function function = timer.function_;
    lock.unlock();
    function(timer);
    lock.lock();
  }
}

void TimerService::run() {
  // Far enough for no one to notice, near enough for every clock type in between.
  constexpr std::uint64_t longestSleep = 3'600'000'000'000;
  MutexLock lock(mutex_);
  for (;;) {
    wakesAt_ = 0;  // awake: nobody has to call
    const std::uint64_t now = realTime();
    callDue(real_, now, lock);
    wakesAt_ = real_.nextTime();
    const std::uint64_t next = wakesAt_;
    const std::uint32_t calls = wakeCalls_.load(std::memory_order_acquire);
    lock.unlock();
    if (next == TimerWheel::never)
      sleepWhile(wakeCalls_, calls);
    else if (next > now)
      sleepWhile(wakeCalls_, calls, std::chrono::nanoseconds(std::min(next - now, longestSleep)));
    lock.lock();
  }
}

void TimerService::startManual(DispatchTime now) {
  const MutexLock lock(mutex_);
  if (manual_) fatal("A second ManualClock is made while the first one lives.");
  manual_.emplace(now.uptimeNanoseconds());
  manualTime.store(now.uptimeNanoseconds(), std::memory_order_release);
}

void TimerService::endManual() {
  MutexLock lock(mutex_);
  manualTime.store(0, std::memory_order_release);
  bool moved = false;
  while (WheelEntry* const entry = manual_->takeAny()) {
    real_.add(*entry);
    moved = true;
  }
  manual_.reset();
  if (!moved) return;
  wakesAt_ = 0;
  const bool hadThread = std::exchange(hasThread_, true);
  lock.unlock();
  wakeThread(hadThread);
}

bool TimerService::fireNextManual(DispatchTime limit) {
  MutexLock lock(mutex_);
  const std::uint64_t next = manual_->nextTime();
  if (next == TimerWheel::never || next > limit.uptimeNanoseconds()) return false;
  const std::uint64_t now = std::max(next, manualTime.load(std::memory_order_relaxed));
  manualTime.store(now, std::memory_order_release);
  callDue(*manual_, now, lock);
  return true;
}

}  // namespace tessarine::detail
