#pragma once

#include "tessarine/export.hpp"
#include "tessarine/system/store/NotificationCenter.hpp"

namespace tessarine {

/// Posted by the host on the workspace's centre when the machine has come out of sleep.
inline constexpr auto NSWorkspaceDidWakeNotification = "NSWorkspaceDidWakeNotification";
/// Posted by the host on the default centre when its windows are about to come to the front, and
/// when it has started.
inline constexpr auto NSApplicationWillBecomeActiveNotification =
    "NSApplicationWillBecomeActiveNotification";
inline constexpr auto NSApplicationDidFinishLaunchingNotification =
    "NSApplicationDidFinishLaunchingNotification";

/// The session around the application, as far as the library wants to hear of it.
class TESSARINE_EXPORT NSWorkspace {
 public:
  NSWorkspace(const NSWorkspace&) = delete;
  NSWorkspace& operator=(const NSWorkspace&) = delete;

  static NSWorkspace& shared();

  /// Where the host tells of the session; apart from the default centre. Any thread.
  NotificationCenter& notificationCenter() noexcept { return notificationCenter_; }

 private:
  NSWorkspace() = default;
  ~NSWorkspace() = default;

  NotificationCenter notificationCenter_;
};

}  // namespace tessarine
