#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tessarine/export.hpp"

namespace tessarine {

/// What is known of the running process. Any thread, as long as nobody changes the environment.
class TESSARINE_EXPORT ProcessInfo {
 public:
  /// The value of an environment variable; absent when it is not set.
  static std::optional<std::string> environment(const char* name);
  /// The words that the process was started with, its own name first; none where the system does
  /// not tell.
  static std::vector<std::string> arguments();
};

}  // namespace tessarine
