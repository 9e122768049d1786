#include "tessarine/preferences/PreferenceAccessor.hpp"

#include "tessarine/preferences/UbiquitousController.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine::detail {

void PreferenceSite::keepStores() {
  if (!userDefaults_) userDefaults_ = findStore();
  if (!copyToDefaults_ && copyToCacheKey_) copyToDefaults_ = findMirror();
}

PreferenceSite::Store PreferenceSite::findStore() const {
  auto suite = UserDefaults::suite(cacheKey_.suiteName);
  return suite ? suite : UserDefaults::standard();
}

PreferenceSite::Store PreferenceSite::findMirror() const {
  return UserDefaults::suite(copyToCacheKey_->suiteName);
}

void PreferenceSite::enrol(const std::optional<std::string>& suiteName,
                           const std::optional<std::string>& copyToSuiteName) {
  if (!UbiquitousController::canUseICloudKeyValueStore()) return;
  ubiquitousController_ = UbiquitousController::controller(suiteName, true);
  if (copyToSuiteName) ubiquitousController_->mirrorCloudImports(key_, *copyToSuiteName);
  ubiquitousController_->startObserving({key_});
}

void failForMissingRead() {
  throw NSInternalInconsistencyException(
      "readFromNullableHashable must also be set. Programmer error.");
}

void failForNoPropertyList(const std::string& key) {
  fatal("the value for the preference \"" + key +
        "\" is no property-list value: set storeAsHashable and readFromNullableHashable");
}

}  // namespace tessarine::detail
