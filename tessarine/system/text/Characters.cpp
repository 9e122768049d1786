#include "tessarine/system/text/Characters.hpp"

#include <algorithm>
#include <cstdint>

#include "tessarine/system/text/Graphemes.hpp"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

namespace tessarine {
namespace {

bool isWhitespaceOrNewline(UChar32 c) {
  switch (c) {
    case '\t':
    case '\n':
    case '\r':
    case 0x85:
    case 0x2028:
    case 0x2029:
      return true;
    default:
      return c > 0 && u_charType(c) == U_SPACE_SEPARATOR;
  }
}

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x80; });
}

/// Letter by letter while the text is ASCII, else by the full mapping of Unicode.
template <class MapAscii, class MapWide>
std::string mapped(std::string_view text, MapAscii mapAscii, MapWide mapWide) {
  std::string result;
  if (isAscii(text)) {
    result.resize(text.size());
    std::transform(text.begin(), text.end(), result.begin(), mapAscii);
    return result;
  }
  icu::UnicodeString wide =
      icu::UnicodeString::fromUTF8({text.data(), static_cast<int32_t>(text.size())});
  mapWide(wide);
  wide.toUTF8String(result);
  return result;
}

}  // namespace

std::string_view trimmingWhitespaceAndNewlines(std::string_view text) noexcept {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end) {
    std::size_t next = begin;
    UChar32 c = 0;
    U8_NEXT(bytes, next, end, c);
    if (!isWhitespaceOrNewline(c)) break;
    begin = next;
  }
  while (end > begin) {
    // ICU steps back by 32-bit offsets, and a character has four bytes at most.
    const std::size_t window = std::max(begin, end - std::min<std::size_t>(end, 4));
    auto offset = static_cast<std::int32_t>(end - window);
    UChar32 c = 0;
    U8_PREV(bytes + window, 0, offset, c);
    if (!isWhitespaceOrNewline(c)) break;
    end = window + static_cast<std::size_t>(offset);
  }
  return text.substr(begin, end - begin);
}

std::string lowercased(std::string_view text) {
  return mapped(
      text, [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; },
      [](icu::UnicodeString& wide) { wide.toLower(icu::Locale::getRoot()); });
}

std::string uppercased(std::string_view text) {
  return mapped(
      text, [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; },
      [](icu::UnicodeString& wide) { wide.toUpper(icu::Locale::getRoot()); });
}

std::string capitalizedFirst(std::string_view text) {
  if (text.empty()) return {};
  const std::string_view first = graphemeClusters(text).front();
  return uppercased(first).append(text.substr(first.size()));
}

}  // namespace tessarine
