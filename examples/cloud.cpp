// A preference that a user's machines share. The second machine is played by this process too, with
// stores of its own.
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "tessarine/preferences.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/store/EmbeddedCloudHub.hpp"
#include "tessarine/system/store/NSUbiquitousKeyValueStore.hpp"
#include "tessarine/system/store/NotificationCenter.hpp"

#include <poll.h>

using tessarine::MainQueue;
using tessarine::UbiquitousController;

namespace {

void logLine(const std::string& text, tessarine::LogType /*type*/) {
  std::fprintf(stderr, "%s\n", text.c_str());
}

/// Drives the main queue, as the host's loop does, until `isReached()`.
template <class Condition>
bool driveUntil(Condition isReached) {
  pollfd file{MainQueue::fileDescriptor(), POLLIN, 0};
  constexpr int longest = 10'000;  // milliseconds
  while (!isReached()) {
    if (poll(&file, 1, longest) <= 0) return false;
    MainQueue::drain();
  }
  return true;
}

/// A machine with a domain and a replica of its own.
std::shared_ptr<UbiquitousController> otherMachine(const std::string& folder,
                                                   const std::string& hub) {
  auto replica = tessarine::NSUbiquitousKeyValueStore::open(folder + "/cloud.replica");
  replica->signIn("ann", std::make_shared<tessarine::EmbeddedCloudHub>(hub, "ann"));
  auto controller = UbiquitousController::make(tessarine::UserDefaults::temporary(),
                                               tessarine::ubiquitousDefaults(replica), true);
  controller->setVesperline({logLine, {tessarine::LogType::error}});
  controller->startObserving({"fontSize"});
  return controller;
}

}  // namespace

int main() {
  const std::string folder = std::filesystem::temp_directory_path() / "tessarine-example-cloud";
  std::filesystem::remove_all(folder);
  const std::string hub = folder + "/hub";

  tessarine::UserDefaults::setDirectory(folder + "/domains");
  auto controller = tessarine::UbiquitousController::shared();
  controller->setVesperline({logLine, {tessarine::LogType::error}});
  tessarine::CloudAccount::signIn({.user = "ann", .hub = "file:" + hub});

  tessarine::UserDefault<int> fontSize{"fontSize",
                                       {.defaultValue = 12, .cacheValues = true, .iCloud = true}};
  fontSize.setWrappedValue(14);  // goes out by itself
  MainQueue::drain();            // imports come in here, at each turn of the host's loop

  bool isTold = false;
  auto told = tessarine::NotificationCenter::defaultCenter().addObserver(
      UbiquitousController::keysDidChangeOnCloudNotification, controller.get(),
      [&](const auto& /*notification*/) { isTold = true; });

  std::atomic<bool> isRefused = false;  // other threads tell
  auto refused = tessarine::NotificationCenter::defaultCenter().addObserver(
      tessarine::NSUbiquitousKeyValueStoreDidChangeExternallyNotification,
      controller->remoteDefaults()->notificationObject(),
      [&](const tessarine::Notification& notification) {
        using tessarine::NSUbiquitousKeyValueStoreChangeReason;
        const auto reason = tessarine::dynamicCast<int>(
            notification.userInfo.at(tessarine::NSUbiquitousKeyValueStoreChangeReasonKey));
        const auto quota = NSUbiquitousKeyValueStoreChangeReason::quotaViolationChange;
        if (reason == static_cast<int>(quota)) isRefused = true;
      });

  const auto other = otherMachine(folder + "/other", hub);
  const auto& otherDomain = *other->localDefaults();
  if (!driveUntil([&] { return otherDomain.object("fontSize") == 14; })) return 1;
  other->localDefaults()->set(16, "fontSize");
  if (!driveUntil([&] { return fontSize.wrappedValue() == 16; })) return 1;
  std::printf("the other machine has made it %d\n", fontSize.wrappedValue());
  if (!driveUntil([&] { return isTold; })) return 1;

  controller->startObserving({"theme", "zoom"});           // keys without an accessor
  controller->mirrorCloudImports("theme", "com.example");  // imports go to this suite as well
  controller->sync({"theme"});                             // now, from where it was changed last
  return isRefused ? 1 : 0;
}
