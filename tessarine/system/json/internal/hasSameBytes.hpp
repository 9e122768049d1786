#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tessarine::internal {

/// `memcmp` for names, most of which are so short that the call takes longer than comparing. Up to
/// two words of bytes are two words that overlap in the middle.
inline bool hasSameBytes(const char* a, const char* b, std::size_t size) noexcept {
  const auto areSame = [&]<class Word>(Word /*type*/, std::size_t at) {
    Word first = 0;
    Word second = 0;
    std::memcpy(&first, a + at, sizeof(Word));
    std::memcpy(&second, b + at, sizeof(Word));
    return first == second;
  };
  if (size > 16) return std::memcmp(a, b, size) == 0;
  if (size >= 8) return areSame(std::uint64_t{}, 0) && areSame(std::uint64_t{}, size - 8);
  if (size >= 4) return areSame(std::uint32_t{}, 0) && areSame(std::uint32_t{}, size - 4);
  if (size >= 2) return areSame(std::uint16_t{}, 0) && areSame(std::uint16_t{}, size - 2);
  return size == 0 || *a == *b;
}

}  // namespace tessarine::internal
