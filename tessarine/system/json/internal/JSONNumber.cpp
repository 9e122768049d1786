#include "tessarine/system/json/internal/JSONNumber.hpp"

#include <algorithm>
#include <charconv>
#include <string>
#include <system_error>

namespace tessarine::internal {
namespace {

std::size_t skipDigits(std::string_view text, std::size_t at) noexcept {
  while (at < text.size() && isDigit(text[at])) ++at;
  return at;
}

bool isInteger(std::string_view number) noexcept {
  return number.find_first_of(".eE") == std::string_view::npos;
}

/// What stands behind the e; saturates beyond all reason.
std::int64_t exponentOf(std::string_view number) noexcept {
  const std::size_t mark = number.find_first_of("eE");
  if (mark == std::string_view::npos) return 0;
  const bool isNegative = number[mark + 1] == '-';
  const bool hasSign = isNegative || number[mark + 1] == '+';
  const std::string_view digits = number.substr(mark + (hasSign ? 2 : 1));
  std::int64_t exponent = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), exponent);
  constexpr std::int64_t furthest =
      1'000'000'000'000;  // farther than a text of 4 GB can bring back
  const bool isBeyond = digits.size() > 12 && digits.find_first_not_of('0') + 12 < digits.size();
  if (isBeyond) exponent = furthest;
  return isNegative ? -exponent : exponent;
}

/// How many digits stand before the point when a number without a sign is written out, negative or
/// 0 for the zeros behind the point. Of a number that is not zero.
std::int64_t decimalMagnitude(std::string_view number) noexcept {
  const std::size_t mantissa = std::min(number.find_first_of("eE"), number.size());
  const std::size_t point = std::min(number.substr(0, mantissa).find('.'), mantissa);
  const std::size_t first = number.find_first_of("123456789");
  const auto before = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
  return (first < point ? before : before + 1) + exponentOf(number);
}

/// The decimal digits of the integer that a number with a fraction or an exponent is, with a sign;
/// empty when it is none or has more digits than any integer.
std::string integerDigits(std::string_view number) {
  const std::size_t point = number.find('.');
  const std::size_t mark = std::min(number.find_first_of("eE"), number.size());
  std::string digits(number.substr(0, std::min(point, mark)));
  std::int64_t exponent = exponentOf(number);
  if (point != std::string_view::npos) {
    const auto fraction = number.substr(point + 1, mark - point - 1);
    digits += fraction;
    exponent -= static_cast<std::int64_t>(fraction.size());
  }
  const std::size_t first = std::min(digits.find_first_of("123456789"), digits.size());
  if (first == digits.size()) return number.starts_with('-') ? "" : "0";
  while (exponent < 0 && digits.back() == '0') {
    digits.pop_back();
    ++exponent;
  }
  constexpr std::int64_t mostDigits = 40;
  if (exponent < 0 || exponent > mostDigits) return {};
  digits.append(static_cast<std::size_t>(exponent), '0');
  return digits;
}

template <class Integer, class FromText>
std::optional<Integer> integerOf(std::string_view number, FromText fromText) noexcept {
  return isInteger(number) ? fromText(number) : fromText(integerDigits(number));
}

}  // namespace

std::size_t jsonNumberSize(std::string_view text) noexcept {
  const std::size_t integer = text.starts_with('-') ? 1 : 0;
  std::size_t at = skipDigits(text, integer);
  if (at == integer || (text[integer] == '0' && at > integer + 1)) return 0;
  if (at < text.size() && text[at] == '.') {
    const std::size_t fraction = at + 1;
    at = skipDigits(text, fraction);
    if (at == fraction) return 0;
  }
  if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
    std::size_t exponent = at + 1;
    if (exponent < text.size() && (text[exponent] == '+' || text[exponent] == '-')) ++exponent;
    at = skipDigits(text, exponent);
    if (at == exponent) return 0;
  }
  return at;
}

std::optional<Int128> integerOfJSONNumber(std::string_view number) noexcept {
  return integerOf<Int128>(number, int128FromText);
}

std::optional<UInt128> unsignedOfJSONNumber(std::string_view number) noexcept {
  return integerOf<UInt128>(number, uint128FromText);
}

template <class Float>
std::optional<Float> floatOfJSONNumber(std::string_view number) noexcept {
  Float value = 0;
  const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
  if (result.ec == std::errc()) return value;
  const bool isNegative = number.starts_with('-');
  if (decimalMagnitude(number.substr(isNegative ? 1 : 0)) > 0) return std::nullopt;
  return isNegative ? -Float(0) : Float(0);
}

template std::optional<float> floatOfJSONNumber(std::string_view number) noexcept;
template std::optional<double> floatOfJSONNumber(std::string_view number) noexcept;

}  // namespace tessarine::internal
