#pragma once

#include <any>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "tessarine/export.hpp"
#include "tessarine/values/PreferenceChange.hpp"
#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine {

class UserDefaults;

/// What a key-value observer is told: under `NSKeyValueChangeKindKey` always the number 1 (a value
/// was set), and, as its options ask, a `PreferenceObject` or, for a missing key, an `NSNull` under
/// `NSKeyValueChangeNewKey` and `NSKeyValueChangeOldKey`.
using ChangeDictionary = std::map<std::string, std::any, std::less<>>;

inline constexpr auto NSKeyValueChangeKindKey = "kind";
inline constexpr auto NSKeyValueChangeNewKey = "new";
inline constexpr auto NSKeyValueChangeOldKey = "old";

/// What to put into the change dictionary; the values may be or-ed.
enum class KeyValueObservingOptions : unsigned { newValue = 1, oldValue = 2, newAndOldValue = 3 };

/// Hears of changes of keys that it was registered for.
class TESSARINE_EXPORT KeyValueObserving {
 public:
  KeyValueObserving() = default;
  KeyValueObserving(const KeyValueObserving&) = delete;
  KeyValueObserving& operator=(const KeyValueObserving&) = delete;
  virtual ~KeyValueObserving();

  virtual void observeValue(std::string_view keyPath, UserDefaults& object,
                            const ChangeDictionary& change, void* context) = 0;
};

namespace detail {
class Domain;

/// Where the domain stands and how far this process has taken it over, observers included.
struct DomainFreshness {
  std::atomic<const std::atomic<std::uint64_t>*> head;
  std::atomic<std::uint64_t> delivered;
};
}  // namespace detail

/// A preference store: property-list values under text keys, on disk, shared by all processes that
/// open it. One object a domain in a process, kept until the process ends. Any thread.
///
/// - A `set` that has returned survives the death of the process at any instruction. Within a
/// second
///   it is also on the disk itself, out of reach of a power cut; `synchronize` brings it there at
///   once.
/// - A write by another process is seen by the next read.
/// - Key-value observers are called on the writing thread before `set` returns, in the order of
/// their
///   registration, with no lock held; for writes by other processes on the thread that notices
///   first: one that reads, or the domain's own. When an observer throws, the others are still
///   called and the first exception reaches the writer; the value is stored all the same.
/// - What the disk refuses (full, read-only) stays visible in this process and is tried again every
///   second; standard error tells of it once. A damaged file is set aside under a name that says
///   so, and the domain opens empty.
///
/// A read costs a lock and a hash; a write additionally a copy into a mapped file, but no system
/// call. After `fork`, only a child that calls `exec` may go on using the store.
///
/// ```cpp
/// auto defaults = tessarine::UserDefaults::standard();
/// defaults->set(12, "fontSize");
/// auto size = tessarine::dynamicCast<int>(defaults->object("fontSize"));  // 12
/// ```
class TESSARINE_EXPORT UserDefaults : public std::enable_shared_from_this<UserDefaults> {
 public:
  /// The default domain, "standard" in the folder of domains.
  static std::shared_ptr<UserDefaults> standard();

  /// The domain of that name beside it. Null for a name that cannot be a file of its own: empty,
  /// ".",
  /// "..", over 200 bytes, or with a "/" or NUL in it.
  static std::shared_ptr<UserDefaults> suite(std::string_view suiteName);

  /// A new domain in memory, for tests and for what must leave no trace.
  static std::shared_ptr<UserDefaults> temporary();

  /// Sets the folder in which `standard` and `suite` look from now on; it is made when missing. A
  /// relative path counts from the working directory of this moment.
  /// Until then it is ".config/NAME" in the home directory of the user's passwd entry, NAME being
  /// the program's. Programs that share suites name one folder.
  static void setDirectory(const std::string& directory);
  /// That folder, as an absolute path.
  static std::string directory();

  ~UserDefaults();
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;

  /// "standard", the suite's name, or a unique name of a temporary domain.
  const std::string& name() const noexcept { return name_; }

  /// The value under `key`, absent when the key is missing. Keys are any text, by their bytes.
  std::optional<PreferenceObject> object(std::string_view key) const;
  std::optional<PreferenceObject> value(std::string_view key) const { return object(key); }

  /// Stores `value` under `key`; an absent value removes the key. Arrays and dictionaries may nest
  /// 512 deep; deeper is a programmer error that names the key.
  void set(std::optional<PreferenceObject> value, std::string_view key);
  void removeObject(std::string_view key) { set(std::nullopt, key); }

  /// Stores all pairs in one step: no other process, and no crash, ever sees some of them only.
  void setAll(const PreferenceObject::Dictionary& values);

  /// Performs all changes in one step.
  void setAll(std::span<const PreferenceChange> changes);

  /// The same, but only if `key` was last written at `lastWritten` (absent:
  /// never) in that moment. False, with nothing done, when it was not. So what was decided by an
  /// older state never overwrites a newer write, of whatever process.
  bool setAll(std::span<const PreferenceChange> changes, std::string_view key,
              std::optional<Date> lastWritten);

  /// All pairs of the domain.
  PreferenceObject::Dictionary dictionaryRepresentation() const;

  /// When `key` was last set or removed, absent when that never happened. What is stored in one
  /// step has one time; later writes in a domain have later ones, even if the clock is set back.
  std::optional<Date> lastWritten(std::string_view key) const;

  /// Tries again what the disk refused and waits until every value is on the disk itself. False
  /// when something could not be written.
  bool synchronize();

  /// `(*defaults)["key"]` reads as an optional object, and takes an assignment.
  class Subscript;
  Subscript operator[](std::string_view key);

  /// Calls `observer` for each later change of exactly this key, by whomever, until it is removed
  /// or destroyed; it is not kept alive. `context` is handed back as it is.
  /// It is called on the thread that writes before the write returns, and for what other processes
  /// wrote on one that reads next or on the domain's own, whichever is first. Of changes that two
  /// threads tell at once either may be told first.
  void addObserver(const std::shared_ptr<KeyValueObserving>& observer, std::string_view keyPath,
                   KeyValueObservingOptions options = KeyValueObservingOptions::newValue,
                   void* context = nullptr);
  /// Ends the registration of that observer, key and context, also for a change whose observers are
  /// just being called. A call that has begun on another thread may still be running.
  void removeObserver(const KeyValueObserving& observer, std::string_view keyPath,
                      void* context = nullptr);

  using ChangeHandler = std::function<void(const ChangeDictionary& change)>;
  /// The same with a function, for as long as the returned token lives, or, if it has begun on
  /// another thread by then, until that call returns.
  [[nodiscard]] std::shared_ptr<void> observe(
      std::string_view key, ChangeHandler handler,
      KeyValueObservingOptions options = KeyValueObservingOptions::newValue);

  using KeyedChangeHandler =
      std::function<void(std::string_view key, const ChangeDictionary& change)>;
  /// The same for every key of the domain, those to come included. Reads the whole domain at first.
  [[nodiscard]] std::shared_ptr<void> observeAllKeys(
      KeyedChangeHandler handler,
      KeyValueObservingOptions options = KeyValueObservingOptions::newValue);

  /// Whether no other process wrote anything that the observers of this one have not heard of yet.
  /// Two loads.
  bool isCurrent() const noexcept {
    return freshness_.head.load(std::memory_order_acquire)->load(std::memory_order_acquire) ==
           freshness_.delivered.load(std::memory_order_acquire);
  }
  /// Takes over what other processes wrote, and calls the observers of it on this thread.
  void refresh() const;

 private:
  UserDefaults(std::string name, std::unique_ptr<detail::Domain> domain);
  friend struct UserDefaultsRegistry;

  const std::string name_;
  const std::unique_ptr<detail::Domain> domain_;
  const detail::DomainFreshness& freshness_;
};

class UserDefaults::Subscript {
 public:
  Subscript(UserDefaults& defaults, std::string_view key) : defaults_(defaults), key_(key) {}
  // NOLINTNEXTLINE(google-explicit-constructor): stands for the value
  operator std::optional<PreferenceObject>() const { return defaults_.object(key_); }
  Subscript& operator=(std::optional<PreferenceObject> value) {
    defaults_.set(std::move(value), key_);
    return *this;
  }

 private:
  UserDefaults& defaults_;
  std::string key_;
};

inline UserDefaults::Subscript UserDefaults::operator[](std::string_view key) {
  return {*this, key};
}

}  // namespace tessarine
