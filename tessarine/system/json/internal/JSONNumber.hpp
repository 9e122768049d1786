#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

#include "tessarine/values/Int128.hpp"

namespace tessarine::internal {

constexpr bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

/// Whether a number or a literal may end before that character.
constexpr bool endsJSONToken(char next) noexcept {
  switch (next) {
    case ',':
    case ']':
    case '}':
    case ' ':
    case '\n':
    case '\r':
    case '\t':
      return true;
    default:
      return false;
  }
}
constexpr bool endsJSONToken(std::string_view text, std::size_t offset) noexcept {
  return offset == text.size() || endsJSONToken(text[offset]);
}

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

// ---- the short ways ----

/// Eight bytes of a text, the first lowest, of which a digit is its value and all else above 9.
inline std::uint64_t digitValues(const char* eight) noexcept {
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, eight, sizeof bytes);
  return bytes ^ 0x3030303030303030U;
}

/// The highest bit of each of those bytes that is no digit.
constexpr std::uint64_t nonDigits(std::uint64_t values) noexcept {
  return (((values & 0x7F7F7F7F7F7F7F7FU) + 0x7676767676767676U) | values) & 0x8080808080808080U;
}

/// In which byte the lowest bit is; 8 for none.
constexpr std::size_t byteOfLowest(std::uint64_t bits) noexcept {
  return static_cast<std::size_t>(std::countr_zero(bits)) / 8;
}

/// The number that the first `count` of eight such bytes are, without a branch that depends on how
/// many there are, which cannot be foreseen (D. Lemire, "Number parsing at a gigabyte per second",
/// 2021).
constexpr std::uint64_t numberOfDigits(std::uint64_t values, std::size_t count) noexcept {
  // The last digit to the highest byte and zeros before the first; two shifts, for one by 64 is
  // none.
  std::uint64_t digits = values << (32 - 4 * count) << (32 - 4 * count);
  digits = digits * 10 + (digits >> 8);  // pairs
  constexpr std::uint64_t pairs = 0x000000FF000000FFU;
  return ((digits & pairs) * 0x000F424000000064U + (digits >> 16 & pairs) * 0x0000271000000001U) >>
         32;
}

/// The digits that eight bytes begin with.
struct LeadingDigits {
  explicit LeadingDigits(const char* eight) noexcept {
    const std::uint64_t values = digitValues(eight);
    count = byteOfLowest(nonDigits(values));
    value = numberOfDigits(values, count);
  }

  std::size_t count;
  std::uint64_t value;
};

/// A number without fraction or exponent that surely fits in 64 bits, which `text` begins with;
/// absent for all others.
inline std::optional<std::int64_t> shortJSONInteger(std::string_view text) noexcept {
  constexpr std::size_t mostDigits = 18;
  const bool isNegative = text.starts_with('-');
  const std::size_t first = isNegative ? 1 : 0;
  std::size_t at = first;
  std::int64_t magnitude = 0;
  if (first + 8 < text.size()) [[likely]] {
    const LeadingDigits digits(text.data() + first);
    at += digits.count;
    magnitude = static_cast<std::int64_t>(digits.value);
  }
  if (at == first || at == first + 8) {  // none, or there may be more
    const std::size_t last = std::min(text.size(), first + mostDigits);
    for (; at < last && isDigit(text[at]); ++at) magnitude = magnitude * 10 + (text[at] - '0');
  }
  const bool hasLeadingZero = at > first + 1 && text[first] == '0';
  if (at == first || hasLeadingZero || !endsJSONToken(text, at)) return std::nullopt;
  return isNegative ? -magnitude : magnitude;
}

inline constexpr std::size_t exactDigits = 15;
inline constexpr std::array<double, exactDigits + 1> exactPowersOf10{
    1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

/// A decimal without a sign, with a fraction and its end within eight bytes; absent for all others.
inline std::optional<double> shortestJSONDouble(const char* eight) noexcept {
  const std::uint64_t values = digitValues(eight);
  const std::uint64_t others = nonDigits(values);
  const std::size_t point = byteOfLowest(others);
  const std::size_t end = byteOfLowest(others & (others - 1));
  if (point == 0 || end > 7 || end == point + 1 || eight[point] != '.') return std::nullopt;
  if ((eight[0] == '0' && point > 1) || !endsJSONToken(eight[end])) return std::nullopt;
  const std::uint64_t integer = (std::uint64_t{1} << 8 * point) - 1;
  const std::uint64_t digits = (values & integer) | (values >> 8 & ~integer);
  return static_cast<double>(numberOfDigits(digits, end - 1)) / exactPowersOf10[end - 1 - point];
}

/// A decimal, which `text` begins with, that a double holds exactly, as do the power of ten it is
/// divided by: then one rounding gives the nearest double (W. D. Clinger, "How to read floating
/// point numbers accurately", 1990). Absent for all others.
inline std::optional<double> shortJSONDouble(std::string_view text) noexcept {
  const bool isNegative = text.starts_with('-');
  const std::size_t first = isNegative ? 1 : 0;
  if (first + 8 < text.size()) {
    const auto magnitude = shortestJSONDouble(text.data() + first);
    if (magnitude) return isNegative ? -*magnitude : *magnitude;
  }
  std::size_t at = first;
  std::uint64_t digits = 0;
  const auto run = [&] {
    if (at + 8 < text.size()) {
      static constexpr std::array<std::uint64_t, 9> tens{
          1, 10, 100, 1'000, 10'000, 100'000, 1'000'000, 10'000'000, 100'000'000};
      const LeadingDigits leading(text.data() + at);
      at += leading.count;
      digits = digits * tens[leading.count] + leading.value;
    }
    for (; at < text.size() && at - first <= exactDigits && isDigit(text[at]); ++at) {
      digits = digits * 10 + static_cast<std::uint64_t>(text[at] - '0');
    }
  };
  run();
  const std::size_t integerDigits = at - first;
  if (integerDigits == 0 || (integerDigits > 1 && text[first] == '0')) return std::nullopt;
  std::size_t fractionDigits = 0;
  if (at < text.size() && text[at] == '.') {
    const std::size_t fraction = ++at;
    run();
    fractionDigits = at - fraction;
    if (fractionDigits == 0) return std::nullopt;
  }
  if (integerDigits + fractionDigits > exactDigits || !endsJSONToken(text, at)) return std::nullopt;
  const double magnitude = static_cast<double>(digits) / exactPowersOf10[fractionDigits];
  return isNegative ? -magnitude : magnitude;
}

}  // namespace tessarine::internal
