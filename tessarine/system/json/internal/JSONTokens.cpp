#include "tessarine/system/json/internal/JSONTokens.hpp"

#include <array>
#include <cstring>
#include <utility>

#include "tessarine/coding/CodingErrors.hpp"
#include "tessarine/system/json/internal/JSONString.hpp"
#include "tessarine/system/json/internal/deepestJSON.hpp"

#include <emmintrin.h>

namespace tessarine::internal {

JSONTokens::JSONTokens(std::string_view text)
    : text_(withoutByteOrderMark(text)), structure_(text_), starts_(structure_.starts()) {}

void JSONTokens::invalid(std::size_t offset, std::string why) const {
  throw DecodingError(DecodingError::Case::dataCorrupted,
                      {{}, "The text is no JSON: " + std::move(why), nullptr, offset});
}

void JSONTokens::unexpected(std::uint32_t position) const {
  if (position >= starts_.size()) invalid(text_.size(), "it ends too early");
  const char c = text_[starts_[position]];
  const bool isPrintable = c > ' ' && c < 0x7F;
  invalid(starts_[position],
          isPrintable ? std::string("unexpected ") + c : std::string("an unexpected character"));
}

// ---- tokens ----

JSONTokens::Token JSONTokens::tokenAt(std::uint32_t position) const noexcept {
  switch (const char c = charAt(position)) {
    case '{':
      return Token::object;
    case '[':
      return Token::array;
    case '"':
      return Token::text;
    case 'n':
      return isLiteral(position, "null") ? Token::null : Token::other;
    case 't':
      return isLiteral(position, "true") ? Token::boolean : Token::other;
    case 'f':
      return isLiteral(position, "false") ? Token::boolean : Token::other;
    default:
      return c == '-' || isDigit(c) ? Token::number : Token::other;
  }
}

std::string_view JSONTokens::numberAt(std::uint32_t position) const noexcept {
  return rest(position).substr(0, jsonNumberSize(rest(position)));
}

std::string_view JSONTokens::rawString(std::uint32_t position, bool& hasEscapes) const noexcept {
  // The first stage has seen to it that the string ends.
  const std::size_t begin = starts_[position] + 1;
  std::size_t at = begin;
  hasEscapes = false;
  for (;;) {
    if (at + 16 <= text_.size()) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text_.data() + at));
      const auto found = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(
          _mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')))));
      if (found == 0) {
        at += 16;
        continue;
      }
      at += static_cast<unsigned>(__builtin_ctz(found));
    } else {
      while (text_[at] != '"' && text_[at] != '\\') ++at;
    }
    if (text_[at] == '"') return text_.substr(begin, at - begin);
    hasEscapes = true;
    at += 2;
  }
}

void JSONTokens::unescape(std::string_view raw, std::string& out) const {
  if (const auto fault = unescapeJSONString(raw, out)) {
    invalid(static_cast<std::size_t>(raw.data() - text_.data()) + fault->offset,
            std::string(fault->why));
  }
}

void JSONTokens::assignStringAt(std::uint32_t position, std::string& out) const {
  bool hasEscapes = false;
  const std::string_view raw = rawString(position, hasEscapes);
  if (hasEscapes) return unescape(raw, out);
  out.assign(raw);
}

std::string JSONTokens::stringAt(std::uint32_t position) const {
  std::string text;
  assignStringAt(position, text);
  return text;
}

std::string_view JSONTokens::stringAt(std::uint32_t position, std::string& scratch) const {
  bool hasEscapes = false;
  const std::string_view raw = rawString(position, hasEscapes);
  if (!hasEscapes) return raw;
  unescape(raw, scratch);
  return scratch;
}

// ---- grammar ----

void JSONTokens::requireDocument() const {
  if (ends_.empty()) validateAll(nullptr);
}

void JSONTokens::findEnds() {
  if (!ends_.empty()) return;
  std::vector<std::uint32_t> ends(starts_.size());
  validateAll(&ends);
  ends_ = std::move(ends);
}

std::uint32_t JSONTokens::endOf(std::uint32_t position) const noexcept {
  const char c = charAt(position);
  return (c == '{' || c == '[' ? ends_[position] : position) + 1;
}

std::uint32_t JSONTokens::skip(std::uint32_t position, std::size_t depthAround) const {
  const char c = charAt(position);
  if (c == '{' || c == '[') return validate(position, depthAround, nullptr);
  validateScalar(position);
  return position + 1;
}

void JSONTokens::validateAll(std::vector<std::uint32_t>* ends) const {
  const std::uint32_t end = validate(0, 0, ends);
  if (end != starts_.size()) unexpected(end);
}

// One loop over a stack of its own: calls that nest would cost a frame a level.
// NOLINTNEXTLINE(readability-function-cognitive-complexity)
std::uint32_t JSONTokens::validate(std::uint32_t position, std::size_t depthAround,
                                   std::vector<std::uint32_t>* ends) const {
  std::array<std::uint32_t, deepestJSON> open{};  // positions of the lists around
  std::size_t depth = 0;
  const auto takeMember = [&] {
    if (charAt(position) != '"') unexpected(position);
    validateScalar(position);
    if (charAt(++position) != ':') unexpected(position);
    ++position;
  };
  for (;;) {
    // A value begins here.
    const char c = charAt(position);
    bool isEmptyList = false;
    if (c == '{' || c == '[') {
      if (depthAround + depth == deepestJSON) {
        invalid(offsetOf(position), "nested deeper than 512 levels");
      }
      open[depth++] = position++;
      isEmptyList = charAt(position) == (c == '{' ? '}' : ']');
      if (!isEmptyList) {
        if (c == '{') takeMember();
        continue;
      }
    } else {
      validateScalar(position++);
    }
    // A value ended; so do the lists that it was the last of.
    for (;; isEmptyList = false) {
      if (depth == 0) return position;
      const bool isObject = text_[starts_[open[depth - 1]]] == '{';
      const char next = charAt(position);
      if (next == (isObject ? '}' : ']')) {
        if (ends != nullptr) (*ends)[open[depth - 1]] = position;
        --depth;
        ++position;
      } else if (next == ',' && !isEmptyList) {
        ++position;
        if (isObject) takeMember();
        break;
      } else {
        unexpected(position);
      }
    }
  }
}

void JSONTokens::validateScalar(std::uint32_t position) const {
  switch (charAt(position)) {
    case '"': {
      bool hasEscapes = false;
      const auto raw = rawString(position, hasEscapes);
      std::string ignored;
      if (hasEscapes) unescape(raw, ignored);
      return;
    }
    case 't':
    case 'f':
    case 'n':
      if (tokenAt(position) == Token::other) unexpected(position);
      return;
    default: {
      if (position >= starts_.size()) unexpected(position);
      const std::size_t size = jsonNumberSize(rest(position));
      if (size == 0 || !endsJSONToken(rest(position), size)) unexpected(position);
    }
  }
}

}  // namespace tessarine::internal
