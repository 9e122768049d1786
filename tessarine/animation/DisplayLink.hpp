#pragma once

#include <functional>
#include <memory>

#include "tessarine/export.hpp"

namespace tessarine {

class FrameSource;

/// Calls `onFrame` on the main queue, once a frame, while it is not paused. What `Animator` moves
/// by; hosts use it for what they draw themselves:
///
///     DisplayLink link;
///     link.setOnFrame([&](const DisplayLink::Frame& frame) { scene.draw(frame.timestamp); });
///     link.setIsPaused(false);
///
/// To be used on the main queue only; anything else is a programmer error. At most one frame waits
/// for the main queue: those that come meanwhile are added to it, so a stall ends with a single
/// long frame. An exception that leaves `onFrame` is told on standard error.
class TESSARINE_EXPORT DisplayLink {
 public:
  /// In seconds by the clock of the display. `timestamp` is the later one, always.
  struct Frame {
    double previousTimestamp = 0;
    double timestamp = 0;
    bool operator==(const Frame&) const noexcept = default;
  };
  using OnFrame = std::function<void(const Frame&)>;

  /// Takes its frames from `frames`, or from those set with `FrameSource::setShared`, else from a
  /// `CVDisplayLink` of its own.
  explicit DisplayLink(std::shared_ptr<FrameSource> frames = nullptr);
  /// Pauses it.
  ~DisplayLink();
  DisplayLink(const DisplayLink&) = delete;
  DisplayLink& operator=(const DisplayLink&) = delete;

  OnFrame onFrame() const;
  void setOnFrame(OnFrame onFrame);

  /// True at first.
  bool isPaused() const noexcept;
  /// The first link of a source that goes starts it, the last one that pauses stops it. A link that
  /// is set going during a frame gets the next one.
  void setIsPaused(bool isPaused);

 private:
  friend class FrameSource;
  struct Member;

  const std::shared_ptr<FrameSource> frames_;
  const std::unique_ptr<Member> member_;
};

namespace detail {
/// Ends the process unless this is the main queue, with a sentence that names `operation`.
TESSARINE_EXPORT void requireMainQueue(const char* operation) noexcept;
}  // namespace detail

}  // namespace tessarine
