#pragma once

#include "tessarine/differencing/Diffable.hpp"
#include "tessarine/differencing/Difference.hpp"
#include "tessarine/differencing/SnapshotMatching.hpp"
#include "tessarine/export.hpp"

namespace tessarine {

/// The difference of two snapshots that were matched; `suppressedMovePositions` may be null.
TESSARINE_EXPORT Difference differenceOf(const SnapshotMatching& matching,
                                         const SuppressedMovePositions* suppressedMovePositions);

/// The batch of section and row changes that takes a table from the snapshot `from` to `snapshot`,
/// and the verdict whether a table can perform it. Elements are matched by identifier; rows that
/// change their place become moves where the rest of the batch does not put them there anyway. More
/// than 300 elements of a level that change their place give `hasChangeButCannotApply`.
///
/// The batch follows fixed rules that a known kind of host expects, and on some snapshots these do
/// not lead to the new snapshot: see docs/differencing.md. For a plan that always does, take
/// `tablePlan`.
///
/// Two sections of one identifier end the process. Of two items of one identifier the first counts,
/// but in snapshots of more than 1,023 rows those that are in order in a section of both are
/// matched by their place; what follows depends on the values. What a comparison throws passes
/// through. Time in the order of the rows; of many, a hash table is made only of those not in
/// order.
template <Diffable Snapshot>
Difference difference(const Snapshot& snapshot, const Snapshot& from,
                      const SuppressedMovePositions* suppressedMovePositions = nullptr) {
  return differenceOf(matchSnapshots(from, snapshot), suppressedMovePositions);
}
template <Diffable Snapshot>
Difference difference(const Snapshot& snapshot, const Snapshot& from,
                      const SuppressedMovePositions& suppressedMovePositions) {
  return difference(snapshot, from, &suppressedMovePositions);
}

}  // namespace tessarine
