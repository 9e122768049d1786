#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <variant>

#include "tessarine/coding/Decoder.hpp"
#include "tessarine/coding/Encoder.hpp"

namespace tessarine::tool {

/// A JSON value that is no array and no object. Equal when kind and value are; a number without a
/// fraction is an integer.
class JsonScalar {
 public:
  void encode(Encoder& encoder) const {
    auto container = encoder.singleValueContainer();
    std::visit([&](const auto& value) { write(value, container); }, value_);
  }
  static JsonScalar decode(Decoder& decoder);

  bool isText(std::string_view text) const {
    const auto* const own = std::get_if<std::string>(&value_);
    return own != nullptr && *own == text;
  }
  /// A text as it is, anything else as its JSON.
  std::string text() const;
  std::size_t hash() const { return std::hash<Value>{}(value_); }
  bool operator==(const JsonScalar&) const = default;

 private:
  using Value =
      std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string>;

  static void write(std::monostate, SingleValueEncodingContainer& container) {
    container.encodeNil();
  }
  template <class T>
  static void write(const T& value, SingleValueEncodingContainer& container) {
    container.encode(value);
  }

  Value value_;
};

}  // namespace tessarine::tool

template <>
struct std::hash<tessarine::tool::JsonScalar> {
  std::size_t operator()(const tessarine::tool::JsonScalar& scalar) const { return scalar.hash(); }
};
