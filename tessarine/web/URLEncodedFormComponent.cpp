#include "tessarine/web/URLEncodedFormComponent.hpp"

#include <utility>

namespace tessarine {
URLEncodedFormComponent::URLEncodedFormComponent() noexcept : value_(Object()) {}
URLEncodedFormComponent::URLEncodedFormComponent(std::string text) noexcept
    : value_(std::move(text)) {}
URLEncodedFormComponent::URLEncodedFormComponent(const char* text) : value_(std::string(text)) {}
URLEncodedFormComponent::URLEncodedFormComponent(Array array) noexcept : value_(std::move(array)) {}
URLEncodedFormComponent::URLEncodedFormComponent(Object object) noexcept
    : value_(std::move(object)) {}

bool URLEncodedFormComponent::operator==(const URLEncodedFormComponent& other) const {
  return value_ == other.value_;
}

URLEncodedFormComponent& URLEncodedFormComponent::child(std::string_view key) {
  if (object() == nullptr) value_ = Object();
  return object()->valueFor(key);
}

URLEncodedFormComponent& URLEncodedFormComponent::child(std::int64_t index) {
  if (array() == nullptr) value_ = Array();
  Array& elements = *array();
  const auto position = static_cast<std::size_t>(index);  // a negative one is beyond the end
  return position < elements.size() ? elements[position] : elements.emplace_back();
}

void URLEncodedFormComponent::set(URLEncodedFormComponent value, const CodingPath& path) {
  URLEncodedFormComponent* place = this;
  for (const AnyCodingKey& key : path) {
    const auto index = key.intValue();
    place = index ? &place->child(*index) : &place->child(key.stringValue());
  }
  *place = std::move(value);
}

void URLEncodedFormComponent::set(URLEncodedFormComponent value, const CodingPathNode* path) {
  placeAt(path) = std::move(value);
}

URLEncodedFormComponent& URLEncodedFormComponent::placeAt(const CodingPathNode* path) {
  if (path == nullptr) return *this;
  URLEncodedFormComponent& around = placeAt(path->parent);
  return path->index ? around.child(*path->index) : around.child(path->key);
}

std::string URLEncodedFormComponent::description() const {
  if (const std::string* text = string()) return "string(\"" + *text + "\")";
  const bool isArray = array() != nullptr;
  std::string text = isArray ? "array([" : "object([";
  const std::size_t empty = text.size();
  const auto separate = [&] {
    if (text.size() > empty) text += ", ";
  };
  if (isArray) {
    for (const URLEncodedFormComponent& element : *array()) {
      separate();
      text += element.description();
    }
  } else {
    for (const auto& [key, value] : *object()) {
      separate();
      text.append(key).append(": ").append(value.description());
    }
  }
  return text + "])";
}

}  // namespace tessarine
