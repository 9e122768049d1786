#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tessarine/export.hpp"

namespace tessarine {

/// Integers of 128 bits, as the compiler has them.
__extension__ using Int128 = __int128;
__extension__ using UInt128 = unsigned __int128;

/// Decimal digits, with a minus sign before a negative number.
TESSARINE_EXPORT std::string decimalText(Int128 value);
TESSARINE_EXPORT std::string decimalText(UInt128 value);

/// The number whose decimal digits `text` holds, whole, with an optional minus sign (only zero is
/// unsigned with one). Absent for any other text and beyond 128 bits.
TESSARINE_EXPORT std::optional<Int128> int128FromText(std::string_view text) noexcept;
TESSARINE_EXPORT std::optional<UInt128> uint128FromText(std::string_view text) noexcept;

}  // namespace tessarine
