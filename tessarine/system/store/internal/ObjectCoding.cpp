#include "tessarine/system/store/internal/ObjectCoding.hpp"

#include <bit>
#include <cstring>

namespace tessarine::detail {
namespace {

static_assert(std::endian::native == std::endian::little, "the stored form is copied as it is");

enum class Tag : char {
  falseValue,
  trueValue,
  signedInteger,
  unsignedInteger,
  float64,
  float32,
  string,
  date,
  data,
  array,
  dictionary,
};

template <class T>
void appendRaw(std::string& bytes, T value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void appendTag(std::string& bytes, Tag tag) { bytes.push_back(static_cast<char>(tag)); }

void appendSized(std::string& bytes, std::string_view contents) {
  appendRaw(bytes, static_cast<std::uint32_t>(contents.size()));
  bytes.append(contents);
}

void encodeNumber(const NSNumber& number, std::string& bytes) {
  switch (number.kind()) {
    case NSNumber::Kind::boolean:
      appendTag(bytes, number.boolValue() ? Tag::trueValue : Tag::falseValue);
      break;
    case NSNumber::Kind::signedInteger:
      appendTag(bytes, Tag::signedInteger);
      appendRaw(bytes, number.integerValue());
      break;
    case NSNumber::Kind::unsignedInteger:
      appendTag(bytes, Tag::unsignedInteger);
      appendRaw(bytes, number.unsignedIntegerValue());
      break;
    case NSNumber::Kind::float64:
      appendTag(bytes, Tag::float64);
      appendRaw(bytes, number.doubleValue());
      break;
    case NSNumber::Kind::float32:
      appendTag(bytes, Tag::float32);
      appendRaw(bytes, number.floatValue());
      break;
  }
}

bool encode(const PreferenceObject& object, std::string& bytes, int depth);

bool encodeArray(const PreferenceObject::Array& array, std::string& bytes, int depth) {
  appendTag(bytes, Tag::array);
  appendRaw(bytes, static_cast<std::uint32_t>(array.size()));
  for (const auto& element : array) {
    if (!encode(element, bytes, depth)) return false;
  }
  return true;
}

bool encodeDictionary(const PreferenceObject::Dictionary& dictionary, std::string& bytes,
                      int depth) {
  appendTag(bytes, Tag::dictionary);
  appendRaw(bytes, static_cast<std::uint32_t>(dictionary.size()));
  for (const auto& [key, element] : dictionary) {
    appendSized(bytes, key);
    if (!encode(element, bytes, depth)) return false;
  }
  return true;
}

bool encode(const PreferenceObject& object, std::string& bytes, int depth) {
  switch (object.kind()) {
    case PreferenceObject::Kind::number:
      encodeNumber(*object.number(), bytes);
      return true;
    case PreferenceObject::Kind::string:
      appendTag(bytes, Tag::string);
      appendSized(bytes, *object.string());
      return true;
    case PreferenceObject::Kind::date:
      appendTag(bytes, Tag::date);
      appendRaw(bytes, object.date()->timeIntervalSinceReferenceDate());
      return true;
    case PreferenceObject::Kind::data:
      appendTag(bytes, Tag::data);
      appendSized(bytes, object.data()->text());
      return true;
    case PreferenceObject::Kind::array:
      return depth > 0 && encodeArray(*object.array(), bytes, depth - 1);
    case PreferenceObject::Kind::dictionary:
      return depth > 0 && encodeDictionary(*object.dictionary(), bytes, depth - 1);
  }
  return false;
}

/// Takes values from the front of `rest`. After a failure everything that follows fails too.
class Decoder {
 public:
  explicit Decoder(std::string_view bytes) : rest_(bytes) {}
  bool atEnd() const { return rest_.empty(); }

  std::optional<PreferenceObject> object(int depth) {
    const auto tag = raw<Tag>();
    if (!tag) return std::nullopt;
    switch (*tag) {
      case Tag::falseValue:
        return NSNumber(false);
      case Tag::trueValue:
        return NSNumber(true);
      case Tag::signedInteger:
        return number<std::int64_t>();
      case Tag::unsignedInteger:
        return number<std::uint64_t>();
      case Tag::float64:
        return number<double>();
      case Tag::float32:
        return number<float>();
      case Tag::date:
        return date();
      case Tag::string:
        if (const auto text = sized()) return PreferenceObject(*text);
        return std::nullopt;
      case Tag::data:
        if (const auto text = sized()) return PreferenceObject(Data::fromText(*text));
        return std::nullopt;
      case Tag::array:
        return depth > 0 ? array(depth - 1) : std::nullopt;
      case Tag::dictionary:
        return depth > 0 ? dictionary(depth - 1) : std::nullopt;
    }
    return std::nullopt;
  }

 private:
  template <class T>
  std::optional<T> raw() {
    if (rest_.size() < sizeof(T)) return std::nullopt;
    T value;
    std::memcpy(&value, rest_.data(), sizeof(T));
    rest_.remove_prefix(sizeof(T));
    return value;
  }

  std::optional<std::string_view> sized() {
    const auto size = raw<std::uint32_t>();
    if (!size || *size > rest_.size()) return std::nullopt;
    const auto contents = rest_.substr(0, *size);
    rest_.remove_prefix(*size);
    return contents;
  }

  template <class T>
  std::optional<PreferenceObject> number() {
    const auto value = raw<T>();
    return value ? std::optional<PreferenceObject>(NSNumber(*value)) : std::nullopt;
  }

  std::optional<PreferenceObject> date() {
    const auto value = raw<double>();
    return value ? std::optional<PreferenceObject>(Date(*value)) : std::nullopt;
  }

  std::optional<PreferenceObject> array(int depth) {
    const auto count = raw<std::uint32_t>();
    if (!count || *count > rest_.size()) return std::nullopt;  // an element takes a byte at least
    PreferenceObject::Array elements;
    for (std::uint32_t i = 0; i < *count; ++i) {
      auto element = object(depth);
      if (!element) return std::nullopt;
      elements.push_back(std::move(*element));
    }
    return PreferenceObject(std::move(elements));
  }

  std::optional<PreferenceObject> dictionary(int depth) {
    const auto count = raw<std::uint32_t>();
    if (!count) return std::nullopt;
    PreferenceObject::Dictionary elements;
    for (std::uint32_t i = 0; i < *count; ++i) {
      const auto key = sized();
      if (!key) return std::nullopt;
      auto element = object(depth);
      if (!element) return std::nullopt;
      elements.emplace_hint(elements.end(), *key, std::move(*element));
    }
    return PreferenceObject(std::move(elements));
  }

  std::string_view rest_;
};

}  // namespace

bool encodeObject(const PreferenceObject& object, std::string& bytes) {
  return encode(object, bytes, deepestObject);
}

std::optional<PreferenceObject> decodeObject(std::string_view bytes) {
  Decoder decoder(bytes);
  auto object = decoder.object(deepestObject);
  if (!decoder.atEnd()) return std::nullopt;
  return object;
}

}  // namespace tessarine::detail
