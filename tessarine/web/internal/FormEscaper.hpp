#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "tessarine/system/text/CharacterSet.hpp"
#include "tessarine/values/internal/TextBuffer.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"

namespace tessarine::internal {

/// Percent-encodes the texts of a form: the UTF-8 bytes of what is not allowed, ill-formed bytes as
/// U+FFFD.
class FormEscaper {
 public:
  FormEscaper(URLEncodedFormEncoder::SpaceEncoding spaceEncoding,
              const CharacterSet& allowedCharacters);

  void append(std::string_view text, TextBuffer& out) const;

 private:
  /// What a byte becomes: so many of the first bytes of `text`.
  struct Expansion {
    std::array<char, 3> text;
    std::uint8_t size;
  };

  /// Writes the character beyond ASCII at the front and gives its size.
  std::size_t appendCharacter(std::string_view text, TextBuffer& out) const;

  CharacterSet allowedCharacters_;
  std::array<Expansion, 128> ascii_;
};

}  // namespace tessarine::internal
