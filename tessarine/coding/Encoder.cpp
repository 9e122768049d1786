#include "tessarine/coding/Encoder.hpp"

#include "tessarine/values/fatal.hpp"

namespace tessarine {
namespace {

void encodeEnumeration(EncodableValue value, Encoder& encoder) {
  auto container = encoder.singleValueContainer();
  const EnumShape& shape = *value.shape->enumeration;
  if (shape.text != nullptr) {
    if (const auto raw = shape.text(value.address)) return container.encode(*raw);
  } else if (const auto raw = shape.number(value.address)) {
    return container.encode(*raw);
  }
  throw EncodingError::invalidValue(
      value.copy(), {encoder.codingPath(), "The value is no case of its enumeration."});
}

void encodeFields(EncodableValue object, Encoder& encoder) {
  auto container = encoder.container();
  for (const FieldShape& field : object.shape->fields) {
    const EncodableValue value = field.valueIn(object.address);
    if (value.address == nullptr) continue;
    container.encode(value, field.name);
  }
}

}  // namespace

void encode(EncodableValue value, Encoder& encoder) {
  const TypeShape& shape = *value.shape;
  if (shape.encode != nullptr) return shape.encode(value.address, encoder);
  switch (shape.kind) {
    case ShapeKind::date:
      return encoder.singleValueContainer().encode(
          static_cast<const Date*>(value.address)->timeIntervalSinceReferenceDate());
    case ShapeKind::data:
      return encode(static_cast<const Data*>(value.address)->bytes(), encoder);
    case ShapeKind::uuid:
      return encoder.singleValueContainer().encode(
          static_cast<const UUID*>(value.address)->uuidString());
    case ShapeKind::enumeration:
      return encodeEnumeration(value, encoder);
    case ShapeKind::optional: {
      const void* wrapped = shape.optional->get(value.address);
      auto container = encoder.singleValueContainer();
      if (wrapped == nullptr) return container.encodeNil();
      // Through the container, so that the encoder's strategies apply to what is wrapped.
      return container.encode(EncodableValue{wrapped, shape.optional->wrapped});
    }
    case ShapeKind::sequence: {
      auto container = encoder.unkeyedContainer();
      return shape.sequence->forEach(value.address, [&](const void* element) {
        container.encode(EncodableValue{element, shape.sequence->element});
      });
    }
    case ShapeKind::map: {
      auto container = encoder.container();
      return shape.map->forEach(value.address, [&](std::string_view key, const void* element) {
        container.encode(EncodableValue{element, shape.map->value}, key);
      });
    }
    case ShapeKind::object:
      return encodeFields(value, encoder);
    case ShapeKind::custom:
      throw EncodingError::invalidValue(value.copy(),
                                        {encoder.codingPath(), "The type has no encode."});
    default:
      return encoder.singleValueContainer().encode(value);
  }
}

}  // namespace tessarine
