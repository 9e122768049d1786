#include "tessarine/values/floatText.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace tessarine {
namespace {

char* copy(std::string_view text, char* out) noexcept {
  return std::copy(text.begin(), text.end(), out);
}

/// A number that is a multiple of 1/10000 and has at most 15 digits is written from its digits.
/// They are the shortest: at most one decimal of so few digits reads back as a given double, and
/// the one tried here does, since a quotient of two exact doubles is rounded once. Null for all
/// others.
char* writeFewDigits(double magnitude, char* out) noexcept {
  constexpr double unit = 10000;
  constexpr double limit = 1e11;
  if (!(magnitude < limit)) return nullptr;
  const double rounded = std::nearbyint(magnitude * unit);
  if (rounded / unit != magnitude) return nullptr;
  const auto digits = static_cast<std::uint64_t>(rounded);
  constexpr std::uint64_t parts = 10000;
  out = std::to_chars(out, out + longestFloatText, digits / parts).ptr;
  *out++ = '.';
  char* last = out;  // of the digits that are not zero, or the first
  std::uint64_t fraction = digits % parts;
  for (std::uint64_t place = parts / 10; place > 0; place /= 10, ++out) {
    const std::uint64_t digit = fraction / place;
    fraction %= place;
    *out = static_cast<char>('0' + digit);
    if (digit != 0) last = out;
  }
  return last + 1;
}

template <class Float>
char* write(Float value, Float plainEnd, char* out) noexcept {
  if (std::isnan(value)) return copy("nan", out);
  if (std::isinf(value)) return copy(value < 0 ? "-inf" : "inf", out);
  const Float magnitude = std::fabs(value);
  const bool isPlain = magnitude == 0 || (magnitude >= Float(1e-4) && magnitude < plainEnd);
  char* const last = out + longestFloatText;
  if (!isPlain) return std::to_chars(out, last, value, std::chars_format::scientific).ptr;
  char* end = std::to_chars(out, last, value, std::chars_format::fixed).ptr;
  if (std::memchr(out, '.', static_cast<std::size_t>(end - out)) == nullptr) end = copy(".0", end);
  return end;
}

template <class Float>
std::string text(Float value) {
  std::array<char, longestFloatText> buffer{};
  return {buffer.data(), writeFloatText(value, buffer.data())};
}

}  // namespace

char* writeFloatText(double value, char* out) noexcept {
  char* digits = out;
  if (std::signbit(value)) *digits++ = '-';
  char* const end = writeFewDigits(std::fabs(value), digits);
  return end != nullptr ? end : write(value, 0x1p54, out);
}
char* writeFloatText(float value, char* out) noexcept { return write(value, 0x1p24F, out); }
std::string floatText(double value) { return text(value); }
std::string floatText(float value) { return text(value); }

}  // namespace tessarine
