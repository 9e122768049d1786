#pragma once

#include <algorithm>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <optional>
#include <ostream>
#include <ranges>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tessarine/coding/Decoder.hpp"
#include "tessarine/coding/Encoder.hpp"
#include "tessarine/differencing/CollectionChange.hpp"
#include "tessarine/values/Hashable.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

/// A position in the view of a `CollectionChanges`.
struct CollectionChangesIndex {
  std::int64_t _offset = 0;
  constexpr auto operator<=>(const CollectionChangesIndex&) const = default;
};

/// How one ordered collection becomes another: the removals, by offsets of the old one, and the
/// insertions, by offsets of the new one. `changes(new, old)` finds it, `applying(old, changes)`
/// replays it. For sections and rows of a table see `difference` and `tablePlan`.
///
/// As a range it gives the removals from the highest offset down and then the insertions from the
/// lowest up: performed in that order on an array, each change is valid when its turn comes.
///
///     const auto found = changes(std::vector{1, 3}, std::vector{1, 2});   // from {1, 2} to {1, 3}
///     for (const auto& change : found) std::cout << change << '\n';
template <class Element>
class CollectionChanges {
 public:
  using Change = CollectionChange<Element>;
  using Index = CollectionChangesIndex;

  CollectionChanges() = default;

  /// The difference made of `changes`, in any order. Absent when an offset or an associated offset
  /// is negative, when two removals or two insertions share an offset, or when the associations do
  /// not pair each half of a move with the other.
  static std::optional<CollectionChanges> fromChanges(std::vector<Change> changes) {
    if (!validateChanges(changes)) return std::nullopt;
    return validatedChanges(std::move(changes));
  }
  template <std::ranges::input_range Range>
  requires std::convertible_to<std::ranges::range_reference_t<Range>, Change>
  static std::optional<CollectionChanges> fromChanges(const Range& changes) {
    std::vector<Change> copies;
    for (const auto& change : changes) copies.push_back(change);
    return fromChanges(std::move(copies));
  }
  /// The two lists as they come: nothing is checked and nothing sorted. What breaks the order or
  /// the pairing is kept; `applying` then gives absent or some collection.
  static CollectionChanges unchecked(std::vector<Change> insertions, std::vector<Change> removals) {
    CollectionChanges made;
    made.insertions_ = std::move(insertions);
    made.removals_ = std::move(removals);
    return made;
  }

  /// By increasing offset in the final collection.
  const std::vector<Change>& insertions() const noexcept { return insertions_; }
  /// By increasing offset in the starting collection.
  const std::vector<Change>& removals() const noexcept { return removals_; }

  /// The difference that undoes this one.
  CollectionChanges inverse() const {
    std::vector<Change> changes(begin(), end());
    for (Change& change : changes) {
      change.kind = change.isRemove() ? Change::Case::insert : Change::Case::remove;
    }
    return validatedChanges(std::move(changes));
  }

  /// The same changes, where an element that is removed exactly once and inserted exactly once has
  /// its two halves associated. Other changes stay as they were.
  CollectionChanges inferringMoves() const requires Hashable<Element> {
    const auto removed = uniqueOffsets(removals_);
    const auto inserted = uniqueOffsets(insertions_);
    std::vector<Change> changes(begin(), end());
    for (Change& change : changes) {
      const auto own = (change.isRemove() ? removed : inserted).find(change.element);
      const auto other = (change.isRemove() ? inserted : removed).find(change.element);
      if (own == (change.isRemove() ? removed : inserted).end()) continue;
      if (other == (change.isRemove() ? inserted : removed).end()) continue;
      change.associatedWith = other->second;
    }
    return validatedChanges(std::move(changes));
  }

  // ---- the view ----

  class Iterator {
   public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = Change;
    using difference_type = std::ptrdiff_t;
    using reference = const Change&;
    using pointer = const Change*;

    Iterator() = default;
    reference operator*() const { return (*changes_)[{at_}]; }
    pointer operator->() const { return &**this; }
    Iterator& operator++() {
      ++at_;
      return *this;
    }
    Iterator operator++(int) { return std::exchange(*this, Iterator(changes_, at_ + 1)); }
    Iterator& operator--() {
      --at_;
      return *this;
    }
    Iterator operator--(int) { return std::exchange(*this, Iterator(changes_, at_ - 1)); }
    bool operator==(const Iterator&) const = default;

   private:
    friend CollectionChanges;
    Iterator(const CollectionChanges* changes, std::int64_t at) : changes_(changes), at_(at) {}
    const CollectionChanges* changes_ = nullptr;
    std::int64_t at_ = 0;
  };
  using iterator = Iterator;
  using const_iterator = Iterator;
  using value_type = Change;

  Iterator begin() const noexcept { return {this, 0}; }
  Iterator end() const noexcept { return {this, endIndex()._offset}; }
  std::size_t size() const noexcept { return removals_.size() + insertions_.size(); }
  bool empty() const noexcept { return size() == 0; }

  Index startIndex() const noexcept { return {0}; }
  Index endIndex() const noexcept { return {static_cast<std::int64_t>(size())}; }
  Index indexAfter(Index i) const noexcept { return {i._offset + 1}; }
  Index indexBefore(Index i) const noexcept { return {i._offset - 1}; }
  void formIndex(Index& i, std::int64_t offsetBy) const noexcept { i._offset += offsetBy; }
  std::int64_t distance(Index from, Index to) const noexcept { return to._offset - from._offset; }

  /// The change at a position; one outside the range ends the process.
  const Change& operator[](Index position) const {
    const auto at = static_cast<std::size_t>(position._offset);  // a negative one becomes huge
    if (at >= size()) fatal("position outside a CollectionChanges");
    if (at < removals_.size()) return removals_[removals_.size() - (at + 1)];
    return insertions_[at - removals_.size()];
  }

  friend bool operator==(const CollectionChanges& a,
                         const CollectionChanges& b) requires std::equality_comparable<Element> {
    return a.insertions_ == b.insertions_ && a.removals_ == b.removals_;
  }

  /// Under "insertions" and "removals". Decoding stores both lists as they come, like `unchecked`.
  void encode(Encoder& encoder) const requires Encodable<Element> {
    auto container = encoder.container();
    container.encode(insertions_, "insertions");
    container.encode(removals_, "removals");
  }
  static CollectionChanges decode(Decoder& decoder) requires Decodable<Element> {
    auto container = decoder.container();
    auto insertions = container.decode<std::vector<Change>>("insertions");
    auto removals = container.decode<std::vector<Change>>("removals");
    return unchecked(std::move(insertions), std::move(removals));
  }

  /// The changes in the order of the view, joined by ", ".
  std::string description() const {
    std::string text;
    for (const Change& change : *this) {
      if (!text.empty()) text += ", ";
      text += change.description();
    }
    return text;
  }
  friend std::ostream& operator<<(std::ostream& out, const CollectionChanges& changes) {
    return out << changes.description();
  }

 private:
  static bool validateChanges(const std::vector<Change>& changes) {
    std::unordered_set<std::int64_t> insertOffsets;
    std::unordered_set<std::int64_t> removeOffsets;
    // Both from the offset of a removal to that of its insertion.
    std::unordered_map<std::int64_t, std::int64_t> told_by_removals;
    std::unordered_map<std::int64_t, std::int64_t> told_by_insertions;
    for (const Change& change : changes) {
      if (change.offset < 0) return false;
      if (!(change.isRemove() ? removeOffsets : insertOffsets).insert(change.offset).second) {
        return false;
      }
      if (!change.associatedWith) continue;
      const std::int64_t other = *change.associatedWith;
      if (other < 0) return false;
      const bool fresh = change.isRemove()
                             ? told_by_removals.emplace(change.offset, other).second
                             : told_by_insertions.emplace(other, change.offset).second;
      if (!fresh) return false;
    }
    return told_by_removals == told_by_insertions;
  }

  static CollectionChanges validatedChanges(std::vector<Change> changes) {
    std::stable_sort(changes.begin(), changes.end(), [](const Change& a, const Change& b) {
      return a.kind == b.kind ? a.offset < b.offset : a.isRemove();
    });
    const auto first = std::partition_point(changes.begin(), changes.end(),
                                            [](const Change& each) { return each.isRemove(); });
    CollectionChanges made;
    made.removals_.assign(std::make_move_iterator(changes.begin()), std::make_move_iterator(first));
    made.insertions_.assign(std::make_move_iterator(first), std::make_move_iterator(changes.end()));
    return made;
  }

  /// The offsets of the elements that occur once in `changes`.
  static auto uniqueOffsets(const std::vector<Change>& changes) requires Hashable<Element> {
    std::unordered_map<Element, std::optional<std::int64_t>> offsets;
    offsets.reserve(changes.size());
    for (const Change& change : changes) {
      const auto [at, fresh] = offsets.emplace(change.element, change.offset);
      if (!fresh) at->second.reset();
    }
    std::erase_if(offsets, [](const auto& each) { return !each.second; });
    return offsets;
  }

  std::vector<Change> insertions_;
  std::vector<Change> removals_;
};

}  // namespace tessarine

template <>
struct std::hash<tessarine::CollectionChangesIndex> {
  std::size_t operator()(tessarine::CollectionChangesIndex index) const noexcept {
    return std::hash<std::int64_t>{}(index._offset);
  }
};

template <tessarine::Hashable Element>
struct std::hash<tessarine::CollectionChanges<Element>> {
  std::size_t operator()(const tessarine::CollectionChanges<Element>& changes) const {
    std::size_t sum = changes.insertions().size();
    const std::hash<tessarine::CollectionChange<Element>> hashOf;
    for (const auto* list : {&changes.insertions(), &changes.removals()}) {
      for (const auto& change : *list) sum = (sum ^ hashOf(change)) * 0x9E3779B97F4A7C15U;
    }
    return sum;
  }
};
