#include "tessarine/values/floatText.hpp"

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace tessarine {
namespace {

/// By the standard library's shortest digits alone.
template <class Float>
std::string oracle(Float value, Float plainEnd) {
  const Float magnitude = std::fabs(value);
  const bool isPlain = magnitude == 0 || (magnitude >= Float(1e-4) && magnitude < plainEnd);
  std::array<char, 64> buffer{};
  const auto format = isPlain ? std::chars_format::fixed : std::chars_format::scientific;
  std::string text(buffer.data(),
                   std::to_chars(buffer.data(), buffer.data() + 64, value, format).ptr);
  if (isPlain && text.find('.') == std::string::npos) text.append(".0");
  return text;
}

TEST(FloatText, HasTheFormsThatArePromised) {
  const std::pair<double, const char*> rows[] = {
      {0.0, "0.0"},
      {-0.0, "-0.0"},
      {1, "1.0"},
      {1.5, "1.5"},
      {0.0001, "0.0001"},
      {1e-5, "1e-05"},
      {1e20, "1e+20"},
      {0x1p53, "9007199254740992.0"},
      {0x1p54, "1.8014398509481984e+16"},
      {-1234.5678, "-1234.5678"},
      {1e300, "1e+300"},
      {std::nan(""), "nan"},
      {-std::numeric_limits<double>::infinity(), "-inf"}};
  for (const auto& [value, text] : rows) EXPECT_EQ(floatText(value), text);
  EXPECT_EQ(floatText(0.1F), "0.1");
  EXPECT_EQ(floatText(0x1p24F), "1.6777216e+07");
}

TEST(FloatText, IsTheShortestForEveryKindOfNumber) {
  std::mt19937_64 random(11);
  for (int i = 0; i < 300000; ++i) {
    const std::uint64_t bits = random();
    const auto digits = static_cast<double>(bits % 10'000'000'000'000'000ULL);
    for (const double value : {std::bit_cast<double>(bits), digits / 10000, digits / 1000,
                               -digits / 1e6, digits, std::nextafter(digits / 100, 0)}) {
      if (!std::isfinite(value)) continue;
      ASSERT_EQ(floatText(value), oracle(value, 0x1p54));
    }
    const auto narrow = std::bit_cast<float>(static_cast<std::uint32_t>(bits));
    if (std::isfinite(narrow)) {
      ASSERT_EQ(floatText(narrow), oracle(narrow, 0x1p24F));
    }
  }
}

}  // namespace
}  // namespace tessarine
