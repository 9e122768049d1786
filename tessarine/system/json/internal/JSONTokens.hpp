#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tessarine/coding/TypeShape.hpp"
#include "tessarine/system/json/internal/JSONNumber.hpp"
#include "tessarine/system/json/internal/JSONStructure.hpp"
#include "tessarine/system/json/internal/hasSameBytes.hpp"

#include <emmintrin.h>

namespace tessarine::internal {

/// The tokens of one JSON text, and the grammar that they have to follow. A position is the number
/// of a token; behind the last all are the token '\0'. What is said of a token's text holds for
/// well-formed ones: who reads values checks as it goes, others call `findEnds` first.
class JSONTokens {
 public:
  /// Throws `DecodingError` when the text has no tokens or is no UTF-8.
  explicit JSONTokens(std::string_view text);

  // ---- tokens ----

  enum class Token : std::uint8_t { null, boolean, number, text, array, object, other };

  std::uint32_t count() const noexcept { return static_cast<std::uint32_t>(starts_.size()); }
  char charAt(std::uint32_t position) const noexcept {
    return position < starts_.size() ? text_[starts_[position]] : '\0';
  }
  Token tokenAt(std::uint32_t position) const noexcept;
  /// Whether that literal stands there.
  bool isLiteral(std::uint32_t position, std::string_view literal) const noexcept {
    return position < starts_.size() && rest(position).starts_with(literal) &&
           endsJSONToken(rest(position), literal.size());
  }
  std::size_t offsetOf(std::uint32_t position) const noexcept {
    return position < starts_.size() ? starts_[position] : text_.size();
  }
  /// The text from a token that there is to the end.
  std::string_view rest(std::uint32_t position) const noexcept {
    return text_.substr(starts_[position]);
  }

  std::string_view numberAt(std::uint32_t position) const noexcept;
  bool booleanAt(std::uint32_t position) const noexcept { return charAt(position) == 't'; }
  /// The string there, unescaped. Throws where an escape is none.
  std::string stringAt(std::uint32_t position) const;
  void assignStringAt(std::uint32_t position, std::string& out) const;
  /// The same as it stands in the text or, when it has escapes, unescaped to `scratch`.
  std::string_view stringAt(std::uint32_t position, std::string& scratch) const;
  /// Whether the string `plain`, which needs no escapes, stands there without any.
  bool isPlainString(std::uint32_t position, std::string_view plain) const noexcept {
    if (position >= starts_.size()) return false;
    const char* const begin = text_.data() + starts_[position];
    const std::size_t left = text_.size() - starts_[position];
    return plain.size() + 1 < left && begin[0] == '"' && begin[plain.size() + 1] == '"' &&
           hasSameBytes(begin + 1, plain.data(), plain.size());
  }
  /// Whether that name stands there with its quotes and the colon right behind, which is the next
  /// token then. False for most of the last 16 bytes of a text, and where there is no name.
  bool isQuotedName(std::uint32_t position, const QuotedName& name) const noexcept {
    if (position >= starts_.size() || starts_[position] + QuotedName::capacity > text_.size()) {
      return false;
    }
    const auto load = [](const char* bytes) {
      return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    };
    const int equal = _mm_movemask_epi8(
        _mm_cmpeq_epi8(load(text_.data() + starts_[position]), load(name.bytes.data())));
    return name.size != 0 && (~static_cast<unsigned>(equal) & ((1U << name.size) - 1)) == 0;
  }

  // ---- grammar ----

  /// Throws `DecodingError` unless the whole text is one JSON document.
  void requireDocument() const;
  /// The same, and notes where lists end.
  void findEnds();
  /// The position behind the value at `position`; needs `findEnds`.
  std::uint32_t endOf(std::uint32_t position) const noexcept;
  /// The position behind the value there, `depthAround` lists deep, whose form is checked.
  std::uint32_t skip(std::uint32_t position, std::size_t depthAround) const;
  void validateScalar(std::uint32_t position) const;

  [[noreturn]] void invalid(std::size_t offset, std::string why) const;
  [[noreturn]] void unexpected(std::uint32_t position) const;

 private:
  std::uint32_t validate(std::uint32_t position, std::size_t depthAround,
                         std::vector<std::uint32_t>* ends) const;
  void validateAll(std::vector<std::uint32_t>* ends) const;
  /// The text between the quotes of the string there, as it stands.
  std::string_view rawString(std::uint32_t position, bool& hasEscapes) const noexcept;
  void unescape(std::string_view raw, std::string& out) const;

  std::string_view text_;
  JSONStructure structure_;
  std::span<const std::uint32_t> starts_;
  std::vector<std::uint32_t> ends_;  // of lists, by position; empty until somebody needs them
};

}  // namespace tessarine::internal
