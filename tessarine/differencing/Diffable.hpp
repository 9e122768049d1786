#pragma once

#include <concepts>
#include <cstdint>
#include <ranges>
#include <type_traits>

#include "tessarine/values/Hashable.hpp"

namespace tessarine {

/// What one value says about another of the same identifier.
enum class ElementDifference {
  unchanged,     // nothing to redraw
  needsUpdate,   // the row or section has to be redrawn
  incomparable,  // the values say nothing about each other
};

/// A section or an item: `value.identifier()` gives a hashable identifier that stays the same while
/// the value changes, `value.compare(other)` an `ElementDifference`; it is asked of the new value
/// about the old one.
template <class Value>
concept DifferenceComparable = requires(const Value& value) {
  requires Hashable<std::remove_cvref_t<decltype(value.identifier())>>;
  { value.compare(value) } -> std::same_as<ElementDifference>;
};

namespace differencing_detail {
template <class Range>
concept ArrayOfComparables = std::ranges::contiguous_range<Range> &&
    std::ranges::sized_range<Range> && DifferenceComparable<std::ranges::range_value_t<Range>>;
}

/// A snapshot of a sectioned list: `snapshot.sections()` gives its sections and
/// `snapshot.items(section)` the items of one, by its number; each as a vector, a span or a
/// reference to one. What is given by value is held while the snapshots are compared.
///
///     struct Contact {
///       int id;
///       std::string name;
///       int identifier() const { return id; }
///       ElementDifference compare(const Contact& old) const {
///         return name == old.name ? ElementDifference::unchanged : ElementDifference::needsUpdate;
///       }
///     };
template <class Snapshot>
concept Diffable = requires(const Snapshot& snapshot, std::int64_t section) {
  { snapshot.sections() } -> differencing_detail::ArrayOfComparables;
  { snapshot.items(section) } -> differencing_detail::ArrayOfComparables;
};

}  // namespace tessarine
