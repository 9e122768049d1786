#include "tessarine/system/desktop/Bundle.hpp"

#include <mutex>

namespace tessarine {

Bundle& Bundle::main() {
  static auto& bundle = *new Bundle;  // outlives what other statics do at exit
  return bundle;
}

void Bundle::setLocalizedStrings(Strings strings) {
  const std::unique_lock lock(mutex_);
  strings_.swap(strings);
}

std::string Bundle::localizedString(std::string_view key) const {
  const std::shared_lock lock(mutex_);
  const auto found = strings_.find(key);
  return found == strings_.end() ? std::string(key) : found->second;
}

}  // namespace tessarine
