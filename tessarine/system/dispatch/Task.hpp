#pragma once

#include <concepts>
#include <coroutine>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <type_traits>
#include <utility>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Async.hpp"
#include "tessarine/system/dispatch/CancellationError.hpp"
#include "tessarine/system/dispatch/DispatchQueue.hpp"
#include "tessarine/system/dispatch/FramePool.hpp"
#include "tessarine/system/dispatch/TaskContext.hpp"

namespace tessarine {
namespace detail {

class SleepState;

/// What `Task<>::sleep` answers.
class TESSARINE_EXPORT Sleep {
 public:
  explicit Sleep(std::uint64_t nanoseconds) noexcept : nanoseconds_(nanoseconds) {}
  Sleep(const Sleep&) = delete;
  Sleep& operator=(const Sleep&) = delete;
  ~Sleep();

  bool await_ready() const noexcept;
  bool await_suspend(std::coroutine_handle<> coroutine);
  void await_resume();

 private:
  struct Cancel {
    std::shared_ptr<SleepState> state;
    void operator()() const;
  };
  void letGo() noexcept;

  const std::uint64_t nanoseconds_;
  std::shared_ptr<SleepState> state_;
  std::optional<std::stop_callback<Cancel>> onCancel_;
};

/// A task with its value.
template <class T>
class TaskState : public TaskContext {
 public:
  using TaskContext::TaskContext;
  Outcome<T> outcome;  // constant once the task has ended
};

/// A task with the operation it was made from, which lives until the task ends.
template <class T, class F>
class TaskBody final : public TaskState<T> {
 public:
  TaskBody(F&& operation, std::shared_ptr<DispatchQueue> queue)
      : TaskState<T>(std::move(queue)), operation_(std::move(operation)) {}

 private:
  std::coroutine_handle<> begin() noexcept override {
    try {
      return root_.emplace(std::invoke(*operation_)).root();
    } catch (...) {
      this->outcome.setError(std::current_exception());
      return nullptr;
    }
  }
  void end() noexcept override {
    try {
      if (root_) this->outcome = std::move(root_->outcome());
    } catch (...) {  // the value could not be moved
      this->outcome.setError(std::current_exception());
    }
    root_.reset();
    operation_.reset();
  }

  std::optional<F> operation_;
  std::optional<Async<T>> root_;
};

/// Waits for a task's end; its value is looked at, as others may want it too.
template <class T>
class TaskAwaiter {
 public:
  explicit TaskAwaiter(std::shared_ptr<TaskState<T>> state) noexcept : state_(std::move(state)) {}
  TaskAwaiter(const TaskAwaiter&) = delete;
  TaskAwaiter& operator=(const TaskAwaiter&) = delete;
  ~TaskAwaiter() {
    if (isEnrolled_) state_->strike(waiter_);
  }

  bool await_ready() const noexcept { return state_->hasEnded(); }
  // Not inlined: the coroutine may go on elsewhere within it, and no part of it may lie in the
  // frame.
  __attribute__((noinline)) bool await_suspend(std::coroutine_handle<> coroutine) {
    waiter_.resumption = Resumption(coroutine);
    isEnrolled_ = true;
    return state_->enrol(waiter_);
  }
  T await_resume() {
    isEnrolled_ = false;
    return state_->outcome.look();
  }

 private:
  const std::shared_ptr<TaskState<T>> state_;
  TaskContext::Waiter waiter_;
  bool isEnrolled_ = false;
};

}  // namespace detail

/// Work that runs beside its maker. It starts at once, on the general queue or on the one given,
/// and runs to its end whether or not anybody holds a handle; handles are cheap to copy and all
/// mean the same task. Every member may be called from any thread.
///
///     Task indexing([folder]() -> Async<> { co_await index(folder); });
///     indexing.cancel();               // a wish: sleeps end early, the rest sees the flag
///     co_await indexing.value();       // its value, or its exception
///
/// All coroutines of a task go on on its queue, one at a time; on a different worker thread perhaps
/// after each suspension. The operation and its captures live until the task has ended. An
/// exception that nobody awaits is dropped.
template <class T = void>
class Task {
 public:
  /// Starts `operation`, any callable that answers `Async<T>`, which is called on `queue`.
  template <class F>
  requires detail::AsyncOperation<F&> && std::same_as<detail::AsyncResult<F&>, T>
  explicit Task(F operation, std::shared_ptr<DispatchQueue> queue = DispatchQueue::global()) {
    using Body = detail::TaskBody<T, F>;
    state_ = std::allocate_shared<Body>(detail::FrameAllocator<Body>(), std::move(operation),
                                        std::move(queue));
    state_->start();
  }

  /// Sets the flag and runs the handlers for it, once. A task that has ended stays as it is.
  void cancel() const noexcept { state_->cancel(); }
  bool isCancelled() const noexcept { return state_->isCancelled(); }
  bool hasEnded() const noexcept { return state_->hasEnded(); }

  /// Awaited for the value or the exception of the task, by any number of coroutines,
  /// each of which gets a copy. The cancellation of the awaiting task does not end the wait.
  auto value() const noexcept requires std::is_void_v<T> || std::is_reference_v<T> ||
      std::copy_constructible<T> {
    return detail::TaskAwaiter<T>(state_);
  }

  /// Blocks this thread until the task has ended, for code that is no coroutine. Never on the
  /// thread whose queue the task needs.
  void wait() const { state_->wait(); }

  /// Whether the task that runs this code has been cancelled; false outside of any.
  static bool isCancelledHere() noexcept { return detail::TaskContext::isCurrentCancelled(); }

  /// Throws a `CancellationError` if the current task has been cancelled.
  static void checkCancellation() {
    if (isCancelledHere()) throw CancellationError();
  }

  /// Awaited: suspends for that long by the `Clock`, never for less. Throws a `CancellationError`
  /// as soon as the task is cancelled, also if that was before. Zero does not suspend.
  static detail::Sleep sleep(std::uint64_t nanoseconds) noexcept {
    return detail::Sleep(nanoseconds);
  }

 private:
  std::shared_ptr<detail::TaskState<T>> state_;
};

template <class F>
Task(F) -> Task<detail::AsyncResult<F&>>;
template <class F>
Task(F, std::shared_ptr<DispatchQueue>) -> Task<detail::AsyncResult<F&>>;

/// Awaits `operation`, a callable that answers an `Async`. If the current task is cancelled
/// meanwhile, `onCancel` runs at once on the cancelling thread; if it was before, here. When the
/// await is over, `onCancel` is neither running nor will it.
template <detail::AsyncOperation Operation, std::invocable Handler>
Async<detail::AsyncResult<Operation>> withTaskCancellationHandler(Operation operation,
                                                                  Handler onCancel) {
  const std::stop_callback handler(detail::TaskContext::currentStopToken(), std::move(onCancel));
  co_return co_await std::move(operation)();
}

}  // namespace tessarine
