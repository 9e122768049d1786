#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/export.hpp"

namespace tessarine {

/// How a text is laid out in bytes. UTF-16 and UTF-32 without a byte order go by the byte order
/// mark in front, or are big-endian.
enum class StringEncoding : std::uint8_t {
  ascii,
  utf8,
  utf16,
  utf16BigEndian,
  utf16LittleEndian,
  utf32,
  utf32BigEndian,
  utf32LittleEndian,
  isoLatin1,
  isoLatin2,
  windowsCP1252,
  macOSRoman,
  shiftJIS,
  japaneseEUC,
};

/// The text that `bytes` are in an encoding; absent when they are none. Any thread.
TESSARINE_EXPORT std::optional<std::string> stringFromBytes(std::string_view bytes,
                                                            StringEncoding encoding);

}  // namespace tessarine
