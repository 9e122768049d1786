#include "tessarine/system/desktop/Bundle.hpp"

#include <filesystem>
#include <mutex>
#include <system_error>

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

std::string Bundle::bundlePath() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
}

void Bundle::setInfoDictionary(PreferenceObject::Dictionary dictionary) {
  const std::unique_lock lock(mutex_);
  information_ = std::move(dictionary);
}

std::optional<PreferenceObject::Dictionary> Bundle::infoDictionary() const {
  const std::shared_lock lock(mutex_);
  return information_;
}

}  // namespace tessarine
