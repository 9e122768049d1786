#include "tessarine/system/dispatch/internal/TimerService.hpp"

#include <algorithm>
#include <utility>

#include "tessarine/system/dispatch/internal/ManualTime.hpp"
#include "tessarine/system/dispatch/internal/QuietThread.hpp"
#include "tessarine/system/dispatch/internal/Waiting.hpp"
#include "tessarine/values/fatal.hpp"

#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tessarine::detail {
namespace {

/// What the system calls sched_attr, in its first form; the C library has no name for it.
struct SchedulingAttributes {
  std::uint32_t size;
  std::uint32_t policy;
  std::uint64_t flags;
  std::int32_t nice;
  std::uint32_t priority;
  std::uint64_t
      slice;  // nanoseconds; of an ordinary thread since Linux 6.12, without effect before
  std::uint64_t deadline;
  std::uint64_t period;
};

/// Has the system wake this thread without the usual 50 us of slack, and let it in soon though the
/// cores be busy: it asks for short turns, which come earlier than long ones. Its share stays what
/// it is. Where the system refuses, deadlines are met as those of any thread.
void becomePunctual() noexcept {
  prctl(PR_SET_TIMERSLACK, 1, 0, 0, 0);
  SchedulingAttributes attributes{};
  if (syscall(SYS_sched_getattr, 0, &attributes, sizeof attributes, 0) != 0) return;
  if (attributes.policy != SCHED_OTHER) return;
  attributes.slice = 100'000;  // the shortest there is
  syscall(SYS_sched_setattr, 0, &attributes, 0);
}

}  // namespace

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
  becomePunctual();
  MutexLock lock(mutex_);
  for (;;) {
    wakesAt_ = 0;  // awake: nobody has to call
    callDue(real_, realTime(), lock);
    wakesAt_ = real_.nextTime();
    const std::uint64_t next = wakesAt_;
    const std::uint32_t calls = wakeCalls_.load(std::memory_order_acquire);
    lock.unlock();
    if (next == TimerWheel::never)
      sleepWhile(wakeCalls_, calls);
    else
      sleepWhileBefore(wakeCalls_, calls, next);
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
