#pragma once

// What differs between the two levels of a table, its sections (a 64-bit integer) and its rows (an
// `IndexPath`): how positions shift, how they are numbered, what a move costs.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <utility>
#include <vector>

#include "tessarine/differencing/Difference.hpp"
#include "tessarine/values/IndexPath.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

/// Carries the result of the section level to the row level.
struct MetaMutator {
  const CollectionDifference<std::int64_t>& sectionDifference;
};

/// How far positions shift at the current point of a merge of sections: by one for each insertion
/// that went before.
struct IntBumper {
  using Index = std::int64_t;
  std::int64_t bumpAmount = 0;

  std::pair<Index, IntBumper> bump(Index i) const { return {i + bumpAmount, *this}; }
  IntBumper bumperAfterInsertingIndex(Index) const { return {bumpAmount + 1}; }
};

/// The same for rows. Paths have to come in ascending order of their sections.
struct IndexPathBumper {
  using Index = IndexPath;
  std::int64_t sectionToBump = 0;
  std::int64_t rowBumpAmount = 0;

  std::pair<Index, IndexPathBumper> bump(const Index& i) const {
    if (i.section() < sectionToBump) fatal("an index path lies before the section of its bumper");
    if (i.section() > sectionToBump) return {i, {i.section(), 0}};
    return {{i.item() + rowBumpAmount, sectionToBump}, *this};
  }
  IndexPathBumper bumperAfterInsertingIndex(const Index& i) const {
    if (i.section() == sectionToBump) return {sectionToBump, rowBumpAmount + 1};
    // The first insertion into a section that was not reached yet does not count.
    return {i.section(), 0};
  }
};

/// `indexesReindexing`: numbers as a table would number what is left after deletions.
/// `movesAreOrderedByIncreasingImpact`: whether the move `a` disturbs less than `b`.
/// `moveIsFilterable`: whether a move may be dropped when its item has arrived already.
template <class Index>
struct DifferenceIndex;

template <>
struct DifferenceIndex<std::int64_t> {
  using IndexBumper = IntBumper;
  using MoveComparisonContext = std::int64_t;
  using Move = std::pair<std::int64_t, std::int64_t>;

  static std::int64_t section(std::int64_t) { return 0; }
  static std::int64_t item(std::int64_t index) { return index; }
  static std::int64_t make(std::int64_t item, std::int64_t) { return item; }

  static IntBumper indexBumper() { return {}; }
  static std::vector<std::int64_t> indexesReindexing(std::vector<std::int64_t> indexes,
                                                     const MetaMutator*) {
    for (std::size_t i = 0; i < indexes.size(); ++i) indexes[i] = static_cast<std::int64_t>(i);
    return indexes;
  }
  static bool movesAreOrderedByIncreasingImpact(const Move& a, const Move& b,
                                                const MoveComparisonContext&) {
    return std::abs(a.first - a.second) < std::abs(b.first - b.second);
  }
  static bool moveIsFilterable(const Move&) { return true; }
};

template <>
struct DifferenceIndex<IndexPath> {
  using IndexBumper = IndexPathBumper;
  using MoveComparisonContext = std::function<std::int64_t(std::int64_t section)>;
  using Move = std::pair<IndexPath, IndexPath>;

  static std::int64_t section(const IndexPath& index) { return index.section(); }
  static std::int64_t item(const IndexPath& index) { return index.item(); }
  static IndexPath make(std::int64_t item, std::int64_t section) { return {item, section}; }

  static IndexPathBumper indexBumper() { return {}; }
  static std::vector<IndexPath> indexesReindexing(std::vector<IndexPath> indexes,
                                                  const MetaMutator* metaMutator);
  static bool movesAreOrderedByIncreasingImpact(const Move& a, const Move& b,
                                                const MoveComparisonContext& rows) {
    return impact(a, rows) < impact(b, rows);
  }
  static bool moveIsFilterable(const Move& move) {
    return move.first.section() == move.second.section();
  }

 private:
  static std::int64_t impact(const Move& move, const MoveComparisonContext& rows) {
    const auto& [a, b] = move;
    if (a.section() == b.section()) return std::abs(a.item() - b.item());
    return (rows(a.section()) - a.item() - 1) + (rows(b.section()) - b.item() - 1);
  }
};

}  // namespace tessarine
