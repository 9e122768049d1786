#pragma once

#include <string>

#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

/// Says that what follows belongs on the main thread. In a build of the host without NDEBUG, being
/// on another one is a programmer error that names the caller's line; with it, this is empty.
inline void assertMainThread([[maybe_unused]] const char* file = __builtin_FILE(),
                             [[maybe_unused]] unsigned line = __builtin_LINE()) {
#ifndef NDEBUG
  if (!MainQueue::isMainThread())
    fatal(std::string(file) + ":" + std::to_string(line) + ": not on the main thread.");
#endif
}

/// Says that what follows, such as a long wait, does not belong on the main thread; likewise.
inline void assertIsNotMainThread([[maybe_unused]] const char* file = __builtin_FILE(),
                                  [[maybe_unused]] unsigned line = __builtin_LINE()) {
#ifndef NDEBUG
  if (MainQueue::isMainThread())
    fatal(std::string(file) + ":" + std::to_string(line) + ": on the main thread.");
#endif
}

}  // namespace tessarine
