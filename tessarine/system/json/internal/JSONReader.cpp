#include "tessarine/system/json/internal/JSONReader.hpp"

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "tessarine/system/json/internal/JSONNumber.hpp"
#include "tessarine/system/json/internal/JSONValueDecoder.hpp"
#include "tessarine/system/json/internal/JSONValueWriter.hpp"
#include "tessarine/system/text/Characters.hpp"
#include "tessarine/system/time/ISO8601DateFormatter.hpp"
#include "tessarine/values/floatText.hpp"

#include <emmintrin.h>

namespace tessarine::internal {
namespace {

constexpr double millisecondsASecond = 1000;

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

/// Whether a number or a literal may end before `text[offset]`.
bool endsToken(std::string_view text, std::size_t offset) noexcept {
  if (offset == text.size()) return true;
  switch (text[offset]) {
    case ',':
    case ']':
    case '}':
    case ' ':
    case '\n':
    case '\r':
    case '\t':
      return true;
    default:
      return false;
  }
}

/// A number without fraction or exponent at the front of `text` that surely fits in 64 bits.
struct ShortInteger {
  std::uint64_t magnitude = 0;
  bool isNegative = false;
  bool isValid = false;
};

ShortInteger shortInteger(std::string_view text, std::size_t offset) noexcept {
  constexpr std::size_t mostDigits = 18;
  ShortInteger number;
  std::size_t at = offset;
  number.isNegative = text[at] == '-';
  if (number.isNegative) ++at;
  const std::size_t first = at;
  const std::size_t last = std::min(text.size(), first + mostDigits);
  for (; at < last && isDigit(text[at]); ++at) {
    number.magnitude = number.magnitude * 10 + static_cast<std::uint64_t>(text[at] - '0');
  }
  const bool hasLeadingZero = at > first + 1 && text[first] == '0';
  number.isValid = at > first && !hasLeadingZero && endsToken(text, at);
  return number;
}

/// A decimal that a double holds exactly, as do the power of ten it is multiplied with or divided
/// by: then one rounding gives the nearest double (W. D. Clinger, "How to read floating point
/// numbers accurately", 1990). Absent for all others.
bool shortDouble(std::string_view text, std::size_t offset, double& out) noexcept {
  constexpr std::size_t mostDigits = 15;
  static constexpr std::array<double, mostDigits + 1> powers{
      1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  std::size_t at = offset;
  const bool isNegative = text[at] == '-';
  if (isNegative) ++at;
  const std::size_t first = at;
  std::uint64_t digits = 0;
  const auto run = [&] {
    for (; at < text.size() && at - first <= mostDigits && isDigit(text[at]); ++at) {
      digits = digits * 10 + static_cast<std::uint64_t>(text[at] - '0');
    }
  };
  run();
  const std::size_t integerDigits = at - first;
  if (integerDigits == 0 || (integerDigits > 1 && text[first] == '0')) return false;
  std::size_t fractionDigits = 0;
  if (at < text.size() && text[at] == '.') {
    const std::size_t fraction = ++at;
    run();
    fractionDigits = at - fraction;
    if (fractionDigits == 0) return false;
  }
  if (integerDigits + fractionDigits > mostDigits || !endsToken(text, at)) return false;
  const double magnitude = static_cast<double>(digits) / powers[fractionDigits];
  out = isNegative ? -magnitude : magnitude;
  return true;
}

std::uint32_t hexadecimal(std::string_view digits) noexcept {
  std::uint32_t value = 0;
  for (const char c : digits) {
    const char lower = static_cast<char>(c | 0x20);
    if (isDigit(c)) {
      value = value << 4U | static_cast<std::uint32_t>(c - '0');
    } else if (lower >= 'a' && lower <= 'f') {
      value = value << 4U | static_cast<std::uint32_t>(lower - 'a' + 10);
    } else {
      return std::numeric_limits<std::uint32_t>::max();
    }
  }
  return digits.size() == 4 ? value : std::numeric_limits<std::uint32_t>::max();
}

void appendUtf8(char32_t c, std::string& out) {
  const auto trail = [&](unsigned shift) {
    out += static_cast<char>(0x80U | ((c >> shift) & 0x3FU));
  };
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0U | (c >> 6U));
    trail(0);
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0U | (c >> 12U));
    trail(6);
    trail(0);
  } else {
    out += static_cast<char>(0xF0U | (c >> 18U));
    trail(12);
    trail(6);
    trail(0);
  }
}

/// "user_id" as "userId"; underscores at the ends stay, and so does a key without any inside.
std::string camelCased(std::string_view key) {
  const std::size_t first = key.find_first_not_of('_');
  if (first == std::string_view::npos) return std::string(key);
  const std::size_t last = key.find_last_not_of('_');
  std::string_view words = key.substr(first, last + 1 - first);
  std::string text(key.substr(0, first));
  if (words.find('_') == std::string_view::npos) {
    text += words;
  } else {
    bool isFirst = true;
    while (!words.empty()) {
      const std::size_t end = std::min(words.find('_'), words.size());
      const std::string word = lowercased(words.substr(0, end));
      text += std::exchange(isFirst, false) ? word : capitalizedFirst(word);
      words.remove_prefix(std::min(end + 1, words.size()));
    }
  }
  text += key.substr(last + 1);
  return text;
}

}  // namespace

JSONReader::JSONReader(std::string_view text, const JSONDecoderOptions& options)
    : text_(withoutByteOrderMark(text)),
      options_(options),
      structure_(text_),
      starts_(structure_.starts()) {}

// ---- errors ----

std::size_t JSONReader::offsetOf(std::uint32_t position) const noexcept {
  return position < starts_.size() ? starts_[position] : text_.size();
}

void JSONReader::invalid(std::size_t offset, std::string why) const {
  throw DecodingError(DecodingError::Case::dataCorrupted,
                      {{}, "The text is no JSON: " + std::move(why), nullptr, offset});
}

void JSONReader::unexpected(std::uint32_t position) const {
  if (position >= starts_.size()) invalid(text_.size(), "it ends too early");
  const char c = text_[starts_[position]];
  const bool isPrintable = c > ' ' && c < 0x7F;
  invalid(starts_[position],
          isPrintable ? std::string("unexpected ") + c : std::string("an unexpected character"));
}

void JSONReader::mismatch(std::uint32_t position, ShapeKind expected, const CodingPathNode* path) {
  if (ends_.empty()) validateAll(nullptr);  // a text that is no JSON is told first
  static constexpr std::array<std::string_view, 7> names{"null",  "boolean", "number", "text",
                                                         "array", "object",  "nothing"};
  const Token found = tokenAt(position);
  const auto kind =
      found == Token::null ? DecodingError::Case::valueNotFound : DecodingError::Case::typeMismatch;
  throw DecodingError(kind, {codingPath(path),
                             std::string("Expected ")
                                 .append(nameOf(expected))
                                 .append(" but found ")
                                 .append(names[static_cast<std::size_t>(found)]),
                             nullptr, offsetOf(position)});
}

DecodingError JSONReader::dataCorrupted(std::uint32_t position, std::string why,
                                        const CodingPathNode* path) const {
  return {DecodingError::Case::dataCorrupted,
          {codingPath(path), std::move(why), nullptr, offsetOf(position)}};
}

void JSONReader::refuseNumber(std::uint32_t position, ShapeKind kind, const CodingPathNode* path) {
  if (ends_.empty()) validateAll(nullptr);
  constexpr std::size_t longestShown = 40;
  std::string number(numberAt(position).substr(0, longestShown));
  throw dataCorrupted(
      position, "The number " + number + " does not fit in " + std::string(nameOf(kind)), path);
}

// ---- the document ----

void JSONReader::readDocument(DecodableSlot slot) {
  read(slot, nullptr);
  if (at_ != starts_.size()) unexpected(at_);
}

void JSONReader::validateAll(std::vector<std::uint32_t>* ends) const {
  const std::uint32_t end = validate(0, 0, ends);
  if (end != starts_.size()) unexpected(end);
}

// One loop over a stack of its own: calls that nest would cost a frame a level.
// NOLINTNEXTLINE(readability-function-cognitive-complexity)
std::uint32_t JSONReader::validate(std::uint32_t position, std::size_t depthAround,
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

void JSONReader::validateScalar(std::uint32_t position) const {
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
      if (size == 0 || !endsToken(text_, starts_[position] + size)) unexpected(position);
    }
  }
}

void JSONReader::findEnds() {
  if (!ends_.empty()) return;
  std::vector<std::uint32_t> ends(starts_.size());
  validateAll(&ends);
  ends_ = std::move(ends);
}

std::uint32_t JSONReader::endOf(std::uint32_t position) const noexcept {
  const char c = charAt(position);
  return (c == '{' || c == '[' ? ends_[position] : position) + 1;
}

// ---- tokens ----

JSONReader::Token JSONReader::tokenAt(std::uint32_t position) const noexcept {
  const auto isLiteral = [&](std::string_view literal) {
    return rest(position).starts_with(literal) &&
           endsToken(text_, starts_[position] + literal.size());
  };
  switch (charAt(position)) {
    case '{':
      return Token::object;
    case '[':
      return Token::array;
    case '"':
      return Token::text;
    case 'n':
      return isLiteral("null") ? Token::null : Token::other;
    case 't':
      return isLiteral("true") ? Token::boolean : Token::other;
    case 'f':
      return isLiteral("false") ? Token::boolean : Token::other;
    default: {
      const char c = charAt(position);
      return c == '-' || isDigit(c) ? Token::number : Token::other;
    }
  }
}

bool JSONReader::mayRead(std::uint32_t position, ShapeKind kind) const noexcept {
  const Token token = tokenAt(position);
  const auto integer = [&] {
    return token == Token::number ? integerOfJSONNumber(numberAt(position)) : std::nullopt;
  };
  switch (kind) {
    case ShapeKind::boolean:
      return token == Token::boolean;
    case ShapeKind::text:
    case ShapeKind::uuid:
      return token == Token::text;
    case ShapeKind::sequence:
      return token == Token::array;
    case ShapeKind::map:
    case ShapeKind::object:
      return token == Token::object;
    case ShapeKind::int64: {
      const auto number = integer();
      return number && *number == static_cast<std::int64_t>(*number);
    }
    case ShapeKind::uint64: {
      const auto number = integer();
      return number && *number == static_cast<Int128>(static_cast<std::uint64_t>(*number));
    }
    default:
      return true;
  }
}

bool JSONReader::booleanAt(std::uint32_t position) const noexcept {
  return charAt(position) == 't';
}

std::string_view JSONReader::numberAt(std::uint32_t position) const noexcept {
  return rest(position).substr(0, jsonNumberSize(rest(position)));
}

std::string JSONReader::stringAt(std::uint32_t position) const {
  bool hasEscapes = false;
  const auto raw = rawString(position, hasEscapes);
  if (!hasEscapes) return std::string(raw);
  std::string text;
  unescape(raw, text);
  return text;
}

std::string_view JSONReader::rawString(std::uint32_t position, bool& hasEscapes) const noexcept {
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

void JSONReader::unescape(std::string_view raw, std::string& out) const {
  const auto offset = [&](std::size_t at) {
    return static_cast<std::size_t>(raw.data() - text_.data()) + at;
  };
  out.reserve(raw.size());
  for (std::size_t at = 0; at < raw.size();) {
    const std::size_t run = std::min(raw.find('\\', at), raw.size());
    out.append(raw, at, run - at);
    at = run;
    if (at == raw.size()) return;
    constexpr std::string_view letters = "\"\\/bfnrt";
    constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
    if (const std::size_t which = letters.find(raw[at + 1]); which != std::string_view::npos) {
      out += meanings[which];
      at += 2;
      continue;
    }
    std::uint32_t c = raw[at + 1] == 'u' ? hexadecimal(raw.substr(at + 2, 4))
                                         : std::numeric_limits<std::uint32_t>::max();
    if (c > 0xFFFF) invalid(offset(at), "an escape that there is not");
    std::size_t size = 6;
    if (c >= 0xD800 && c < 0xE000) {
      const bool hasPair = c < 0xDC00 && raw.substr(at + 6, 2) == "\\u";
      const std::uint32_t low = hasPair ? hexadecimal(raw.substr(at + 8, 4)) : 0;
      if (low < 0xDC00 || low >= 0xE000) invalid(offset(at), "half a surrogate pair");
      c = 0x10000 + ((c - 0xD800) << 10U) + (low - 0xDC00);
      size = 12;
    }
    appendUtf8(c, out);
    at += size;
  }
}

// ---- lists ----

bool JSONReader::beginList(char open, char close, ShapeKind expected, const CodingPathNode* path) {
  if (charAt(at_) != open) mismatch(at_, expected, path);
  if (depth_ == deepestJSON) invalid(offsetOf(at_), "nested deeper than 512 levels");
  ++at_;
  if (charAt(at_) == close) {
    ++at_;
    return false;
  }
  ++depth_;
  return true;
}

bool JSONReader::nextInList(char close) {
  const char c = charAt(at_);
  if (c == ',') {
    ++at_;
    return true;
  }
  if (c != close) unexpected(at_);
  ++at_;
  --depth_;
  return false;
}

void JSONReader::takeColon() {
  if (charAt(++at_) != ':') unexpected(at_);
  ++at_;
}

std::string_view JSONReader::takeKey(std::string& scratch) {
  if (charAt(at_) != '"') unexpected(at_);
  bool hasEscapes = false;
  std::string_view key = rawString(at_, hasEscapes);
  if (hasEscapes) {
    scratch.clear();
    unescape(key, scratch);
    key = scratch;
  }
  takeColon();
  return key;
}

bool JSONReader::isKey(std::string_view plainName) const noexcept {
  if (at_ >= starts_.size()) return false;
  const std::size_t begin = starts_[at_] + 1;
  return begin + plainName.size() < text_.size() && text_[begin - 1] == '"' &&
         std::memcmp(text_.data() + begin, plainName.data(), plainName.size()) == 0 &&
         text_[begin + plainName.size()] == '"';
}

std::string JSONReader::convertedKey(std::string_view key, const CodingPathNode* path) const {
  switch (options_.keyDecodingStrategy.kind()) {
    case JSONKeyStrategy::snakeCase:
      return camelCased(key);
    case JSONKeyStrategy::custom: {
      CodingPath whole = codingPath(path);
      whole.emplace_back(key);
      return options_.keyDecodingStrategy.callback()(whole);
    }
    default:
      return std::string(key);
  }
}

bool JSONReader::isNull() const noexcept {
  return charAt(at_) == 'n' && tokenAt(at_) == Token::null;
}

void JSONReader::skip() { at_ = validate(at_, depth_, nullptr); }

// ---- values ----

void JSONReader::readAt(std::uint32_t position, DecodableSlot slot, const CodingPathNode* path) {
  const std::uint32_t kept = std::exchange(at_, position);
  const std::size_t depth = depth_;
  try {
    read(slot, path);
  } catch (...) {  // the host may go on with something else
    at_ = kept;
    depth_ = depth;
    throw;
  }
  at_ = kept;
}

void JSONReader::read(DecodableSlot slot, const CodingPathNode* path) {
  const TypeShape& shape = *slot.shape;
  if (shape.decode != nullptr) {
    return readByHand([&](Decoder& decoder) { shape.decode(slot.address, decoder); }, path);
  }
  switch (shape.kind) {
    case ShapeKind::optional:
      if (isNull()) {
        ++at_;
        return shape.optional->reset(slot.address);
      }
      return shape.optional->assign(slot.address, [&](void* wrapped) {
        read({wrapped, shape.optional->slot}, path);
      });
    case ShapeKind::sequence:
      return readSequence(slot, path);
    case ShapeKind::map:
      return readMap(slot, path);
    case ShapeKind::object:
      return readFields(slot, path);
    default:
      return readScalar(slot, path);
  }
}

void JSONReader::readScalar(DecodableSlot slot, const CodingPathNode* path) {
  switch (slot.shape->kind) {
    case ShapeKind::boolean:
      return readBoolean(*static_cast<bool*>(slot.address), path);
    case ShapeKind::int8:
      return readInteger<std::int8_t>(slot, path);
    case ShapeKind::int16:
      return readInteger<std::int16_t>(slot, path);
    case ShapeKind::int32:
      return readInteger<std::int32_t>(slot, path);
    case ShapeKind::int64:
      return readInteger<std::int64_t>(slot, path);
    case ShapeKind::int128:
      return readWideInteger<Int128>(slot, path);
    case ShapeKind::uint8:
      return readInteger<std::uint8_t>(slot, path);
    case ShapeKind::uint16:
      return readInteger<std::uint16_t>(slot, path);
    case ShapeKind::uint32:
      return readInteger<std::uint32_t>(slot, path);
    case ShapeKind::uint64:
      return readInteger<std::uint64_t>(slot, path);
    case ShapeKind::uint128:
      return readWideInteger<UInt128>(slot, path);
    case ShapeKind::float32:
      return readFloat<float>(slot, path);
    case ShapeKind::float64:
      return readFloat<double>(slot, path);
    case ShapeKind::text:
      return readString(*static_cast<std::string*>(slot.address), path);
    case ShapeKind::date:
      return readDate(*static_cast<Date*>(slot.address), path);
    case ShapeKind::data:
      return readData(*static_cast<Data*>(slot.address), path);
    case ShapeKind::uuid:
      return readUUID(*static_cast<UUID*>(slot.address), path);
    case ShapeKind::decimal:
      return readDecimal(slot, path);
    case ShapeKind::enumeration:
      return readEnumeration(slot, path);
    default:
      throw dataCorrupted(at_, "The type has no decode.", path);
  }
}

void JSONReader::readBoolean(bool& out, const CodingPathNode* path) {
  if (tokenAt(at_) != Token::boolean) mismatch(at_, ShapeKind::boolean, path);
  out = booleanAt(at_++);
}

template <class Integer>
void JSONReader::readInteger(DecodableSlot slot, const CodingPathNode* path) {
  const char c = charAt(at_);
  if (c != '-' && !isDigit(c)) mismatch(at_, slot.shape->kind, path);
  const ShortInteger number = shortInteger(text_, starts_[at_]);
  if (!number.isValid) return readWideInteger<Integer>(slot, path);
  const auto magnitude = static_cast<std::int64_t>(number.magnitude);
  const std::int64_t value = number.isNegative ? -magnitude : magnitude;
  const auto converted = static_cast<Integer>(value);
  constexpr bool isSigned = std::numeric_limits<Integer>::is_signed;
  if (static_cast<std::int64_t>(converted) != value || (!isSigned && value < 0)) {
    refuseNumber(at_, slot.shape->kind, path);
  }
  *static_cast<Integer*>(slot.address) = converted;
  ++at_;
}

template <class Integer>
void JSONReader::readWideInteger(DecodableSlot slot, const CodingPathNode* path) {
  if (tokenAt(at_) != Token::number) mismatch(at_, slot.shape->kind, path);
  validateScalar(at_);
  bool fits = false;
  Integer& out = *static_cast<Integer*>(slot.address);
  if constexpr (Integer(-1) < Integer(0)) {
    const auto value = integerOfJSONNumber(numberAt(at_));
    fits = value && static_cast<Int128>(static_cast<Integer>(*value)) == *value;
    if (fits) out = static_cast<Integer>(*value);
  } else {
    const auto value = unsignedOfJSONNumber(numberAt(at_));
    fits = value && static_cast<UInt128>(static_cast<Integer>(*value)) == *value;
    if (fits) out = static_cast<Integer>(*value);
  }
  if (!fits) refuseNumber(at_, slot.shape->kind, path);
  ++at_;
}

template <class Float>
void JSONReader::readFloat(DecodableSlot slot, const CodingPathNode* path) {
  Float& out = *static_cast<Float*>(slot.address);
  const char c = charAt(at_);
  if (c != '-' && !isDigit(c)) {
    if (c != '"' || !readFloatText(out, path)) mismatch(at_, slot.shape->kind, path);
    return;
  }
  if constexpr (std::same_as<Float, double>) {
    if (shortDouble(text_, starts_[at_], out)) {
      ++at_;
      return;
    }
  }
  validateScalar(at_);
  const auto value = floatOfJSONNumber<Float>(numberAt(at_));
  if (!value) refuseNumber(at_, slot.shape->kind, path);
  out = *value;
  ++at_;
}

template <class Float>
bool JSONReader::readFloatText(Float& out, const CodingPathNode* /*path*/) {
  const auto& strategy = options_.nonConformingFloatDecodingStrategy;
  if (!strategy.isText()) return false;
  const std::string text = stringAt(at_);
  if (text == strategy.positiveInfinity()) {
    out = std::numeric_limits<Float>::infinity();
  } else if (text == strategy.negativeInfinity()) {
    out = -std::numeric_limits<Float>::infinity();
  } else if (text == strategy.nan()) {
    out = std::numeric_limits<Float>::quiet_NaN();
  } else {
    return false;
  }
  ++at_;
  return true;
}

void JSONReader::readString(std::string& out, const CodingPathNode* path) {
  if (charAt(at_) != '"') mismatch(at_, ShapeKind::text, path);
  bool hasEscapes = false;
  const std::string_view raw = rawString(at_, hasEscapes);
  if (hasEscapes) {
    out.clear();
    unescape(raw, out);
  } else {
    out.assign(raw);
  }
  ++at_;
}

void JSONReader::readDate(Date& out, const CodingPathNode* path) {
  const auto& strategy = options_.dateDecodingStrategy;
  using Strategy = std::remove_cvref_t<decltype(strategy)>;
  const auto number = [&] {
    double value = 0;
    read({&value, &ShapeOf<double>::value}, path);
    return value;
  };
  const auto parsed = [&](const auto& formatter) {
    const std::uint32_t position = at_;
    std::string text;
    readString(text, path);
    const auto date = formatter.date(text);
    if (!date) throw dataCorrupted(position, "The text is no date in the form asked for.", path);
    return *date;
  };
  switch (strategy.kind()) {
    case Strategy::deferredToDate:
      out = Date(number());
      break;
    case Strategy::secondsSince1970:
      out = Date::since1970(number());
      break;
    case Strategy::millisecondsSince1970:
      out = Date::since1970(number() / millisecondsASecond);
      break;
    case Strategy::iso8601:
      out = parsed(ISO8601DateFormatter::shared());
      break;
    case Strategy::formatted:
      out = parsed(strategy.formatter());
      break;
    case Strategy::custom:
      readByHand([&](Decoder& decoder) { out = strategy.callback()(decoder); }, path);
      break;
  }
}

void JSONReader::readData(Data& out, const CodingPathNode* path) {
  const auto& strategy = options_.dataDecodingStrategy;
  using Strategy = std::remove_cvref_t<decltype(strategy)>;
  switch (strategy.kind()) {
    case Strategy::deferredToData:
      return read({&out.bytes(), &ShapeOf<std::vector<std::uint8_t>>::value}, path);
    case Strategy::base64: {
      const std::uint32_t position = at_;
      std::string text;
      readString(text, path);
      auto data = Data::fromBase64(text);
      if (!data) throw dataCorrupted(position, "The text is no base64.", path);
      out = std::move(*data);
      return;
    }
    case Strategy::custom:
      return readByHand([&](Decoder& decoder) { out = strategy.callback()(decoder); }, path);
  }
}

void JSONReader::readUUID(UUID& out, const CodingPathNode* path) {
  const std::uint32_t position = at_;
  std::string text;
  readString(text, path);
  const auto uuid = UUID::fromString(text);
  if (!uuid) throw dataCorrupted(position, "The text is no UUID.", path);
  out = *uuid;
}

void JSONReader::readDecimal(DecodableSlot slot, const CodingPathNode* path) {
  if (tokenAt(at_) != Token::number) mismatch(at_, ShapeKind::decimal, path);
  validateScalar(at_);
  const auto number = Decimal::fromString(numberAt(at_));
  if (!number) refuseNumber(at_, ShapeKind::decimal, path);
  *static_cast<Decimal*>(slot.address) = *number;
  ++at_;
}

void JSONReader::readEnumeration(DecodableSlot slot, const CodingPathNode* path) {
  const EnumShape& shape = *slot.shape->enumeration;
  const std::uint32_t position = at_;
  bool isCase = false;
  if (shape.assignText != nullptr) {
    std::string raw;
    readString(raw, path);
    isCase = shape.assignText(slot.address, raw);
  } else {
    Int128 raw = 0;
    readWideInteger<Int128>({&raw, &ShapeOf<Int128>::value}, path);
    isCase = shape.assignNumber(slot.address, raw);
  }
  if (!isCase) throw dataCorrupted(position, "The value is no case of the enumeration.", path);
}

void JSONReader::readSequence(DecodableSlot slot, const CodingPathNode* path) {
  const SequenceShape& shape = *slot.shape->sequence;
  const std::uint32_t position = at_;
  const auto refuse = [&] {
    throw dataCorrupted(position, "Expected " + std::to_string(shape.fixedSize) + " elements.",
                        path);
  };
  shape.clear(slot.address);
  CodingPathNode step{path, {}, -1};
  if (beginList('[', ']', ShapeKind::sequence, path)) {
    do {
      ++*step.index;
      const bool hasRoom =
          shape.append(slot.address, static_cast<std::size_t>(*step.index), [&](void* element) {
            read({element, shape.slot}, &step);
          });
      if (!hasRoom) refuse();
    } while (nextInList(']'));
  }
  if (static_cast<std::size_t>(*step.index + 1) < shape.fixedSize) refuse();
}

void JSONReader::readMap(DecodableSlot slot, const CodingPathNode* path) {
  const MapShape& shape = *slot.shape->map;
  shape.clear(slot.address);
  CodingPathNode step{path};
  std::string scratch;
  if (!beginList('{', '}', ShapeKind::map, path)) return;
  do {
    const std::uint32_t position = at_;
    const std::string_view key = takeKey(scratch);
    step.key = key;
    const bool isKey = shape.insert(slot.address, key, [&](void* value) {
      read({value, shape.slot}, &step);
    });
    if (!isKey) throw dataCorrupted(position, "The key is no integer of the map's keys.", &step);
  } while (nextInList('}'));
}

namespace {

/// Which of a type's fields have been read.
class FieldMarks {
 public:
  explicit FieldMarks(std::size_t count) : more_(count > 64 ? count - 64 : 0) {}
  void set(std::size_t i) noexcept {
    if (i < 64)
      first_ |= std::uint64_t{1} << i;
    else
      more_[i - 64] = true;
  }
  bool has(std::size_t i) const noexcept {
    return i < 64 ? (first_ >> i & 1U) != 0 : more_[i - 64];
  }

 private:
  std::uint64_t first_ = 0;
  std::vector<bool> more_;
};

}  // namespace

void JSONReader::readFields(DecodableSlot slot, const CodingPathNode* path) {
  const auto fields = slot.shape->fields;
  const bool isConverted = options_.keyDecodingStrategy.kind() != JSONKeyStrategy::useDefaultKeys;
  const std::uint32_t position = at_;
  FieldMarks marks(fields.size());
  CodingPathNode step{path};
  std::string scratch;
  std::size_t expected = 0;  // the field that comes next when the text has the order written
  if (beginList('{', '}', ShapeKind::object, path)) {
    do {
      std::size_t i = expected;
      if (!isConverted && i < fields.size() && fields[i].isPlainName && isKey(fields[i].name)) {
        takeColon();
      } else {
        std::string_view key = takeKey(scratch);
        std::string converted;
        if (isConverted) key = converted = convertedKey(key, path);
        const auto found = std::find_if(fields.begin(), fields.end(),
                                        [&](const FieldShape& field) { return field.name == key; });
        i = static_cast<std::size_t>(found - fields.begin());
      }
      if (i == fields.size()) {
        skip();
        continue;
      }
      step.key = fields[i].name;
      read({fields[i].address(slot.address), fields[i].shape}, &step);
      marks.set(i);
      expected = i + 1;
    } while (nextInList('}'));
  }
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (marks.has(i)) continue;
    const TypeShape& shape = *fields[i].shape;
    if (shape.kind != ShapeKind::optional) {
      if (ends_.empty()) validateAll(nullptr);
      throw DecodingError::keyNotFound(
          AnyCodingKey(fields[i].name),
          {codingPath(path), "No value for the key \"" + std::string(fields[i].name) + "\"",
           nullptr, offsetOf(position)});
    }
    shape.optional->reset(fields[i].address(slot.address));
  }
}

void JSONReader::readByHand(FunctionRef<void(Decoder&)> decode, const CodingPathNode* path) {
  findEnds();
  const std::uint32_t end = endOf(at_);
  JSONDecodingRun run{*this, {}};
  JSONValueDecoder decoder(run, at_, path);
  decode(decoder);
  at_ = end;
}

}  // namespace tessarine::internal
