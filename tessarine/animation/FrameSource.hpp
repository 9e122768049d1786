#pragma once

#include <functional>
#include <memory>

#include "tessarine/animation/DisplayLink.hpp"
#include "tessarine/export.hpp"
#include "tessarine/system/desktop/CVDisplayLink.hpp"

namespace tessarine {

/// Where frames come from, for any number of animators, springs and display links at once: one
/// timer and one block of the main queue a frame, however many move.
///
///     auto frames = std::make_shared<FrameSource>();
///     Spring<CGPoint> ball({0, 0}, frames), shadow({0, 0}, frames);
///
/// A host whose toolkit tells when to draw drives one by hand; docs/animation.md has GTK, Qt, SDL
/// and Wayland:
///
///     auto frames = FrameSource::hostDriven([](bool isWanted) { ... });
///     frames->frame(seconds);  // on each frame of the toolkit, then
///     MainQueue::drain();      // to move before drawing
///
/// To be used on the main queue, but for `frame`. Sources are held by `std::shared_ptr`.
class TESSARINE_EXPORT FrameSource {
 public:
  /// The frames of `link`; none at all is a programmer error.
  explicit FrameSource(
      const std::shared_ptr<CVDisplayLink>& link = CVDisplayLinkCreateWithActiveCGDisplays());
  /// Frames that the host hands in. `onWanted` is called on the main queue with true when the first
  /// member begins to move and with false when the last one rests; frames meanwhile are dropped.
  static std::shared_ptr<FrameSource> hostDriven(std::function<void(bool isWanted)> onWanted = {});
  ~FrameSource();
  FrameSource(const FrameSource&) = delete;
  FrameSource& operator=(const FrameSource&) = delete;

  /// The source of all display links made later without one of their own; null for none.
  static void setShared(std::shared_ptr<FrameSource> frames);
  static std::shared_ptr<FrameSource> shared();

  /// A frame of a source that the host drives, at `timestamp` seconds of any steady clock. It spans
  /// the time since the frame before, the first one after a rest 1/60 s. One that is not later, or
  /// is no finite number, moves nothing. Any thread.
  void frame(double timestamp);
  /// The same with both stamps given.
  void frame(const DisplayLink::Frame& frame);

 private:
  friend class DisplayLink;
  struct Inbox;
  class Members;

  explicit FrameSource(std::function<void(bool)> onWanted);
  void install(std::function<void(bool)> onWanted);

  std::shared_ptr<Inbox> inbox_;
  std::shared_ptr<Members> members_;
};

}  // namespace tessarine
