#pragma once

#include "tessarine/export.hpp"

namespace tessarine {

// Rounding to a multiple of `multiple`, for snapping what moves to a raster. An exact multiple
// stays where it is. A `multiple` of 0 and operands that are no numbers give not a number.

/// To the nearest one; half-way between two, to the one with an even quotient.
TESSARINE_EXPORT double roundedToNearest(double value, double multiple) noexcept;

TESSARINE_EXPORT double roundedTowardZero(double value, double multiple) noexcept;

TESSARINE_EXPORT double roundedAwayFromZero(double value, double multiple) noexcept;

/// Towards negative infinity.
TESSARINE_EXPORT double roundedDown(double value, double multiple) noexcept;

/// Towards positive infinity.
TESSARINE_EXPORT double roundedUp(double value, double multiple) noexcept;

}  // namespace tessarine
