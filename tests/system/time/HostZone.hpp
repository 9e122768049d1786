#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include "tessarine/system/time/TimeZone.hpp"

namespace tessarine {

/// Makes a zone the host's for as long as it lives, for the C library too.
class HostZone {
 public:
  explicit HostZone(const std::string& name) {
    if (const char* const before = std::getenv("TZ")) before_ = before;
    set(name);
  }
  ~HostZone() {
    if (before_) {
      set(*before_);
    } else {
      unsetenv("TZ");
      tell();
    }
  }
  HostZone(const HostZone&) = delete;
  HostZone& operator=(const HostZone&) = delete;

  void set(const std::string& name) {
    setenv("TZ", name.c_str(), 1);
    tell();
  }

 private:
  static void tell() {
    tzset();
    TimeZone::resetSystemTimeZone();
  }
  std::optional<std::string> before_;
};

}  // namespace tessarine
