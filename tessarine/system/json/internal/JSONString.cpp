#include "tessarine/system/json/internal/JSONString.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "tessarine/values/hexadecimalDigit.hpp"
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

// ---- reading ----

/// What a letter behind a backslash stands for, 0 for those that stand for nothing.
constexpr char meaningOf(char letter) noexcept {
  switch (letter) {
    case '"':
    case '\\':
    case '/':
      return letter;
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return '\0';
  }
}

/// The unit of UTF-16 that `escape` begins with, \u and four digits; absent for all else.
std::optional<char32_t> escapedUnit(std::string_view escape) noexcept {
  constexpr std::size_t size = 6;
  if (escape.size() < size || !escape.starts_with("\\u")) return std::nullopt;
  char32_t unit = 0;
  for (const char c : escape.substr(2, 4)) {
    const int digit = hexadecimalDigit(c);
    if (digit < 0) return std::nullopt;
    unit = unit << 4U | static_cast<char32_t>(digit);
  }
  return unit;
}

/// Copies what stands before the first backslash, if there is one, and gives its size. There has to
/// be room for the whole text.
std::size_t copyUpToBackslash(std::string_view text, char* to) noexcept {
  std::size_t at = 0;
  for (; at + 16 <= text.size(); at += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + at));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at), bytes);
    const auto found =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'))));
    if (found != 0) return at + static_cast<unsigned>(__builtin_ctz(found));
  }
  for (; at < text.size() && text[at] != '\\'; ++at) to[at] = text[at];
  return at;
}

char* writeUtf8(char32_t c, char* to) noexcept {
  const auto trail = [&](unsigned shift) {
    *to++ = static_cast<char>(0x80U | ((c >> shift) & 0x3FU));
  };
  if (c < 0x80) {
    *to++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *to++ = static_cast<char>(0xC0U | (c >> 6U));
    trail(0);
  } else if (c < 0x10000) {
    *to++ = static_cast<char>(0xE0U | (c >> 12U));
    trail(6);
    trail(0);
  } else {
    *to++ = static_cast<char>(0xF0U | (c >> 18U));
    trail(12);
    trail(6);
    trail(0);
  }
  return to;
}

}  // namespace

std::optional<JSONEscapeFault> unescapeJSONString(std::string_view raw, std::string& out) {
  out.resize(raw.size());  // no escape stands for more bytes than it has
  char* to = out.data();
  for (std::size_t at = 0; at < raw.size();) {
    const std::size_t plain = copyUpToBackslash(raw.substr(at), to);
    at += plain;
    to += plain;
    if (at == raw.size()) break;
    if (const char meaning = meaningOf(raw[at + 1]); meaning != '\0') {
      *to++ = meaning;
      at += 2;
      continue;
    }
    auto c = escapedUnit(raw.substr(at));
    if (!c) return JSONEscapeFault{at, "an escape that there is not"};
    std::size_t size = 6;
    if (*c >= 0xD800 && *c < 0xE000) {
      const auto low = *c < 0xDC00 ? escapedUnit(raw.substr(at + size)) : std::nullopt;
      if (!low || *low < 0xDC00 || *low >= 0xE000) {
        return JSONEscapeFault{at, "half a surrogate pair"};
      }
      c = 0x10000 + ((*c - 0xD800) << 10U) + (*low - 0xDC00);
      size = 12;
    }
    to = writeUtf8(*c, to);
    at += size;
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
  return std::nullopt;
}

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
