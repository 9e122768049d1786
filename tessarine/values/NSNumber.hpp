#pragma once

#include <compare>
#include <concepts>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>

#include "tessarine/export.hpp"

namespace tessarine {

/// A number that keeps which kind it was made from: boolean, signed or unsigned 64-bit integer,
/// 64-bit or 32-bit float. A plain value of 16 bytes.
///
/// Every conversion is defined. Between integers it keeps the low bits (two's complement). From a
/// float it truncates toward zero and clamps to the range of the wanted integer, except that a
/// negative float becomes an unsigned integer by way of the signed one; NaN gives 0.
/// `exactly<T>` is the conversion that refuses instead.
class TESSARINE_EXPORT NSNumber {
 public:
  enum class Kind : std::uint8_t { boolean, signedInteger, unsignedInteger, float64, float32 };

  constexpr NSNumber() noexcept : NSNumber(0) {}

  /// Any arithmetic type but characters; the kind follows from the type.
  template <class T>
  requires std::is_arithmetic_v<T>
  // NOLINTNEXTLINE(google-explicit-constructor): numbers are written as numbers
  constexpr NSNumber(T value) noexcept {
    if constexpr (std::same_as<T, bool>) {
      kind_ = Kind::boolean;
      bits_.integer = value ? 1 : 0;
    } else if constexpr (std::same_as<T, float>) {
      kind_ = Kind::float32;
      bits_.floating = value;
    } else if constexpr (std::floating_point<T>) {
      kind_ = Kind::float64;
      bits_.floating = static_cast<double>(value);
    } else {
      kind_ = std::is_signed_v<T> ? Kind::signedInteger : Kind::unsignedInteger;
      bits_.integer = static_cast<std::uint64_t>(value);
    }
  }

  constexpr Kind kind() const noexcept { return kind_; }
  constexpr bool isFloat() const noexcept {
    return kind_ == Kind::float64 || kind_ == Kind::float32;
  }

  /// True unless the number is zero; NaN is true.
  bool boolValue() const noexcept;
  std::int64_t integerValue() const noexcept;
  std::uint64_t unsignedIntegerValue() const noexcept;
  std::int64_t longLongValue() const noexcept { return integerValue(); }
  std::uint64_t unsignedLongLongValue() const noexcept { return unsignedIntegerValue(); }
  double doubleValue() const noexcept;
  float floatValue() const noexcept;

  /// The number as `T` if `T` holds it exactly, else absent. A boolean holds 0 and 1, and a boolean
  /// number counts as those. A float holds NaN.
  template <class T>
  requires std::is_arithmetic_v<T> std::optional<T> exactly()
  const noexcept {
    if constexpr (std::same_as<T, bool>) {
      const auto bit = exactUnsigned(1);
      return bit ? std::optional(*bit == 1) : std::nullopt;
    } else if constexpr (std::same_as<T, float>) {
      return exactFloat();
    } else if constexpr (std::floating_point<T>) {
      return exactDouble();
    } else if constexpr (std::is_signed_v<T>) {
      const auto value = exactSigned(std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
      return value ? std::optional(static_cast<T>(*value)) : std::nullopt;
    } else {
      const auto value = exactUnsigned(std::numeric_limits<T>::max());
      return value ? std::optional(static_cast<T>(*value)) : std::nullopt;
    }
  }

  /// Numeric equality whatever the kinds, without rounding; NaN equals NaN.
  bool operator==(const NSNumber& other) const noexcept;

  /// Equal numbers have equal hashes.
  std::size_t hash() const noexcept;

  /// "true" or "false", decimal digits, or the shortest text that reads back equal.
  std::string stringValue() const;

 private:
  std::optional<std::int64_t> exactSigned(std::int64_t least, std::int64_t greatest) const noexcept;
  std::optional<std::uint64_t> exactUnsigned(std::uint64_t greatest) const noexcept;
  std::optional<double> exactDouble() const noexcept;
  std::optional<float> exactFloat() const noexcept;

  union Bits {
    std::uint64_t integer;
    double floating;  // of a 32-bit float as well: widening is exact
  } bits_{.integer = 0};
  Kind kind_ = Kind::signedInteger;
};

}  // namespace tessarine

template <>
struct std::hash<tessarine::NSNumber> {
  std::size_t operator()(const tessarine::NSNumber& number) const noexcept { return number.hash(); }
};
