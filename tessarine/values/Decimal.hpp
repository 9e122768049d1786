#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/export.hpp"
#include "tessarine/values/Int128.hpp"

namespace tessarine {

/// A decimal number that is kept exactly: up to 38 digits times a power of ten from -128 to 127, as
/// amounts of money want it. A plain value; equal numbers are equal however they were written.
class TESSARINE_EXPORT Decimal {
 public:
  /// Zero.
  constexpr Decimal() noexcept = default;

  /// The number of a text: digits with an optional minus sign, fraction and exponent ("-1.50",
  /// "2e3"). Absent for any other text, and for a number that is not kept exactly.
  static std::optional<Decimal> fromString(std::string_view text) noexcept;

  /// The digits, with a fraction where there is one and never with an exponent: "-1.5", "2000".
  std::string description() const;

  constexpr bool operator==(const Decimal&) const noexcept = default;

 private:
  friend struct std::hash<Decimal>;
  UInt128 digits_ = 0;  // no trailing zero, unless it is 0
  std::int16_t exponent_ = 0;
  bool isNegative_ = false;
};

}  // namespace tessarine

template <>
struct std::hash<tessarine::Decimal> {
  std::size_t operator()(const tessarine::Decimal& number) const noexcept {
    const auto low = static_cast<std::uint64_t>(number.digits_);
    const auto high = static_cast<std::uint64_t>(number.digits_ >> 64U);
    const auto rest =
        static_cast<std::uint64_t>(number.exponent_) * 2 + (number.isNegative_ ? 1 : 0);
    return static_cast<std::size_t>(low ^ (high * 0x9e3779b97f4a7c15U) ^ (rest << 48U));
  }
};
