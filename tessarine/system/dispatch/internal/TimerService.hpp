#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "tessarine/system/dispatch/Clock.hpp"
#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/dispatch/internal/TimerWheel.hpp"

namespace tessarine::detail {

/// Calls a function once its deadline has come, never before. Meant as a member of what waits: it
/// allocates nothing, and arming or cancelling costs a lock and a few stores.
///
///     struct Sleep { Timer timer{[](Timer& timer) noexcept { ... }}; };
///     sleep.timer.schedule(DispatchTime::now() + 0.5);
///
/// Any thread. The function runs on the timer thread (under a `ManualClock` on the thread that
/// moves it) with no lock held; it shall be short and push the real work to a queue. It may arm its
/// timer anew, or destroy it: once called, nothing touches the timer. A timer that is pending must
/// be cancelled before it is destroyed.
class Timer : private WheelEntry {
 public:
  using Function = void (*)(Timer&) noexcept;
  explicit Timer(Function function) noexcept : function_(function) {}

  /// Arms the timer, or moves its deadline if it is pending. True if it was not pending: there will
  /// be one call more. A deadline in the past is due at once, still on the timer thread.
  bool schedule(DispatchTime time);

  /// True if the timer was pending: there will be one call less. False if it was not: it has not
  /// been armed, or its function has been called or is about to be, for which the caller provides
  /// by counting calls or by a state that outlives them.
  bool cancel();

  /// Whether a deadline is still to come. In the timer's function: whether it was armed again since
  /// the deadline that the call is for.
  bool isPending() const;

 private:
  friend class TimerService;
  const Function function_;
};

/// The timers of the process and the one thread that fires them; there is none before the first
/// arming, and it sleeps until the next deadline, without one until woken. Never destroyed.
///
/// Putting a deadline off is lazy: the entry stays where it is filed, and finds its new place when
/// that time comes. So re-arming in a burst is a store, and costs one wake-up an interval.
class TimerService {
 public:
  static TimerService& shared();

  bool schedule(Timer& timer, DispatchTime deadline);
  bool cancel(Timer& timer);
  bool isPending(const Timer& timer);

  // For `ManualClock` alone.
  void startManual(DispatchTime now);
  void endManual();
  /// Moves the manual clock to the next instant at or before `limit` at which something is due, and
  /// calls what is; false when there is none.
  bool fireNextManual(DispatchTime limit);

 private:
  TimerService() = default;
  void callDue(TimerWheel& wheel, std::uint64_t now, MutexLock& lock);
  /// Has the thread look at the wheel. Called without the lock.
  void wakeThread(bool hadThread);
  void run();

  Mutex mutex_;
  TimerWheel real_ TESSARINE_GUARDED_BY(mutex_);
  std::optional<TimerWheel> manual_ TESSARINE_GUARDED_BY(mutex_);
  /// When the thread wakes by itself; a deadline before that has to wake it.
  std::uint64_t wakesAt_ TESSARINE_GUARDED_BY(mutex_) = TimerWheel::never;
  bool hasThread_ TESSARINE_GUARDED_BY(mutex_) = false;
  std::atomic<std::uint32_t> wakeCalls_{0};  // the thread sleeps on it
};

}  // namespace tessarine::detail
