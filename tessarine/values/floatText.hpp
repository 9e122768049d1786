#pragma once

#include <cstddef>
#include <string>

#include "tessarine/export.hpp"

namespace tessarine {

/// The shortest text that reads back equal: plain notation with at least one fraction digit when
/// the magnitude is 0 or from 1e-4 up to but not including 2^54 (2^24 for the 32-bit float), else
/// exponent notation with a sign and at least two exponent digits: "1.0", "0.0001", "1e-05",
/// "1e+20". "nan", "inf" and "-inf" when not finite.
TESSARINE_EXPORT std::string floatText(double value);
TESSARINE_EXPORT std::string floatText(float value);

/// No text is longer than this.
inline constexpr std::size_t longestFloatText = 32;

/// Writes the same text at `out`, which has room for `longestFloatText` bytes; gives its end.
TESSARINE_EXPORT char* writeFloatText(double value, char* out) noexcept;
TESSARINE_EXPORT char* writeFloatText(float value, char* out) noexcept;

}  // namespace tessarine
