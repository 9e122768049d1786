#include "tessarine/system/desktop/ProcessInfo.hpp"

#include <cstdlib>
#include <fstream>

namespace tessarine {

std::optional<std::string> ProcessInfo::environment(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): as documented
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

std::vector<std::string> ProcessInfo::arguments() {
  std::vector<std::string> arguments;
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  for (std::string argument; std::getline(file, argument, '\0');) arguments.push_back(argument);
  return arguments;
}

}  // namespace tessarine
