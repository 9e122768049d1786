#include "tessarine/system/json/JSONSerialization.hpp"

#include <cstdint>
#include <string>
#include <utility>

#include "tessarine/system/json/internal/JSONReader.hpp"
#include "tessarine/values/NSNull.hpp"

namespace tessarine::JSONSerialization {
namespace {

using internal::JSONReader;
using internal::JSONTokens;

const JSONDecoderOptions& plainOptions() {
  static const JSONDecoderOptions options;
  return options;
}

AnyHashable numberAt(JSONReader& reader, std::uint32_t position) {
  const auto read = [&]<class Number>(Number number) {
    reader.readAt(position, {&number, &ShapeOf<Number>::value}, nullptr);
    return AnyHashable(NSNumber(number));
  };
  if (reader.tokens().numberAt(position).find_first_of(".eE") != std::string_view::npos)
    return read(0.0);
  return reader.mayRead(position, ShapeKind::int64) ? read(std::int64_t{0})
                                                    : read(std::uint64_t{0});
}

AnyHashable valueAt(JSONReader& reader, std::uint32_t position);

AnyHashable arrayAt(JSONReader& reader, std::uint32_t position) {
  AnyHashable::Array elements;
  const std::uint32_t end = reader.tokens().endOf(position) - 1;
  for (std::uint32_t at = position + 1; at < end; at = reader.tokens().endOf(at) + 1) {
    elements.push_back(valueAt(reader, at));
  }
  return elements;
}

AnyHashable dictionaryAt(JSONReader& reader, std::uint32_t position) {
  AnyHashable::Dictionary pairs;
  const std::uint32_t end = reader.tokens().endOf(position) - 1;
  for (std::uint32_t at = position + 1; at < end; at = reader.tokens().endOf(at + 2) + 1) {
    pairs.insert_or_assign(reader.tokens().stringAt(at), valueAt(reader, at + 2));
  }
  return pairs;
}

AnyHashable valueAt(JSONReader& reader, std::uint32_t position) {
  switch (reader.tokens().tokenAt(position)) {
    case JSONTokens::Token::object:
      return dictionaryAt(reader, position);
    case JSONTokens::Token::array:
      return arrayAt(reader, position);
    case JSONTokens::Token::text:
      return PreferenceObject(reader.tokens().stringAt(position));
    case JSONTokens::Token::boolean:
      return NSNumber(reader.tokens().booleanAt(position));
    case JSONTokens::Token::number:
      return numberAt(reader, position);
    default:
      return AnyHashable(NSNull());
  }
}

/// Encodes untyped values.
struct Untyped {
  const AnyHashable& value;

  void encode(Encoder& encoder) const {
    if (const auto elements = value.cast<AnyHashable::Array>()) {
      auto container = encoder.unkeyedContainer();
      for (const AnyHashable& element : *elements) container.encode(Untyped{element});
    } else if (const auto pairs = value.cast<AnyHashable::Dictionary>()) {
      auto container = encoder.container();
      for (const auto& [key, element] : *pairs) container.encode(Untyped{element}, key);
    } else {
      encodeScalar(encoder);
    }
  }

  void encodeScalar(Encoder& encoder) const {
    auto container = encoder.singleValueContainer();
    if (value == AnyHashable(NSNull())) return container.encodeNil();
    const PreferenceObject* object = value.preferenceObject();
    if (object != nullptr && object->string() != nullptr)
      return container.encode(*object->string());
    const NSNumber* number = object == nullptr ? nullptr : object->number();
    if (number == nullptr) {
      throw EncodingError::invalidValue(value,
                                        {encoder.codingPath(), "The value is none of JSON's."});
    }
    switch (number->kind()) {
      case NSNumber::Kind::boolean:
        return container.encode(number->boolValue());
      case NSNumber::Kind::signedInteger:
        return container.encode(number->integerValue());
      case NSNumber::Kind::unsignedInteger:
        return container.encode(number->unsignedIntegerValue());
      case NSNumber::Kind::float64:
        return container.encode(number->doubleValue());
      case NSNumber::Kind::float32:
        return container.encode(number->floatValue());
    }
  }
};

}  // namespace

AnyHashable jsonObject(const Data& data, ReadingOptions options) {
  JSONReader reader(data.text(), plainOptions());
  reader.findEnds();
  const bool isFragment = reader.tokens().charAt(0) != '{' && reader.tokens().charAt(0) != '[';
  if (isFragment && !options.fragmentsAllowed) {
    throw reader.dataCorrupted(0, "The document is neither an array nor an object.", nullptr);
  }
  return valueAt(reader, 0);
}

bool isValidJSONObject(const AnyHashable& object) {
  try {
    (void)data(object);
    return true;
  } catch (const EncodingError&) {
    return false;
  }
}

Data data(const AnyHashable& object, JSONOutputFormatting options) {
  return JSONEncoder(JSONEncoderOptions{.outputFormatting = options}).encode(Untyped{object});
}

void validate(const Data& data) { JSONReader(data.text(), plainOptions()).findEnds(); }

}  // namespace tessarine::JSONSerialization
