#include "tessarine/values/NSNumber.hpp"

#include <array>
#include <charconv>
#include <cmath>

namespace tessarine {
namespace {

constexpr double twoTo63 = 9223372036854775808.0;
constexpr double twoTo64 = 18446744073709551616.0;

std::int64_t clampedSigned(double value) {
  if (std::isnan(value)) return 0;
  if (value >= twoTo63) return std::numeric_limits<std::int64_t>::max();
  if (value < -twoTo63) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);
}

std::uint64_t clampedUnsigned(double value) {
  if (!(value > 0)) return static_cast<std::uint64_t>(clampedSigned(value));
  if (value >= twoTo64) return std::numeric_limits<std::uint64_t>::max();
  return static_cast<std::uint64_t>(value);
}

bool isWhole(double value) { return std::trunc(value) == value; }

}  // namespace

bool NSNumber::boolValue() const noexcept {
  return isFloat() ? bits_.floating != 0 : bits_.integer != 0;
}

std::int64_t NSNumber::integerValue() const noexcept {
  return isFloat() ? clampedSigned(bits_.floating) : static_cast<std::int64_t>(bits_.integer);
}

std::uint64_t NSNumber::unsignedIntegerValue() const noexcept {
  return isFloat() ? clampedUnsigned(bits_.floating) : bits_.integer;
}

double NSNumber::doubleValue() const noexcept {
  if (isFloat()) return bits_.floating;
  if (kind_ == Kind::signedInteger) return static_cast<double>(integerValue());
  return static_cast<double>(bits_.integer);
}

float NSNumber::floatValue() const noexcept {
  // From the integer itself: by way of a double it would be rounded twice.
  if (kind_ == Kind::signedInteger) return static_cast<float>(integerValue());
  if (!isFloat()) return static_cast<float>(bits_.integer);
  return static_cast<float>(bits_.floating);  // IEC 60559: overflow gives an infinity
}

std::optional<std::int64_t> NSNumber::exactSigned(std::int64_t least,
                                                  std::int64_t greatest) const noexcept {
  if (isFloat()) {
    const double value = bits_.floating;
    if (!isWhole(value) || value >= twoTo63 || value < -twoTo63) return std::nullopt;
  } else if (kind_ == Kind::unsignedInteger && bits_.integer >> 63U != 0) {
    return std::nullopt;
  }
  const auto value = integerValue();
  if (value < least || value > greatest) return std::nullopt;
  return value;
}

std::optional<std::uint64_t> NSNumber::exactUnsigned(std::uint64_t greatest) const noexcept {
  if (isFloat()) {
    const double value = bits_.floating;
    if (!isWhole(value) || value < 0 || value >= twoTo64) return std::nullopt;
  } else if (kind_ == Kind::signedInteger && integerValue() < 0) {
    return std::nullopt;
  }
  const auto value = unsignedIntegerValue();
  if (value > greatest) return std::nullopt;
  return value;
}

std::optional<double> NSNumber::exactDouble() const noexcept {
  const double value = doubleValue();
  if (isFloat() || NSNumber(value) == *this) return value;
  return std::nullopt;
}

std::optional<float> NSNumber::exactFloat() const noexcept {
  const float value = floatValue();
  if (kind_ == Kind::float32 || NSNumber(value) == *this) return value;
  return std::nullopt;
}

bool NSNumber::operator==(const NSNumber& other) const noexcept {
  if (isFloat() && other.isFloat()) {
    const double left = bits_.floating;
    const double right = other.bits_.floating;
    return left == right || (std::isnan(left) && std::isnan(right));
  }
  if (isFloat()) return other == *this;
  if (!other.isFloat()) {
    const bool sameBits = bits_.integer == other.bits_.integer;
    const bool oneNegative = (kind_ == Kind::signedInteger && integerValue() < 0) !=
                             (other.kind_ == Kind::signedInteger && other.integerValue() < 0);
    return sameBits && !oneNegative;
  }
  if (kind_ == Kind::signedInteger && integerValue() < 0) {
    return other.exactSigned(std::numeric_limits<std::int64_t>::min(), -1) == integerValue();
  }
  return other.exactUnsigned(std::numeric_limits<std::uint64_t>::max()) == bits_.integer;
}

std::size_t NSNumber::hash() const noexcept {
  constexpr auto least = std::numeric_limits<std::int64_t>::min();
  constexpr auto greatest = std::numeric_limits<std::int64_t>::max();
  if (const auto value = exactSigned(least, greatest)) return std::hash<std::int64_t>{}(*value);
  if (const auto value = exactUnsigned(std::numeric_limits<std::uint64_t>::max())) {
    return std::hash<std::uint64_t>{}(*value);
  }
  return std::isnan(bits_.floating) ? 0 : std::hash<double>{}(bits_.floating);
}

std::string NSNumber::stringValue() const {
  if (kind_ == Kind::boolean) return bits_.integer != 0 ? "true" : "false";
  std::array<char, 32> text{};
  char* const begin = text.data();
  char* const end = begin + text.size();
  std::to_chars_result result{};
  switch (kind_) {
    case Kind::signedInteger:
      result = std::to_chars(begin, end, integerValue());
      break;
    case Kind::float64:
      result = std::to_chars(begin, end, bits_.floating);
      break;
    case Kind::float32:
      result = std::to_chars(begin, end, floatValue());
      break;
    default:
      result = std::to_chars(begin, end, bits_.integer);
      break;
  }
  return {begin, result.ptr};
}

}  // namespace tessarine
