#include "tessarine/system/store/internal/CloudReplica.hpp"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "tessarine/system/store/internal/CloudReplicaFile.hpp"
#include "tessarine/system/store/internal/ObjectCoding.hpp"
#include "tessarine/system/store/internal/cloudColumns.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine::detail {

// ---- opening ----

CloudReplica::CloudReplica(std::string path) : path_(std::move(path)), identity_(UUID::random()) {
  open();
}

CloudReplica::~CloudReplica() = default;

void CloudReplica::open() {
  if (path_.empty()) return;
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), ignored);
  for (const bool isLast : {false, true}) {
    try {
      file_ = std::make_unique<File>(path_);
      file_->forgetRemovals(microsecondsOf(Date::now()) - longestRemembered);
      if (!user_.empty()) chooseInFile(user_);  // signed in while there was no file
      load();
      return;
    } catch (const DatabaseError& error) {
      file_.reset();
      report(error.what());
      if (!error.damage || isLast) return;
    }
    const auto aside = path_ + ".damaged-" + std::to_string(microsecondsOf(Date::now()));
    for (const char* part : {"", "-wal", "-shm"}) {
      std::filesystem::rename(path_ + part, aside + part, ignored);
    }
  }
}

/// Once an outage.
void CloudReplica::report(const std::string& reason) {
  if (std::exchange(isReported_, true)) return;
  std::fprintf(stderr, "tessarine: the cloud replica %s cannot be used: %s\n", path_.c_str(),
               reason.c_str());
}

/// Everything of the account that the file names.
void CloudReplica::load() {
  const auto present = file_->present(chosen_);
  identity_ = present.replica;
  if (account_ != 0 && account_ != present.account) {  // another process changed users
    unsaved_.clear();
    isPositionUnsaved_ = false;
  }
  account_ = present.account;
  user_ = present.user;
  position_ = present.position;
  exchanged_ = present.exchanged;
  applied_ = 0;
  version_ = file_->version();
  const Entries before = std::exchange(entries_, {});
  forgetPairs();
  const auto take = [this](std::string_view key, const Entry& entry, std::int64_t change) {
    apply(key, entry, Origin::here);
    applied_ = std::max(applied_, change);
  };
  file_->forEachChanged(account_, -1, take);
  for (const auto& [key, entry] : unsaved_) apply(key, entry, Origin::here);
  for (const auto& [key, entry] : before) {
    const auto found = entries_.find(key);
    if (found == entries_.end() || found->second.value != entry.value) changedKeys_.push_back(key);
  }
  for (const auto& [key, entry] : entries_) {
    if (!before.contains(key)) changedKeys_.push_back(key);
  }
}

/// What other processes have committed, inside of a transaction.
void CloudReplica::takeOver() {
  const std::int64_t version = file_->version();
  if (version == version_) return;
  const auto present = file_->present(chosen_);
  if (present.account != account_) return load();
  if (!isPositionUnsaved_) {
    position_ = present.position;
    exchanged_ = present.exchanged;
  }
  const std::int64_t since = applied_;
  const auto take = [this](std::string_view key, const Entry& entry, std::int64_t change) {
    applied_ = std::max(applied_, change);
    if (const auto own = unsaved_.find(key); own != unsaved_.end()) {
      if (entry.stamp < own->second.stamp) return;
      unsaved_.erase(own);
    }
    apply(key, entry, Origin::elsewhere);
  };
  file_->forEachChanged(account_, since, take);
  version_ = version;
}

void CloudReplica::refresh() {
  if (!file_) return;
  try {
    if (file_->version() != version_) file_->database.read([this] { takeOver(); });
  } catch (const DatabaseError& error) {
    report(error.what());
  }
}

CloudReplica::Keys CloudReplica::takeChangedKeys() {
  Keys keys = std::exchange(changedKeys_, {});
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return keys;
}

// ---- memory ----

void CloudReplica::apply(std::string_view key, Entry entry, Origin origin) {
  auto found = entries_.find(key);
  if (found == entries_.end()) found = entries_.emplace(key, Entry{}).first;
  Entry& held = found->second;
  if (held.isWaiting()) --waiting_;
  if (entry.isWaiting()) ++waiting_;
  if (held.value) {
    --keys_;
    bytes_ -= key.size() + held.value->size();
  }
  if (entry.value) {
    ++keys_;
    bytes_ += key.size() + entry.value->size();
  }
  if (held.value != entry.value) {
    showPair(key, entry.value);
    if (origin == Origin::elsewhere) changedKeys_.emplace_back(key);
  }
  held = std::move(entry);
}

void CloudReplica::forgetPairs() {
  pairs_ = std::make_shared<Pairs>();
  waiting_ = 0;
  keys_ = 0;
  bytes_ = 0;
}

/// Who holds the former state keeps it. A value that cannot be read, as a newer version may write
/// it, is kept and passed on, but not shown.
void CloudReplica::showPair(std::string_view key, const std::optional<std::string>& value) {
  if (pairs_.use_count() > 1) pairs_ = std::make_shared<Pairs>(*pairs_);
  std::atomic_thread_fence(std::memory_order_acquire);  // behind the reads of who held it last
  auto object = value ? decodeObject(*value) : std::nullopt;
  const auto found = pairs_->find(key);
  if (object && found != pairs_->end()) {
    found->second = *std::move(object);
  } else if (object) {
    pairs_->emplace(key, *std::move(object));
  } else if (found != pairs_->end()) {
    pairs_->erase(found);
  }
}

/// Lets `decide(changed)` say, on the latest state, which entries change, and brings them into the
/// file and the memory; into the memory alone while the file refuses.
template <class Decide>
void CloudReplica::commit(Origin origin, Decide decide) {
  Changed changed;
  if (commitToFile(changed, decide)) {
    unsaved_.clear();
    isPositionUnsaved_ = false;
    isReported_ = false;
  } else {
    changed.clear();
    decide(changed);
    if (!path_.empty()) {
      for (const auto& [key, entry] : changed) unsaved_.insert_or_assign(key, entry);
    }
  }
  for (auto& [key, entry] : changed) apply(key, std::move(entry), origin);
}

template <class Decide>
bool CloudReplica::commitToFile(Changed& changed, Decide decide) {
  if (!file_) return false;
  try {
    file_->database.write([&] {
      takeOver();
      decide(changed);
      for (const auto& [key, entry] : unsaved_) changed.emplace(key, entry);
      if (isPositionUnsaved_) file_->moveTo(account_, position_, exchanged_);
      for (const auto& [key, entry] : changed) file_->put(account_, key, entry, applied_ + 1);
    });
    if (!changed.empty()) ++applied_;
    return true;
  } catch (const DatabaseError& error) {
    report(error.what());
    return false;
  }
}

// ---- users ----

bool CloudReplica::use(const std::string& user) {
  if (user == user_) {
    chosen_ = account_;
    return true;
  }
  if (file_) {
    if (!saveUnsaved()) return false;  // it is the former user's
    try {
      chooseInFile(user);
      load();
    } catch (const DatabaseError& error) {
      report(error.what());
    }
    return user == user_;
  }
  if (!user_.empty()) {  // in memory there is one user's only
    for (const auto& [key, entry] : entries_) changedKeys_.push_back(key);
    entries_.clear();
    unsaved_.clear();
    position_.clear();
    exchanged_.reset();
    forgetPairs();
  }
  user_ = user;
  return true;
}

void CloudReplica::chooseInFile(const std::string& user) {
  std::int64_t account = 0;
  file_->database.write([&] { account = file_->choose(user); });
  chosen_ = account;
}

// ---- writing ----

bool CloudReplica::write(std::span<const PreferenceChange> changes, std::int64_t now, bool isPast,
                         const Limits& limits) {
  std::vector<std::pair<const std::string*, std::optional<std::string>>> encoded;
  encoded.reserve(changes.size());
  for (const auto& change : changes) {
    std::optional<std::string> bytes;
    if (change.value && !encodeObject(*change.value, bytes.emplace())) {
      fatal("the value for the cloud key \"" + change.key + "\" nests deeper than " +
            std::to_string(deepestObject) + " levels");
    }
    encoded.emplace_back(&change.key, std::move(bytes));
  }
  bool isAccepted = true;
  commit(Origin::here, [&](Changed& changed) {
    CloudStamp seen;
    for (const auto& [key, bytes] : encoded) {
      const auto found = entries_.find(*key);
      if (found != entries_.end()) seen = std::max(seen, found->second.stamp);
    }
    const CloudStamp stamp =
        isPast ? CloudStamp{now, 0, identity_} : CloudStamp::after(seen, now, identity_);
    for (auto& [key, bytes] : encoded) {
      const auto found = entries_.find(*key);
      if (found != entries_.end() && !(found->second.stamp < stamp)) continue;
      const Standing standing =
          found != entries_.end() ? standingOver(found->second, now) : Standing::waiting;
      changed.insert_or_assign(*key, Entry{stamp, bytes, standing});
    }
    isAccepted = isWithin(changed, limits);
    if (!isAccepted) changed.clear();
  });
  return isAccepted;
}

CloudReplica::Standing CloudReplica::standingOver(const Entry& held, std::int64_t now) {
  const bool isAbove = held.standing != Standing::waiting && held.stamp.time > now;
  return isAbove ? Standing::waitingAbove : Standing::waiting;
}

/// Whether the change passes no limit: what is beyond one already must not become more.
bool CloudReplica::isWithin(const Changed& changed, const Limits& limits) const {
  std::size_t keys = keys_;
  std::size_t bytes = bytes_;
  for (const auto& [key, entry] : changed) {
    const auto found = entries_.find(key);
    const auto* const held =
        found != entries_.end() && found->second.value ? &*found->second.value : nullptr;
    const std::size_t before = held != nullptr ? key.size() + held->size() : 0;
    const std::size_t after = entry.value ? key.size() + entry.value->size() : 0;
    if (entry.value && entry.value->size() > limits.bytesOfValue && after > before) return false;
    keys = keys + (after > 0 ? 1 : 0) - (before > 0 ? 1 : 0);
    bytes = bytes + after - before;
  }
  return keys <= std::max(limits.keys, keys_) && bytes <= std::max(limits.bytes, bytes_);
}

// ---- exchange ----

std::size_t CloudReplica::bringDown(std::int64_t latest) {
  std::set<CloudStamp> beyond;
  for (const auto& [key, entry] : entries_) {
    if (entry.standing == Standing::waiting && entry.stamp.time > latest)
      beyond.insert(entry.stamp);
  }
  if (beyond.empty()) return 0;
  std::size_t count = 0;
  commit(Origin::here, [&](Changed& changed) {
    for (const auto& [key, entry] : entries_) {
      const auto place = beyond.find(entry.stamp);
      if (entry.standing != Standing::waiting || place == beyond.end()) continue;
      const auto rank = static_cast<std::uint32_t>(std::distance(beyond.begin(), place));
      const CloudStamp stamp{latest, rank, entry.stamp.replica};
      changed.insert_or_assign(key, Entry{stamp, entry.value, Standing::waiting});
    }
    count = changed.size();
  });
  return count;
}

void CloudReplica::merge(const CloudTransport::News& news) {
  const auto move = [&] {
    position_ = news.position;
    exchanged_ = microsecondsOf(Date::now());
    isPositionUnsaved_ = true;
  };
  const Changed noted = mergedOf(news);
  const bool isNoted = std::all_of(noted.begin(), noted.end(), [this](const auto& change) {
    const auto held = entries_.find(change.first);
    return held != entries_.end() && held->second.stamp == change.second.stamp &&
           change.second.standing == Standing::there;
  });
  if (isNoted) {
    move();
    return defer(noted);
  }
  commit(Origin::elsewhere, [&](Changed& changed) {
    move();
    changed = mergedOf(news);
  });
}

/// What the news changes in the present state.
CloudReplica::Changed CloudReplica::mergedOf(const CloudTransport::News& news) const {
  Changed changed;
  for (const CloudEntry& arrived : news.entries) {
    const auto found = entries_.find(arrived.key);
    if (found == entries_.end() || found->second.stamp < arrived.stamp) {
      changed.insert_or_assign(arrived.key, Entry{arrived.stamp, arrived.value});
      continue;
    }
    const Entry& held = found->second;
    const Standing standing = standingAfter(held, arrived);
    if (standing != held.standing) {
      changed.insert_or_assign(arrived.key, Entry{held.stamp, held.value, standing});
    }
  }
  mergeAbsent(news, changed);
  return changed;
}

/// Takes changes that the file may learn of later.
void CloudReplica::defer(const Changed& changed) {
  for (const auto& [key, entry] : changed) {
    if (!path_.empty()) unsaved_.insert_or_assign(key, entry);
    apply(key, entry, Origin::here);
  }
}

/// An entry that came back is there for good. An older one shows that the hub has lost the one that
/// is held here.
CloudReplica::Standing CloudReplica::standingAfter(const Entry& held, const CloudEntry& arrived) {
  if (held.stamp == arrived.stamp) return Standing::there;
  return held.isWaiting() ? held.standing : Standing::waiting;
}

/// What did not come: what was sent has been lost, since it would be news; and of a hub that tells
/// all it has, what should be there too, unless it was removed so long ago that the hub has
/// forgotten.
void CloudReplica::mergeAbsent(const CloudTransport::News& news, Changed& changed) const {
  std::set<std::string_view> arrived;
  for (const CloudEntry& entry : news.entries) arrived.insert(entry.key);
  for (const auto& [key, entry] : entries_) {
    if (entry.isWaiting() || arrived.contains(key)) continue;
    const bool isForgotten =
        entry.standing == Standing::there && entry.stamp.time <= news.forgottenUntil;
    if (entry.standing == Standing::sent || (news.isWhole && !isForgotten)) {
      changed.insert_or_assign(key, Entry{entry.stamp, entry.value, Standing::waiting});
    } else if (news.isWhole && entry.value) {
      changed.insert_or_assign(key, Entry{entry.stamp, std::nullopt});
    }
  }
}

std::vector<CloudEntry> CloudReplica::waiting() const {
  std::vector<CloudEntry> entries;
  if (waiting_ == 0) return entries;
  entries.reserve(waiting_);
  for (const auto& [key, entry] : entries_) {
    if (entry.isWaiting()) entries.push_back({key, entry.value, entry.stamp});
  }
  return entries;
}

void CloudReplica::sent(std::span<const CloudEntry> entries) {
  Changed changed;
  for (const CloudEntry& entry : entries) {
    const auto found = entries_.find(entry.key);
    if (found == entries_.end() || found->second.stamp != entry.stamp) continue;
    changed.insert_or_assign(entry.key, Entry{entry.stamp, found->second.value, Standing::sent});
  }
  defer(changed);
}

bool CloudReplica::saveUnsaved() {
  if (!file_) open();
  if (file_ && (!unsaved_.empty() || isPositionUnsaved_))
    commit(Origin::here, [](Changed& /*unchanged*/) {});
  return unsaved_.empty();
}

void CloudReplica::checkpoint(const std::string& path) {
  if (path.empty()) return;
  try {
    File::checkpoint(path);
  } catch (const DatabaseError&) {  // it is told where the file is written
  }
}

}  // namespace tessarine::detail
