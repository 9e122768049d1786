#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/preferences/UbiquitousDefaultsProviding.hpp"
#include "tessarine/preferences/Vesperline.hpp"
#include "tessarine/scheduling/Debouncer.hpp"
#include "tessarine/system/dispatch/DispatchQueue.hpp"
#include "tessarine/system/dispatch/DispatchSpecificKey.hpp"
#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/store/NotificationCenter.hpp"
#include "tessarine/system/store/UserDefaults.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine {

/// The two sides of a sync.
enum class UbiquitousControllerDataStore : std::uint8_t { local, remote };

/// Keeps chosen preference keys of one domain in step with a cloud key-value store.
///
///     auto controller = tessarine::UbiquitousController::shared();
///     controller->startObserving({"fontSize", "theme"});
///
/// A write of an enrolled key, by whomever, is exported: its value and the date of the change go to
/// the cloud store. A change that comes from the cloud is imported on the main thread, so the host
/// has to drive the main queue. Which of two changes stays is decided key by key: by the cloud
/// store where that keeps the later write, as `NSUbiquitousKeyValueStore` does, else by the dates.
/// The dates lie beside the values in both stores, under "udcDate" and, for each key,
/// "udcDate.KEY".
///
/// Any thread; no entry waits for the main queue, and an observer of the domain costs its writer
/// one submission to a queue. Where the process may not use the cloud nothing goes out and all
/// works locally.
class TESSARINE_EXPORT UbiquitousController final
    : public KeyValueObserving,
      public std::enable_shared_from_this<UbiquitousController> {
 public:
  /// Posted on the main thread, with the controller as object, 0.1 seconds after the last import of
  /// a key.
  static constexpr auto keysDidChangeOnCloudNotification =
      "UbiquitousControllerKeysDidChangeOnCloudNotification";

  // ---- controllers ----

  /// The controller of the standard domain; made on first use and kept.
  static const std::shared_ptr<UbiquitousController>& shared();
  /// The controller of a suite, made on first use and kept; without a suite name `shared`.
  /// `isEnabled` counts only for one that is made.
  static std::shared_ptr<UbiquitousController> controller(
      const std::optional<std::string>& suiteName, bool isEnabled);
  /// A controller of its own between two stores.
  static std::shared_ptr<UbiquitousController> make(
      std::shared_ptr<UserDefaults> userDefaults,
      std::shared_ptr<UbiquitousDefaultsProviding> remoteDefaults, bool isEnabled);
  ~UbiquitousController() override;

  const std::shared_ptr<UserDefaults>& localDefaults() const noexcept { return localDefaults_; }
  const std::shared_ptr<UbiquitousDefaultsProviding>& remoteDefaults() const noexcept {
    return remoteDefaults_;
  }

  // ---- the process ----

  /// Keeps this process from the cloud from now on; there is no way back.
  static void disableICloudSyncForCurrentProcess();
  /// Whether this process may use the cloud: it has not opted out, is no test process and no
  /// extension. Says nothing of an account.
  static bool canUseICloudKeyValueStore();
  /// Whether a bundle of that kind is an extension of another application: by the path extension
  /// "appex", a key "NSExtension", or the package type "XPC!".
  static bool isExtensionShapedProcess(
      const std::optional<std::string>& bundlePathExtension,
      const std::optional<PreferenceObject::Dictionary>& infoDictionary);

  /// Whether each export of a key ends in a `synchronize` of the cloud store; true at first. To be
  /// set at start.
  static bool syncUbiquitousKeyValueStoreOnChange() noexcept;
  static void setSyncUbiquitousKeyValueStoreOnChange(bool synchronizes) noexcept;

  // ---- work ----

  /// Sets `isEnabled` and begins to hear of changes in the cloud.
  void start(bool enabled);

  /// While false, nothing is exported, imported or synchronised, and none of it is made up for.
  bool isEnabled() const;
  void setEnabled(bool enabled);
  /// Whether single steps are logged.
  bool debugEnabled() const;
  void setDebugEnabled(bool enabled);
  /// Where messages go. By default all of them to standard output, a line each.
  Vesperline vesperline() const;
  void setVesperline(Vesperline vesperline);

  /// Enrols keys: their changes are exported from now on, and imported. With a store that keeps the
  /// later write, what was written while no controller ran, and what came meanwhile, is brought
  /// into step at once. A key with a dot is refused and logged.
  void startObserving(const std::vector<std::string>& keys);
  /// Ends that. What is stored stays.
  void stopObserving(const std::vector<std::string>& keys);
  /// The enrolled keys, in the order of their enrolment.
  std::vector<std::string> observedKeys() const;

  /// Brings the keys into step now, from the side named; without one, each key from the side where
  /// it was changed last. Without keys, everything from one side. Returns when the decisions are
  /// made and exports are done; imports follow on the main queue.
  void sync(const std::vector<std::string>& keys = {},
            std::optional<UbiquitousControllerDataStore> overrideDataSource = std::nullopt);

  /// Copies imports of `key` to another suite as well.
  void mirrorCloudImports(const std::string& key, const std::string& suiteName);

  void observeValue(std::string_view keyPath, UserDefaults& object, const ChangeDictionary& change,
                    void* context) override;

 private:
  using DataStore = UbiquitousControllerDataStore;
  using Pairs = UbiquitousDefaultsProviding::Pairs;
  using Value = std::optional<PreferenceObject>;
  /// The date that an export carries: that of the export, or that of the write as far as known.
  enum class Stamp : std::uint8_t { now, ofWrite };
  /// Whether an import was asked for, or takes place only if nothing newer was written meanwhile.
  enum class Import : std::uint8_t { forced, ifNewest };

  UbiquitousController(std::shared_ptr<UserDefaults> userDefaults,
                       std::shared_ptr<UbiquitousDefaultsProviding> remoteDefaults, bool isEnabled);

  template <class Work>
  auto onQueue(Work work) const;
  void setUpNotifications();
  bool mayExchange() const;
  bool maySynchronize() const;
  std::shared_ptr<const Vesperline> logger() const;
  std::shared_ptr<const Vesperline> debugLogger() const;
  void remoteDefaultsDidChange(const Notification& notification);
  void willEnterForeground();

  // Export.
  void registerObserver(const std::string& key);
  void unregisterObserver(const std::string& key);
  void exportChange(const std::string& key);
  void syncToCloud(const std::optional<std::string>& key, Stamp stamp);
  void exportKey(const std::string& key, Stamp stamp, std::vector<PreferenceChange> changes);
  bool mayExport(const std::string& key, Stamp stamp, std::optional<Date>& written) const;
  bool isWrittenSinceDated(const std::string& key) const;
  void bringIntoStep(const std::string& key);
  void bringOut(const std::string& key);
  void syncRemoteStore(double delay, bool immediately);

  // Import.
  DataStore dataStoreWithLatestData() const;
  bool remoteChangeIsNewerThanLocalWrite(const std::string& key, const Pairs& pairs) const;
  bool shouldImportRemoteValueDuringKeyedSync(const std::string& key, const Pairs& pairs) const;
  void importChanges(const std::vector<std::string>& changedKeys, Date cloudDate);
  void syncFromCloud(const std::optional<std::string>& key, const Pairs& pairs, Import import);
  void importKey(const std::string& key, const Pairs& pairs, Import import);
  void importAll(const Pairs& pairs);
  bool store(const std::string& key, const Value& value, std::optional<Date> remoteDate,
             Import import) const;
  void exportWhatObserversWrote(const std::string& key);
  std::vector<std::shared_ptr<UserDefaults>> cloudImportMirrorDefaults(std::string_view key) const;
  void syncKey(const std::string& key, std::optional<DataStore> source, const Pairs& pairs);
  void syncEverything(DataStore source, Stamp stamp);

  std::optional<Date> localDate(std::string_view key) const;
  std::string dateKey(std::string_view key) const {
    return changeDateKey_ + "." + std::string(key);
  }
  bool isObserved(std::string_view key) const;

  void printGeneralSyncStatus(bool finished, DataStore destination) const;
  void printKeySyncStatus(const std::string& key, const Value& value, DataStore destination) const;
  void printObservationStatus(const std::string& key, bool subscribed) const;

  /// The only guard of the fields down to `didSetupNotifiations_`.
  const std::shared_ptr<DispatchQueue> queue_;
  const DispatchSpecificKey<std::uint8_t> queueSpecificKey_;
  static constexpr std::uint8_t queueSpecificValue = 1;
  bool lockedIsEnabled_;
  bool lockedDebugEnabled_ = false;
  std::map<std::string, std::shared_ptr<UbiquitousController>> controllers_;  // of `shared` only
  std::vector<std::string> observedKeys_;
  std::set<std::string, std::less<>> observedKeySet_;
  std::set<std::string, std::less<>> registeredObservationKeys_;
  std::map<std::string, std::set<std::string>, std::less<>> mirrorSuiteNamesByKey_;
  bool didSetupNotifiations_ = false;

  const std::string changeDateKey_ = "udcDate";
  const std::shared_ptr<Debouncer> remoteSyncDebouncer_;
  const std::shared_ptr<Debouncer> notificationPostDebouncer_;
  const std::shared_ptr<UserDefaults> localDefaults_;
  const std::shared_ptr<UbiquitousDefaultsProviding> remoteDefaults_;

  mutable Mutex vesperlineLock_;
  std::shared_ptr<const Vesperline> vesperline_ TESSARINE_GUARDED_BY(vesperlineLock_);
};

}  // namespace tessarine
