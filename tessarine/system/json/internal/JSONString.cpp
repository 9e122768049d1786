#include "tessarine/system/json/internal/JSONString.hpp"

#include <cstdint>
#include <cstring>

#include "tessarine/values/utf8.hpp"

#include <emmintrin.h>

namespace tessarine::internal {
namespace {

/// A bit for each of 16 bytes that is not written as it stands, or begins a character that has to
/// be looked at: controls, the quote, the backslash, maybe the slash, and all beyond ASCII.
unsigned specialBytes(__m128i bytes, bool escapesSlashes) noexcept {
  // Compared as signed bytes, those beyond ASCII are below the controls.
  __m128i special = _mm_cmplt_epi8(bytes, _mm_set1_epi8(0x20));
  special = _mm_or_si128(special, _mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')));
  special = _mm_or_si128(special, _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
  if (escapesSlashes) {
    special = _mm_or_si128(special, _mm_cmpeq_epi8(bytes, _mm_set1_epi8('/')));
  }
  return static_cast<unsigned>(_mm_movemask_epi8(special));
}

template <class Word>
__m128i loadWord(const char* at) noexcept {
  Word word;
  std::memcpy(&word, at, sizeof word);
  if constexpr (sizeof(Word) == 8)
    return _mm_cvtsi64_si128(static_cast<std::int64_t>(word));
  else
    return _mm_cvtsi32_si128(static_cast<std::int32_t>(word));
}

/// Copies `size` bytes, from one to two words of them, when none is special: by two words that
/// overlap in the middle.
template <class Word>
bool copyPlain(const char* from, std::size_t size, char* to, bool escapesSlashes) noexcept {
  const char* const last = from + size - sizeof(Word);
  const unsigned mask = (1U << sizeof(Word)) - 1;
  const unsigned special = specialBytes(loadWord<Word>(from), escapesSlashes) |
                           specialBytes(loadWord<Word>(last), escapesSlashes);
  if ((special & mask) != 0) return false;
  std::memcpy(to, from, sizeof(Word));
  std::memcpy(to + size - sizeof(Word), last, sizeof(Word));
  return true;
}

void writeEscape(char c, TextBuffer& out) {
  constexpr std::string_view named = "\b\t\n\f\r";
  constexpr std::string_view letters = "btnfr";
  const std::size_t which = named.find(c);
  char* to = out.room(6);
  *to++ = '\\';
  if (c == '"' || c == '\\' || c == '/') {
    *to++ = c;
  } else if (which != std::string_view::npos) {
    *to++ = letters[which];
  } else {
    constexpr std::string_view digits = "0123456789abcdef";
    to = std::copy_n("u00", 3, to);
    *to++ = digits[static_cast<unsigned char>(c) >> 4U];
    *to++ = digits[static_cast<unsigned char>(c) & 15U];
  }
  out.advanceTo(to);
}

/// Writes the character at the front and gives its size.
std::size_t writeCharacter(std::string_view text, bool escapesSlashes, TextBuffer& out) {
  const char c = text.front();
  if (static_cast<unsigned char>(c) >= 0x80) {
    const std::size_t size = utf8CharacterSize(text);
    out.append(size == 0 ? utf8Replacement : text.substr(0, size));
    return size == 0 ? 1 : size;
  }
  const bool isEscaped =
      static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\' || (c == '/' && escapesSlashes);
  if (isEscaped) {
    writeEscape(c, out);
  } else {
    out.append(c);
  }
  return 1;
}

/// Fewer than 16 bytes.
void writeTail(std::string_view text, bool escapesSlashes, TextBuffer& out) {
  char* const to = out.room(16);
  const bool isPlain = (text.size() >= 8 &&
                        copyPlain<std::uint64_t>(text.data(), text.size(), to, escapesSlashes)) ||
                       (text.size() >= 4 && text.size() <= 8 &&
                        copyPlain<std::uint32_t>(text.data(), text.size(), to, escapesSlashes));
  if (isPlain) return out.advanceTo(to + text.size());
  while (!text.empty()) text.remove_prefix(writeCharacter(text, escapesSlashes, out));
}

}  // namespace

void writeJSONString(std::string_view text, bool escapesSlashes, TextBuffer& out) {
  out.append('"');
  while (text.size() >= 16) {
    char* const to = out.room(16);
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data()));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
    const unsigned special = specialBytes(bytes, escapesSlashes);
    const auto plain = special == 0 ? 16U : static_cast<unsigned>(__builtin_ctz(special));
    out.advanceTo(to + plain);
    text.remove_prefix(plain);
    if (special != 0) text.remove_prefix(writeCharacter(text, escapesSlashes, out));
  }
  writeTail(text, escapesSlashes, out);
  out.append('"');
}

}  // namespace tessarine::internal
