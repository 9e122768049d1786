#include "tessarine/preferences/UbiquitousController.hpp"

#include <cstdio>

#include "tessarine/dates/Date+Construction.hpp"
#include "tessarine/dates/Date+Fields.hpp"
#include "tessarine/preferences/internal/UbiquitousQueue.hpp"
#include "tessarine/preferences/internal/descriptionOf.hpp"
#include "tessarine/preferences/internal/ubiquitousDates.hpp"
#include "tessarine/preferences/internal/ubiquitousProcess.hpp"
#include "tessarine/system/desktop/NSWorkspace.hpp"

namespace tessarine {
namespace {

constexpr double debounceInterval = 0.1;  // seconds

std::shared_ptr<UbiquitousDefaultsProviding> chosenStore() {
  if (!UbiquitousController::canUseICloudKeyValueStore()) {
    return NoopUbiquitousDefaultsProviding::defaultStore();
  }
  static auto& store =
      *new std::shared_ptr(ubiquitousDefaults(NSUbiquitousKeyValueStore::defaultStore()));
  return store;
}

Vesperline standardOutput() {
  return {[](const std::string& text, LogType /*type*/) { std::puts(text.c_str()); },
          {LogType::debug, LogType::info, LogType::verbose, LogType::notice, LogType::warning,
           LogType::error, LogType::fault}};
}

}  // namespace

// ---- making and ending ----

UbiquitousController::UbiquitousController(
    std::shared_ptr<UserDefaults> userDefaults,
    std::shared_ptr<UbiquitousDefaultsProviding> remoteDefaults, bool isEnabled)
    : queue_(std::make_shared<DispatchQueue>("com.corvellis.ubiquitoussync")),
      lockedIsEnabled_(isEnabled),
      remoteSyncDebouncer_(std::make_shared<Debouncer>(debounceInterval)),
      notificationPostDebouncer_(std::make_shared<Debouncer>(debounceInterval)),
      localDefaults_(std::move(userDefaults)),
      remoteDefaults_(std::move(remoteDefaults)),
      vesperline_(std::make_shared<const Vesperline>(standardOutput())) {
  queue_->setSpecific(queueSpecificKey_, std::optional(queueSpecificValue));
}

UbiquitousController::~UbiquitousController() {
  auto& center = NotificationCenter::defaultCenter();
  for (const auto* const name :
       {NSUbiquitousKeyValueStoreDidChangeExternallyNotification,
        NSApplicationWillBecomeActiveNotification, NSApplicationDidFinishLaunchingNotification}) {
    center.removeObserver(this, name);
  }
  NSWorkspace::shared().notificationCenter().removeObserver(this, NSWorkspaceDidWakeNotification);
  onQueue([this] {
    for (const auto& key : registeredObservationKeys_) localDefaults_->removeObserver(*this, key);
  });
}

std::shared_ptr<UbiquitousController> UbiquitousController::make(
    std::shared_ptr<UserDefaults> userDefaults,
    std::shared_ptr<UbiquitousDefaultsProviding> remoteDefaults, bool isEnabled) {
  return std::shared_ptr<UbiquitousController>(
      new UbiquitousController(std::move(userDefaults), std::move(remoteDefaults), isEnabled));
}

const std::shared_ptr<UbiquitousController>& UbiquitousController::shared() {
  static auto& controller =
      *new std::shared_ptr(make(UserDefaults::standard(), chosenStore(), true));
  return controller;
}

std::shared_ptr<UbiquitousController> UbiquitousController::controller(
    const std::optional<std::string>& suiteName, bool isEnabled) {
  if (!suiteName) return shared();
  auto& all = *shared();
  return all.onQueue([&] {
    auto& controller = all.controllers_[*suiteName];
    if (!controller) {
      auto suite = UserDefaults::suite(*suiteName);
      controller = make(suite ? suite : UserDefaults::standard(), chosenStore(), isEnabled);
    }
    return controller;
  });
}

void UbiquitousController::start(bool enabled) {
  setEnabled(enabled);
  setUpNotifications();
  syncRemoteStore(0, false);
}

void UbiquitousController::setUpNotifications() {
  onQueue([this] {
    if (std::exchange(didSetupNotifiations_, true)) return;
    const auto self = shared_from_this();
    const auto enter = [](UbiquitousController& controller, const Notification& /*ignored*/) {
      controller.willEnterForeground();
    };
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(self, NSUbiquitousKeyValueStoreDidChangeExternallyNotification,
                       remoteDefaults_->notificationObject(),
                       &UbiquitousController::remoteDefaultsDidChange);
    NSWorkspace::shared().notificationCenter().addObserver(self, NSWorkspaceDidWakeNotification,
                                                           nullptr, enter);
    center.addObserver(self, NSApplicationWillBecomeActiveNotification, nullptr, enter);
    center.addObserver(self, NSApplicationDidFinishLaunchingNotification, nullptr, enter);
  });
}

// ---- settings ----

bool UbiquitousController::isEnabled() const {
  return onQueue([this] { return lockedIsEnabled_; });
}

void UbiquitousController::setEnabled(bool enabled) {
  onQueue([&] { lockedIsEnabled_ = enabled; });
}

bool UbiquitousController::debugEnabled() const {
  return onQueue([this] { return lockedDebugEnabled_; });
}

void UbiquitousController::setDebugEnabled(bool enabled) {
  onQueue([&] { lockedDebugEnabled_ = enabled; });
}

std::shared_ptr<const Vesperline> UbiquitousController::logger() const {
  const MutexLock lock(vesperlineLock_);
  return vesperline_;
}

Vesperline UbiquitousController::vesperline() const { return *logger(); }

void UbiquitousController::setVesperline(Vesperline vesperline) {
  auto next = std::make_shared<const Vesperline>(std::move(vesperline));
  const MutexLock lock(vesperlineLock_);
  vesperline_.swap(next);
}

std::vector<std::string> UbiquitousController::observedKeys() const {
  return onQueue([this] { return observedKeys_; });
}

void UbiquitousController::mirrorCloudImports(const std::string& key,
                                              const std::string& suiteName) {
  onQueue([&] { mirrorSuiteNamesByKey_[key].insert(suiteName); });
}

// ---- dates ----

std::optional<Date> internal::baseStamp() {
  const Date now = Date::now();
  return dateWithComponents({.calendar = Calendar::current(),
                             .timeZone = TimeZone::current(),
                             .era = era(now),
                             .year = year(now),
                             .month = month(now),
                             .day = day(now),
                             .hour = hour(now),
                             .minute = minute(now),
                             .second = second(now),
                             .nanosecond = nanosecond(now)});
}

std::optional<Date> UbiquitousController::localDate(std::string_view key) const {
  const auto object = localDefaults_->object(key);
  return object && object->date() != nullptr ? std::optional(*object->date()) : std::nullopt;
}

// ---- messages ----

namespace {

const char* suffixOf(UbiquitousControllerDataStore destination) {
  return destination == UbiquitousControllerDataStore::remote ? "TO iCloud." : "FROM iCloud";
}

}  // namespace

/// The logger, if single steps are to be logged.
std::shared_ptr<const Vesperline> UbiquitousController::debugLogger() const {
  if (!debugEnabled()) return nullptr;
  auto vesperline = logger();
  return vesperline->isLogTypeEnabled(LogType::debug) ? vesperline : nullptr;
}

void UbiquitousController::printGeneralSyncStatus(bool finished, DataStore destination) const {
  if (const auto log = debugLogger()) {
    log->debugLog([&] {
      return std::string("iCloud Pref: ")
          .append(finished ? "Finished" : "Started")
          .append(" synchronization ")
          .append(suffixOf(destination));
    });
  }
}

void UbiquitousController::printKeySyncStatus(const std::string& key, const Value& value,
                                              DataStore destination) const {
  if (const auto log = debugLogger()) {
    log->debugLog([&] {
      return std::string("iCloud Pref: Synchronized key '")
          .append(key)
          .append("' with value '")
          .append(value ? internal::descriptionOf(*value) : "nil")
          .append("' ")
          .append(suffixOf(destination));
    });
  }
}

void UbiquitousController::printObservationStatus(const std::string& key, bool subscribed) const {
  if (const auto log = debugLogger()) {
    log->debugLog([&] {
      return std::string("iCloud Pref: ")
          .append(subscribed ? "Subscribed" : "Unsubscribed")
          .append(" '")
          .append(key)
          .append("' ")
          .append(subscribed ? "for" : "from")
          .append(" observation.");
    });
  }
}

}  // namespace tessarine
