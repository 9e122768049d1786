#pragma once

#include <atomic>
#include <coroutine>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <stop_token>
#include <type_traits>
#include <utility>
#include <variant>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Mutex.hpp"

namespace tessarine {
class DispatchQueue;
}

/// What `Async`, `Task`, continuations and streams share. Hosts meet it only because coroutines are
/// compiled in their sources.
namespace tessarine::detail {

class TaskContext;

/// Goes on with `next` from a coroutine that suspends: what `await_suspend` answers. The stack does
/// not grow. Clang makes a tail call of it in all its builds; other compilers make one only when
/// they optimise, so there the loop that runs the task goes on with `next`.
TESSARINE_EXPORT std::coroutine_handle<> transferThroughLoop(std::coroutine_handle<> next);
inline std::coroutine_handle<> transferTo(std::coroutine_handle<> next) {
#if defined(__clang__)
  return next;
#else
  return transferThroughLoop(next);
#endif
}

/// A suspended coroutine and the task it belongs to.
class TESSARINE_EXPORT Resumption {
 public:
  Resumption() noexcept = default;
  /// `coroutine` is of the task that runs on this thread, if any.
  explicit Resumption(std::coroutine_handle<> coroutine) noexcept;
  explicit operator bool() const noexcept { return static_cast<bool>(coroutine_); }

  /// Lets the coroutine go on: on its task's queue, later; without a task here, now. Once only.
  void resume() const;

 private:
  TaskContext* task_ = nullptr;  // lives at least until its coroutines have ended
  std::coroutine_handle<> coroutine_;
};

/// What a coroutine left behind: nothing yet, a value or an exception.
template <class T>
class Outcome {
  struct Nothing {};
  using Stored = std::conditional_t<
      std::is_void_v<T>, Nothing,
      std::conditional_t<std::is_reference_v<T>, std::remove_reference_t<T>*, std::remove_cv_t<T>>>;

 public:
  template <class... Arguments>
  void setValue(Arguments&&... arguments) {
    if constexpr (std::is_reference_v<T>)
      stored_.template emplace<1>(std::addressof(arguments)...);
    else
      stored_.template emplace<1>(std::forward<Arguments>(arguments)...);
  }
  void setError(std::exception_ptr error) noexcept {
    stored_.template emplace<2>(std::move(error));
  }

  /// Moves the value out, or throws the exception.
  T take() {
    if (stored_.index() == 2) std::rethrow_exception(std::move(*std::get_if<2>(&stored_)));
    if constexpr (std::is_reference_v<T>)
      return static_cast<T>(**std::get_if<1>(&stored_));
    else if constexpr (!std::is_void_v<T>)
      return std::move(*std::get_if<1>(&stored_));
  }

  /// The value itself, or throws the exception, as often as it is asked.
  decltype(auto) look() const {
    if (stored_.index() == 2) std::rethrow_exception(*std::get_if<2>(&stored_));
    if constexpr (std::is_reference_v<T>)
      return static_cast<T>(**std::get_if<1>(&stored_));
    else if constexpr (!std::is_void_v<T>)
      return static_cast<const Stored&>(*std::get_if<1>(&stored_));
  }

 private:
  std::variant<std::monostate, Stored, std::exception_ptr> stored_;
};

/// The meeting of a coroutine that suspends and an event that lets it go on, in either order and on
/// any threads: whichever comes second resumes it.
class TESSARINE_EXPORT Rendezvous {
 public:
  explicit Rendezvous(std::coroutine_handle<> coroutine) noexcept : waiter_(coroutine) {}
  Rendezvous(const Rendezvous&) = delete;
  Rendezvous& operator=(const Rendezvous&) = delete;

  /// True for the first caller only, which then sets what the coroutine finds and calls `arrive`.
  bool claim() noexcept { return !claimed_.exchange(true, std::memory_order_acq_rel); }
  void arrive();

  /// The last act of `await_suspend`: false if the event was first, and the coroutine goes on at
  /// once. When it is true the coroutine may be running elsewhere already.
  bool suspend() noexcept;

  /// The coroutine goes away or needs no event any more.
  void abandon() noexcept { phase_.store(Phase::over, std::memory_order_release); }

 private:
  enum class Phase : std::uint8_t { before, suspended, over };
  std::atomic<bool> claimed_{false};
  std::atomic<Phase> phase_{Phase::before};
  const Resumption waiter_;
};

/// The part of a task that does not depend on its value.
class TESSARINE_EXPORT TaskContext : public std::enable_shared_from_this<TaskContext> {
 public:
  explicit TaskContext(std::shared_ptr<DispatchQueue> queue);
  virtual ~TaskContext();
  TaskContext(const TaskContext&) = delete;
  TaskContext& operator=(const TaskContext&) = delete;

  /// The task that runs on this thread; null outside of any. Never cached across a suspension, as
  /// a coroutine may go on on another thread.
  static TaskContext* current() noexcept;
  static bool isCurrentCancelled() noexcept;
  /// Asked to stop when the current task is cancelled; without a task, never.
  static std::stop_token currentStopToken() noexcept;
  /// Said by a root coroutine that suspends for the last time.
  static void rootEnded() noexcept;

  /// Begins on the queue. The task holds itself until it has ended.
  void start();
  /// Goes on with a coroutine of the task, on the queue.
  void schedule(std::coroutine_handle<> coroutine);

  void cancel() noexcept;
  bool isCancelled() const noexcept { return stop_.stop_requested(); }

  bool hasEnded() const noexcept { return hasEnded_.load(std::memory_order_acquire); }
  /// Blocks until the task has ended.
  void wait();

  /// A coroutine that waits for the end; it lies in that coroutine's frame.
  struct Waiter {
    Resumption resumption;
    Waiter* next = nullptr;
  };
  /// False if the task has ended.
  bool enrol(Waiter& waiter);
  void strike(Waiter& waiter) noexcept;

 protected:
  /// Makes the root coroutine; null if that failed, which is the outcome then.
  virtual std::coroutine_handle<> begin() noexcept = 0;
  /// Takes over the outcome and destroys the root coroutine and what it was made from.
  virtual void end() noexcept = 0;

 private:
  void run(std::coroutine_handle<> coroutine);
  void finish();

  const std::shared_ptr<DispatchQueue> queue_;
  std::stop_source stop_;
  std::shared_ptr<TaskContext> self_;  // from start to end
  std::atomic<bool> hasEnded_{false};
  std::atomic<std::uint32_t> gate_{0};
  Mutex mutex_;
  Waiter* waiters_ TESSARINE_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace tessarine::detail
