#include "tessarine/system/json/internal/JSONReader.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "tessarine/coding/internal/writableDate.hpp"
#include "tessarine/coding/withIntegerType.hpp"
#include "tessarine/system/json/internal/JSONKeys.hpp"
#include "tessarine/system/json/internal/JSONNumber.hpp"
#include "tessarine/system/json/internal/JSONValueDecoder.hpp"
#include "tessarine/system/json/internal/deepestJSON.hpp"
#include "tessarine/system/time/ISO8601DateFormatter.hpp"

namespace tessarine::internal {
namespace {

using Token = JSONTokens::Token;

constexpr double millisecondsASecond = 1000;

/// So many elements tell how long those of a document are.
constexpr std::size_t enoughToExpect = 16;

template <class T>
T& as(DecodableSlot slot) noexcept {
  return *static_cast<T*>(slot.address);
}

/// Which of a type's fields have been read.
class FieldMarks {
 public:
  explicit FieldMarks(std::size_t count)
      : missing_(count < inWord ? (std::uint64_t{1} << count) - 1 : ~std::uint64_t{0}),
        moreMissing_(count > inWord ? count - inWord : 0, true) {}

  void set(std::size_t i) {
    if (i < inWord) [[likely]] {
      missing_ &= ~(std::uint64_t{1} << i);
    } else {
      moreMissing_[i - inWord] = false;
    }
  }
  bool has(std::size_t i) const {
    return i < inWord ? (missing_ >> i & 1U) == 0 : !moreMissing_[i - inWord];
  }
  bool hasAll() const noexcept {
    return missing_ == 0 &&
           std::find(moreMissing_.begin(), moreMissing_.end(), true) == moreMissing_.end();
  }

 private:
  static constexpr std::size_t inWord = 64;

  std::uint64_t missing_;
  std::vector<bool> moreMissing_;
};

}  // namespace

// ---- errors ----

void JSONReader::mismatch(std::uint32_t position, ShapeKind expected,
                          const CodingPathNode* path) const {
  tokens_.requireDocument();  // a text that is no JSON is told first
  static constexpr std::array<std::string_view, 7> names{"null",  "boolean", "number", "text",
                                                         "array", "object",  "nothing"};
  const Token found = tokens_.tokenAt(position);
  const auto kind =
      found == Token::null ? DecodingError::Case::valueNotFound : DecodingError::Case::typeMismatch;
  throw DecodingError(kind, {codingPath(path),
                             std::string("Expected ")
                                 .append(nameOf(expected))
                                 .append(" but found ")
                                 .append(names[static_cast<std::size_t>(found)]),
                             nullptr, tokens_.offsetOf(position)});
}

DecodingError JSONReader::dataCorrupted(std::uint32_t position, std::string why,
                                        const CodingPathNode* path) const {
  return {DecodingError::Case::dataCorrupted,
          {codingPath(path), std::move(why), nullptr, tokens_.offsetOf(position)}};
}

void JSONReader::refuseNumber(std::uint32_t at, ShapeKind kind, const CodingPathNode* path) const {
  tokens_.requireDocument();
  constexpr std::size_t longestShown = 40;
  const std::string number(tokens_.numberAt(at).substr(0, longestShown));
  throw dataCorrupted(at, "The number " + number + " does not fit in " + std::string(nameOf(kind)),
                      path);
}

void JSONReader::missing(const FieldShape& field, std::uint32_t object,
                         const CodingPathNode* path) const {
  tokens_.requireDocument();
  throw DecodingError::keyNotFound(
      AnyCodingKey(field.name),
      {codingPath(path), "No value for the key \"" + std::string(field.name) + "\"", nullptr,
       tokens_.offsetOf(object)});
}

// ---- lists ----

inline bool JSONReader::beginList(std::uint32_t at, char open, char close, ShapeKind expected,
                                  const CodingPathNode* path) {
  if (tokens_.charAt(at) != open) mismatch(at, expected, path);
  if (depth_ == deepestJSON) tokens_.invalid(tokens_.offsetOf(at), "nested deeper than 512 levels");
  if (tokens_.charAt(at + 1) == close) return false;
  ++depth_;
  return true;
}

bool JSONReader::nextInList(std::uint32_t at, char close) {
  const char c = tokens_.charAt(at);
  if (c == ',') return true;
  if (c != close) tokens_.unexpected(at);
  --depth_;
  return false;
}

void JSONReader::requireColon(std::uint32_t at) const {
  if (tokens_.charAt(at) != ':') tokens_.unexpected(at);
}

std::string_view JSONReader::keyAt(std::uint32_t at, std::string& scratch) const {
  if (tokens_.charAt(at) != '"') tokens_.unexpected(at);
  return tokens_.stringAt(at, scratch);
}

std::size_t JSONReader::fieldAt(std::uint32_t at, std::span<const FieldShape> fields,
                                std::size_t expected, const CodingPathNode* path) const {
  if (options_.keyDecodingStrategy.kind() == JSONKeyStrategy::useDefaultKeys) {
    std::size_t i = expected;
    for (std::size_t left = fields.size(); left > 0; --left, ++i) {
      if (i >= fields.size()) i = 0;
      if (fields[i].isPlainName && tokens_.isPlainString(at, fields[i].name)) return i;
    }
  }
  return otherFieldAt(at, fields, path);
}

std::size_t JSONReader::otherFieldAt(std::uint32_t at, std::span<const FieldShape> fields,
                                     const CodingPathNode* path) const {
  std::string scratch;
  const std::string key = readJSONKey(options_.keyDecodingStrategy, keyAt(at, scratch), path);
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [&](const FieldShape& field) { return field.name == key; });
  return static_cast<std::size_t>(found - fields.begin());
}

// ---- values ----

void JSONReader::readDocument(DecodableSlot slot) {
  const std::uint32_t end = read(slot, 0, nullptr);
  if (end != tokens_.count()) tokens_.unexpected(end);
}

void JSONReader::readAt(std::uint32_t position, DecodableSlot slot, const CodingPathNode* path) {
  const std::size_t depth = depth_;
  try {
    read(slot, position, path);
  } catch (...) {  // the host may go on with something else
    depth_ = depth;
    throw;
  }
}

bool JSONReader::mayRead(std::uint32_t position, ShapeKind kind) const noexcept {
  const Token token = tokens_.tokenAt(position);
  const auto integer = [&] {
    return token == Token::number ? integerOfJSONNumber(tokens_.numberAt(position)) : std::nullopt;
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

// Part of the walks that call it: as a call of its own, a value takes a tenth longer.
[[gnu::always_inline]] inline std::uint32_t JSONReader::read(DecodableSlot slot, std::uint32_t at,
                                                             const CodingPathNode* path) {
  const TypeShape& shape = *slot.shape;
  if (shape.decode != nullptr) {
    return readByHand([&](Decoder& decoder) { shape.decode(slot.address, decoder); }, at, path);
  }
  const ShapeKind kind = shape.kind;
  // The commonest first, by branches, which are predicted better than a jump by a table.
  if (kind == ShapeKind::text) {
    readString(as<std::string>(slot), at, path);
    return at + 1;
  }
  if (kind == ShapeKind::float64) {
    readFloat(as<double>(slot), at, path);
    return at + 1;
  }
  if (kind <= ShapeKind::uint128) {
    readScalar(slot, at, path);
    return at + 1;
  }
  if (kind == ShapeKind::object) return readFields(slot, at, path);
  if (kind == ShapeKind::sequence) return readSequence(slot, at, path);
  if (kind == ShapeKind::optional) return readOptional(slot, at, path);
  if (kind == ShapeKind::map) return readMap(slot, at, path);
  if (kind == ShapeKind::date) return readDate(as<Date>(slot), at, path);
  if (kind == ShapeKind::data) return readData(as<Data>(slot), at, path);
  readScalar(slot, at, path);
  return at + 1;
}

void JSONReader::readScalar(DecodableSlot slot, std::uint32_t at, const CodingPathNode* path) {
  const ShapeKind kind = slot.shape->kind;
  const bool isInteger =
      withIntegerType(kind, [&]<class Integer>() { readInteger(as<Integer>(slot), at, path); });
  if (isInteger) return;
  switch (kind) {
    case ShapeKind::boolean:
      as<bool>(slot) = tokens_.isLiteral(at, "true");
      if (!as<bool>(slot) && !tokens_.isLiteral(at, "false")) mismatch(at, kind, path);
      return;
    case ShapeKind::float32:
      return readFloat(as<float>(slot), at, path);
    case ShapeKind::uuid:
      return readUUID(as<UUID>(slot), at, path);
    case ShapeKind::decimal:
      return readDecimal(as<Decimal>(slot), at, path);
    case ShapeKind::enumeration:
      return readEnumeration(slot, at, path);
    default:
      throw dataCorrupted(at, "The type has no decode.", path);
  }
}

template <class Integer>
void JSONReader::readInteger(Integer& out, std::uint32_t at, const CodingPathNode* path) {
  constexpr ShapeKind kind = detail::integerKind<Integer>();
  const char c = tokens_.charAt(at);
  if (c != '-' && !isDigit(c)) mismatch(at, kind, path);
  const auto number = shortJSONInteger(tokens_.rest(at));
  if (!number) return readWideInteger(out, at, path);
  out = static_cast<Integer>(*number);
  constexpr bool isSigned = Integer(-1) < Integer(0);
  const bool fits = static_cast<std::int64_t>(out) == *number && (isSigned || *number >= 0);
  if (!fits) refuseNumber(at, kind, path);
}

template <class Integer>
void JSONReader::readWideInteger(Integer& out, std::uint32_t at, const CodingPathNode* path) {
  tokens_.validateScalar(at);
  const auto take = [&](const auto& value) {
    if (!value) return false;
    out = static_cast<Integer>(*value);
    return static_cast<std::remove_cvref_t<decltype(*value)>>(out) == *value;
  };
  const std::string_view number = tokens_.numberAt(at);
  const bool fits = Integer(-1) < Integer(0) ? take(integerOfJSONNumber(number))
                                             : take(unsignedOfJSONNumber(number));
  if (!fits) refuseNumber(at, detail::integerKind<Integer>(), path);
}

template <class Float>
void JSONReader::readFloat(Float& out, std::uint32_t at, const CodingPathNode* path) {
  constexpr bool isDouble = std::same_as<Float, double>;
  constexpr ShapeKind kind = isDouble ? ShapeKind::float64 : ShapeKind::float32;
  const char c = tokens_.charAt(at);
  if (c != '-' && !isDigit(c)) {
    if (c != '"' || !readFloatText(out, at)) mismatch(at, kind, path);
    return;
  }
  std::optional<Float> value;
  if constexpr (isDouble) value = shortJSONDouble(tokens_.rest(at));
  if (!value) {
    tokens_.validateScalar(at);
    value = floatOfJSONNumber<Float>(tokens_.numberAt(at));
  }
  if (!value) refuseNumber(at, kind, path);
  out = *value;
}

template <class Float>
bool JSONReader::readFloatText(Float& out, std::uint32_t at) {
  const auto& strategy = options_.nonConformingFloatDecodingStrategy;
  if (!strategy.isText()) return false;
  const std::string text = tokens_.stringAt(at);
  if (text == strategy.positiveInfinity()) {
    out = std::numeric_limits<Float>::infinity();
  } else if (text == strategy.negativeInfinity()) {
    out = -std::numeric_limits<Float>::infinity();
  } else if (text == strategy.nan()) {
    out = std::numeric_limits<Float>::quiet_NaN();
  } else {
    return false;
  }
  return true;
}

void JSONReader::readString(std::string& out, std::uint32_t at, const CodingPathNode* path) {
  if (tokens_.charAt(at) != '"') mismatch(at, ShapeKind::text, path);
  tokens_.assignStringAt(at, out);
}

void JSONReader::readUUID(UUID& out, std::uint32_t at, const CodingPathNode* path) {
  std::string text;
  readString(text, at, path);
  const auto uuid = UUID::fromString(text);
  if (!uuid) throw dataCorrupted(at, "The text is no UUID.", path);
  out = *uuid;
}

void JSONReader::readDecimal(Decimal& out, std::uint32_t at, const CodingPathNode* path) {
  if (tokens_.tokenAt(at) != Token::number) mismatch(at, ShapeKind::decimal, path);
  tokens_.validateScalar(at);
  const auto number = Decimal::fromString(tokens_.numberAt(at));
  if (!number) refuseNumber(at, ShapeKind::decimal, path);
  out = *number;
}

void JSONReader::readEnumeration(DecodableSlot slot, std::uint32_t at, const CodingPathNode* path) {
  const EnumShape& shape = *slot.shape->enumeration;
  bool isCase = false;
  if (shape.assignText != nullptr) {
    std::string raw;
    readString(raw, at, path);
    isCase = shape.assignText(slot.address, raw);
  } else {
    Int128 raw = 0;
    readInteger(raw, at, path);
    isCase = shape.assignNumber(slot.address, raw);
  }
  if (!isCase) throw dataCorrupted(at, "The value is no case of the enumeration.", path);
}

std::uint32_t JSONReader::readDate(Date& out, std::uint32_t at, const CodingPathNode* path) {
  const auto& strategy = options_.dateDecodingStrategy;
  using Strategy = std::remove_cvref_t<decltype(strategy)>;
  const auto number = [&] {
    double value = 0;
    readFloat(value, at, path);
    return value;
  };
  const auto parsed = [&](const auto& parse) {
    std::string text;
    readString(text, at, path);
    const std::optional<Date> date = parse(text);
    if (!date) throw dataCorrupted(at, "The text is no date in the form asked for.", path);
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
      out = parsed([](const std::string& text) {
        return writableDate(ISO8601DateFormatter::shared(), text);
      });
      break;
    case Strategy::formatted:
      out = parsed([&](const std::string& text) { return strategy.formatter().date(text); });
      break;
    case Strategy::custom:
      return readByHand([&](Decoder& decoder) { out = strategy.callback()(decoder); }, at, path);
  }
  return at + 1;
}

std::uint32_t JSONReader::readData(Data& out, std::uint32_t at, const CodingPathNode* path) {
  const auto& strategy = options_.dataDecodingStrategy;
  using Strategy = std::remove_cvref_t<decltype(strategy)>;
  switch (strategy.kind()) {
    case Strategy::deferredToData:
      return read({&out.bytes(), &ShapeOf<std::vector<std::uint8_t>>::value}, at, path);
    case Strategy::custom:
      return readByHand([&](Decoder& decoder) { out = strategy.callback()(decoder); }, at, path);
    case Strategy::base64:
      break;
  }
  std::string text;
  readString(text, at, path);
  auto data = Data::fromBase64(text);
  if (!data) throw dataCorrupted(at, "The text is no base64.", path);
  out = std::move(*data);
  return at + 1;
}

std::uint32_t JSONReader::readOptional(DecodableSlot slot, std::uint32_t at,
                                       const CodingPathNode* path) {
  const OptionalShape& shape = *slot.shape->optional;
  if (tokens_.charAt(at) == 'n' && tokens_.tokenAt(at) == Token::null) {
    shape.reset(slot.address);
    return at + 1;
  }
  std::uint32_t end = at;
  shape.assign(slot.address, [&](void* wrapped) { end = read({wrapped, shape.slot}, at, path); });
  return end;
}

std::uint32_t JSONReader::readSequence(DecodableSlot slot, std::uint32_t at,
                                       const CodingPathNode* path) {
  const SequenceShape& shape = *slot.shape->sequence;
  const std::uint32_t list = at;
  const auto refuse = [&] {
    throw dataCorrupted(list, "Expected " + std::to_string(shape.fixedSize) + " elements.", path);
  };
  shape.clear(slot.address);
  std::size_t count = 0;
  const bool hasElements = beginList(at++, '[', ']', ShapeKind::sequence, path);
  if (hasElements) {
    CodingPathNode step{path};
    do {
      step.index = static_cast<std::int64_t>(count);
      if (shape.emplace != nullptr) {
        at = read({shape.emplace(slot.address), shape.slot}, at, &step);
      } else {
        const auto fill = [&, begin = at](void* element) {
          at = read({element, shape.slot}, begin, &step);
        };
        if (!shape.append(slot.address, count, fill)) refuse();
      }
      if (++count == enoughToExpect && list == 0) expectElements(slot, count, at);
    } while (nextInList(at++, ']'));
  } else {
    ++at;
  }
  if (count < shape.fixedSize) refuse();
  return at;
}

void JSONReader::expectElements(DecodableSlot slot, std::size_t count, std::uint32_t at) const {
  if (slot.shape->sequence->reserve == nullptr) return;
  const std::size_t expected = count * tokens_.count() / at;
  // A power of two, as of one that doubled. With a block that just fits, the heap of a program that
  // reads the same again and again would give its end back each time and ask for fresh pages.
  slot.shape->sequence->reserve(slot.address, std::bit_ceil(expected + expected / 16));
}

std::uint32_t JSONReader::readMap(DecodableSlot slot, std::uint32_t at,
                                  const CodingPathNode* path) {
  const MapShape& shape = *slot.shape->map;
  shape.clear(slot.address);
  if (!beginList(at++, '{', '}', ShapeKind::map, path)) return at + 1;
  CodingPathNode step{path};
  std::string scratch;
  do {
    step.key = keyAt(at, scratch);
    requireColon(at + 1);
    std::uint32_t end = at;
    const bool isKey = shape.insert(slot.address, step.key, [&](void* value) {
      end = read({value, shape.slot}, at + 2, &step);
    });
    if (!isKey) throw dataCorrupted(at, "The key is no integer of the map's keys.", &step);
    at = end;
  } while (nextInList(at++, '}'));
  return at;
}

std::uint32_t JSONReader::readFields(DecodableSlot slot, std::uint32_t at,
                                     const CodingPathNode* path) {
  const auto fields = slot.shape->fields;
  const std::uint32_t object = at;
  FieldMarks marks(fields.size());
  if (beginList(at++, '{', '}', ShapeKind::object, path)) {
    CodingPathNode step{path};
    const bool hasPlainKeys =
        options_.keyDecodingStrategy.kind() == JSONKeyStrategy::useDefaultKeys;
    std::size_t expected = 0;  // the field that comes next when the text has the order written
    do {
      std::size_t i = expected;
      if (!hasPlainKeys || i >= fields.size() || !tokens_.isQuotedName(at, fields[i].quotedName)) {
        i = fieldAt(at, fields, expected, path);
        requireColon(at + 1);
      }
      at += 2;
      if (i == fields.size()) {
        at = tokens_.skip(at, depth_);
        continue;
      }
      step.key = fields[i].name;
      at = read({fields[i].address(slot.address), fields[i].shape}, at, &step);
      marks.set(i);
      expected = i + 1;
    } while (nextInList(at++, '}'));
  } else {
    ++at;
  }
  if (marks.hasAll()) return at;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (marks.has(i)) continue;
    const TypeShape& shape = *fields[i].shape;
    if (shape.kind != ShapeKind::optional) missing(fields[i], object, path);
    shape.optional->reset(fields[i].address(slot.address));
  }
  return at;
}

std::uint32_t JSONReader::readByHand(FunctionRef<void(Decoder&)> decode, std::uint32_t at,
                                     const CodingPathNode* path) {
  findEnds();
  JSONDecodingRun run{*this, {}};
  JSONValueDecoder decoder(run, at, path);
  decode(decoder);
  return tokens_.endOf(at);
}

}  // namespace tessarine::internal
