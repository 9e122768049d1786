#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "tessarine/system/time/Locale.hpp"

namespace tessarine::internal {

/// Texts in one locale by their keys, for a while: when it is full, or asked for another locale, it
/// forgets all. Any thread.
class NameCache {
 public:
  std::optional<std::string> find(const Locale& locale, const std::string& key) const {
    const std::lock_guard lock(mutex_);
    const auto found = names_.find(key);
    if (locale != locale_ || found == names_.end()) return std::nullopt;
    return found->second;
  }

  void store(const Locale& locale, const std::string& key, const std::string& name) {
    const std::lock_guard lock(mutex_);
    if (locale != locale_ || names_.size() >= greatestCount) names_.clear();
    locale_ = locale;
    names_.insert_or_assign(key, name);
  }

 private:
  static constexpr std::size_t greatestCount = 4096;

  mutable std::mutex mutex_;  // guards what follows
  Locale locale_;
  std::unordered_map<std::string, std::string> names_;
};

}  // namespace tessarine::internal
