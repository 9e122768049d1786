#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "tessarine/export.hpp"

namespace tessarine {

/// One step of a path into a structure, as a host's own type: a text, and an integer where the step
/// has one. Construction from either may be refused.
template <class Key>
concept CodingKey = requires(const Key& key, std::string_view text, std::int64_t number) {
  { key.stringValue() } -> std::convertible_to<std::string_view>;
  { key.intValue() } -> std::same_as<std::optional<std::int64_t>>;
  { Key::fromString(text) } -> std::same_as<std::optional<Key>>;
  { Key::fromInt(number) } -> std::same_as<std::optional<Key>>;
};

/// The coding key that takes everything. A text has no integer; the text of an integer is its
/// decimal digits. Equal when both are.
class TESSARINE_EXPORT AnyCodingKey {
 public:
  explicit AnyCodingKey(std::string_view text) : text_(text) {}
  explicit AnyCodingKey(std::int64_t number) : text_(std::to_string(number)), number_(number) {}
  AnyCodingKey(std::string_view text, std::optional<std::int64_t> number)
      : text_(text), number_(number) {}

  static std::optional<AnyCodingKey> fromString(std::string_view text) {
    return AnyCodingKey(text);
  }
  static std::optional<AnyCodingKey> fromInt(std::int64_t number) { return AnyCodingKey(number); }

  const std::string& stringValue() const noexcept { return text_; }
  std::optional<std::int64_t> intValue() const noexcept { return number_; }

  bool operator==(const AnyCodingKey&) const = default;

 private:
  std::string text_;
  std::optional<std::int64_t> number_;
};

/// The steps from the root to a value, the root's first.
using CodingPath = std::vector<AnyCodingKey>;

/// The key as text: AnyCodingKey(stringValue: "size", intValue: nil).
TESSARINE_EXPORT std::string description(const AnyCodingKey& key);

/// The path as people write it: orders[3].id; empty at the root.
TESSARINE_EXPORT std::string description(const CodingPath& path);

/// A key of any type, borrowed for the length of one call: what containers take. Made from a text
/// or from any coding key, which has to outlive it.
class CodingKeyView {
 public:
  // NOLINTBEGIN(google-explicit-constructor): a key is written as a text or as the host's key
  constexpr CodingKeyView(std::string_view text) noexcept : text_(text) {}
  constexpr CodingKeyView(const char* text) noexcept : text_(text) {}
  CodingKeyView(const std::string& text) noexcept : text_(text) {}
  template <CodingKey Key>
  requires std::is_lvalue_reference_v<decltype(std::declval<const Key&>().stringValue())> ||
      std::same_as<decltype(std::declval<const Key&>().stringValue()), std::string_view>
      CodingKeyView(const Key& key) : text_(key.stringValue()), number_(key.intValue()) {}
  // NOLINTEND(google-explicit-constructor)

  constexpr std::string_view stringValue() const noexcept { return text_; }
  constexpr std::optional<std::int64_t> intValue() const noexcept { return number_; }
  AnyCodingKey toKey() const { return {text_, number_}; }

 private:
  std::string_view text_;
  std::optional<std::int64_t> number_;
};

}  // namespace tessarine

template <>
struct std::hash<tessarine::AnyCodingKey> {
  std::size_t operator()(const tessarine::AnyCodingKey& key) const noexcept {
    const auto number = key.intValue();
    return std::hash<std::string_view>{}(key.stringValue()) ^
           (number ? std::hash<std::int64_t>{}(*number) + 1 : 0);
  }
};
