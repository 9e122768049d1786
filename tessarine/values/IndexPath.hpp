#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace tessarine {

/// The place of an item in a list of sections: which section, and which item in it. Ordered by
/// section, then by item.
class IndexPath {
 public:
  constexpr IndexPath() = default;
  /// `item` is also called the row.
  constexpr IndexPath(std::int64_t item, std::int64_t section) noexcept
      : section_(section), item_(item) {}

  constexpr std::int64_t section() const noexcept { return section_; }
  constexpr std::int64_t item() const noexcept { return item_; }
  /// The same as `item`.
  constexpr std::int64_t row() const noexcept { return item_; }
  constexpr void setRow(std::int64_t row) noexcept { item_ = row; }

  constexpr auto operator<=>(const IndexPath&) const = default;

 private:
  // In this order, which is that of comparison.
  std::int64_t section_ = 0;
  std::int64_t item_ = 0;
};

}  // namespace tessarine

template <>
struct std::hash<tessarine::IndexPath> {
  std::size_t operator()(const tessarine::IndexPath& path) const noexcept {
    return static_cast<std::size_t>(path.section()) * 0x9E3779B97F4A7C15U ^
           static_cast<std::size_t>(path.item());
  }
};
