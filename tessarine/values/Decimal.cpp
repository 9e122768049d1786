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

/// What the end of a number says: nothing, or "e" and an integer that may have a sign.
std::optional<long> exponentOf(std::string_view text) noexcept {
  if (text.empty()) return 0;
  if (text.front() != 'e' && text.front() != 'E') return std::nullopt;
  text.remove_prefix(1);
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  constexpr long furthest = 1'000'000'000;
  long exponent = 0;
  const char* const end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data(), end, exponent);
  const bool isWhole = error == std::errc() && last == end;
  return isWhole && exponent <= furthest && exponent >= -furthest ? std::optional(exponent)
                                                                  : std::nullopt;
}

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
  const auto written = exponentOf(text.substr(at));
  if (!written) return std::nullopt;
  if (digits.value == 0) return Decimal();
  const long exponent = *written + digits.waitingZeros - fractionDigits;
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
