#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "tessarine/system/dispatch/AnyCancellable.hpp"
#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/dispatch/Publisher.hpp"

namespace tessarine {

/// A publisher that is fed by hand: what is sent reaches those who have subscribed by then, in the
/// order of subscription, on the sender's thread and inside `send`.
///
///     PassthroughSubject<int> clicks;
///     AnyCancellable shown = clicks.sink([](const auto&) {}, [](int count) { show(count); });
///     clicks.send(1);
///
/// Copies are the same subject. Any thread; who sends from several at once has no order. Callbacks
/// run without a lock held and may send, subscribe and cancel. None starts after `cancel` has
/// returned, though one that was running on another thread may still be. When the last copy of the
/// subject goes, its subscribers are let go without a completion.
template <class Value, class Error = Never>
class PassthroughSubject {
 public:
  using Output = Value;
  using Failure = Error;
  using ReceiveCompletion = std::function<void(const Completion<Failure>&)>;
  using ReceiveValue = std::function<void(const Output&)>;

  /// Subscribes. To a subject that has completed: `receiveCompletion` is called at once.
  [[nodiscard]] AnyCancellable sink(ReceiveCompletion receiveCompletion,
                                    ReceiveValue receiveValue) const {
    auto subscriber = std::make_shared<Subscriber>();
    subscriber->receiveCompletion = std::move(receiveCompletion);
    subscriber->receiveValue = std::move(receiveValue);
    if (core_->add(subscriber))
      return AnyCancellable([core = std::weak_ptr(core_), subscriber = std::weak_ptr(subscriber)] {
        const auto whom = subscriber.lock();
        if (!whom) return;
        whom->isActive.store(false, std::memory_order_release);
        if (const auto from = core.lock()) from->remove(whom);
      });
    subscriber->receiveCompletion(*core_->completion());
    return {};
  }

  void send(const Output& value) const {
    for (const auto& subscriber : core_->subscribers())
      if (subscriber->isActive.load(std::memory_order_acquire)) subscriber->receiveValue(value);
  }

  /// Ends the subject; only the first call counts, and nothing is sent after it.
  void sendCompletion(const Completion<Failure>& completion) const {
    for (const auto& subscriber : core_->complete(completion))
      if (subscriber->isActive.exchange(false, std::memory_order_acq_rel))
        subscriber->receiveCompletion(completion);
  }

 private:
  struct Subscriber {
    std::atomic<bool> isActive{true};
    ReceiveCompletion receiveCompletion;
    ReceiveValue receiveValue;
  };
  using Subscribers = std::vector<std::shared_ptr<Subscriber>>;

  class Core {
   public:
    bool add(std::shared_ptr<Subscriber> subscriber) {
      const MutexLock lock(mutex_);
      if (completion_) return false;
      subscribers_.push_back(std::move(subscriber));
      return true;
    }
    void remove(const std::shared_ptr<Subscriber>& subscriber) {
      const MutexLock lock(mutex_);
      std::erase(subscribers_, subscriber);
    }
    Subscribers subscribers() const {
      const MutexLock lock(mutex_);
      return subscribers_;
    }
    Subscribers complete(const Completion<Failure>& completion) {
      const MutexLock lock(mutex_);
      if (!completion_) completion_.emplace(completion);
      return std::exchange(subscribers_, {});
    }
    std::optional<Completion<Failure>> completion() const {
      const MutexLock lock(mutex_);
      return completion_;
    }

   private:
    mutable Mutex mutex_;
    Subscribers subscribers_ TESSARINE_GUARDED_BY(mutex_);
    std::optional<Completion<Failure>> completion_ TESSARINE_GUARDED_BY(mutex_);
  };

  std::shared_ptr<Core> core_ = std::make_shared<Core>();
};

}  // namespace tessarine
