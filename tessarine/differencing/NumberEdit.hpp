#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "tessarine/differencing/Edit.hpp"
#include "tessarine/differencing/EqualNumbers.hpp"
#include "tessarine/differencing/NarrowSearch.hpp"
#include "tessarine/differencing/OwnElements.hpp"
#include "tessarine/differencing/ShortestEdit.hpp"
#include "tessarine/values/Hashable.hpp"

namespace tessarine {

/// The script of `ShortestEdit` for numbers, found sooner where many changes are of elements that
/// the other list does not have at all.
///
/// Some script is found first, by following only the points that are not far behind. Of what it
/// removes and inserts, the elements that only one list has are then certain to go or to come. If
/// all are, the script is known: what is left is equal, element by element, and between two that
/// stay the removals come first. Otherwise they bound from below what is still to come at any
/// point, so that the search need only look where no more edits than those of the first script can
/// lead through.
template <class Number>
class NumberEdit {
 public:
  NumberEdit(std::span<const Number> old, std::span<const Number> now) : old_(old), now_(now) {}

  /// The script; absent when that takes more than `mostPoints`.
  std::optional<std::vector<Edit>> script(std::size_t mostPoints) const {
    NarrowSearch search(old_.size(), now_.size(), EqualNumbers{old_.data(), now_.data()});
    using Point = typename decltype(search)::Point;
    const auto some = search.script(
        [](const Point& point) { return 2 * point.x - point.diagonal >= point.lead - mostLag; },
        mostPoints);
    if (!some) return scriptOfOwn();
    const Unmatched unmatched = unmatchedBy(*some);
    const OwnElementsSearch own(old_, now_, unmatched);
    const OwnElements going = own.ofOld();
    const OwnElements coming = own.ofNew();
    if (isAll(going, unmatched.removed) && isAll(coming, unmatched.inserted)) {
      return scriptOf(going, coming);
    }
    const auto most = static_cast<std::int32_t>(some->size());
    const auto goal =
        static_cast<std::int32_t>(old_.size()) - static_cast<std::int32_t>(now_.size());
    return search.script(
        [&](const Point& point) {
          // Removals to come less insertions to come.
          const std::int32_t excess = goal - point.diagonal;
          return point.depth + std::max(2 * going.from(point.x) - excess,
                                        2 * coming.from(point.x - point.diagonal) + excess) <=
                 most;
        },
        mostPoints);
  }

 private:
  /// How many elements of both lists a point may be behind the first. A longer run of chance
  /// matches than this misleads the first search.
  static constexpr std::int32_t mostLag = 64;

  static Unmatched unmatchedBy(const std::vector<Edit>& edits) {
    Unmatched unmatched;
    for (const Edit& edit : edits) {
      auto& offsets = edit.isRemoval ? unmatched.removed : unmatched.inserted;
      offsets.push_back(static_cast<std::int32_t>(edit.offset));
    }
    return unmatched;
  }

  static bool isAll(const OwnElements& own, const std::vector<std::int32_t>& unmatched) {
    return own.offsets().size() == unmatched.size();
  }

  /// The script when the lists are equal but for elements that only one of them has.
  std::optional<std::vector<Edit>> scriptOfOwn() const {
    Unmatched all{std::vector<std::int32_t>(old_.size()), std::vector<std::int32_t>(now_.size())};
    std::iota(all.removed.begin(), all.removed.end(), 0);
    std::iota(all.inserted.begin(), all.inserted.end(), 0);
    const OwnElementsSearch own(old_, now_, all);
    const OwnElements going = own.ofOld();
    const OwnElements coming = own.ofNew();
    std::size_t y = 0;
    for (std::size_t x = 0; x < old_.size(); ++x) {
      if (going.contains(x)) continue;
      while (y < now_.size() && coming.contains(y)) ++y;
      if (y == now_.size() || !(old_[x] == now_[y])) return std::nullopt;
      ++y;
    }
    while (y < now_.size() && coming.contains(y)) ++y;
    if (y < now_.size()) return std::nullopt;
    return scriptOf(going, coming);
  }

  static std::vector<Edit> scriptOf(const OwnElements& going, const OwnElements& coming) {
    const auto& removed = going.offsets();
    const auto& inserted = coming.offsets();
    std::vector<Edit> edits;
    edits.reserve(removed.size() + inserted.size());
    std::size_t r = 0;
    std::size_t i = 0;
    while (r < removed.size() || i < inserted.size()) {
      // How many that stay are before each.
      const bool isRemoval = i == inserted.size() ||
                             (r < removed.size() && removed[r] - static_cast<std::int32_t>(r) <=
                                                        inserted[i] - static_cast<std::int32_t>(i));
      edits.push_back({isRemoval, isRemoval ? removed[r++] : inserted[i++]});
    }
    return edits;
  }

  std::span<const Number> old_;
  std::span<const Number> now_;
};

/// The shortest edit script from `old` to `now`, as `ShortestEdit` gives it.
template <class Number>
std::vector<Edit> shortestNumberEdit(std::span<const Number> old, std::span<const Number> now) {
  const EqualNumbers equal{old.data(), now.data()};
  const std::size_t count = old.size() + now.size();
  if constexpr (Hashable<Number>) {
    if (count < NarrowSearch<EqualNumbers<Number>>::mostElements) {
      ShortestEdit search(static_cast<std::int32_t>(old.size()),
                          static_cast<std::int32_t>(now.size()), equal);
      const std::size_t firstLevel =
          std::max(old.size(), now.size()) - std::min(old.size(), now.size());
      std::size_t most = firstLevel + count / 32 + 256;
      for (;; most *= 2) {
        if (auto edits = search.script(most)) return *std::move(edits);
        // What the other way costs, in points.
        const double other = static_cast<double>(count) / 2 + 1000;
        if (search.expectedPoints() - static_cast<double>(most) > other) break;
      }
      const double mostNarrow =
          std::min(search.expectedPoints() / 4, 16 * static_cast<double>(count));
      auto edits = NumberEdit<Number>(old, now).script(static_cast<std::size_t>(mostNarrow));
      return edits ? *std::move(edits) : *search.script();
    }
  }
  return *shortestEdit(old.size(), now.size(), equal);
}

}  // namespace tessarine
