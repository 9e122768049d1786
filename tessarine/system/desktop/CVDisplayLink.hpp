#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "tessarine/export.hpp"

namespace tessarine {

/// A moment on a display's time line: `videoTime` / `videoTimeScale` seconds.
struct CVTimeStamp {
  std::int32_t videoTimeScale = 1;
  std::int64_t videoTime = 0;
};

/// Calls a handler once a refresh of the display, on a thread of its own, while started. Any thread
/// may call its members; the links that the library makes are of the function below.
class TESSARINE_EXPORT CVDisplayLink {
 public:
  /// Takes the stamp of the refresh that has just begun and that of the next one; answers 0.
  using OutputHandler = std::function<int(const CVTimeStamp& now, const CVTimeStamp& output)>;

  CVDisplayLink() = default;
  virtual ~CVDisplayLink();
  CVDisplayLink(const CVDisplayLink&) = delete;
  CVDisplayLink& operator=(const CVDisplayLink&) = delete;

  /// What is called from the next refresh on. It shall be short and not throw.
  virtual void setOutputHandler(OutputHandler handler) = 0;
  virtual void start() = 0;
  /// A call that is under way may still end after this has returned.
  virtual void stop() = 0;
};

/// A link at the refresh rate of the displays. It ticks on the raster of `Clock` that this rate
/// gives, all links of one rate at the same instants and never adrift; refreshes that the process
/// sleeps through are left out, not made up for. A stopped link costs nothing.
TESSARINE_EXPORT std::shared_ptr<CVDisplayLink> CVDisplayLinkCreateWithActiveCGDisplays();

/// A link that ticks `hertz` times a second, from 1 to 1000; what lies outside counts as the nearer
/// end, not a number as 60.
TESSARINE_EXPORT std::shared_ptr<CVDisplayLink> CVDisplayLinkCreateWithRefreshRate(double hertz);

/// The refreshes a second of the fastest display, as RandR tells where an X display answers within
/// a quarter of a second; 60 elsewhere. Asked once a process. Any thread.
TESSARINE_EXPORT double displayRefreshRate();

}  // namespace tessarine
