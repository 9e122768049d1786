#pragma once

#include <functional>

namespace tessarine {

/// How a motion ended: by itself, or because something else took its place.
enum class CompletionReason { finished, interrupted };

/// Told the end of a motion, once.
using MotionCompletion = std::function<void(CompletionReason)>;

}  // namespace tessarine
