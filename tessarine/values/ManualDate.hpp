#pragma once

#include "tessarine/export.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

/// Replaces what `Date::now` tells while it lives. For tests. It stands still until it is set, and
/// may be set back. One at a time; a second one is a programmer error. Any thread.
class TESSARINE_EXPORT ManualDate {
 public:
  explicit ManualDate(Date now);
  ~ManualDate();
  ManualDate(const ManualDate&) = delete;
  ManualDate& operator=(const ManualDate&) = delete;

  void set(Date now);
  void advance(double seconds) {
    set(Date(Date::now().timeIntervalSinceReferenceDate() + seconds));
  }
};

}  // namespace tessarine
