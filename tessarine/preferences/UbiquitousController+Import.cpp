// From the cloud to the local store.
#include <any>
#include <unordered_set>

#include "tessarine/preferences/UbiquitousController.hpp"
#include "tessarine/preferences/internal/UbiquitousQueue.hpp"
#include "tessarine/preferences/internal/ubiquitousDates.hpp"
#include "tessarine/preferences/internal/ubiquitousProcess.hpp"

namespace tessarine {
namespace {

using internal::dateIn;
using internal::isSame;
using internal::valueIn;

bool isQuotaViolation(const Notification& notification) {
  const auto found = notification.userInfo.find(NSUbiquitousKeyValueStoreChangeReasonKey);
  const int* const reason =
      found != notification.userInfo.end() ? std::any_cast<int>(&found->second) : nullptr;
  return reason != nullptr &&
         *reason == static_cast<int>(NSUbiquitousKeyValueStoreChangeReason::quotaViolationChange);
}

/// Runs `body` on the main queue, where its writes of `key` are told from those of the host.
template <class Body>
void applyCloudImportOnMain(std::string key, Body body) {
  DispatchQueue::main()->async([key = std::move(key), body = std::move(body)] {
    const internal::ImportScope scope(key);
    body();
  });
}

}  // namespace

// ---- asked for ----

void UbiquitousController::sync(const std::vector<std::string>& keys,
                                std::optional<DataStore> overrideDataSource) {
  if (keys.empty()) {
    const DataStore source = overrideDataSource ? *overrideDataSource : dataStoreWithLatestData();
    const Stamp stamp = overrideDataSource ? Stamp::now : Stamp::ofWrite;
    onQueue([&] { syncEverything(source, stamp); });
    return;
  }
  if (!isEnabled()) return;
  onQueue([&] {
    const auto pairs = remoteDefaults_->dictionaryRepresentation();
    const auto destination =
        overrideDataSource == DataStore::remote ? DataStore::local : DataStore::remote;
    if (overrideDataSource) printGeneralSyncStatus(false, destination);
    for (const auto& key : keys) syncKey(key, overrideDataSource, *pairs);
    if (overrideDataSource) printGeneralSyncStatus(true, destination);
  });
}

void UbiquitousController::syncEverything(DataStore source, Stamp stamp) {
  const auto destination = source == DataStore::remote ? DataStore::local : DataStore::remote;
  printGeneralSyncStatus(false, destination);
  if (source == DataStore::remote) {
    syncFromCloud(std::nullopt, *remoteDefaults_->dictionaryRepresentation(), Import::forced);
  } else {
    syncToCloud(std::nullopt, stamp);
  }
  printGeneralSyncStatus(true, destination);
}

void UbiquitousController::syncKey(const std::string& key, std::optional<DataStore> source,
                                   const Pairs& pairs) {
  if (!source && remoteDefaults_->keepsLatest()) {
    if (mayExchange()) bringIntoStep(key);
    return;
  }
  const bool isImport =
      source ? source == DataStore::remote : shouldImportRemoteValueDuringKeyedSync(key, pairs);
  if (isImport) {
    syncFromCloud(key, pairs, Import::forced);
  } else {
    syncToCloud(key, Stamp::now);
  }
}

// ---- which side is newer ----

UbiquitousControllerDataStore UbiquitousController::dataStoreWithLatestData() const {
  const auto cloudDate = dateIn(*remoteDefaults_->dictionaryRepresentation(), changeDateKey_);
  if (!cloudDate) return DataStore::local;
  const auto localBase = localDate(changeDateKey_);
  const bool isLocalLater =
      localBase && cloudDate->timeIntervalSince1970() < localBase->timeIntervalSince1970();
  return isLocalLater ? DataStore::local : DataStore::remote;
}

bool UbiquitousController::remoteChangeIsNewerThanLocalWrite(const std::string& key,
                                                             const Pairs& pairs) const {
  const auto local = localDate(dateKey(key));
  const auto cloud = dateIn(pairs, dateKey(key));
  if (remoteDefaults_->keepsLatest()) {
    // Such a store holds nothing older than what was sent to it, so what differs is newer. The
    // value may differ alone, as keys that are not enrolled are exported without a date.
    return cloud && (cloud != local || !isSame(valueIn(pairs, key), localDefaults_->object(key)));
  }
  if (!local) return true;
  return cloud && *cloud > *local;
}

bool UbiquitousController::shouldImportRemoteValueDuringKeyedSync(const std::string& key,
                                                                  const Pairs& pairs) const {
  if (!pairs.contains(key) && !dateIn(pairs, dateKey(key))) return false;
  return remoteChangeIsNewerThanLocalWrite(key, pairs);
}

// ---- told by the cloud ----

void UbiquitousController::remoteDefaultsDidChange(const Notification& notification) {
  if (notification.name != NSUbiquitousKeyValueStoreDidChangeExternallyNotification) return;
  const auto found = notification.userInfo.find(NSUbiquitousKeyValueStoreChangedKeysKey);
  if (found == notification.userInfo.end()) return;
  const auto* const keys = std::any_cast<std::vector<std::string>>(&found->second);
  if (keys == nullptr) return;
  if (remoteDefaults_->keepsLatest() && isQuotaViolation(notification)) return;  // nothing came
  const auto cloudDate = dateIn(*remoteDefaults_->dictionaryRepresentation(), changeDateKey_);
  if (!cloudDate) return;
  queue_->async([self = shared_from_this(), keys = *keys, date = *cloudDate] {
    self->importChanges(keys, date);
  });
}

void UbiquitousController::importChanges(const std::vector<std::string>& changedKeys,
                                         Date cloudDate) {
  const bool keepsLatest = remoteDefaults_->keepsLatest();
  const auto localBase = localDate(changeDateKey_);
  // A store that keeps the later write has decided by each key's own time.
  if (!keepsLatest && localBase && !(*localBase < cloudDate)) return;
  const std::unordered_set<std::string_view> changed(changedKeys.begin(), changedKeys.end());
  const auto pairs = remoteDefaults_->dictionaryRepresentation();
  const auto log = logger();
  const std::vector<std::string> observed = observedKeys_;
  for (const auto& key : observed) {
    const bool isNamed = changed.contains(key);
    // Its date may have come behind an equal value.
    if (!isNamed && !(keepsLatest && changed.contains(dateKey(key)))) continue;
    if (keepsLatest && mayExchange() && isWrittenSinceDated(key)) {
      bringIntoStep(key);
    } else if (remoteChangeIsNewerThanLocalWrite(key, *pairs)) {
      syncFromCloud(key, *pairs, Import::ifNewest);
    } else if (log->isLogTypeEnabled(LogType::debug)) {
      log->debugLog([&] { return "iCloud Pref: Ignored stale remote change for '" + key + "'."; });
    }
  }
}

void UbiquitousController::willEnterForeground() {
  constexpr double delay = 0.5;  // seconds
  syncRemoteStore(delay, false);
}

// ---- importing ----

/// Imports one key, or without a key every pair.
void UbiquitousController::syncFromCloud(const std::optional<std::string>& key, const Pairs& pairs,
                                         Import import) {
  if (!mayExchange()) return;
  if (const auto log = logger(); log->isLogTypeEnabled(LogType::verbose)) {
    log->verboseLog([&] { return "iCloud Pref: syncFromCloud: " + key.value_or(""); });
  }
  localDefaults_->set(internal::baseStamp(), changeDateKey_);
  if (key) {
    importKey(*key, pairs, import);
  } else {
    importAll(pairs);
  }
}

void UbiquitousController::importKey(const std::string& key, const Pairs& pairs, Import import) {
  const Value value = valueIn(pairs, key);
  applyCloudImportOnMain(
      key, [self = shared_from_this(), key, value, remoteDate = dateIn(pairs, dateKey(key)), import,
            mirrors = cloudImportMirrorDefaults(key)] {
        if (!self->store(key, value, remoteDate, import)) {
          // Should the write have been noticed within this very import, it was taken for its own.
          self->queue_->async([self, key] { self->exportChange(key); });
          return;
        }
        for (const auto& mirror : mirrors) mirror->set(value, key);
        if (remoteDate) self->exportWhatObserversWrote(key);
      });
  printKeySyncStatus(key, value, DataStore::local);
  notificationPostDebouncer_->debounce(DispatchQueue::main(), [weak = weak_from_this()] {
    if (const auto controller = weak.lock()) {
      NotificationCenter::defaultCenter().post(keysDidChangeOnCloudNotification, controller.get());
    }
  });
}

/// Stores what was imported, the value and its date in one step. False when something newer was
/// written here since it was decided; that goes out by itself.
bool UbiquitousController::store(const std::string& key, const Value& value,
                                 std::optional<Date> remoteDate, Import import) const {
  const auto lastWritten = localDefaults_->lastWritten(key);
  std::vector<PreferenceChange> changes;
  if (value || localDefaults_->object(key)) changes.push_back({key, value});
  if (remoteDate) {
    changes.push_back({dateKey(key), *remoteDate});
  } else if (!value && localDefaults_->object(dateKey(key))) {
    changes.push_back({dateKey(key), std::nullopt});
  }
  if (import == Import::forced || !remoteDefaults_->keepsLatest()) {
    localDefaults_->setAll(changes);
    return true;
  }
  if (isWrittenSinceDated(key)) return false;
  const auto present = remoteDefaults_->dictionaryRepresentation();
  if (dateIn(*present, dateKey(key)) != remoteDate || !isSame(valueIn(*present, key), value)) {
    return false;
  }
  return localDefaults_->setAll(changes, key, lastWritten);
}

/// For a store that keeps the later write: an observer of the host may have answered an import by
/// another value of the key, which is told from the import by its time alone.
void UbiquitousController::exportWhatObserversWrote(const std::string& key) {
  if (!remoteDefaults_->keepsLatest() || !isWrittenSinceDated(key)) return;
  queue_->async([weak = weak_from_this(), key] {
    if (const auto controller = weak.lock()) controller->exportChange(key);
  });
}

void UbiquitousController::importAll(const Pairs& pairs) {
  for (const auto& [key, value] : pairs) {
    applyCloudImportOnMain(key, [local = localDefaults_, key = key, value = value,
                                 mirrors = cloudImportMirrorDefaults(key)] {
      local->set(value, key);
      for (const auto& mirror : mirrors) mirror->set(value, key);
    });
    printKeySyncStatus(key, value, DataStore::local);
  }
}

std::vector<std::shared_ptr<UserDefaults>> UbiquitousController::cloudImportMirrorDefaults(
    std::string_view key) const {
  std::vector<std::shared_ptr<UserDefaults>> mirrors;
  const auto names = mirrorSuiteNamesByKey_.find(key);
  if (names == mirrorSuiteNamesByKey_.end()) return mirrors;
  for (const auto& name : names->second) {
    if (auto mirror = UserDefaults::suite(name)) mirrors.push_back(std::move(mirror));
  }
  return mirrors;
}

}  // namespace tessarine
