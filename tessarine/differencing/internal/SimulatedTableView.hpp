#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tessarine/differencing/SnapshotMatching.hpp"
#include "tessarine/differencing/internal/DifferenceIndex.hpp"
#include "tessarine/differencing/internal/Layout.hpp"
#include "tessarine/differencing/internal/PieceLists.hpp"

namespace tessarine {

/// An item of a table: a number at an index. Numbers below the old count are old elements, by their
/// position; the others are new elements, by theirs plus that count. Two items are equal when their
/// identifiers are, wherever they stand.
template <class Index>
struct WrappedDifferenceComparable {
  Index index;
  std::int32_t value;
};

/// An imitation of a table view: applies deletions, insertions and moves to the items of a snapshot
/// in the way that a table does, and so finds out which moves remain necessary, and in what order.
///
/// A table numbers its rows anew after each deletion; an insertion only shifts what lies behind it,
/// by the rules of the bumpers, which leave some rows with a number that is not their place. Both
/// are told apart here without touching the rows: in a section every item has its place less
/// `lag`, but for those inserted since the last deletion, which have the number they came with. So
/// an operation on one item costs a logarithm.
///
/// Deleted sections make the table close up. Where rows of a deleted section are still in it, that
/// can put sections out of order; then nothing can be inserted any more, and `isBroken`.
template <class Index>
class SimulatedTableView {
 public:
  using Item = WrappedDifferenceComparable<Index>;
  using Move = std::pair<Index, Index>;

  /// Begins with all old elements of `matching`, in the sections of `old`. `metaMutator` may be
  /// null.
  SimulatedTableView(const LevelMatching& matching, const Layout<Index>& old,
                     std::int32_t newSectionCount, const MetaMutator* metaMutator);

  /// Deletes what has one of the indexes. An index that no item has is passed over.
  void deleteIndexes(const std::vector<Index>& indexes);
  /// Inserts items, in ascending order of their indexes.
  void insert(const std::vector<Item>& items);
  /// Of candidate moves, (old item, new item), those that are still needed, with the positions of
  /// the table at the moment of each, in the order of performing; the greatest impact comes first.
  std::vector<Move> filteredMoves(const std::vector<std::pair<Item, Item>>& candidates);

  /// Whether an insertion met sections out of order; what is found from then on means nothing.
  bool isBroken() const { return is_broken_; }
  /// Each item on a line, `index: number`.
  std::string description() const;

 private:
  using Traits = DifferenceIndex<Index>;
  struct Section {
    std::int64_t number = 0;
    std::int64_t firstRow = 0;  // 0 while the sections are in order
    std::int64_t lag = 0;
    PieceLists::List list = 0;
  };
  struct Place {
    std::size_t section;
    std::int32_t rank;
  };

  std::int64_t rowAt(const Section& section, std::int32_t rank) const;
  Index indexAt(const Place& place) const;
  std::optional<Place> placeInSection(std::size_t section, std::int64_t row) const;
  std::optional<Place> placeOf(const Index& index) const;
  std::optional<Place> placeOfIdentity(std::int32_t newPosition, std::int32_t oldPosition) const;
  std::optional<Place> placeOfValue(std::int32_t value) const;
  std::int32_t identityOf(std::int32_t value) const;
  std::int32_t valueToInsert(const Item& item);
  typename Traits::MoveComparisonContext moveComparisonContext() const;
  void reindex(const MetaMutator* metaMutator);
  void closeUp(const MetaMutator* metaMutator);
  std::size_t sectionNumbered(std::int64_t number);

  const LevelMatching& matching_;
  PieceLists lists_;
  // In table order. While `in_order_` the section of number s is the one at s, and may be empty.
  std::vector<Section> sections_;
  std::vector<std::size_t> section_of_list_;
  std::unordered_map<std::int32_t, std::int64_t> rows_of_inserted_;  // since the last deletion
  std::vector<std::size_t> lagging_;
  std::vector<std::int32_t> twins_;  // the new positions of items that stand in the table twice
  std::int32_t section_count_;
  const MetaMutator* meta_mutator_;
  bool has_handled_meta_delete_ = false;
  bool in_order_ = true;
  bool is_broken_ = false;
};

}  // namespace tessarine
