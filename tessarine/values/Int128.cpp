#include "tessarine/values/Int128.hpp"

#include <array>

namespace tessarine {
namespace {

constexpr UInt128 greatestUnsigned = ~UInt128{0};
constexpr UInt128 signBit = UInt128{1} << 127U;

std::optional<UInt128> magnitude(std::string_view digits) noexcept {
  if (digits.empty()) return std::nullopt;
  UInt128 value = 0;
  for (const char c : digits) {
    if (c < '0' || c > '9') return std::nullopt;
    const auto digit = static_cast<unsigned>(c - '0');
    if (value > (greatestUnsigned - digit) / 10) return std::nullopt;
    value = value * 10 + digit;
  }
  return value;
}

std::string text(UInt128 magnitude, bool isNegative) {
  std::array<char, 40> buffer{};  // 39 digits and a sign
  std::size_t at = buffer.size();
  do {
    buffer[--at] = static_cast<char>('0' + static_cast<int>(magnitude % 10));
    magnitude /= 10;
  } while (magnitude != 0);
  if (isNegative) buffer[--at] = '-';
  return {buffer.data() + at, buffer.size() - at};
}

}  // namespace

std::string decimalText(Int128 value) {
  const bool isNegative = value < 0;
  const auto bits = static_cast<UInt128>(value);
  return text(isNegative ? ~bits + 1 : bits, isNegative);
}

std::string decimalText(UInt128 value) { return text(value, false); }

std::optional<Int128> int128FromText(std::string_view text) noexcept {
  const bool isNegative = text.starts_with('-');
  const auto value = magnitude(text.substr(isNegative ? 1 : 0));
  if (!value || *value > (isNegative ? signBit : signBit - 1)) return std::nullopt;
  return static_cast<Int128>(isNegative ? ~*value + 1 : *value);
}

std::optional<UInt128> uint128FromText(std::string_view text) noexcept {
  const bool isNegative = text.starts_with('-');
  const auto value = magnitude(text.substr(isNegative ? 1 : 0));
  return isNegative && value != UInt128{0} ? std::nullopt : value;
}

}  // namespace tessarine
