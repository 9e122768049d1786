#pragma once

#include <cstddef>
#include <string_view>

namespace tessarine {

/// The length in bytes of the well-formed UTF-8 character at the front of `text`, 0 when there is
/// none. By the table of the Unicode standard, "Well-Formed UTF-8 Byte Sequences" (3.9, table 3-7).
constexpr std::size_t utf8CharacterSize(std::string_view text) noexcept {
  const auto byte = [&](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
  };
  const auto isBetween = [&](std::size_t i, unsigned least, unsigned greatest) {
    return byte(i) >= least && byte(i) <= greatest;
  };
  const unsigned lead = byte(0);
  if (lead < 0x80) return text.empty() ? 0 : 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  if (lead < 0xE0) return isBetween(1, 0x80, 0xBF) ? 2 : 0;
  if (lead < 0xF0) {
    const unsigned least = lead == 0xE0 ? 0xA0 : 0x80;
    const unsigned greatest = lead == 0xED ? 0x9F : 0xBF;
    return isBetween(1, least, greatest) && isBetween(2, 0x80, 0xBF) ? 3 : 0;
  }
  const unsigned least = lead == 0xF0 ? 0x90 : 0x80;
  const unsigned greatest = lead == 0xF4 ? 0x8F : 0xBF;
  return isBetween(1, least, greatest) && isBetween(2, 0x80, 0xBF) && isBetween(3, 0x80, 0xBF) ? 4
                                                                                               : 0;
}

/// The bytes of U+FFFD, which stands for an ill-formed byte.
inline constexpr std::string_view utf8Replacement = "\xEF\xBF\xBD";

/// The scalar value of the well-formed character that makes up `character`.
constexpr char32_t utf8Scalar(std::string_view character) noexcept {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(character[i]); };
  switch (character.size()) {
    case 1:
      return byte(0);
    case 2:
      return (byte(0) & 0x1FU) << 6U | (byte(1) & 0x3FU);
    case 3:
      return (byte(0) & 0x0FU) << 12U | (byte(1) & 0x3FU) << 6U | (byte(2) & 0x3FU);
    default:
      return (byte(0) & 0x07U) << 18U | (byte(1) & 0x3FU) << 12U | (byte(2) & 0x3FU) << 6U |
             (byte(3) & 0x3FU);
  }
}

}  // namespace tessarine
