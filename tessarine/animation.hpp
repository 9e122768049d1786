#pragma once

/// Values that move: curves, tweens, laws of motion, springs, and the frames that drive them.
#include "tessarine/animation/Animator.hpp"
#include "tessarine/animation/CompletionReason.hpp"
#include "tessarine/animation/DecayFunction.hpp"
#include "tessarine/animation/DisplayLink.hpp"
#include "tessarine/animation/FrameSource.hpp"
#include "tessarine/animation/SIMD2.hpp"
#include "tessarine/animation/SIMD4.hpp"
#include "tessarine/animation/SimulationFunction.hpp"
#include "tessarine/animation/Spring.hpp"
#include "tessarine/animation/SpringFunction.hpp"
#include "tessarine/animation/TimingFunction.hpp"
#include "tessarine/animation/UnitBezier.hpp"
#include "tessarine/animation/VectorConvertible.hpp"
#include "tessarine/animation/rounding.hpp"
