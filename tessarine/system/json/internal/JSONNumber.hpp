#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "tessarine/values/Int128.hpp"

namespace tessarine::internal {

/// The size of the number at the front of `text` by JSON's grammar, 0 when there is none.
std::size_t jsonNumberSize(std::string_view text) noexcept;

/// The integer that a number is, whatever its notation ("120", "1.2e2"); absent when it is none, is
/// a zero with a sign and a fraction or exponent, or does not fit. The unsigned form reaches from
/// 0.
std::optional<Int128> integerOfJSONNumber(std::string_view number) noexcept;
std::optional<UInt128> unsignedOfJSONNumber(std::string_view number) noexcept;

/// The float nearest to a number, absent beyond the greatest; what is below the least is a zero.
template <class Float>
std::optional<Float> floatOfJSONNumber(std::string_view number) noexcept;

}  // namespace tessarine::internal
