#include "tessarine/values/Decimal.hpp"

#include <charconv>

namespace tessarine {
namespace {

constexpr int mostDigits = 38;
constexpr int leastExponent = -128;
constexpr int greatestExponent = 127;

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

/// Digits taken one at a time, with the power of ten they have to be multiplied with. Zeros wait
/// until a digit follows, so that the end of the number drops them.
struct Digits {
  UInt128 value = 0;
  int count = 0;  // of significant digits taken
  int waitingZeros = 0;

  bool take(char c) noexcept {
    if (c == '0') {
      if (value != 0) ++waitingZeros;
      return true;
    }
    count += 1 + waitingZeros;
    if (count > mostDigits) return false;
    for (; waitingZeros > 0; --waitingZeros) value *= 10;
    value = value * 10 + static_cast<unsigned>(c - '0');
    return true;
  }
};

}  // namespace

std::optional<Decimal> Decimal::fromString(std::string_view text) noexcept {
  Decimal number;
  std::size_t at = 0;
  if (text.starts_with('-')) {
    number.isNegative_ = true;
    ++at;
  }
  Digits digits;
  long fractionDigits = 0;
  const auto run = [&](bool isFraction) {
    const std::size_t begin = at;
    for (; at < text.size() && isDigit(text[at]); ++at) {
      if (!digits.take(text[at])) return false;
      if (isFraction) ++fractionDigits;
    }
    return at > begin;
  };
  if (!run(false)) return std::nullopt;
  if (at < text.size() && text[at] == '.') {
    ++at;
    if (!run(true)) return std::nullopt;
  }
  long exponent = 0;
  if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
    ++at;
    if (at < text.size() && text[at] == '+') {
      ++at;
      if (at < text.size() && text[at] == '-') return std::nullopt;
    }
    const auto [end, error] =
        std::from_chars(text.data() + at, text.data() + text.size(), exponent);
    if (error != std::errc() || exponent > 1000000000 || exponent < -1000000000)
      return std::nullopt;
    at = static_cast<std::size_t>(end - text.data());
  }
  if (at != text.size()) return std::nullopt;
  if (digits.value == 0) return Decimal();
  exponent += digits.waitingZeros - fractionDigits;
  if (exponent < leastExponent || exponent > greatestExponent) return std::nullopt;
  number.digits_ = digits.value;
  number.exponent_ = static_cast<std::int16_t>(exponent);
  return number;
}

std::string Decimal::description() const {
  std::string text = decimalText(digits_);
  if (exponent_ >= 0) {
    if (digits_ != 0) text.append(static_cast<std::size_t>(exponent_), '0');
  } else {
    const auto fraction = static_cast<std::size_t>(-exponent_);
    if (text.size() <= fraction) text.insert(0, fraction + 1 - text.size(), '0');
    text.insert(text.size() - fraction, 1, '.');
  }
  if (isNegative_) text.insert(0, 1, '-');
  return text;
}

}  // namespace tessarine
