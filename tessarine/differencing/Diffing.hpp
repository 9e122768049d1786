#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <optional>
#include <ranges>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "tessarine/differencing/CollectionChanges.hpp"
#include "tessarine/differencing/IdentifierIndex.hpp"
#include "tessarine/differencing/NumberEdit.hpp"
#include "tessarine/differencing/ShortestEdit.hpp"
#include "tessarine/values/Hashable.hpp"

namespace tessarine {

namespace differencing_detail {

/// The elements of a range side by side: those of the range itself, or copies made once.
template <std::ranges::bidirectional_range Range>
class ContiguousElements {
 public:
  using Element = std::ranges::range_value_t<Range>;

  explicit ContiguousElements(const Range& range) {
    if constexpr (contiguous) {
      elements_ = {std::ranges::data(range), std::ranges::size(range)};
    } else {
      for (const auto& element : range) copies_.push_back(element);
      elements_ = copies_;
    }
  }
  ContiguousElements(const ContiguousElements&) = delete;
  ContiguousElements& operator=(const ContiguousElements&) = delete;

  std::size_t size() const { return elements_.size(); }
  const auto* data() const { return elements_.data(); }
  const auto& operator[](std::size_t at) const { return elements_[at]; }

 private:
  // A vector of bool has no elements to point at: all ranges of bool are copied as bytes.
  static constexpr bool contiguous = std::ranges::contiguous_range<const Range> &&
                                     std::ranges::sized_range<const Range> &&
                                     !std::same_as<Element, bool>;
  using Stored = std::conditional_t<std::same_as<Element, bool>, unsigned char, Element>;
  std::vector<Stored> copies_;
  std::span<const Stored> elements_;
};

template <class Element, class Old, class New>
CollectionChanges<Element> changesOf(const Old& old, const New& now,
                                     const std::vector<Edit>& edits) {
  using Change = CollectionChange<Element>;
  const auto removed = static_cast<std::size_t>(
      std::count_if(edits.begin(), edits.end(), [](const Edit& edit) { return edit.isRemoval; }));
  std::vector<Change> insertions;
  std::vector<Change> removals;
  insertions.reserve(edits.size() - removed);
  removals.reserve(removed);
  for (const Edit& edit : edits) {
    const auto at = static_cast<std::size_t>(edit.offset);
    if (edit.isRemoval) {
      removals.push_back(Change::remove(edit.offset, old[at]));
    } else {
      insertions.push_back(Change::insert(edit.offset, now[at]));
    }
  }
  // Both ascend by the walk, and nothing is associated: there is nothing to check.
  return CollectionChanges<Element>::unchecked(std::move(insertions), std::move(removals));
}

/// A number for each element of both, equal where the elements are equal.
template <class Element, class Old, class New>
std::vector<std::int32_t> interned(const Old& old, const New& now) {
  const std::size_t count = old.size() + now.size();
  const auto element = [&](std::size_t at) -> const auto& {
    return at < old.size() ? old[at] : now[at - old.size()];
  };
  IdentifierIndex index(count);
  std::vector<std::int32_t> numbers(count);
  for (std::size_t at = 0; at < count; ++at) {
    const auto& own = element(at);
    numbers[at] = index.findOrAdd(
        std::hash<Element>{}(own), static_cast<std::int32_t>(at),
        [&](std::int32_t other) { return own == element(static_cast<std::size_t>(other)); });
  }
  return numbers;
}

}  // namespace differencing_detail

/// The shortest difference that turns `from` into `collection`, which may be of different types
/// with the same element type. `by(old, new)` says whether two elements are equivalent; what it
/// throws passes through. Among equally short differences, the one of the greedy search of Myers
/// that prefers a removal where both reach equally far. No cut-off: time in the order of the
/// lengths and of the changes times the fewer of removals and insertions, memory a bit for each of
/// these, up to 32 MiB and then growing slowly; see `ShortestEdit`.
template <std::ranges::bidirectional_range New, std::ranges::bidirectional_range Old, class By>
requires std::same_as<std::ranges::range_value_t<New>, std::ranges::range_value_t<Old>>
    CollectionChanges<std::ranges::range_value_t<New>> changes(const New& collection,
                                                               const Old& from, By by) {
  using Element = std::ranges::range_value_t<New>;
  const differencing_detail::ContiguousElements<Old> old(from);
  const differencing_detail::ContiguousElements<New> now(collection);
  const auto edits = shortestEdit(old.size(), now.size(),
                                  [first = old.data(), second = now.data(), &by](auto x, auto y) {
                                    return static_cast<bool>(by(first[x], second[y]));
                                  });
  return differencing_detail::changesOf<Element>(old, now, *edits);
}

/// The same with element equality as the test. Elements that can be hashed and are more than a
/// scalar are numbered, equal ones alike, so that the search compares integers; unless so few
/// change that this is found sooner. Where the changes of numbers are of elements that only one
/// list has, time grows with the lengths and the changes alone; see `NumberEdit`.
template <std::ranges::bidirectional_range New, std::ranges::bidirectional_range Old>
requires(std::same_as<std::ranges::range_value_t<New>, std::ranges::range_value_t<Old>>&&
             std::equality_comparable<std::ranges::range_value_t<New>>)
    CollectionChanges<std::ranges::range_value_t<New>> changes(const New& collection,
                                                               const Old& from) {
  using Element = std::ranges::range_value_t<New>;
  if constexpr (std::is_scalar_v<Element> || Hashable<Element>) {
    const differencing_detail::ContiguousElements<Old> old(from);
    const differencing_detail::ContiguousElements<New> now(collection);
    const std::size_t count = old.size() + now.size();
    if constexpr (std::is_scalar_v<Element>) {
      return differencing_detail::changesOf<Element>(
          old, now,
          shortestNumberEdit(std::span(old.data(), old.size()), {now.data(), now.size()}));
    } else if (count < std::numeric_limits<std::int32_t>::max()) {
      // To look at as many points as there are elements costs less than to number them.
      auto edits = shortestEdit(
          old.size(), now.size(),
          [first = old.data(), second = now.data()](auto x, auto y) {
            return first[x] == second[y];
          },
          count);
      if (!edits) {
        const auto numbers = differencing_detail::interned<Element>(old, now);
        const std::span all(numbers);
        edits = shortestNumberEdit(all.first(old.size()), all.subspan(old.size()));
      }
      return differencing_detail::changesOf<Element>(old, now, *edits);
    }
  }
  return changes(collection, from, std::equal_to<>());
}

/// A container that can be built by appending.
template <class Collection>
concept RangeReplaceable = std::ranges::forward_range<const Collection> &&
    std::default_initializable<Collection> && requires(Collection& made, const Collection& source) {
  made.insert(made.end(), std::ranges::begin(source), std::ranges::end(source));
  made.insert(made.end(), *std::ranges::begin(source));
};

namespace differencing_detail {

/// What a replay throws to itself when it cannot go on.
enum class ApplicationError { failed };

// Offsets may be any integers: a difference that was decoded is not checked.
inline std::int64_t wrappingDifference(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

/// Gives every change once, in an order that lets one forward pass rebuild the collection.
template <class Element, class Callback>
void fastEnumeratedApply(const CollectionChanges<Element>& changes, Callback callback) {
  const auto& removals = changes.removals();
  const auto& insertions = changes.insertions();
  std::size_t removesDone = 0;
  std::size_t insertsDone = 0;
  while (removesDone < removals.size() || insertsDone < insertions.size()) {
    bool takesRemoval = insertsDone == insertions.size();
    if (removesDone < removals.size() && insertsDone < insertions.size()) {
      takesRemoval = wrappingDifference(removals[removesDone].offset,
                                        static_cast<std::int64_t>(removesDone)) <=
                     wrappingDifference(insertions[insertsDone].offset,
                                        static_cast<std::int64_t>(insertsDone));
    }
    callback(takesRemoval ? removals[removesDone++] : insertions[insertsDone++]);
  }
}

/// Builds a collection by copying runs of another.
template <class Collection>
class RunCopier {
 public:
  explicit RunCopier(const Collection& source)
      : at_(std::ranges::begin(source)), end_(std::ranges::end(source)) {
    if constexpr (requires { result.reserve(std::ranges::size(source)); }) {
      result.reserve(std::ranges::size(source));
    }
  }

  /// Copies the source up to `offset`.
  void copyTo(std::int64_t offset) {
    const std::int64_t length = wrappingDifference(offset, consumed_);
    // What is behind the source's current place is gone.
    if (length < 0) throw ApplicationError::failed;
    const auto first = at_;
    if (std::ranges::advance(at_, static_cast<std::ptrdiff_t>(length), end_) != 0) {
      throw ApplicationError::failed;
    }
    result.insert(result.end(), first, at_);
    consumed_ = offset;
  }
  void skip() {
    if (at_ == end_) throw ApplicationError::failed;
    ++at_;
    ++consumed_;
  }
  void copyRest() { result.insert(result.end(), at_, end_); }

  Collection result;

 private:
  std::ranges::iterator_t<const Collection> at_;
  std::ranges::sentinel_t<const Collection> end_;
  std::int64_t consumed_ = 0;
};

}  // namespace differencing_detail

/// A copy of `collection` with the difference applied; absent when it does not fit, as when it
/// removes what is not there. Associations play no part. Any container that can be built by
/// appending will do; one with `reserve` gets room once. Time in the order of the length.
template <RangeReplaceable Collection>
std::optional<Collection> applying(
    const Collection& collection,
    const CollectionChanges<std::ranges::range_value_t<Collection>>& changes) {
  differencing_detail::RunCopier<Collection> copier(collection);
  // The source's place of an insertion is its offset, less what came and plus what went before it.
  std::int64_t shift = 0;
  try {
    differencing_detail::fastEnumeratedApply(changes, [&](const auto& change) {
      if (change.isRemove()) {
        copier.copyTo(change.offset);
        copier.skip();
        ++shift;
      } else {
        copier.copyTo(differencing_detail::wrappingDifference(change.offset, -shift));
        copier.result.insert(copier.result.end(), change.element);
        --shift;
      }
    });
  } catch (differencing_detail::ApplicationError) {
    return std::nullopt;
  }
  copier.copyRest();
  return std::move(copier.result);
}

}  // namespace tessarine
