#include "tessarine/coding/Decoder.hpp"

#include <array>
#include <cstdint>
#include <string>

namespace tessarine {
namespace {

void decodeEnumeration(DecodableSlot slot, Decoder& decoder) {
  auto container = decoder.singleValueContainer();
  const EnumShape& shape = *slot.shape->enumeration;
  const bool isCase = shape.assignText != nullptr
                          ? shape.assignText(slot.address, container.decode<std::string>())
                          : shape.assignNumber(slot.address, container.decode<Int128>());
  if (!isCase) throw container.dataCorrupted("The value is no case of the enumeration.");
}

void decodeSequence(DecodableSlot slot, Decoder& decoder) {
  auto container = decoder.unkeyedContainer();
  const SequenceShape& shape = *slot.shape->sequence;
  shape.clear(slot.address);
  std::size_t index = 0;
  const auto fail = [&] {
    throw DecodingError(
        DecodingError::Case::dataCorrupted,
        {container.codingPath(), "Expected " + std::to_string(shape.fixedSize) + " elements."});
  };
  for (; !container.isAtEnd(); ++index) {
    const bool hasRoom = shape.append(slot.address, index, [&](void* element) {
      container.decode(DecodableSlot{element, shape.slot});
    });
    if (!hasRoom) fail();
  }
  if (index < shape.fixedSize) fail();
}

void decodeMap(DecodableSlot slot, Decoder& decoder) {
  auto container = decoder.container();
  const MapShape& shape = *slot.shape->map;
  shape.clear(slot.address);
  for (const AnyCodingKey& key : container.allKeys()) {
    const bool isKey = shape.insert(slot.address, key.stringValue(), [&](void* value) {
      container.decode(DecodableSlot{value, shape.slot}, key);
    });
    if (!isKey) {
      throw DecodingError(DecodingError::Case::typeMismatch,
                          {container.codingPath(), "The key \"" + key.stringValue() +
                                                       "\" is no integer of the map's keys."});
    }
  }
}

void decodeFields(DecodableSlot slot, Decoder& decoder) {
  auto container = decoder.container();
  for (const FieldShape& field : slot.shape->fields) {
    void* const member = field.address(slot.address);
    if (field.shape->kind == ShapeKind::optional && field.shape->decode == nullptr) {
      if (!container.contains(field.name) || container.decodeNil(field.name)) {
        field.shape->optional->reset(member);
        continue;
      }
    }
    container.decode(DecodableSlot{member, field.shape}, field.name);
  }
}

Data dataFrom(Decoder& decoder) { return Data(decode<std::vector<std::uint8_t>>(decoder)); }

UUID uuidFrom(Decoder& decoder) {
  auto container = decoder.singleValueContainer();
  const auto uuid = UUID::fromString(container.decode<std::string>());
  if (!uuid) throw container.dataCorrupted("The text is no UUID.");
  return *uuid;
}

}  // namespace

void decode(DecodableSlot slot, Decoder& decoder) {
  const TypeShape& shape = *slot.shape;
  if (shape.decode != nullptr) return shape.decode(slot.address, decoder);
  switch (shape.kind) {
    case ShapeKind::date:
      *static_cast<Date*>(slot.address) = Date(decoder.singleValueContainer().decode<double>());
      return;
    case ShapeKind::data:
      *static_cast<Data*>(slot.address) = dataFrom(decoder);
      return;
    case ShapeKind::uuid:
      *static_cast<UUID*>(slot.address) = uuidFrom(decoder);
      return;
    case ShapeKind::enumeration:
      return decodeEnumeration(slot, decoder);
    case ShapeKind::optional: {
      auto container = decoder.singleValueContainer();
      if (container.decodeNil()) return shape.optional->reset(slot.address);
      // Through the container, so that the decoder's strategies apply to what is wrapped.
      return shape.optional->assign(slot.address, [&](void* wrapped) {
        container.decode(DecodableSlot{wrapped, shape.optional->slot});
      });
    }
    case ShapeKind::sequence:
      return decodeSequence(slot, decoder);
    case ShapeKind::map:
      return decodeMap(slot, decoder);
    case ShapeKind::object:
      return decodeFields(slot, decoder);
    case ShapeKind::custom:
    case ShapeKind::textView:
      throw DecodingError(DecodingError::Case::typeMismatch,
                          {decoder.codingPath(), "The type has no decode."});
    default:
      return decoder.singleValueContainer().decode(slot);
  }
}

bool SingleValueDecodingContainer::Backend::tryDecode(DecodableSlot slot) {
  try {
    decode(slot);
    return true;
  } catch (const DecodingError&) {
    return false;
  }
}

std::string_view nameOf(ShapeKind kind) noexcept {
  static constexpr std::array<std::string_view, 24> names{
      "boolean", "int8",   "int16",   "int32",       "int64",    "int128", "uint8",      "uint16",
      "uint32",  "uint64", "uint128", "float32",     "float64",  "text",   "text",       "date",
      "data",    "uuid",   "decimal", "enumeration", "optional", "array",  "dictionary", "object"};
  const auto index = static_cast<std::size_t>(kind);
  return index < names.size() ? names[index] : "value";
}

}  // namespace tessarine
