#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tessarine/coding/CodingKey.hpp"
#include "tessarine/coding/CodingPathNode.hpp"
#include "tessarine/export.hpp"
#include "tessarine/web/URLEncodedFormObject.hpp"

namespace tessarine {

/// A form before it is text: a text, a list, or an object. A plain value.
class TESSARINE_EXPORT URLEncodedFormComponent {
 public:
  using Array = std::vector<URLEncodedFormComponent>;
  using Object = URLEncodedFormObject;

  /// The empty object.
  URLEncodedFormComponent() noexcept;
  // NOLINTBEGIN(google-explicit-constructor): each of the three is a component
  URLEncodedFormComponent(std::string text) noexcept;
  URLEncodedFormComponent(const char* text);
  URLEncodedFormComponent(Array array) noexcept;
  URLEncodedFormComponent(Object object) noexcept;
  // NOLINTEND(google-explicit-constructor)

  /// The value if it is of that kind, else null.
  const std::string* string() const noexcept { return std::get_if<std::string>(&value_); }
  const Array* array() const noexcept { return std::get_if<Array>(&value_); }
  const Object* object() const noexcept { return std::get_if<Object>(&value_); }
  std::string* string() noexcept { return std::get_if<std::string>(&value_); }
  Array* array() noexcept { return std::get_if<Array>(&value_); }
  Object* object() noexcept { return std::get_if<Object>(&value_); }

  /// Puts `value` at the end of a path, making lists and objects on the way. A step with an integer
  /// goes to that element of a list, or to a new last one when there are not as many; one without
  /// goes to the pair with that key, which keeps its place. What is on the way and of another kind
  /// is lost. An empty path replaces this component.
  void set(URLEncodedFormComponent value, const CodingPath& path);
  void set(URLEncodedFormComponent value, const CodingPathNode* path);

  /// As text for messages: object([a: string("1")]).
  std::string description() const;

  bool operator==(const URLEncodedFormComponent& other) const;

 private:
  URLEncodedFormComponent& placeAt(const CodingPathNode* path);
  URLEncodedFormComponent& child(std::string_view key);
  URLEncodedFormComponent& child(std::int64_t index);

  std::variant<std::string, Array, Object> value_;
};

}  // namespace tessarine
