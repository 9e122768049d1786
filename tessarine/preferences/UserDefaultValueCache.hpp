#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/DispatchQueue.hpp"
#include "tessarine/system/dispatch/SeqLock.hpp"
#include "tessarine/system/store/UserDefaults.hpp"

namespace tessarine {

/// What a value cache is whatever its type: the flags, the queue that guards them, and the observer
/// of the key. Any thread.
///
/// Besides the two flags there is a count of the events that can make a value stale. Who reads the
/// store in order to fill a cache takes a ticket first, and the value goes in only if nothing
/// happened since; so a slow reader never puts an old value over a newer one.
class TESSARINE_EXPORT AnyUserDefaultValueCache
    : public KeyValueObserving,
      public std::enable_shared_from_this<AnyUserDefaultValueCache> {
 public:
  ~AnyUserDefaultValueCache() override;

  /// The type of the values.
  const std::type_info& type() const noexcept { return type_; }

  /// While true, a change of the key in the store is the library's own and is ignored. Several
  /// writers at once each raise and lower it for themselves.
  bool isChangingValue() const;
  void setIsChangingValue(bool isChanging);

  /// What has happened to a cache by some moment. Not `isUsable` while a write is under way.
  struct Ticket {
    std::uint64_t events;
    bool isUsable;
  };
  Ticket ticketForReading() const;
  /// Raises the changing flag. `endWrite` with the same ticket lowers it again.
  Ticket beginWrite();
  void endWrite(const Ticket& ticket);

  /// Makes the cache empty.
  void drop();

  /// Starts and ends the observation of the key.
  void observe();
  void stopObserving();

  /// Empties the cache and posts `userDefaultChanged` on the main queue, unless the change is the
  /// library's own.
  void observeValue(std::string_view keyPath, UserDefaults& object, const ChangeDictionary& change,
                    void* context) override;

 protected:
  AnyUserDefaultValueCache(const std::shared_ptr<UserDefaults>& userDefaults, std::string key,
                           const std::type_info& type);

  bool holds(const Ticket& ticket) const noexcept {
    return ticket.isUsable && ticket.events == events_ && changing_ == 0;
  }
  virtual void dropOnQueue() = 0;

  const std::shared_ptr<DispatchQueue> queue_;  // guards the fields below and the derived value
  std::uint64_t events_ = 0;
  int changing_ = 0;

 private:
  const std::string observingKey_;
  const std::weak_ptr<UserDefaults> userDefaults_;
  const std::type_info& type_;
};

/// Holds the value of one preference, or its absence, and drops it when somebody else changes the
/// key. Reading a value of up to 16 trivially copyable bytes takes no lock; others are copied on
/// the queue.
template <class T>
class UserDefaultValueCache final : public AnyUserDefaultValueCache {
 public:
  /// A new, empty cache that observes `key` of `userDefaults`.
  static std::shared_ptr<UserDefaultValueCache> make(
      const std::shared_ptr<UserDefaults>& userDefaults, std::string key) {
    auto cache = std::shared_ptr<UserDefaultValueCache>(
        new UserDefaultValueCache(userDefaults, std::move(key)));
    cache->observe();
    return cache;
  }

  /// The value and whether it may be used; an absent value that may is a cached absence.
  struct State {
    std::optional<T> value;
    bool hasValue = false;
  };
  /// Both at one moment.
  State state() const {
    if constexpr (isLockFree) {
      return state_.get();
    } else {
      return queue_->sync([&] { return state_.get(); });
    }
  }

  std::optional<T> value() const { return state().value; }
  void setValue(std::optional<T> value) {
    queue_->sync([&] { put({std::move(value), state_.get().hasValue}); });
  }

  bool hasCachedValue() const { return state().hasValue; }
  void setHasCachedValue(bool hasValue) {
    queue_->sync([&] { put({state_.get().value, hasValue}); });
  }

  /// Fills the cache if nothing happened since `ticket` was taken.
  void fill(std::optional<T> value, const Ticket& ticket) {
    queue_->sync([&] {
      if (holds(ticket)) put({std::move(value), true});
    });
  }

  /// Fills the cache after a write that `ticket` was taken for, or empties it when another change
  /// crossed that write and nobody can tell which came last.
  void settle(const std::optional<T>& value, const Ticket& ticket) {
    queue_->sync([&] {
      put(holds(ticket) ? State{value, true} : State{std::nullopt, false});
      ++events_;
    });
  }

 private:
  class LockedState {
   public:
    const State& get() const noexcept { return state_; }
    void set(State state) { state_ = std::move(state); }

   private:
    State state_;
  };
  class LockFreeState {
   public:
    State get() const noexcept { return state_.load(); }
    void set(const State& state) noexcept { state_.store(state); }

   private:
    SeqLock<State> state_{State{}};
  };
  static constexpr bool isLockFree = std::is_trivially_copyable_v<State> && sizeof(T) <= 16;

  UserDefaultValueCache(const std::shared_ptr<UserDefaults>& userDefaults, std::string key)
      : AnyUserDefaultValueCache(userDefaults, std::move(key), typeid(T)) {}

  void put(State state) { state_.set(std::move(state)); }
  void dropOnQueue() override { put({std::nullopt, false}); }

  std::conditional_t<isLockFree, LockFreeState, LockedState> state_;
};

}  // namespace tessarine
