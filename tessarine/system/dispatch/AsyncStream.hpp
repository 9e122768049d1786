#pragma once

#include <coroutine>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <type_traits>
#include <utility>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/dispatch/TaskContext.hpp"

namespace tessarine {

/// Why a stream ended: its producer finished it, with `error` if it failed; or its consumer went
/// away or was cancelled.
struct StreamTermination {
  enum class Reason : std::uint8_t { finished, cancelled };
  Reason reason = Reason::finished;
  std::exception_ptr error;
};

/// What became of a value given to a stream.
enum class YieldResult : std::uint8_t { enqueued, terminated };

namespace detail {

[[noreturn]] TESSARINE_EXPORT void failAwaitedTwice() noexcept;

/// What the two ends of a stream share.
template <class T>
class StreamStorage {
 public:
  /// One consumer's wait; it lies in the coroutine's frame.
  struct Wait {
    std::optional<T> value;
    std::exception_ptr error;
    Resumption resumption;
  };
  using Handler = std::function<void(const StreamTermination&)>;

  YieldResult yield(T&& value) {
    MutexLock lock(mutex_);
    if (termination_) return YieldResult::terminated;
    if (!wait_) {
      buffer_.push_back(std::move(value));
      return YieldResult::enqueued;
    }
    wait_->value.emplace(std::move(value));
    const Resumption resumption = std::exchange(wait_, nullptr)->resumption;
    lock.unlock();
    resumption.resume();
    return YieldResult::enqueued;
  }

  /// The first termination counts: tells the handler, then the consumer that waits.
  void terminate(StreamTermination termination) {
    MutexLock lock(mutex_);
    if (termination_) return;
    termination_ = std::move(termination);
    Handler handler = std::exchange(handler_, nullptr);
    lock.unlock();
    if (handler) handler(*termination_);  // no longer written
    // Now, as it may hold the last continuation, which comes back to this lock.
    handler = nullptr;
    lock.lock();
    if (!wait_) return;
    giveEnd(*wait_);
    const Resumption resumption = std::exchange(wait_, nullptr)->resumption;
    lock.unlock();
    resumption.resume();
  }

  /// Replaces the handler; a stream that has ended tells it at once.
  void setHandler(Handler handler) {
    MutexLock lock(mutex_);
    if (!termination_) return handler_.swap(handler);
    lock.unlock();
    if (handler) handler(*termination_);
  }

  /// The consumer is gone for good, and nobody will take what is left.
  void dropConsumer() {
    terminate({StreamTermination::Reason::cancelled, nullptr});
    MutexLock lock(mutex_);
    const std::deque<T> left = std::exchange(buffer_, {});
    lock.unlock();
  }

  /// True if `wait` has got the next value or the end.
  bool take(Wait& wait) {
    const MutexLock lock(mutex_);
    return takeNow(wait);
  }
  /// The same, or it is told later.
  bool takeOrEnrol(Wait& wait) {
    const MutexLock lock(mutex_);
    if (takeNow(wait)) return true;
    if (wait_) failAwaitedTwice();
    wait_ = &wait;
    return false;
  }
  void strike(Wait& wait) {
    const MutexLock lock(mutex_);
    if (wait_ == &wait) wait_ = nullptr;
  }

 private:
  bool takeNow(Wait& wait) TESSARINE_REQUIRES(mutex_) {
    if (!buffer_.empty()) {
      wait.value.emplace(std::move(buffer_.front()));
      buffer_.pop_front();
      return true;
    }
    if (!termination_) return false;
    giveEnd(wait);
    return true;
  }
  void giveEnd(Wait& wait) TESSARINE_REQUIRES(mutex_) {
    if (!std::exchange(isErrorGiven_, true)) wait.error = termination_->error;
  }

  Mutex mutex_;
  std::deque<T> buffer_ TESSARINE_GUARDED_BY(mutex_);
  Wait* wait_ TESSARINE_GUARDED_BY(mutex_) = nullptr;
  Handler handler_ TESSARINE_GUARDED_BY(mutex_);
  bool isErrorGiven_ TESSARINE_GUARDED_BY(mutex_) = false;
  std::optional<StreamTermination> termination_;  // written once under the lock, then constant
};

/// What `next()` answers.
template <class T>
class StreamNext {
 public:
  explicit StreamNext(std::shared_ptr<StreamStorage<T>> storage) noexcept
      : storage_(std::move(storage)) {}
  StreamNext(const StreamNext&) = delete;
  StreamNext& operator=(const StreamNext&) = delete;
  ~StreamNext() {
    if (onCancel_) storage_->strike(wait_);
  }

  bool await_ready() {
    if (TaskContext::isCurrentCancelled()) Cancel{*storage_}();
    return storage_->take(wait_);
  }
  // Not inlined: the coroutine may go on elsewhere within it, and no part of it may lie in the
  // frame.
  __attribute__((noinline)) bool await_suspend(std::coroutine_handle<> coroutine) {
    wait_.resumption = Resumption(coroutine);
    onCancel_.emplace(TaskContext::currentStopToken(), Cancel{*storage_});
    return !storage_->takeOrEnrol(wait_);
  }
  std::optional<T> await_resume() {
    onCancel_.reset();
    if (wait_.error) std::rethrow_exception(std::move(wait_.error));
    return std::move(wait_.value);
  }

 private:
  struct Cancel {
    StreamStorage<T>& storage;
    void operator()() const { storage.terminate({StreamTermination::Reason::cancelled, nullptr}); }
  };

  const std::shared_ptr<StreamStorage<T>> storage_;
  typename StreamStorage<T>::Wait wait_;
  std::optional<std::stop_callback<Cancel>> onCancel_;
};

/// The producer's end, shared by copies; when the last one goes, the stream is finished.
template <class T, bool canFail>
class StreamContinuation {
 public:
  explicit StreamContinuation(std::shared_ptr<StreamStorage<T>> storage)
      : producer_(std::make_shared<Producer>(std::move(storage))) {}

  /// Gives the consumer a value, after all those given before.
  YieldResult yield(T value) const { return storage().yield(std::move(value)); }

  /// Ends the stream once what was given has been taken. Later calls, and values, change nothing.
  void finish() const { storage().terminate({}); }
  void finish(std::exception_ptr error) const requires canFail {
    storage().terminate({StreamTermination::Reason::finished, std::move(error)});
  }

  /// Called once, when the stream ends, on the thread that ends it and with no lock held; at once
  /// if it has ended. Replaces what was set before.
  void setOnTermination(std::function<void(const StreamTermination&)> handler) const {
    storage().setHandler(std::move(handler));
  }

 private:
  struct Producer {
    explicit Producer(std::shared_ptr<StreamStorage<T>> shared) noexcept
        : storage(std::move(shared)) {}
    Producer(const Producer&) = delete;
    Producer& operator=(const Producer&) = delete;
    ~Producer() { storage->terminate({}); }
    const std::shared_ptr<StreamStorage<T>> storage;
  };
  StreamStorage<T>& storage() const { return *producer_->storage; }

  std::shared_ptr<Producer> producer_;
};

template <class T, bool canFail>
class BasicAsyncStream {
 public:
  using Element = T;
  using Continuation = StreamContinuation<T, canFail>;
  class AsyncIterator;

  /// Calls `build` with the producer's end, at once.
  template <class Build>
  requires std::is_invocable_v<Build&, Continuation>
  explicit BasicAsyncStream(Build build) : BasicAsyncStream() {
    build(Continuation(presence_->storage));
  }

  /// A stream and its producer's end.
  static std::pair<BasicAsyncStream, Continuation> makeStream() {
    BasicAsyncStream stream;
    Continuation continuation(stream.presence_->storage);
    return {std::move(stream), std::move(continuation)};
  }

  /// The consumer's end. There is one consumer: further iterators take from the same values.
  AsyncIterator makeAsyncIterator() const {
    const MutexLock lock(presence_->mutex);
    auto iteration = presence_->iteration.lock();
    if (!iteration) {
      iteration = std::make_shared<Iteration>(presence_->storage);
      presence_->iteration = iteration;
    }
    return AsyncIterator(std::move(iteration));
  }

 private:
  using Storage = StreamStorage<T>;
  struct Iteration {
    explicit Iteration(std::shared_ptr<Storage> shared) noexcept : storage(std::move(shared)) {}
    Iteration(const Iteration&) = delete;
    Iteration& operator=(const Iteration&) = delete;
    ~Iteration() { storage->dropConsumer(); }
    const std::shared_ptr<Storage> storage;
  };
  struct Presence {
    Presence() = default;
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;
    ~Presence() {
      if (iteration.expired()) storage->dropConsumer();
    }
    const std::shared_ptr<Storage> storage = std::make_shared<Storage>();
    Mutex mutex;
    std::weak_ptr<Iteration> iteration;
  };

  BasicAsyncStream() : presence_(std::make_shared<Presence>()) {}

  std::shared_ptr<Presence> presence_;

 public:
  class AsyncIterator {
   public:
    explicit AsyncIterator(std::shared_ptr<Iteration> iteration) noexcept
        : iteration_(std::move(iteration)) {}

    /// Awaited for the next value; absent at the end and ever after. A failed stream throws its
    /// error once, then is at its end. In a cancelled task the stream is cancelled: what was given
    /// before is still taken, then it is at its end. Awaited by two coroutines at once, a
    /// programmer error.
    StreamNext<T> next() { return StreamNext<T>(iteration_->storage); }

   private:
    std::shared_ptr<Iteration> iteration_;
  };
};

}  // namespace detail

/// Values that come one by one, from any thread and any number of producers, to a coroutine that
/// awaits them. What nobody has taken yet is kept, without bound.
///
///     AsyncStream<int> clicks([&](AsyncStream<int>::Continuation c) {
///       button.onClick([c] { c.yield(1); });
///       c.setOnTermination([&](const StreamTermination&) { button.onClick(nullptr); });
///     });
///     auto each = clicks.makeAsyncIterator();
///     while (auto click = co_await each.next()) count += *click;
///
/// The stream ends when its producer finishes it or lets go of it, and is cancelled when its
/// iterator goes away, when it goes away without one, or when the task that awaits it is cancelled;
/// the first of these counts. Copies are the same stream.
template <class T>
using AsyncStream = detail::BasicAsyncStream<T, false>;

/// An `AsyncStream` whose producer may also finish it with an exception, which `next` throws.
template <class T>
using AsyncThrowingStream = detail::BasicAsyncStream<T, true>;

}  // namespace tessarine
