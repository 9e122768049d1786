#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/system/store/CloudTransport.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/values/PreferenceChange.hpp"
#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine {

/// Posted on the default `NotificationCenter`, with the store as object, when pairs have become
/// others by something else than this process's writes, or a write was refused. On the thread that
/// noticed: the store's own, or one that calls the store.
inline constexpr auto NSUbiquitousKeyValueStoreDidChangeExternallyNotification =
    "NSUbiquitousKeyValueStoreDidChangeExternallyNotification";
/// In its user information: an `int`, one of `NSUbiquitousKeyValueStoreChangeReason`.
inline constexpr auto NSUbiquitousKeyValueStoreChangeReasonKey =
    "NSUbiquitousKeyValueStoreChangeReasonKey";
/// In its user information: a `std::vector<std::string>`.
inline constexpr auto NSUbiquitousKeyValueStoreChangedKeysKey =
    "NSUbiquitousKeyValueStoreChangedKeysKey";

enum class NSUbiquitousKeyValueStoreChangeReason : int {
  serverChange = 0,
  initialSyncChange = 1,
  quotaViolationChange = 2,
  accountChange = 3,
};

/// The pairs that a user's machines share. Each machine has all of them in a file of its own, its
/// replica, where every write takes effect at once, online or not; a hub carries them between the
/// machines. Any thread.
///
/// - A write that has returned survives the death of the process, and within a second it is on the
///   disk itself. It goes out as soon as the hub can be reached, and only its latest value.
/// - Every write carries the time at which it was made (`CloudStamp`). Of two writes of one key the
///   later one stays, on every machine, whichever arrives first; so machines that have exchanged
///   everything hold the same pairs. What was written in one step arrives in one step.
/// - A clock that is off by more than five minutes from the hub's is corrected by the difference,
///   and what was stamped beyond it is brought down; standard error tells.
/// - A machine whose replica is new or was lost takes what the others hold before it sends
/// anything.
/// - While nobody is signed in, writes belong to the user who was last, at first to the first.
///
/// A write costs one transaction of SQLite (some ten microseconds), a read a look at the file for
/// what other processes of the machine wrote (some microseconds).
class TESSARINE_EXPORT NSUbiquitousKeyValueStore
    : public std::enable_shared_from_this<NSUbiquitousKeyValueStore> {
 public:
  using Pairs = PreferenceObject::Dictionary;

  /// A write that would pass one of these is refused whole, with `quotaViolationChange`; one that
  /// makes nothing larger never is. What other machines wrote is always taken.
  struct Limits {
    std::size_t bytesOfValue = 1'000'000;
    std::size_t keys = 1'024;
    std::size_t bytes = 1'000'000;  // of keys and values together
  };
  /// How often this machine sends, at most; what waits meanwhile goes out together.
  struct Budget {
    double writesPerMinute = 120;
    double writesPerHour = 1'800;
  };
  struct Options {
    Limits limits = {};
    /// By default `Budget{}`, and none for a hub that does not count.
    std::optional<Budget> budget = std::nullopt;
    /// Whether a thread of its own exchanges while a user is signed in; else only `exchange` does.
    bool exchangesByItself = true;
  };

  /// The store of the application, beside the domains of its preferences ("cloud.replica" in their
  /// folder, as it is at the first call). Whose pairs they are `CloudAccount` says.
  static std::shared_ptr<NSUbiquitousKeyValueStore> defaultStore();

  /// A store of its own on the replica in the file `path`; an empty path keeps it in memory.
  static std::shared_ptr<NSUbiquitousKeyValueStore> open(const std::string& path, Options options);
  static std::shared_ptr<NSUbiquitousKeyValueStore> open(const std::string& path) {
    return open(path, Options{});
  }

  ~NSUbiquitousKeyValueStore();
  NSUbiquitousKeyValueStore(const NSUbiquitousKeyValueStore&) = delete;
  NSUbiquitousKeyValueStore& operator=(const NSUbiquitousKeyValueStore&) = delete;

  /// All pairs, as they are now; what is given does not change any more.
  std::shared_ptr<const Pairs> dictionaryRepresentation() const;

  /// The value under `key`, absent when there is none. Keys are any text, by their bytes.
  std::optional<PreferenceObject> object(std::string_view key) const;

  /// Stores `value` under `key`; an absent value removes the key. Arrays and dictionaries may nest
  /// 512 deep; deeper is a programmer error that names the key.
  void set(std::optional<PreferenceObject> value, std::string_view key);
  void removeObject(std::string_view key) { set(std::nullopt, key); }

  /// Performs all changes in one step, here and on every other machine. False, with nothing done,
  /// when that would pass a limit.
  bool setAll(std::span<const PreferenceChange> changes);
  /// The same for what was written at `written`, maybe long ago: it takes effect only where nothing
  /// was written since.
  bool setAll(std::span<const PreferenceChange> changes, Date written);

  /// Take the place of those given at the opening, for the writes and exchanges to come.
  void setLimits(const Limits& limits);
  void setBudget(const std::optional<Budget>& budget);

  /// Asks for an exchange with the hub now, and does not wait for it. False when nobody is signed
  /// in.
  bool synchronize();

  /// Lets `user` exchange by `transport` from now on. If it is another user than before, the pairs
  /// are theirs, and the notification tells which have become others (`accountChange`).
  void signIn(const std::string& user, std::shared_ptr<CloudTransport> transport);
  /// Ends the exchange. What waits is kept for the next time that this user signs in.
  void signOut();

  struct Status {
    std::string user;  // empty: nobody was ever signed in
    bool isSignedIn = false;
    std::size_t waiting = 0;  // keys that the hub does not have yet
    std::optional<Date> lastExchange;
    std::string error;  // of the last exchange, empty if it went well
  };
  Status status() const;

  /// What an exchange came to.
  struct Exchange {
    bool isReached = false;  // the hub was
    std::size_t received = 0;
    std::size_t sent = 0;
    /// In how many seconds the budget lets what waits go; 0 when nothing waits for it.
    double delay = 0;
    std::string error;
  };
  /// Exchanges once on this thread: takes what came, sends what waits. An outage is told by the
  /// result and, once, on standard error.
  Exchange exchange();

 private:
  friend struct CloudAccount;
  class State;
  class Worker;
  NSUbiquitousKeyValueStore(const std::string& path, Options options);
  bool write(std::span<const PreferenceChange> changes, std::optional<Date> written);
  std::vector<std::string> enter(const std::string& user,
                                 std::shared_ptr<CloudTransport> transport);
  void post(const std::vector<std::string>& keys, NSUbiquitousKeyValueStoreChangeReason reason);

  const std::unique_ptr<State> state_;
};

}  // namespace tessarine
