#include "tessarine/values/floatText.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>

namespace tessarine {
namespace {

char* copy(std::string_view text, char* out) noexcept {
  return std::copy(text.begin(), text.end(), out);
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

char* writeFloatText(double value, char* out) noexcept { return write(value, 0x1p54, out); }
char* writeFloatText(float value, char* out) noexcept { return write(value, 0x1p24F, out); }
std::string floatText(double value) { return text(value); }
std::string floatText(float value) { return text(value); }

}  // namespace tessarine
