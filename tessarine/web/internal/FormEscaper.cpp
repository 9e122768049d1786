#include "tessarine/web/internal/FormEscaper.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "tessarine/values/utf8.hpp"

namespace tessarine::internal {
namespace {

constexpr std::string_view digits = "0123456789ABCDEF";

std::array<char, 3> percentEncoded(char c) noexcept {
  const auto byte = static_cast<unsigned char>(c);
  return {'%', digits[byte >> 4U], digits[byte & 15U]};
}

}  // namespace

FormEscaper::FormEscaper(URLEncodedFormEncoder::SpaceEncoding spaceEncoding,
                         const CharacterSet& allowedCharacters)
    : allowedCharacters_(allowedCharacters), ascii_() {
  for (char32_t c = 0; c < ascii_.size(); ++c) {
    const char byte = static_cast<char>(c);
    if (c != ' ' && allowedCharacters.contains(c)) {
      ascii_[c] = {{byte}, 1};
    } else {
      ascii_[c] = {percentEncoded(byte), 3};
    }
  }
  if (spaceEncoding == URLEncodedFormEncoder::SpaceEncoding::plusReplaced) ascii_[' '] = {{'+'}, 1};
}

void FormEscaper::append(std::string_view text, TextBuffer& out) const {
  // In steps, so that the room for what may be escaped is small beside the text.
  constexpr std::size_t step = 256;
  while (!text.empty()) {
    const char* at = text.data();
    const char* const end = at + std::min(text.size(), step);
    char* to = out.room(3 * static_cast<std::size_t>(end - at) + sizeof(Expansion));
    for (; at != end && static_cast<unsigned char>(*at) < ascii_.size(); ++at) {
      // All four bytes in one store, of which the next overwrites those that are too many.
      const Expansion& expansion = ascii_[static_cast<unsigned char>(*at)];
      std::memcpy(to, &expansion, sizeof expansion);
      to += expansion.size;
    }
    out.advanceTo(to);
    text.remove_prefix(static_cast<std::size_t>(at - text.data()));
    if (at != end) text.remove_prefix(appendCharacter(text, out));
  }
}

std::size_t FormEscaper::appendCharacter(std::string_view text, TextBuffer& out) const {
  const std::size_t size = utf8CharacterSize(text);
  const std::string_view character = size == 0 ? utf8Replacement : text.substr(0, size);
  if (allowedCharacters_.contains(utf8Scalar(character))) {
    out.append(character);
  } else {
    char* to = out.room(3 * character.size());
    for (const char c : character) to = std::copy_n(percentEncoded(c).data(), 3, to);
    out.advanceTo(to);
  }
  return std::max<std::size_t>(size, 1);
}

}  // namespace tessarine::internal
