#pragma once

#include <coroutine>
#include <cstddef>
#include <exception>
#include <type_traits>
#include <utility>

#include "tessarine/system/dispatch/FramePool.hpp"
#include "tessarine/system/dispatch/TaskContext.hpp"

namespace tessarine {

template <class T>
class Async;

namespace detail {

/// What the promises of all `Async<T>` have in common.
class AsyncPromiseBase {
 public:
  static void* operator new(std::size_t size) { return takeFrame(size); }
  static void operator delete(void* frame, std::size_t size) noexcept { recycleFrame(frame, size); }

  std::suspend_always initial_suspend() const noexcept { return {}; }
  auto final_suspend() const noexcept { return Final{}; }
  void setContinuation(std::coroutine_handle<> awaiter) noexcept { continuation_ = awaiter; }

 private:
  struct Final {
    bool await_ready() const noexcept { return false; }
    template <class Promise>
    std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> self) const noexcept {
      const std::coroutine_handle<> continuation = self.promise().continuation_;
      if (continuation) return transferTo(continuation);
      TaskContext::rootEnded();
      return std::noop_coroutine();
    }
    void await_resume() const noexcept {}
  };

  std::coroutine_handle<> continuation_;  // null for the root of a task
};

template <class T>
class AsyncPromise : public AsyncPromiseBase {
 public:
  Async<T> get_return_object() noexcept;
  template <class U>
  requires std::is_convertible_v<U&&, T>
  void return_value(U&& value) { outcome.setValue(std::forward<U>(value)); }
  void unhandled_exception() noexcept { outcome.setError(std::current_exception()); }

  Outcome<T> outcome;
};

template <>
class AsyncPromise<void> : public AsyncPromiseBase {
 public:
  Async<void> get_return_object() noexcept;
  void return_void() { outcome.setValue(); }
  void unhandled_exception() noexcept { outcome.setError(std::current_exception()); }

  Outcome<void> outcome;
};

}  // namespace detail

/// What an asynchronous operation returns: a coroutine that begins when it is awaited, once, and
/// whose value or exception then reaches the awaiter. Nothing runs before.
///
///     Async<int> lineCount(std::string path) {
///       const std::string text = co_await read(path);
///       co_return std::ranges::count(text, '\n');
///     }
///     Task counting([] { return lineCount("notes.txt"); });  // from outside of any coroutine
///
/// It runs in the task of its awaiter. Awaiting costs a frame from the thread's store and two
/// jumps; the stack does not grow with the number of awaits. Destroying it destroys the coroutine
/// at whatever point it is suspended, with all that it awaits; not while it runs. References and
/// views among its arguments must live as long as it does.
template <class T = void>
class [[nodiscard]] Async {
 public:
  using promise_type = detail::AsyncPromise<T>;
  using Value = T;

  Async(Async&& other) noexcept : coroutine_(std::exchange(other.coroutine_, nullptr)) {}
  Async& operator=(Async&& other) noexcept {
    if (this != &other) {
      destroy();
      coroutine_ = std::exchange(other.coroutine_, nullptr);
    }
    return *this;
  }
  ~Async() { destroy(); }

  /// Awaited as `co_await operation()` or `co_await std::move(operation)`.
  auto operator co_await() && noexcept { return Awaiter{coroutine_}; }

  /// For the task whose root this is.
  std::coroutine_handle<> root() const noexcept { return coroutine_; }
  detail::Outcome<T>& outcome() const noexcept { return coroutine_.promise().outcome; }

 private:
  friend promise_type;
  using Handle = std::coroutine_handle<promise_type>;

  struct Awaiter {
    Handle coroutine;
    bool await_ready() const noexcept { return false; }
    std::coroutine_handle<> await_suspend(std::coroutine_handle<> awaiter) const {
      coroutine.promise().setContinuation(awaiter);
      return detail::transferTo(coroutine);
    }
    T await_resume() const { return coroutine.promise().outcome.take(); }
  };

  explicit Async(Handle coroutine) noexcept : coroutine_(coroutine) {}
  void destroy() noexcept {
    if (coroutine_) coroutine_.destroy();
  }

  Handle coroutine_;
};

namespace detail {

template <class T>
Async<T> AsyncPromise<T>::get_return_object() noexcept {
  return Async<T>(std::coroutine_handle<AsyncPromise>::from_promise(*this));
}
inline Async<void> AsyncPromise<void>::get_return_object() noexcept {
  return Async<void>(std::coroutine_handle<AsyncPromise>::from_promise(*this));
}

/// The value type of the `Async` that `F` answers.
template <class F, class... Arguments>
using AsyncResult = typename std::invoke_result_t<F, Arguments...>::Value;

template <class F, class... Arguments>
concept AsyncOperation = requires {
  typename AsyncResult<F, Arguments...>;
};

}  // namespace detail
}  // namespace tessarine
