#include "tessarine/codable/CodableAnyHashable.hpp"

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>

#include "tessarine/coding/internal/writableDate.hpp"
#include "tessarine/system/time/ISO8601DateFormatter.hpp"

namespace tessarine {
namespace {

constexpr const char* unsupported = "Unsupported type";

[[noreturn]] void refuse(const AnyHashable& value, const SingleValueEncodingContainer& container) {
  throw EncodingError::invalidValue(value, {container.codingPath(), unsupported});
}

void encodeNumber(const NSNumber& number, SingleValueEncodingContainer& container) {
  switch (number.kind()) {
    case NSNumber::Kind::boolean:
      return container.encode(number.boolValue());
    case NSNumber::Kind::signedInteger:
      return container.encode(number.integerValue());
    case NSNumber::Kind::unsignedInteger:
      return container.encode(number.unsignedIntegerValue());
    case NSNumber::Kind::float32:
    case NSNumber::Kind::float64:
      return container.encode(number.doubleValue());
  }
}

void encodeDate(Date date, const AnyHashable& value, SingleValueEncodingContainer& container) {
  const std::string text = ISO8601DateFormatter::shared().string(date);
  if (text.empty()) refuse(value, container);  // no text stands for it
  container.encode(text);
}

AnyHashable classified(std::string text) {
  if (const auto uuid = UUID::fromString(text)) return AnyHashable(*uuid);
  if (const auto date = internal::writableDate(ISO8601DateFormatter::shared(), text)) return *date;
  if (auto data = Data::fromBase64(text)) return PreferenceObject(std::move(*data));
  return PreferenceObject(std::move(text));
}

AnyHashable::Array values(const std::vector<CodableAnyHashable>& elements) {
  AnyHashable::Array array;
  array.reserve(elements.size());
  for (const CodableAnyHashable& element : elements) array.push_back(element.value());
  return array;
}

AnyHashable::Dictionary values(const std::map<std::string, CodableAnyHashable>& pairs) {
  AnyHashable::Dictionary dictionary;
  for (const auto& [key, element] : pairs) dictionary.emplace(key, element.value());
  return dictionary;
}

/// The value as an `AnyHashable` when it is of one of these types.
template <class... Types>
std::optional<AnyHashable> fromOneOf(const std::any& value) {
  std::optional<AnyHashable> found;
  const auto take = [&]<class T>(const T* typed) {
    if (typed == nullptr) return;
    if constexpr (std::same_as<T, std::int8_t>) {
      found.emplace(static_cast<int>(*typed));  // a number, and not a character
    } else {
      found.emplace(*typed);
    }
  };
  (take(std::any_cast<Types>(&value)), ...);
  return found;
}

/// The value as an `AnyHashable`, absent when it cannot be one.
std::optional<AnyHashable> hashable(const std::any& value) {
  if (const auto* list = std::any_cast<std::vector<std::any>>(&value)) {
    return anyHashableArray(*list);
  }
  if (const auto* pairs = std::any_cast<std::map<std::string, std::any>>(&value)) {
    return anyHashableDictionary(*pairs);
  }
  return fromOneOf<AnyHashable, PreferenceObject, bool, std::int8_t, std::int16_t, std::int32_t,
                   std::int64_t, std::uint8_t, std::uint16_t, std::uint32_t, std::uint64_t,
                   long long, unsigned long long, float, double, std::string, const char*, Date,
                   Data, UUID>(value);
}

}  // namespace

void CodableAnyHashable::encode(Encoder& encoder) const {
  auto container = encoder.singleValueContainer();
  if (const auto uuid = value_.cast<UUID>()) return container.encode(uuid->uuidString());
  if (const auto elements = value_.cast<AnyHashable::Array>()) {
    return container.encode(std::vector<CodableAnyHashable>(elements->begin(), elements->end()));
  }
  if (const auto pairs = value_.cast<AnyHashable::Dictionary>()) {
    std::map<std::string, CodableAnyHashable> wrapped;
    for (const auto& [key, element] : *pairs) wrapped.emplace(key, element);
    return container.encode(wrapped);
  }
  const PreferenceObject* const object = value_.preferenceObject();
  if (object == nullptr) refuse(value_, container);
  switch (object->kind()) {
    case PreferenceObject::Kind::string:
      return container.encode(*object->string());
    case PreferenceObject::Kind::number:
      return encodeNumber(*object->number(), container);
    case PreferenceObject::Kind::data:
      return container.encode(object->data()->base64EncodedString());
    case PreferenceObject::Kind::date:
      return encodeDate(*object->date(), value_, container);
    default:
      refuse(value_, container);
  }
}

CodableAnyHashable CodableAnyHashable::decode(Decoder& decoder) {
  auto container = decoder.singleValueContainer();
  if (auto text = container.tryDecode<std::string>()) {
    return CodableAnyHashable(classified(std::move(*text)));
  }
  if (const auto boolean = container.tryDecode<bool>()) return CodableAnyHashable(*boolean);
  if (const auto integer = container.tryDecode<std::int64_t>()) return CodableAnyHashable(*integer);
  if (const auto integer = container.tryDecode<std::uint64_t>())
    return CodableAnyHashable(*integer);
  if (const auto number = container.tryDecode<double>()) return CodableAnyHashable(*number);
  if (const auto uuid = container.tryDecode<UUID>()) return CodableAnyHashable(AnyHashable(*uuid));
  if (const auto elements = container.tryDecode<std::vector<CodableAnyHashable>>()) {
    return CodableAnyHashable(values(*elements));
  }
  if (const auto pairs = container.tryDecode<std::map<std::string, CodableAnyHashable>>()) {
    return CodableAnyHashable(values(*pairs));
  }
  throw container.dataCorrupted(unsupported);
}

AnyHashable anyHashableArray(const std::vector<std::any>& elements) {
  AnyHashable::Array kept;
  kept.reserve(elements.size());
  for (const std::any& element : elements) {
    if (auto value = hashable(element)) kept.push_back(std::move(*value));
  }
  return kept;
}

AnyHashable anyHashableDictionary(const std::map<std::string, std::any>& pairs) {
  AnyHashable::Dictionary kept;
  for (const auto& [key, element] : pairs) {
    if (auto value = hashable(element)) kept.emplace(key, std::move(*value));
  }
  return kept;
}

}  // namespace tessarine
