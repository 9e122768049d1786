#pragma once

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Clock.hpp"

namespace tessarine {

/// Replaces `Clock` while it lives, so that minutes of waiting run in no time and in the same order
/// each time. For tests. Time stands still until it is moved:
///
///     ManualClock clock;
///     queue->asyncAfter(0.3, [&] { ran = true; });
///     clock.advance(0.3);  // ran is true now
///
/// One at a time; a second one is a programmer error. Timers armed before it follow the real clock.
/// It starts at the present, and what still waits when it ends goes on by the real clock.
class TESSARINE_EXPORT ManualClock {
 public:
  ManualClock();
  ~ManualClock();
  ManualClock(const ManualClock&) = delete;
  ManualClock& operator=(const ManualClock&) = delete;

  /// Moves time on by `seconds`; negative and not a number count as 0. First waits as `settle`
  /// does. Then, for each instant at which something is due, in order: the clock shows that
  /// instant, its timers run on this thread, and all that follows from them is waited for, as
  /// `settle` does. So a block that asks for a further delay gets it within the same call, if that
  /// is long enough.
  ///
  /// Not inside a block of any queue but the main one, and on one thread at a time.
  void advance(double seconds);

  /// As `advance`, but waits for nothing: the blocks are submitted in order and may run later. For
  /// tests in which a block waits for what the test does next.
  void advanceWithoutSettling(double seconds);

  /// Returns once the worker threads have nothing to run and nothing submitted waits, chains of
  /// blocks that submit blocks included. On the main thread the blocks of the main queue are run
  /// here; on another one they are left alone. Does not return while a block waits for this thread.
  void settle();
};

}  // namespace tessarine
