#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tessarine {

/// Equality of numbers that stand side by side, which also finds how long two runs are equal, many
/// numbers at a time.
template <class Number>
struct EqualNumbers {
  const Number* first;
  const Number* second;

  bool operator()(std::size_t x, std::size_t y) const { return first[x] == second[y]; }
  /// Of the `most` numbers from `x` and `y` on, how many are equal before the first that are not.
  std::size_t equalRun(std::size_t x, std::size_t y, std::size_t most) const {
    const Number* const a = first + x;
    const Number* const b = second + y;
    std::size_t length = 0;
    // Integers and pointers are equal where their bytes are.
    if constexpr ((std::is_integral_v<Number> || std::is_pointer_v<Number>)&&sizeof(Number) <= 8) {
      constexpr std::size_t inWord = sizeof(std::uint64_t) / sizeof(Number);
      constexpr std::size_t words = 4;
      for (; length + words * inWord <= most; length += words * inWord) {
        std::uint64_t differing[words];
        std::uint64_t any = 0;
        for (std::size_t i = 0; i < words; ++i) {
          differing[i] = wordAt(a + length + i * inWord) ^ wordAt(b + length + i * inWord);
          any |= differing[i];
        }
        if (any == 0) continue;
        const std::uint64_t* word = differing;
        for (; *word == 0; ++word) length += inWord;
        return length + static_cast<std::size_t>(std::countr_zero(*word)) / (8 * sizeof(Number));
      }
    }
    while (length < most && a[length] == b[length]) ++length;
    return length;
  }

 private:
  static_assert(std::endian::native == std::endian::little, "the first number is the lowest bits");
  static std::uint64_t wordAt(const Number* at) {
    std::uint64_t word = 0;
    std::memcpy(&word, at, sizeof word);
    return word;
  }
};
template <class Number>
EqualNumbers(const Number*, const Number*) -> EqualNumbers<Number>;

}  // namespace tessarine
