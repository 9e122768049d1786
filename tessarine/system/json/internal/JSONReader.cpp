#include "tessarine/system/json/internal/JSONReader.hpp"

#include <algorithm>
#include <array>
#include <concepts>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

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

template <class T>
T& as(DecodableSlot slot) noexcept {
  return *static_cast<T*>(slot.address);
}

/// Which of a type's fields have been read.
class FieldMarks {
 public:
  explicit FieldMarks(std::size_t count)
      : missing_(count), more_(count > inWord ? count - inWord : 0) {}
  void set(std::size_t i) {
    if (has(i)) return;
    --missing_;
    if (i < inWord) {
      first_ |= std::uint64_t{1} << i;
    } else {
      more_[i - inWord] = true;
    }
  }
  bool has(std::size_t i) const { return i < inWord ? (first_ >> i & 1U) != 0 : more_[i - inWord]; }
  bool hasAll() const noexcept { return missing_ == 0; }

 private:
  static constexpr std::size_t inWord = 64;

  std::size_t missing_;
  std::uint64_t first_ = 0;
  std::vector<bool> more_;
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

void JSONReader::refuseNumber(ShapeKind kind, const CodingPathNode* path) const {
  tokens_.requireDocument();
  constexpr std::size_t longestShown = 40;
  const std::string number(tokens_.numberAt(at_).substr(0, longestShown));
  throw dataCorrupted(at_, "The number " + number + " does not fit in " + std::string(nameOf(kind)),
                      path);
}

void JSONReader::missing(const FieldShape& field, std::uint32_t position,
                         const CodingPathNode* path) const {
  tokens_.requireDocument();
  throw DecodingError::keyNotFound(
      AnyCodingKey(field.name),
      {codingPath(path), "No value for the key \"" + std::string(field.name) + "\"", nullptr,
       tokens_.offsetOf(position)});
}

// ---- lists ----

bool JSONReader::beginList(char open, char close, ShapeKind expected, const CodingPathNode* path) {
  if (tokens_.charAt(at_) != open) mismatch(at_, expected, path);
  if (depth_ == deepestJSON)
    tokens_.invalid(tokens_.offsetOf(at_), "nested deeper than 512 levels");
  ++at_;
  if (tokens_.charAt(at_) == close) {
    ++at_;
    return false;
  }
  ++depth_;
  return true;
}

bool JSONReader::nextInList(char close) {
  const char c = tokens_.charAt(at_);
  if (c != ',' && c != close) tokens_.unexpected(at_);
  ++at_;
  if (c == ',') return true;
  --depth_;
  return false;
}

void JSONReader::takeColon() {
  if (tokens_.charAt(++at_) != ':') tokens_.unexpected(at_);
  ++at_;
}

std::string_view JSONReader::takeKey(std::string& scratch) {
  if (tokens_.charAt(at_) != '"') tokens_.unexpected(at_);
  const std::string_view key = tokens_.stringAt(at_, scratch);
  takeColon();
  return key;
}

std::size_t JSONReader::takeField(std::span<const FieldShape> fields, std::size_t expected,
                                  const CodingPathNode* path) {
  if (options_.keyDecodingStrategy.kind() == JSONKeyStrategy::useDefaultKeys) {
    std::size_t i = expected;
    for (std::size_t left = fields.size(); left > 0; --left, ++i) {
      if (i >= fields.size()) i = 0;
      if (fields[i].isPlainName && tokens_.isPlainString(at_, fields[i].name)) {
        takeColon();
        return i;
      }
    }
  }
  return takeOtherField(fields, path);
}

std::size_t JSONReader::takeOtherField(std::span<const FieldShape> fields,
                                       const CodingPathNode* path) {
  std::string scratch;
  const std::string key = readJSONKey(options_.keyDecodingStrategy, takeKey(scratch), path);
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [&](const FieldShape& field) { return field.name == key; });
  return static_cast<std::size_t>(found - fields.begin());
}

// ---- values ----

void JSONReader::readDocument(DecodableSlot slot) {
  read(slot, nullptr);
  if (at_ != tokens_.count()) tokens_.unexpected(at_);
}

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

void JSONReader::read(DecodableSlot slot, const CodingPathNode* path) {
  const TypeShape& shape = *slot.shape;
  if (shape.decode != nullptr) {
    return readByHand([&](Decoder& decoder) { shape.decode(slot.address, decoder); }, path);
  }
  const bool isInteger =
      withIntegerType(shape.kind, [&]<class Integer>() { readInteger(as<Integer>(slot), path); });
  if (isInteger) return;
  switch (shape.kind) {
    case ShapeKind::text:
      return readString(as<std::string>(slot), path);
    case ShapeKind::float64:
      return readFloat(as<double>(slot), path);
    case ShapeKind::boolean:
      return readBoolean(as<bool>(slot), path);
    case ShapeKind::optional:
      return readOptional(slot, path);
    case ShapeKind::sequence:
      return readSequence(slot, path);
    case ShapeKind::map:
      return readMap(slot, path);
    case ShapeKind::object:
      return readFields(slot, path);
    case ShapeKind::float32:
      return readFloat(as<float>(slot), path);
    case ShapeKind::date:
      return readDate(as<Date>(slot), path);
    case ShapeKind::data:
      return readData(as<Data>(slot), path);
    case ShapeKind::uuid:
      return readUUID(as<UUID>(slot), path);
    case ShapeKind::decimal:
      return readDecimal(as<Decimal>(slot), path);
    case ShapeKind::enumeration:
      return readEnumeration(slot, path);
    default:
      throw dataCorrupted(at_, "The type has no decode.", path);
  }
}

void JSONReader::readOptional(DecodableSlot slot, const CodingPathNode* path) {
  const OptionalShape& shape = *slot.shape->optional;
  if (tokens_.charAt(at_) == 'n' && tokens_.tokenAt(at_) == Token::null) {
    ++at_;
    return shape.reset(slot.address);
  }
  shape.assign(slot.address, [&](void* wrapped) { read({wrapped, shape.slot}, path); });
}

void JSONReader::readBoolean(bool& out, const CodingPathNode* path) {
  if (tokens_.tokenAt(at_) != Token::boolean) mismatch(at_, ShapeKind::boolean, path);
  out = tokens_.booleanAt(at_++);
}

template <class Integer>
void JSONReader::readInteger(Integer& out, const CodingPathNode* path) {
  constexpr ShapeKind kind = detail::integerKind<Integer>();
  const char c = tokens_.charAt(at_);
  if (c != '-' && !isDigit(c)) mismatch(at_, kind, path);
  const auto number = shortJSONInteger(tokens_.rest(at_));
  if (!number) return readWideInteger(out, path);
  out = static_cast<Integer>(*number);
  constexpr bool isSigned = Integer(-1) < Integer(0);
  const bool fits = static_cast<std::int64_t>(out) == *number && (isSigned || *number >= 0);
  if (!fits) refuseNumber(kind, path);
  ++at_;
}

template <class Integer>
void JSONReader::readWideInteger(Integer& out, const CodingPathNode* path) {
  constexpr ShapeKind kind = detail::integerKind<Integer>();
  if (tokens_.tokenAt(at_) != Token::number) mismatch(at_, kind, path);
  tokens_.validateScalar(at_);
  const auto take = [&](const auto& value) {
    if (!value) return false;
    out = static_cast<Integer>(*value);
    return static_cast<std::remove_cvref_t<decltype(*value)>>(out) == *value;
  };
  const std::string_view number = tokens_.numberAt(at_);
  const bool fits = Integer(-1) < Integer(0) ? take(integerOfJSONNumber(number))
                                             : take(unsignedOfJSONNumber(number));
  if (!fits) refuseNumber(kind, path);
  ++at_;
}

template <class Float>
void JSONReader::readFloat(Float& out, const CodingPathNode* path) {
  constexpr bool isDouble = std::same_as<Float, double>;
  constexpr ShapeKind kind = isDouble ? ShapeKind::float64 : ShapeKind::float32;
  const char c = tokens_.charAt(at_);
  if (c != '-' && !isDigit(c)) {
    if (c != '"' || !readFloatText(out)) mismatch(at_, kind, path);
    return;
  }
  std::optional<Float> value;
  if constexpr (isDouble) value = shortJSONDouble(tokens_.rest(at_));
  if (!value) {
    tokens_.validateScalar(at_);
    value = floatOfJSONNumber<Float>(tokens_.numberAt(at_));
  }
  if (!value) refuseNumber(kind, path);
  out = *value;
  ++at_;
}

template <class Float>
bool JSONReader::readFloatText(Float& out) {
  const auto& strategy = options_.nonConformingFloatDecodingStrategy;
  if (!strategy.isText()) return false;
  const std::string text = tokens_.stringAt(at_);
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
  if (tokens_.charAt(at_) != '"') mismatch(at_, ShapeKind::text, path);
  tokens_.assignStringAt(at_, out);
  ++at_;
}

void JSONReader::readDate(Date& out, const CodingPathNode* path) {
  const auto& strategy = options_.dateDecodingStrategy;
  using Strategy = std::remove_cvref_t<decltype(strategy)>;
  const auto number = [&] {
    double value = 0;
    readFloat(value, path);
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

void JSONReader::readDecimal(Decimal& out, const CodingPathNode* path) {
  if (tokens_.tokenAt(at_) != Token::number) mismatch(at_, ShapeKind::decimal, path);
  tokens_.validateScalar(at_);
  const auto number = Decimal::fromString(tokens_.numberAt(at_));
  if (!number) refuseNumber(ShapeKind::decimal, path);
  out = *number;
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
    readInteger(raw, path);
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

void JSONReader::readFields(DecodableSlot slot, const CodingPathNode* path) {
  const auto fields = slot.shape->fields;
  const std::uint32_t position = at_;
  FieldMarks marks(fields.size());
  CodingPathNode step{path};
  std::size_t expected = 0;  // the field that comes next when the text has the order written
  if (beginList('{', '}', ShapeKind::object, path)) {
    do {
      const std::size_t i = takeField(fields, expected, path);
      if (i == fields.size()) {
        at_ = tokens_.skip(at_, depth_);
        continue;
      }
      step.key = fields[i].name;
      read({fields[i].address(slot.address), fields[i].shape}, &step);
      marks.set(i);
      expected = i + 1;
    } while (nextInList('}'));
  }
  if (marks.hasAll()) return;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (marks.has(i)) continue;
    const TypeShape& shape = *fields[i].shape;
    if (shape.kind != ShapeKind::optional) missing(fields[i], position, path);
    shape.optional->reset(fields[i].address(slot.address));
  }
}

void JSONReader::readByHand(FunctionRef<void(Decoder&)> decode, const CodingPathNode* path) {
  findEnds();
  const std::uint32_t end = tokens_.endOf(at_);
  JSONDecodingRun run{*this, {}};
  JSONValueDecoder decoder(run, at_, path);
  decode(decoder);
  at_ = end;
}

}  // namespace tessarine::internal
