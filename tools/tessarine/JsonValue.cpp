#include "JsonValue.hpp"

#include <type_traits>
#include <unordered_map>

#include "JsonError.hpp"

#include <simdjson.h>

namespace tessarine::tool {

namespace dom = simdjson::dom;

struct JsonValueReader {
  static JsonValue read(const dom::element& element) {
    JsonValue json;
    auto& value = json.value_;
    switch (element.type()) {
      case dom::element_type::BOOL:
        value = bool(element);
        break;
      case dom::element_type::INT64:
        value = std::int64_t(element);
        break;
      case dom::element_type::UINT64:
        value = std::uint64_t(element);
        break;
      case dom::element_type::DOUBLE:
        value = double(element);
        break;
      case dom::element_type::STRING:
        value = std::string(std::string_view(element));
        break;
      case dom::element_type::ARRAY:
        value = elements(dom::array(element));
        break;
      case dom::element_type::OBJECT:
        value = members(dom::object(element));
        break;
      case dom::element_type::NULL_VALUE:
        break;
    }
    return json;
  }

 private:
  static JsonValue::Array elements(const dom::array& array) {
    JsonValue::Array elements;
    elements.reserve(array.size());
    for (const dom::element element : array) elements.push_back(read(element));
    return elements;
  }
  static JsonValue::Object members(const dom::object& object) {
    JsonValue::Object members;
    members.reserve(object.size());
    std::unordered_map<std::string_view, std::size_t> places;
    for (const auto& [key, value] : object) {
      const auto [place, isNew] = places.emplace(key, members.size());
      if (isNew) {
        members.emplace_back(key, read(value));
      } else {
        members[place->second].second = read(value);
      }
    }
    return members;
  }
};

JsonValue JsonValue::fromText(std::string_view text) {
  constexpr std::size_t deepest = 512;
  dom::parser parser;
  dom::element root;
  auto error = parser.allocate(text.size(), deepest + 1);
  if (error == simdjson::SUCCESS) error = parser.parse(text.data(), text.size()).get(root);
  if (error != simdjson::SUCCESS) throw JsonError(simdjson::error_message(error));
  return JsonValueReader::read(root);
}

void JsonValue::encode(Encoder& encoder) const {
  const auto write = [&]<class T>(const T& value) {
    if constexpr (std::is_same_v<T, std::monostate>) {
      encoder.singleValueContainer().encodeNil();
    } else if constexpr (std::is_same_v<T, Array>) {
      encoder.unkeyedContainer().encodeContentsOf(value);
    } else if constexpr (std::is_same_v<T, Object>) {
      auto container = encoder.container();
      for (const auto& [key, member] : value) {
        if (std::holds_alternative<std::monostate>(member.value_)) {
          container.encodeNil(key);
        } else {
          container.encode(member, key);
        }
      }
    } else {
      encoder.singleValueContainer().encode(value);
    }
  };
  std::visit(write, value_);
}

}  // namespace tessarine::tool
