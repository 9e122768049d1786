#pragma once

#include "tessarine/export.hpp"

namespace tessarine {

/// Settings of the preference layer, for the whole process.
class TESSARINE_EXPORT UserDefaultConfiguration {
 public:
  UserDefaultConfiguration() = delete;

  /// Whether a write through an accessor that changes the value posts `userDefaultChanged`; false
  /// at start.
  static bool publishesOwnChanges() noexcept { return storedPublishesOwnChanges; }

  /// May be called once a process; a second call, also with the same value, is a programmer error.
  /// There is no lock: call it at start, before accessors are used from several threads.
  static void setPublishesOwnChanges(bool publishes) noexcept;

 private:
  static bool storedPublishesOwnChanges;
  static bool didConfigureOwnChangePublishing;
};

}  // namespace tessarine
