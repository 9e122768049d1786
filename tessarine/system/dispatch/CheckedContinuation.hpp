#pragma once

#include <atomic>
#include <coroutine>
#include <cstdint>
#include <exception>
#include <memory>
#include <type_traits>
#include <utility>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/FramePool.hpp"
#include "tessarine/system/dispatch/TaskContext.hpp"

namespace tessarine {

/// Reaches the awaiting coroutine when the last copy of its continuation went away without
/// resuming it, so that the coroutine does not wait for ever.
class TESSARINE_EXPORT AbandonedContinuationError : public std::exception {
 public:
  AbandonedContinuationError() noexcept = default;
  AbandonedContinuationError(const AbandonedContinuationError&) noexcept = default;
  AbandonedContinuationError& operator=(const AbandonedContinuationError&) noexcept = default;
  ~AbandonedContinuationError() override;
  const char* what() const noexcept override;
};

namespace detail {

[[noreturn]] TESSARINE_EXPORT void failResumedTwice() noexcept;

template <class T>
struct ContinuationState : Rendezvous {
  using Rendezvous::Rendezvous;
  std::atomic<std::uint32_t> copies{0};
  Outcome<T> outcome;
};

/// The right and duty to resume one suspended coroutine; shared by its copies.
template <class T>
class ContinuationHandle {
 public:
  explicit ContinuationHandle(std::shared_ptr<ContinuationState<T>> state) noexcept
      : state_(std::move(state)) {
    state_->copies.fetch_add(1, std::memory_order_relaxed);
  }
  ContinuationHandle(const ContinuationHandle& other) noexcept : state_(other.state_) {
    if (state_) state_->copies.fetch_add(1, std::memory_order_relaxed);
  }
  ContinuationHandle(ContinuationHandle&&) noexcept = default;
  ContinuationHandle& operator=(ContinuationHandle other) noexcept {
    std::swap(state_, other.state_);
    return *this;
  }
  ~ContinuationHandle() {
    if (!state_ || state_->copies.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    if (state_->claim()) deliver(std::make_exception_ptr(AbandonedContinuationError()));
  }

  template <class... Value>
  void resume(Value&&... value) const {
    if (!state_->claim()) failResumedTwice();
    try {
      state_->outcome.setValue(std::forward<Value>(value)...);
    } catch (...) {
      state_->outcome.setError(std::current_exception());
    }
    state_->arrive();
  }
  void resumeThrowing(std::exception_ptr error) const {
    if (!state_->claim()) failResumedTwice();
    deliver(std::move(error));
  }

 private:
  void deliver(std::exception_ptr error) const {
    state_->outcome.setError(std::move(error));
    state_->arrive();
  }
  std::shared_ptr<ContinuationState<T>> state_;
};

template <class T, class Continuation, class Body>
class ContinuationAwaiter {
 public:
  explicit ContinuationAwaiter(Body body) : body_(std::move(body)) {}
  ContinuationAwaiter(const ContinuationAwaiter&) = delete;
  ContinuationAwaiter& operator=(const ContinuationAwaiter&) = delete;
  ~ContinuationAwaiter() {
    if (state_) state_->abandon();
  }

  bool await_ready() const noexcept { return false; }
  // Not inlined: the coroutine may go on elsewhere within it, and no part of it may lie in the
  // frame.
  __attribute__((noinline)) bool await_suspend(std::coroutine_handle<> coroutine) {
    const auto state = std::allocate_shared<ContinuationState<T>>(
        FrameAllocator<ContinuationState<T>>(), coroutine);
    state_ = state;
    body_(Continuation(ContinuationHandle<T>(state)));
    return state->suspend();
  }
  T await_resume() { return state_->outcome.take(); }

 private:
  Body body_;
  std::shared_ptr<ContinuationState<T>> state_;
};

}  // namespace detail

/// Lets one suspended coroutine go on with a value. Copies are the same continuation, so it fits
/// into any callback; exactly one call of `resume` is due over all of them, on any thread, within
/// the body of `withCheckedContinuation` or later. A second one is a programmer error. If all
/// copies go without one, the coroutine gets an `AbandonedContinuationError`. A coroutine that was
/// destroyed meanwhile makes the call do nothing.
///
/// The coroutine goes on on its task's queue, not inside `resume`, unless it runs without a task.
template <class T>
class Continuation {
 public:
  explicit Continuation(detail::ContinuationHandle<T> handle) noexcept
      : handle_(std::move(handle)) {}
  template <class Value = T>
  requires(!std::is_void_v<T>) void resume(Value&& value) const {
    handle_.resume(std::forward<Value>(value));
  }
  void resume() const requires std::is_void_v<T> { handle_.resume(); }

 private:
  detail::ContinuationHandle<T> handle_;
};

/// A `Continuation` that may also let the coroutine go on with an exception.
template <class T>
class ThrowingContinuation {
 public:
  explicit ThrowingContinuation(detail::ContinuationHandle<T> handle) noexcept
      : handle_(std::move(handle)) {}
  template <class Value = T>
  requires(!std::is_void_v<T>) void resume(Value&& value) const {
    handle_.resume(std::forward<Value>(value));
  }
  void resume() const requires std::is_void_v<T> { handle_.resume(); }

  void resumeThrowing(std::exception_ptr error) const { handle_.resumeThrowing(std::move(error)); }
  template <class Error>
  requires(!std::is_same_v<Error, std::exception_ptr>) void resumeThrowing(Error error) const {
    handle_.resumeThrowing(std::make_exception_ptr(std::move(error)));
  }

 private:
  detail::ContinuationHandle<T> handle_;
};

/// Awaited: calls `body` with a continuation, at once on this thread, and suspends until that is
/// resumed. An exception of `body` reaches the awaiter.
///
///     const int answer = co_await withCheckedContinuation<int>([&](Continuation<int> c) {
///       dialog.onClosed([c](int button) { c.resume(button); });
///     });
template <class T, class Body>
[[nodiscard]] auto withCheckedContinuation(Body body) {
  return detail::ContinuationAwaiter<T, Continuation<T>, Body>(std::move(body));
}

/// The same with a continuation that may also be resumed with an exception.
template <class T, class Body>
[[nodiscard]] auto withCheckedThrowingContinuation(Body body) {
  return detail::ContinuationAwaiter<T, ThrowingContinuation<T>, Body>(std::move(body));
}

}  // namespace tessarine
