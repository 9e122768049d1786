#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/store/UserDefaults.hpp"
#include "tessarine/system/store/internal/DomainFiles.hpp"
#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine::detail {

/// One preference domain as this process sees it: its values in memory, kept in step with the files
/// and with other processes, and the observers of its keys. Any thread.
///
/// Reading: compare the journal's head with where this process stands; take over what other
/// processes wrote, if anything; look the key up in memory, or, the first time, in the database.
/// Writing: take over, append to the journal, change the memory, call the observers.
///
/// Locks, in the order in which they are taken: `mutex_`, the journal's, the one for folding. No
/// observer is called under any of them.
class Domain {
 public:
  using Object = std::optional<PreferenceObject>;
  using ChangeHandler =
      std::function<void(std::string_view key, const Object& before, const Object& now)>;
  struct Write {
    std::string_view key;
    Object value;
  };

  /// Opens the domain whose files begin with `path`.
  explicit Domain(const std::string& path);
  /// A domain in memory only.
  Domain();
  /// Ends the worker and carries the journal into the database.
  ~Domain();
  Domain(const Domain&) = delete;
  Domain& operator=(const Domain&) = delete;

  const DomainFreshness& freshness() const noexcept { return freshness_; }

  /// Takes over what other processes wrote, and calls the observers of it on this thread.
  void refresh();

  Object object(std::string_view key);
  std::optional<double> lastWritten(std::string_view key);
  PreferenceObject::Dictionary dictionary();

  /// When a key is expected to have been written last; absent for never.
  struct Expectation {
    std::string_view key;
    std::optional<double> written;
  };

  /// Stores all of the writes or, when the disk refuses them, keeps all of them in memory to be
  /// tried again. Removing a key that is missing is no write. False, with nothing done, when
  /// `expectation` is not met in the moment of writing.
  bool write(std::span<const Write> writes,
             const std::optional<Expectation>& expectation = std::nullopt);

  /// Tries again what was refused and brings everything to the disk. False when that fails.
  bool synchronize();

  /// Calls `handler` for each later change of `key` while `observer` lives, and keeps it alive
  /// during the call. Observer and context are what `removeObserver` compares.
  void addObserver(std::string_view key, const std::shared_ptr<const void>& observer,
                   const void* context, ChangeHandler handler);
  void removeObserver(std::string_view key, const void* observer, const void* context);
  /// The same for each later change of any key.
  void addObserverOfAllKeys(const std::shared_ptr<const void>& observer, ChangeHandler handler);

  /// For the end of the process: ends the worker for good, tries again what was refused and carries
  /// the journal into the database. Calls no observer.
  void settle();

 private:
  struct Observer {
    Observer(const std::shared_ptr<const void>& observer, const void* anyContext, ChangeHandler f)
        : alive(observer), identity(observer.get()), context(anyContext), handler(std::move(f)) {}
    const std::weak_ptr<const void> alive;
    const void* const identity;
    const void* const context;
    const ChangeHandler handler;
    mutable std::atomic<bool> isRemoved = false;
  };
  using ObserverList = std::vector<std::shared_ptr<const Observer>>;

  struct Entry {
    Object value;
    double written = std::numeric_limits<double>::quiet_NaN();  // of a key never written
    bool isKnown = false;  // else the value is to be looked up in the database
    ObserverList observers;
  };

  struct Delivery {
    std::shared_ptr<const void> alive;
    std::shared_ptr<const Observer> observer;
    std::string key;
    Object before;
    Object now;
  };
  using Deliveries = std::vector<Delivery>;

  struct KeyHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view key) const noexcept {
      return std::hash<std::string_view>{}(key);
    }
  };
  using Entries = std::unordered_map<std::string, Entry, KeyHash, std::equal_to<>>;

  Entry& entryOf(std::string_view key) TESSARINE_REQUIRES(mutex_);
  Entry* known(std::string_view key, Deliveries& deliveries) TESSARINE_REQUIRES(mutex_);
  template <class Ask>
  void askInStep(Deliveries& deliveries, Ask ask) TESSARINE_REQUIRES(mutex_);
  Entry* load(std::string_view key) TESSARINE_REQUIRES(mutex_);
  void look(std::string_view key, Entry& entry) TESSARINE_REQUIRES(mutex_);
  void readAll() TESSARINE_REQUIRES(mutex_);
  template <class Read>
  void read(Read read);

  void takeOver(Deliveries& deliveries) TESSARINE_REQUIRES(mutex_);
  void takeOver(Journal& journal, Deliveries& deliveries) TESSARINE_REQUIRES(mutex_, journal);
  void apply(const Journal::Record& record, Deliveries& deliveries) TESSARINE_REQUIRES(mutex_);
  void abandonFiles() TESSARINE_REQUIRES(mutex_);
  void tellDifferences(Entries& before, Deliveries& deliveries) TESSARINE_REQUIRES(mutex_);
  void startAnew(Journal& journal, Deliveries& deliveries) TESSARINE_REQUIRES(mutex_, journal);
  void change(std::string_view key, Entry& entry, Object value, double written,
              Deliveries& deliveries) TESSARINE_REQUIRES(mutex_);
  static void addTo(ObserverList& observers, std::shared_ptr<const Observer> observer,
                    ObserverList& expired);

  bool removesNothing(std::span<const Write> writes, Deliveries& deliveries)
      TESSARINE_REQUIRES(mutex_);
  bool meets(const std::optional<Expectation>& expectation) TESSARINE_REQUIRES(mutex_);
  double timeOfWriting() const TESSARINE_REQUIRES(mutex_);
  enum class Stored { yes, refused, unexpected };
  template <class RecordsNow>
  Stored store(RecordsNow recordsNow, const std::optional<Expectation>& expectation,
               Deliveries& deliveries) TESSARINE_REQUIRES(mutex_);
  bool storeRefused(Deliveries& deliveries) TESSARINE_REQUIRES(mutex_);
  void adoptJournal(Deliveries& deliveries) TESSARINE_REQUIRES(mutex_);
  void refuseUnknownToFiles() TESSARINE_REQUIRES(mutex_);
  bool retry(Deliveries& deliveries) TESSARINE_REQUIRES(mutex_);
  bool retry();

  void finish(const Deliveries& deliveries) TESSARINE_REQUIRES(mutex_);
  void deliver(const Deliveries& deliveries) TESSARINE_EXCLUDES(mutex_);

  void startWorker() TESSARINE_REQUIRES(mutex_);
  void stopWorker();
  void work();
  void catchUp(bool isRefused);
  std::int64_t foldWhenDue(const Journal& journal);

  const std::unique_ptr<DomainFiles> files_;  // null: in memory only

  Mutex mutex_;
  Entries entries_ TESSARINE_GUARDED_BY(mutex_);
  ObserverList observersOfAllKeys_ TESSARINE_GUARDED_BY(mutex_);
  bool isWhole_ TESSARINE_GUARDED_BY(mutex_);     // a key without an entry does not exist
  int lookups_ TESSARINE_GUARDED_BY(mutex_) = 0;  // single ones in the database
  std::set<std::string, std::less<>> refused_ TESSARINE_GUARDED_BY(mutex_);
  std::uint64_t applied_ TESSARINE_GUARDED_BY(mutex_) = 0;  // how far the journal is in memory
  double latest_ TESSARINE_GUARDED_BY(mutex_) = 0;   // of the times of writing that were seen
  int delivering_ TESSARINE_GUARDED_BY(mutex_) = 0;  // batches whose observers are being called
  std::thread worker_ TESSARINE_GUARDED_BY(mutex_);

  std::atomic<std::uint64_t> ownHead_ = 0;  // counts writes where there is no journal
  DomainFreshness freshness_;

  std::atomic<bool> stop_ = false;       // for good
  std::atomic<std::uint32_t> idle_ = 0;  // where a worker without a journal sleeps
  // The worker's own: when the journal is due, 0 for not yet; and what failed is to be tried again.
  std::int64_t foldAt_ = 0;
  std::int64_t retryAt_ = 0;
  bool isFoldFailing_ = false;
};

}  // namespace tessarine::detail
