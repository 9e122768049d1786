#pragma once

#include <concepts>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

namespace tessarine {

template <class T>
concept Streamable = requires(std::ostream& out, const T& value) {
  out << value;
};

/// The text of a value for debugging: a text as it is, a boolean as `true` or `false`, what has a
/// `description()` by that, anything else by its `<<`, and `?` when it has none.
template <class T>
std::string textForm(const T& value) {
  if constexpr (std::convertible_to<const T&, std::string_view>) {
    return std::string(std::string_view(value));
  } else if constexpr (std::same_as<T, bool>) {
    return value ? "true" : "false";
  } else if constexpr (requires {
                         { value.description() } -> std::convertible_to<std::string>;
                       }) {
    return value.description();
  } else if constexpr (Streamable<T>) {
    std::ostringstream out;
    out << value;
    return std::move(out).str();
  } else {
    return "?";
  }
}

}  // namespace tessarine
