#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include "tessarine/coding/Decoder.hpp"
#include "tessarine/coding/Encoder.hpp"
#include "tessarine/differencing/textForm.hpp"
#include "tessarine/values/Hashable.hpp"

namespace tessarine {

/// One change of an ordered collection: an element inserted at an offset of the final collection,
/// or removed at an offset of the starting one. For one half of a move, `associatedWith` is the
/// offset of the other half.
template <class Element>
struct CollectionChange {
  enum class Case { insert, remove };

  Case kind = Case::insert;
  std::int64_t offset = 0;
  Element element;
  std::optional<std::int64_t> associatedWith;

  static CollectionChange insert(std::int64_t offset, Element element,
                                 std::optional<std::int64_t> associatedWith = std::nullopt) {
    return {Case::insert, offset, std::move(element), associatedWith};
  }
  static CollectionChange remove(std::int64_t offset, Element element,
                                 std::optional<std::int64_t> associatedWith = std::nullopt) {
    return {Case::remove, offset, std::move(element), associatedWith};
  }

  bool isRemove() const noexcept { return kind == Case::remove; }

  // What each case carries, under the names of its labels.
  std::int64_t _offset() const noexcept { return offset; }
  const Element& _element() const noexcept { return element; }
  std::optional<std::int64_t> _associatedOffset() const noexcept { return associatedWith; }

  friend bool operator==(const CollectionChange& a,
                         const CollectionChange& b) requires std::equality_comparable<Element> {
    return a.kind == b.kind && a.offset == b.offset && a.element == b.element &&
           a.associatedWith == b.associatedWith;
  }

  /// Under "isRemove", "offset", "element" and "associatedOffset", the last as an optional integer.
  void encode(Encoder& encoder) const requires Encodable<Element> {
    auto container = encoder.container();
    container.encode(isRemove(), "isRemove");
    container.encode(offset, "offset");
    container.encode(element, "element");
    container.encode(associatedWith, "associatedOffset");
  }
  static CollectionChange decode(Decoder& decoder) requires Decodable<Element> {
    auto container = decoder.container();
    const auto offset = container.decode<std::int64_t>("offset");
    auto element = container.decode<Element>("element");
    const auto associated = container.decodeIfPresent<std::int64_t>("associatedOffset");
    const bool isRemove = container.decode<bool>("isRemove");
    return {isRemove ? Case::remove : Case::insert, offset, std::move(element), associated};
  }

  /// For debugging: `insert b at 3 (moved from 1)`.
  std::string description() const {
    std::string text = (isRemove() ? "remove " : "insert ") + textForm(element);
    text += " at " + std::to_string(offset);
    if (associatedWith) {
      text +=
          (isRemove() ? " (moved to " : " (moved from ") + std::to_string(*associatedWith) + ')';
    }
    return text;
  }
  friend std::ostream& operator<<(std::ostream& out, const CollectionChange& change) {
    return out << change.description();
  }
};

}  // namespace tessarine

template <tessarine::Hashable Element>
struct std::hash<tessarine::CollectionChange<Element>> {
  std::size_t operator()(const tessarine::CollectionChange<Element>& change) const {
    std::size_t sum = change.isRemove() ? 1 : 0;
    const auto mix = [&sum](std::size_t part) { sum = (sum ^ part) * 0x9E3779B97F4A7C15U; };
    mix(std::hash<std::int64_t>{}(change.offset));
    mix(std::hash<Element>{}(change.element));
    mix(std::hash<std::optional<std::int64_t>>{}(change.associatedWith));
    return sum;
  }
};
