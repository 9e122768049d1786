#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tessarine/differencing/IndexSet.hpp"
#include "tessarine/export.hpp"
#include "tessarine/values/IndexPath.hpp"

namespace tessarine {

/// The changes of one level of a table: its sections (`Index` is an integer) or its rows (an
/// `IndexPath`).
template <class Index>
struct CollectionDifference {
  IndexSet<Index> insertions;                    // positions in the new snapshot
  IndexSet<Index> deletions;                     // positions in the old snapshot
  std::vector<std::pair<Index, Index>> updates;  // (old, new) of each element to be redrawn
  std::vector<std::pair<Index, Index>> moves;  // (source, destination), in the order of performing

  bool isEmpty() const noexcept {
    return insertions.empty() && deletions.empty() && updates.empty() && moves.empty();
  }
  bool operator==(const CollectionDifference&) const = default;
  /// For debugging: `insertions [0 1], deletions [], updates [(2 3)], moves []`.
  std::string description() const;
};
extern template struct TESSARINE_EXPORT CollectionDifference<std::int64_t>;
extern template struct TESSARINE_EXPORT CollectionDifference<IndexPath>;

/// What a table has to do to go from one snapshot to another, and whether it can. Made by
/// `difference`.
class TESSARINE_EXPORT Difference {
 public:
  enum class ChangeKind {
    hasChangeAndCanApply,
    hasChangeButCannotApply,  // the table has to be reloaded
    noChange,
  };

  Difference(CollectionDifference<std::int64_t> sectionChanges,
             CollectionDifference<IndexPath> itemChanges, ChangeKind changeKind)
      : sectionChanges_(std::move(sectionChanges)),
        itemChanges_(std::move(itemChanges)),
        changeKind_(changeKind) {}

  const CollectionDifference<std::int64_t>& sectionChanges() const noexcept {
    return sectionChanges_;
  }
  const CollectionDifference<IndexPath>& itemChanges() const noexcept { return itemChanges_; }
  ChangeKind changeKind() const noexcept { return changeKind_; }
  void setChangeKind(ChangeKind changeKind) noexcept { changeKind_ = changeKind; }

  bool operator==(const Difference&) const = default;
  /// For debugging, in three lines.
  std::string description() const;
  friend TESSARINE_EXPORT std::ostream& operator<<(std::ostream& out, const Difference& difference);

 private:
  CollectionDifference<std::int64_t> sectionChanges_;
  CollectionDifference<IndexPath> itemChanges_;
  ChangeKind changeKind_;
};

/// The name of the case.
TESSARINE_EXPORT const char* nameOf(Difference::ChangeKind changeKind) noexcept;

/// Rows that must not be moved, as because the user has just moved them by hand: by where they were
/// in the old snapshot, or by where they are in the new one. They are deleted and inserted instead.
struct SuppressedMovePositions {
  IndexSet<IndexPath> sources;
  IndexSet<IndexPath> destinations;

  bool suppresses(const IndexPath& source, const IndexPath& destination) const {
    return sources.contains(source) || destinations.contains(destination);
  }
};

}  // namespace tessarine
