#pragma once

#include "tour/Report.hpp"

namespace tessarine::tool {

/// A spring that is given another target in flight beside a tween that is interrupted, both driven
/// by the timer of the display link. False when a motion does not end where and as often as it
/// should.
bool writeAnimationChapter(Report& report);

}  // namespace tessarine::tool
