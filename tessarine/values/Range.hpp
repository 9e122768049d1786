#pragma once

namespace tessarine {

/// From `lowerBound` up to but not including `upperBound`.
template <class T>
struct Range {
  T lowerBound{};
  T upperBound{};

  constexpr bool isEmpty() const { return !(lowerBound < upperBound); }
  constexpr bool contains(const T& value) const {
    return !(value < lowerBound) && value < upperBound;
  }
  constexpr bool operator==(const Range&) const = default;
};

/// From `lowerBound` up to and including `upperBound`.
template <class T>
struct ClosedRange {
  T lowerBound{};
  T upperBound{};

  constexpr bool contains(const T& value) const {
    return !(value < lowerBound) && !(upperBound < value);
  }
  constexpr bool operator==(const ClosedRange&) const = default;
};

}  // namespace tessarine
