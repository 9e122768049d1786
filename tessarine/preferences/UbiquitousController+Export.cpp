// From the local store to the cloud.
#include <atomic>
#include <span>

#include "tessarine/preferences/UbiquitousController.hpp"
#include "tessarine/preferences/internal/UbiquitousQueue.hpp"
#include "tessarine/preferences/internal/ubiquitousDates.hpp"
#include "tessarine/preferences/internal/ubiquitousProcess.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/store/FileManager.hpp"

namespace tessarine {
namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): a setting of the host
constinit std::atomic<bool> synchronizesOnChange = true;

constexpr double delayOfExport = 0.1;  // seconds; without effect where it is immediate

}  // namespace

bool UbiquitousController::syncUbiquitousKeyValueStoreOnChange() noexcept {
  return synchronizesOnChange.load(std::memory_order_relaxed);
}

void UbiquitousController::setSyncUbiquitousKeyValueStoreOnChange(bool synchronizes) noexcept {
  synchronizesOnChange.store(synchronizes, std::memory_order_relaxed);
}

// ---- enrolment ----

void UbiquitousController::startObserving(const std::vector<std::string>& keys) {
  setUpNotifications();
  onQueue([&] {
    for (const auto& key : keys) {
      if (key.find('.') != std::string::npos) {
        logger()->errorLog([&] {
          return std::string("iCloud Pref: Refusing to observe dot-containing key '")
              .append(key)
              .append("'; UserDefaults KVO cannot observe key paths.");
        });
        continue;
      }
      if (!observedKeySet_.insert(key).second) continue;
      observedKeys_.push_back(key);
      registerObserver(key);
      if (remoteDefaults_->keepsLatest() && mayExchange()) bringIntoStep(key);
    }
  });
  syncRemoteStore(0, false);
}

void UbiquitousController::stopObserving(const std::vector<std::string>& keys) {
  onQueue([&] {
    for (const auto& key : keys) {
      if (observedKeySet_.erase(key) == 0) continue;
      std::erase(observedKeys_, key);
      unregisterObserver(key);
    }
  });
}

bool UbiquitousController::isObserved(std::string_view key) const {
  return observedKeySet_.find(key) != observedKeySet_.end();
}

void UbiquitousController::registerObserver(const std::string& key) {
  if (key == changeDateKey_) return;
  if (registeredObservationKeys_.insert(key).second) {
    localDefaults_->addObserver(shared_from_this(), key, KeyValueObservingOptions::newValue);
  }
  printObservationStatus(key, true);
}

void UbiquitousController::unregisterObserver(const std::string& key) {
  if (key == changeDateKey_) return;
  if (registeredObservationKeys_.erase(key) > 0) localDefaults_->removeObserver(*this, key);
  printObservationStatus(key, false);
}

// ---- a change ----

void UbiquitousController::observeValue(std::string_view keyPath, UserDefaults& object,
                                        const ChangeDictionary& /*change*/, void* /*context*/) {
  if (MainQueue::isMainThread() && internal::isBeingImportedFromCloud(keyPath)) return;
  queue_->async(
      [weak = weak_from_this(), key = std::string(keyPath), object = object.shared_from_this()] {
        if (const auto controller = weak.lock()) controller->exportChange(key);
      });
}

void UbiquitousController::exportChange(const std::string& key) {
  if (!isObserved(key) || !registeredObservationKeys_.contains(key)) return;
  // An import by another process of this machine, or a write that has been brought out already.
  if (remoteDefaults_->keepsLatest() && !isWrittenSinceDated(key)) return;
  localDefaults_->set(internal::baseStamp(), changeDateKey_);
  syncToCloud(key, Stamp::now);
}

/// Whether anything may pass between the stores.
bool UbiquitousController::mayExchange() const {
  if (!isEnabled()) return false;
  return !(internal::isICloudSyncDisabledForCurrentProcess() &&
           remoteDefaults_->isRealCloudStore());
}

/// Exports one key, or without a key all that are enrolled.
void UbiquitousController::syncToCloud(const std::optional<std::string>& key, Stamp stamp) {
  if (!mayExchange()) return;
  if (const auto log = logger(); log->isLogTypeEnabled(LogType::verbose)) {
    log->verboseLog([&] { return "iCloud Pref: syncToCloud: " + key.value_or(""); });
  }
  PreferenceChange base{changeDateKey_, internal::baseStamp()};
  if (key && remoteDefaults_->keepsLatest()) {
    return exportKey(*key, stamp, {std::move(base)});  // all in one step
  }
  remoteDefaults_->set(std::move(base.value), changeDateKey_);
  if (key) {
    exportKey(*key, stamp, {});
  } else {
    const auto keys = observedKeys_;  // who is told of a step may enrol and withdraw keys
    for (const auto& observed : keys) exportKey(observed, stamp, {});
  }
}

/// Sends `changes`, the key's date and its value in one step, and notes the date here too.
///
/// With a store that keeps the later write the date is noted last, and only if the key was not
/// written again: so at any instruction at which the process may die, what did not go out is still
/// known by the times of writing.
void UbiquitousController::exportKey(const std::string& key, Stamp stamp,
                                     std::vector<PreferenceChange> changes) {
  const auto lastWritten = localDefaults_->lastWritten(key);
  const bool keepsLatest = remoteDefaults_->keepsLatest();
  std::optional<Date> written;
  if (keepsLatest && !mayExport(key, stamp, written)) return;
  const Value value = localDefaults_->object(key);
  const Date date = written.value_or(Date::now());
  if (isObserved(key)) {
    if (!keepsLatest) localDefaults_->set(date, dateKey(key));
    changes.push_back({dateKey(key), date});
  }
  changes.push_back({key, value});
  const bool isAccepted =
      written ? remoteDefaults_->setAll(changes, *written) : remoteDefaults_->setAll(changes);
  if (!isAccepted) return;  // it stays here, and is tried again when the key is enrolled or synced
  if (keepsLatest && isObserved(key)) {
    const PreferenceChange dated{dateKey(key), date};
    localDefaults_->setAll(std::span(&dated, 1), key, lastWritten);
  }
  printKeySyncStatus(key, value, DataStore::remote);
  if (syncUbiquitousKeyValueStoreOnChange()) syncRemoteStore(delayOfExport, true);
}

/// Whether anything is known of the key here: a machine on which it was never written has nothing
/// to say. With `Stamp::ofWrite` also gives when the value was written, which has to be known.
bool UbiquitousController::mayExport(const std::string& key, Stamp stamp,
                                     std::optional<Date>& written) const {
  const auto lastWritten = localDefaults_->lastWritten(key);
  if (!lastWritten) return false;
  if (stamp == Stamp::now) return true;
  written = isWrittenSinceDated(key) ? lastWritten : localDate(dateKey(key));
  return written.has_value();
}

// ---- what happened while nobody looked ----

/// Whether the key was written here by something that did not tell the cloud: imports and exports
/// write its date with it or after it.
bool UbiquitousController::isWrittenSinceDated(const std::string& key) const {
  const auto written = localDefaults_->lastWritten(key);
  if (!written) return false;
  const auto dated = localDefaults_->lastWritten(dateKey(key));
  return !dated || *dated < *written;
}

/// For a store that keeps the later write: sends what it does not know, by the time at which it was
/// written, and takes what is later there.
void UbiquitousController::bringIntoStep(const std::string& key) {
  if (key == changeDateKey_) return;
  bringOut(key);
  const auto pairs = remoteDefaults_->dictionaryRepresentation();
  if (!remoteChangeIsNewerThanLocalWrite(key, *pairs)) return;
  // A key that is not enrolled has no date here that could tell of newer writes.
  syncFromCloud(key, *pairs, isObserved(key) ? Import::ifNewest : Import::forced);
}

void UbiquitousController::bringOut(const std::string& key) {
  const auto lastWritten = localDefaults_->lastWritten(key);
  const auto pairs = remoteDefaults_->dictionaryRepresentation();
  const auto cloudDate = internal::dateIn(*pairs, dateKey(key));
  const bool isUnsent = isWrittenSinceDated(key);
  if (isUnsent && cloudDate &&
      internal::isSame(localDefaults_->object(key), internal::valueIn(*pairs, key))) {
    const PreferenceChange dated{dateKey(key), *cloudDate};  // there is nothing to tell
    localDefaults_->setAll(std::span(&dated, 1), key, lastWritten);
    return;
  }
  // Without a date there the cloud knows nothing of the key, or has lost it.
  const bool isLost = !cloudDate && localDate(dateKey(key));
  if (!isUnsent && !isLost) return;
  localDefaults_->set(internal::baseStamp(), changeDateKey_);
  syncToCloud(key, Stamp::ofWrite);
}

// ---- exchange ----

bool UbiquitousController::maySynchronize() const {
  return isEnabled() && !internal::isICloudSyncDisabledForCurrentProcess() &&
         !internal::isRunningUnderTests() && !internal::isExtensionShapedCurrentProcess() &&
         FileManager::defaultManager().ubiquityIdentityToken().has_value();
}

void UbiquitousController::syncRemoteStore(double delay, bool immediately) {
  if (!maySynchronize()) return;
  if (immediately) {
    remoteDefaults_->synchronize();
    return;
  }
  remoteSyncDebouncer_->debounce(DispatchQueue::main(), delay, [weak = weak_from_this()] {
    const auto controller = weak.lock();
    if (controller && controller->maySynchronize()) controller->remoteDefaults_->synchronize();
  });
}

}  // namespace tessarine
