#pragma once

#include <memory>

#include "tessarine/animation/FrameSource.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"

namespace tessarine {

/// Frames given by hand, and whether anything asks for them.
struct Frames {
  bool isWanted = false;
  int changes = 0;
  std::shared_ptr<FrameSource> source = FrameSource::hostDriven([this](bool wanted) {
    isWanted = wanted;
    ++changes;
  });

  void give(double dt) const {
    source->frame({0, dt});
    MainQueue::drain();
  }
};

}  // namespace tessarine
