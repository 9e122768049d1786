#include "tessarine/system/store/internal/Domain.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "tessarine/system/store/internal/CallAll.hpp"
#include "tessarine/system/store/internal/ObjectCoding.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine::detail {
namespace {

/// After that many single look-ups it is cheaper to read the whole domain at once.
constexpr int mostLookups = 64;

Domain::Object decoded(const std::optional<std::string_view>& bytes) {
  return bytes ? decodeObject(*bytes) : std::nullopt;
}

bool isSame(const Domain::Object& left, const Domain::Object& right) {
  if (left.has_value() != right.has_value()) return false;
  return !left || left->isIdenticalTo(*right);
}

/// The stored form of some writes. Where an object lies is settled when all of them are encoded.
class Encoded {
 public:
  void reserve(std::size_t count) { records_.reserve(count); }

  void add(std::string_view key, const Domain::Object& value, double written = 0) {
    const std::size_t begin = bytes_.size();
    if (value && !encodeObject(*value, bytes_)) {
      fatal("the value for the preference \"" + std::string(key) + "\" nests deeper than " +
            std::to_string(deepestObject) + " levels");
    }
    const std::string_view stored(bytes_.data() + begin, bytes_.size() - begin);
    records_.push_back({value ? Journal::Kind::set : Journal::Kind::remove, written, key, stored});
  }

  std::span<const Journal::Record> records(double written) {
    for (auto& record : records_) record.written = written;
    return records();
  }

  std::span<const Journal::Record> records() {
    std::size_t begin = 0;  // the bytes may have moved since a record was added
    for (auto& record : records_) {
      record.value = {bytes_.data() + begin, record.value.size()};
      begin += record.value.size();
    }
    return records_;
  }

 private:
  std::string bytes_;
  std::vector<Journal::Record> records_;
};

}  // namespace

Domain::Domain(const std::string& path)
    : files_(std::make_unique<DomainFiles>(path)), isWhole_(false) {
  freshness_.head = &ownHead_;
  Deliveries none;
  const MutexLock lock(mutex_);
  if (files_->journal() != nullptr) adoptJournal(none);
}

Domain::Domain() : isWhole_(true) { freshness_.head = &ownHead_; }

Domain::~Domain() {
  stopWorker();
  if (files_) files_->fold();
}

void Domain::settle() {
  stopWorker();
  if (!files_) return;
  Deliveries unheard;  // destroyed after the lock
  {
    const MutexLock lock(mutex_);
    retry(unheard);
  }
  files_->fold();
}

// ---- reading ----

Domain::Entry& Domain::entryOf(std::string_view key) {
  const auto found = entries_.find(key);
  if (found != entries_.end()) return found->second;
  return entries_.emplace(key, Entry{}).first->second;
}

/// The entry of `key` with its value, null for a key that was never written. While the database
/// cannot be read the value is absent and not known.
Domain::Entry* Domain::known(std::string_view key, Deliveries& deliveries) {
  const auto found = entries_.find(key);
  if (found != entries_.end() && found->second.isKnown) return &found->second;
  if (isWhole_ && found == entries_.end()) return nullptr;
  Entry* entry = nullptr;
  askInStep(deliveries, [&]() TESSARINE_REQUIRES(mutex_) { entry = load(key); });
  return entry;
}

/// Asks the database while no other process can write and all that they wrote is taken over. Else
/// it might know more than this process, and a batch be seen in parts.
template <class Ask>
void Domain::askInStep(Deliveries& deliveries, Ask ask) {
  Journal* const journal = files_ ? files_->journal() : nullptr;
  if (journal == nullptr) return ask();
  const JournalLock lock(*journal);
  takeOver(*journal, deliveries);
  ask();
}

/// Like `known`, where the journal's lock is held or there is no journal.
Domain::Entry* Domain::load(std::string_view key) {
  if (!isWhole_ && ++lookups_ > mostLookups) readAll();
  const auto found = entries_.find(key);
  if (isWhole_ && found == entries_.end()) return nullptr;
  Entry& entry = found != entries_.end() ? found->second : entryOf(key);
  if (!entry.isKnown) look(key, entry);
  return &entry;
}

void Domain::look(std::string_view key, Entry& entry) {
  entry.value.reset();
  entry.isKnown = !files_ || files_->find(key, [&](const Database::Row& row) {
    entry.value = decoded(row.value);
    entry.written = row.written;
  });
  if (!entry.isKnown) startWorker();  // it mends
}

void Domain::readAll() {
  if (isWhole_) return;
  lookups_ = 0;
  isWhole_ = files_->forEach([this](const Database::Row& row) TESSARINE_REQUIRES(mutex_) {
    Entry& entry = entryOf(row.key);
    if (std::exchange(entry.isKnown, true)) return;
    entry.value = decoded(row.value);
    entry.written = row.written;
  });
  if (!isWhole_) startWorker();
}

/// Calls `read(deliveries)` in step with the other processes.
template <class Read>
void Domain::read(Read read) {
  refresh();
  Deliveries deliveries;
  {
    const MutexLock lock(mutex_);
    read(deliveries);
    finish(deliveries);
  }
  deliver(deliveries);
}

Domain::Object Domain::object(std::string_view key) {
  Object value;
  read([&](Deliveries& deliveries) TESSARINE_REQUIRES(mutex_) {
    const Entry* const entry = known(key, deliveries);
    if (entry != nullptr) value = entry->value;
  });
  return value;
}

std::optional<double> Domain::lastWritten(std::string_view key) {
  std::optional<double> written;
  read([&](Deliveries& deliveries) TESSARINE_REQUIRES(mutex_) {
    const Entry* const entry = known(key, deliveries);
    const bool isWritten = entry != nullptr && entry->written == entry->written;
    if (isWritten) written = entry->written;
  });
  return written;
}

PreferenceObject::Dictionary Domain::dictionary() {
  PreferenceObject::Dictionary values;
  read([&](Deliveries& deliveries) TESSARINE_REQUIRES(mutex_) {
    if (!isWhole_) askInStep(deliveries, [&]() TESSARINE_REQUIRES(mutex_) { readAll(); });
    for (const auto& [key, entry] : entries_) {
      if (entry.value) values.emplace(key, *entry.value);
    }
  });
  return values;
}

// ---- keeping in step with other processes ----

void Domain::refresh() {
  const auto* head = freshness_.head.load(std::memory_order_acquire);
  if (head->load(std::memory_order_acquire) == freshness_.delivered.load()) return;
  Deliveries deliveries;
  {
    const MutexLock lock(mutex_);
    takeOver(deliveries);
    finish(deliveries);
  }
  deliver(deliveries);
}

void Domain::takeOver(Deliveries& deliveries) {
  Journal* const journal = files_ ? files_->journal() : nullptr;
  if (journal == nullptr || journal->head().load(std::memory_order_acquire) == applied_) return;
  const JournalLock lock(*journal);
  takeOver(*journal, deliveries);
}

void Domain::takeOver(Journal& journal, Deliveries& deliveries) {
  const std::uint64_t head = journal.head().load(std::memory_order_acquire);
  bool isLost = !journal.holds(applied_);
  if (!isLost) {
    journal.forEach(applied_, head, [&](const Journal::Record& record) TESSARINE_REQUIRES(mutex_) {
      isLost = isLost || record.kind == Journal::Kind::everything;
      apply(record, deliveries);
    });
  }
  applied_ = head;
  if (isLost && journal.isRetired()) return abandonFiles();
  if (isLost) startAnew(journal, deliveries);
}

void Domain::abandonFiles() {
  files_->abandon();
  startWorker();
}

void Domain::apply(const Journal::Record& record, Deliveries& deliveries) {
  if (record.kind == Journal::Kind::everything) return;
  Entry& entry = entryOf(record.key);
  if (const auto refused = refused_.find(record.key); refused != refused_.end()) {
    refused_.erase(refused);
  }
  if (record.kind != Journal::Kind::inDatabase) {
    Object value = record.kind == Journal::Kind::set ? decodeObject(record.value) : std::nullopt;
    return change(record.key, entry, std::move(value), record.written, deliveries);
  }
  Entry stored;
  look(record.key, stored);
  change(record.key, entry, std::move(stored.value), stored.written, deliveries);
  entry.isKnown = stored.isKnown;
}

/// Takes the state of the files for what this process held, except for what they refused and have
/// nothing later of.
void Domain::startAnew(Journal& journal, Deliveries& deliveries) {
  Entries before = std::exchange(entries_, {});
  ObserverList observersOfAllKeys = std::exchange(observersOfAllKeys_, {});
  isWhole_ = false;
  lookups_ = 0;
  applied_ = journal.head().load(std::memory_order_acquire);
  Deliveries none;  // there are no observers for the moment
  journal.forEach(journal.tail(), applied_,
                  [&](const Journal::Record& record) TESSARINE_REQUIRES(mutex_) {
                    const bool isRefused = refused_.contains(record.key);
                    if (isRefused && !(before[std::string(record.key)].written <= record.written)) {
                      return;
                    }
                    apply(record, none);
                  });
  observersOfAllKeys_ = std::move(observersOfAllKeys);
  for (auto& [key, old] : before) {
    if (refused_.contains(key)) entryOf(key) = std::move(old);
  }
  tellDifferences(before, deliveries);
}

/// Tells the observers how the values of now differ from those of `before`, whose observers go on.
void Domain::tellDifferences(Entries& before, Deliveries& deliveries) {
  const bool tellsAll = !observersOfAllKeys_.empty();
  if (tellsAll) readAll();
  const auto tell = [&](const std::string& key, Entry& now, Object old) TESSARINE_REQUIRES(mutex_) {
    Object value = std::exchange(now.value, std::move(old));
    if (isSame(now.value, value)) return;
    change(key, now, std::move(value), now.written, deliveries);
  };
  for (auto& [key, old] : before) {
    if (refused_.contains(key) || (!tellsAll && old.observers.empty())) continue;
    load(key);
    Entry& now = entryOf(key);
    now.observers = std::move(old.observers);
    if (now.isKnown || isWhole_) {
      now.isKnown = true;
      tell(key, now, std::move(old.value));
    } else {  // unreadable at present
      now.value = std::move(old.value);
      now.written = old.written;
      now.isKnown = old.isKnown;
    }
  }
  if (!tellsAll) return;
  for (auto& [key, now] : entries_) {
    if (!before.contains(key)) tell(key, now, std::nullopt);
  }
}

void Domain::change(std::string_view key, Entry& entry, Object value, double written,
                    Deliveries& deliveries) {
  for (const auto* observers : {&entry.observers, &observersOfAllKeys_}) {
    for (const auto& observer : *observers) {
      if (auto alive = observer->alive.lock()) {
        deliveries.push_back({std::move(alive), observer, std::string(key), entry.value, value});
      }
    }
  }
  entry.value = std::move(value);
  entry.written = written;
  entry.isKnown = true;
  if (written > latest_) latest_ = written;
}

// ---- writing ----

bool Domain::write(std::span<const Write> writes, const std::optional<Expectation>& expectation) {
  Encoded encoded;
  encoded.reserve(writes.size());
  for (const auto& write : writes) encoded.add(write.key, write.value);

  Deliveries deliveries;
  Journal* journal = nullptr;
  auto stored = Stored::yes;
  {
    const MutexLock lock(mutex_);
    takeOver(deliveries);
    if (!removesNothing(writes, deliveries)) {
      double written = 0;
      const auto records = [&]() TESSARINE_REQUIRES(mutex_) {
        return encoded.records(written = timeOfWriting());
      };
      stored = store(records, expectation, deliveries);
      if (stored != Stored::unexpected) {
        for (const auto& write : writes) {
          change(write.key, entryOf(write.key), write.value, written, deliveries);
          if (stored == Stored::refused) refused_.emplace(write.key);
        }
      }
      if (files_) startWorker();
    }
    finish(deliveries);
    if (files_) journal = files_->journal();
  }
  if (journal != nullptr) journal->wake();
  deliver(deliveries);
  return stored != Stored::unexpected;
}

/// Now, or a little after the latest write: of two writes the second has the later time, also when
/// the clock was set back between them.
double Domain::timeOfWriting() const {
  const double now = Date::now().timeIntervalSinceReferenceDate();
  return now > latest_ ? now : std::nextafter(latest_, std::numeric_limits<double>::infinity());
}

/// To be asked where no other process can write.
bool Domain::meets(const std::optional<Expectation>& expectation) {
  if (!expectation) return true;
  const Entry* const entry = load(expectation->key);
  const bool isWritten = entry != nullptr && entry->written == entry->written;
  if (!isWritten || !expectation->written) return isWritten == expectation->written.has_value();
  return entry->written == *expectation->written;
}

bool Domain::removesNothing(std::span<const Write> writes, Deliveries& deliveries) {
  if (writes.empty()) return true;
  if (writes.size() != 1 || writes.front().value) return false;
  const Entry* const entry = known(writes.front().key, deliveries);
  return entry == nullptr || (entry->isKnown && !entry->value);
}

/// Stores what `recordsNow` gives once no other process can write any more, so that the times of
/// writing rise in the order of the writes.
template <class RecordsNow>
Domain::Stored Domain::store(RecordsNow recordsNow, const std::optional<Expectation>& expectation,
                             Deliveries& deliveries) {
  Journal* const journal = files_ ? files_->journal() : nullptr;
  if (journal == nullptr) {
    if (!meets(expectation)) return Stored::unexpected;
    recordsNow();
    applied_ = ownHead_.fetch_add(1) + 1;
    return files_ ? Stored::refused : Stored::yes;
  }
  const JournalLock lock(*journal);
  takeOver(*journal, deliveries);
  if (!meets(expectation)) return Stored::unexpected;
  const std::span<const Journal::Record> records = recordsNow();
  if (!files_->store(*journal, records)) return Stored::refused;
  applied_ = journal->head().load(std::memory_order_relaxed);
  if (!refused_.empty()) {
    for (const auto& record : records) refused_.erase(std::string(record.key));
  }
  return Stored::yes;
}

bool Domain::storeRefused(Deliveries& deliveries) {
  if (refused_.empty()) return true;
  const auto keys = refused_;
  Encoded encoded;
  for (const auto& key : keys) {
    const Entry& entry = entryOf(key);
    encoded.add(key, entry.value, entry.written);
  }
  return store([&] { return encoded.records(); }, std::nullopt, deliveries) == Stored::yes;
}

void Domain::adoptJournal(Deliveries& deliveries) {
  Journal& journal = *files_->journal();
  const JournalLock lock(journal);
  startAnew(journal, deliveries);
  freshness_.head.store(&journal.head(), std::memory_order_release);
}

/// What is only in memory, and not later in the files, counts as refused by them.
void Domain::refuseUnknownToFiles() {
  for (const auto& [key, entry] : entries_) {
    Entry stored;
    if (entry.value) look(key, stored);
    if (entry.value && !(stored.written >= entry.written)) refused_.insert(key);
  }
}

/// Opens and stores what could not be. True when nothing is left.
bool Domain::retry(Deliveries& deliveries) {
  Journal* const former = files_->journal();
  const auto mended = files_->mend();
  if (mended == DomainFiles::Mended::replaced) refuseUnknownToFiles();
  if (mended != DomainFiles::Mended::nothing) adoptJournal(deliveries);
  Journal* const journal = files_->journal();
  if (former != nullptr && former != journal) former->wake();  // the worker may sleep there
  if (journal != nullptr) return storeRefused(deliveries);
  applied_ = ownHead_.load();
  freshness_.head.store(&ownHead_, std::memory_order_release);
  return false;
}

bool Domain::retry() {
  Deliveries deliveries;
  bool isDone = false;
  {
    const MutexLock lock(mutex_);
    isDone = retry(deliveries);
    finish(deliveries);
  }
  deliver(deliveries);
  return isDone;
}

bool Domain::synchronize() {
  if (!files_) return true;
  refresh();
  bool isDone = retry() && files_->fold();
  // What is damaged may have shown only now, and can be replaced at once.
  if (!isDone && files_->needMending()) isDone = retry() && files_->fold();
  return isDone;
}

// ---- observers ----

/// `expired` is to be destroyed after the lock: a handler may own anything.
void Domain::addTo(ObserverList& observers, std::shared_ptr<const Observer> observer,
                   ObserverList& expired) {
  for (const auto& other : observers) {
    if (other->alive.expired()) expired.push_back(other);
  }
  std::erase_if(observers, [](const auto& other) { return other->alive.expired(); });
  observers.push_back(std::move(observer));
}

void Domain::addObserver(std::string_view key, const std::shared_ptr<const void>& observer,
                         const void* context, ChangeHandler handler) {
  ObserverList expired;
  auto added = std::make_shared<const Observer>(observer, context, std::move(handler));
  read([&](Deliveries& deliveries) TESSARINE_REQUIRES(mutex_) {
    const bool isMissing = known(key, deliveries) == nullptr;
    Entry& entry = entryOf(key);
    if (isMissing) entry.isKnown = true;
    addTo(entry.observers, std::move(added), expired);
    if (files_) startWorker();
  });
}

void Domain::addObserverOfAllKeys(const std::shared_ptr<const void>& observer,
                                  ChangeHandler handler) {
  ObserverList expired;
  auto added = std::make_shared<const Observer>(observer, nullptr, std::move(handler));
  read([&](Deliveries& deliveries) TESSARINE_REQUIRES(mutex_) {
    // So that after a long sleep what has changed can be told.
    if (!isWhole_) askInStep(deliveries, [&]() TESSARINE_REQUIRES(mutex_) { readAll(); });
    addTo(observersOfAllKeys_, std::move(added), expired);
    if (files_) startWorker();
  });
}

void Domain::removeObserver(std::string_view key, const void* observer, const void* context) {
  std::shared_ptr<const Observer> removed;
  const MutexLock lock(mutex_);
  const auto entry = entries_.find(key);
  if (entry == entries_.end()) return;
  ObserverList& observers = entry->second.observers;
  const auto found = std::find_if(observers.begin(), observers.end(), [&](const auto& other) {
    return other->identity == observer && other->context == context;
  });
  if (found == observers.end()) return;
  removed = std::move(*found);
  removed->isRemoved = true;
  observers.erase(found);
}

/// Ends work under the lock: readers may rely on their caches again once every observer has been
/// told.
void Domain::finish(const Deliveries& deliveries) {
  if (!deliveries.empty()) {
    ++delivering_;
  } else if (delivering_ == 0 && freshness_.delivered.load() != applied_) {
    freshness_.delivered.store(applied_, std::memory_order_release);
  }
}

void Domain::deliver(const Deliveries& deliveries) {
  if (deliveries.empty()) return;
  struct Finally {
    Domain& domain;
    ~Finally() {
      const MutexLock lock(domain.mutex_);
      --domain.delivering_;
      domain.finish({});
    }
  } const finally{*this};
  callAll(deliveries, [](const Delivery& delivery) {
    if (delivery.observer->isRemoved) return;
    delivery.observer->handler(delivery.key, delivery.before, delivery.now);
  });
}

}  // namespace tessarine::detail
