#pragma once

#include <concepts>
#include <cstddef>
#include <functional>

namespace tessarine {

/// A value with equality and a `std::hash` that agrees with it.
template <class T>
concept Hashable = std::equality_comparable<T> && std::copy_constructible<T> &&
    requires(const T& v) {
  { std::hash<T>{}(v) } -> std::convertible_to<std::size_t>;
};

}  // namespace tessarine
