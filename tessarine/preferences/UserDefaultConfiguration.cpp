#include "tessarine/preferences/UserDefaultConfiguration.hpp"

#include "tessarine/values/fatal.hpp"

namespace tessarine {

bool UserDefaultConfiguration::storedPublishesOwnChanges = false;
bool UserDefaultConfiguration::didConfigureOwnChangePublishing = false;

void UserDefaultConfiguration::setPublishesOwnChanges(bool publishes) noexcept {
  if (didConfigureOwnChangePublishing) {
    fatal("UserDefaultConfiguration.publishesOwnChanges may be set only once per process");
  }
  storedPublishesOwnChanges = publishes;
  didConfigureOwnChangePublishing = true;
}

}  // namespace tessarine
