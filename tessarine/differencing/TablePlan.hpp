#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tessarine/differencing/Diffable.hpp"
#include "tessarine/differencing/Difference.hpp"
#include "tessarine/differencing/SnapshotMatching.hpp"
#include "tessarine/export.hpp"
#include "tessarine/values/IndexPath.hpp"

namespace tessarine {

/// What a plan walks: a list of lists that is changed one step at a time. Positions are those of
/// the list as the steps before left it; `inNew` is a place in the new snapshot, to fetch the
/// content.
class TESSARINE_EXPORT TablePlanView {
 public:
  virtual ~TablePlanView();

  /// The section is empty by then.
  virtual void deleteSection(std::int64_t at) = 0;
  /// The section is empty at first.
  virtual void insertSection(std::int64_t at, std::int64_t inNew) = 0;
  /// `to` counts after the removal, here and for rows.
  virtual void moveSection(std::int64_t from, std::int64_t to) = 0;
  virtual void updateSection(std::int64_t at) = 0;

  virtual void deleteRow(IndexPath at) = 0;
  virtual void insertRow(IndexPath at, IndexPath inNew) = 0;
  virtual void moveRow(IndexPath from, IndexPath to) = 0;
  virtual void updateRow(IndexPath at) = 0;

  /// The new snapshot as a whole; the only call of a plan whose verdict is `reload`.
  virtual void reload() = 0;
};

/// One step of a plan. Of a section only the section's number means something.
struct TableStep {
  enum class Kind {
    deleteRow,
    insertSection,
    moveSection,
    moveRow,
    insertRow,
    deleteSection,
    updateSection,
    updateRow,
  };

  Kind kind;
  IndexPath from;   // what is deleted or moved, at that moment
  IndexPath to;     // where it is inserted, moved or updated, at that moment; after the removal
  IndexPath inOld;  // its place in the old snapshot, but for insertions
  IndexPath inNew;  // its place in the new snapshot, but for deletions

  bool operator==(const TableStep&) const = default;
};

/// Ordered steps that take a list of lists from one snapshot to another, made by `tablePlan`. Every
/// step is valid when its turn comes and the last leaves the new snapshot: each plan is replayed
/// before it is handed out.
class TESSARINE_EXPORT TablePlan {
 public:
  enum class Verdict { noChange, apply, reload };

  TablePlan(Verdict verdict, std::vector<TableStep> steps)
      : verdict_(verdict), steps_(std::move(steps)) {}

  Verdict verdict() const noexcept { return verdict_; }
  /// Empty unless the verdict is `apply`.
  const std::vector<TableStep>& steps() const noexcept { return steps_; }
  /// How many sections and rows are moved.
  std::size_t moveCount() const noexcept;

  /// Performs every step on `view`, or its `reload`.
  void perform(TablePlanView& view) const;

  /// The same plan as one batch, for a view that takes deletions, sources and the first of each
  /// update in old positions and all others in new ones: what is not named keeps its order and
  /// fills the places left. Deleted sections take their rows along and inserted ones bring theirs:
  /// a row that leaves a deleted section is an insertion, one that enters an inserted section a
  /// deletion.
  struct Batch {
    CollectionDifference<std::int64_t> sections;
    CollectionDifference<IndexPath> rows;
  };
  Batch batch() const;

  /// For debugging: the verdict, then each step on a line.
  std::string description() const;
  friend TESSARINE_EXPORT std::ostream& operator<<(std::ostream& out, const TablePlan& plan);

 private:
  Verdict verdict_;
  std::vector<TableStep> steps_;
};

/// The names of the cases.
TESSARINE_EXPORT const char* nameOf(TablePlan::Verdict verdict) noexcept;
TESSARINE_EXPORT const char* nameOf(TableStep::Kind kind) noexcept;

struct TablePlanOptions {
  /// More moves of sections and rows than this give `reload`. Absent: no bound.
  std::optional<std::size_t> mostMoves;
  /// More rows deleted, inserted, moved or updated than this give `reload`. Absent: no bound.
  std::optional<std::size_t> mostChangedRows;
  /// Rows among these that would be moved are deleted and inserted instead.
  SuppressedMovePositions suppressedMovePositions;
};

/// The plan of two snapshots that were matched, sections that repeat allowed.
TESSARINE_EXPORT TablePlan planOf(const SnapshotMatching& matching,
                                  const TablePlanOptions& options);

/// The plan that takes a table from the snapshot `from` to the snapshot `to`. It has the fewest
/// moves of sections and, within each section, of rows; a row that changes its section is one move.
/// What needs an update is updated last, at its final place. Values that cannot be compared are
/// moved where their place changes and never updated.
///
/// Reloads past the bounds of `options`, and where an identifier repeats, unless the snapshots are
/// equal. In snapshots of more than 1,023 rows, repeats are not looked for among rows that are in
/// order in a section of both: they are matched by their place, which is a valid plan as well.
/// What a comparison throws passes through. Time in the order of the rows for comparing them, and
/// of the change times its logarithm for the rest.
template <Diffable Snapshot>
TablePlan tablePlan(const Snapshot& from, const Snapshot& to,
                    const TablePlanOptions& options = {}) {
  return planOf(matchSnapshots(from, to, true), options);
}

}  // namespace tessarine
