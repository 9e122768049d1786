#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Async.hpp"
#include "tessarine/system/dispatch/Block.hpp"
#include "tessarine/system/dispatch/DispatchQueue.hpp"

namespace tessarine {

/// Makes one run out of a burst of requests: each replaces the one before it, and the last one runs
/// once `interval` has passed without a further one. It never runs at once, and a stream of
/// requests without a pause puts the run off for ever; to run now and then within such a stream,
/// use `DispatchQueue::debounce`.
///
///     auto search = std::make_shared<Debouncer>(0.3);
///     field.onChange = [=] { search->debounce(DispatchQueue::main(), [=] { list->find(); }); };
///
/// Any thread, also from inside an action: no entry waits for an action. An action that takes
/// longer than the delay may overlap with the next one if their queues allow it. Destroying the
/// debouncer, also inside its own action, drops a request that has not begun. A request allocates
/// one object and replaces the timer of the one before it, so a burst leaves nothing behind.
///
/// Beside requests for a queue there are those for a task, the asynchronous channel. Each channel
/// replaces its own requests only; they share the count and `reset`.
class TESSARINE_EXPORT Debouncer : public std::enable_shared_from_this<Debouncer> {
 public:
  /// `seconds`: the delay of requests that give none.
  explicit Debouncer(double seconds);
  ~Debouncer();
  Debouncer(const Debouncer&) = delete;
  Debouncer& operator=(const Debouncer&) = delete;

  /// The default delay in seconds.
  double interval() const noexcept { return interval_; }

  /// Asks for `action` on `onQueue`, after `interval` seconds. An exception that leaves `action` is
  /// a programmer error and ends the process with a sentence that names the queue, as in any block.
  void debounce(const std::shared_ptr<DispatchQueue>& onQueue, Block action);

  /// The same after `overrideInterval` seconds, if present; for this request only. Any double will
  /// do: what is negative or not a number means as soon as the queue allows, infinity means never.
  void debounce(const std::shared_ptr<DispatchQueue>& onQueue,
                std::optional<double> overrideInterval, Block action);

  /// Asks for `action` in a task of its own, likewise; it needs the debouncer to be held by a
  /// `std::shared_ptr` and keeps it alive until it has run or been replaced. A request that comes
  /// while the action runs cancels its task, which is for the action to heed: a `CancellationError`
  /// that leaves it is its end, any other exception a programmer error that ends the process. So is
  /// a delay that is no number of nanoseconds above -1 and below 2^64.
  void debounce(std::optional<double> overrideInterval, std::function<Async<>()> action);

  /// Drops the latest request unless its action has begun; none starts once this has returned.
  /// Counts like a request if there was one since the last `cancelWork` or `reset`, even one that
  /// has run.
  void cancelWork();

  /// Drops the latest request of both channels and sets the count to 0.
  void reset();

  /// How many requests found an earlier one, whether it had run or not, and how many `cancelWork`
  /// did, since an action last came to its end or `reset` was called. Set to 0 a little after the
  /// end of an action, so that it may show the former value for a moment.
  std::int64_t debounceCount() const;

 private:
  class State;

  const double interval_;
  State* const state_;  // shared with what is under way
};

}  // namespace tessarine
