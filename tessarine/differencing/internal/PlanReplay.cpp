#include "tessarine/differencing/internal/PlanReplay.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tessarine/differencing/internal/PieceLists.hpp"
#include "tessarine/values/IndexPath.hpp"

namespace tessarine {
namespace {

class Replay {
 public:
  explicit Replay(const SnapshotMatching& matching)
      : matching_(matching),
        rows_(matching.oldStarts, false),
        sections_(std::array<std::int32_t, 2>{0, matching.sections.oldCount}, false) {}

  /// False when the step is not valid.
  bool perform(const TableStep& step) {
    using Kind = TableStep::Kind;
    switch (step.kind) {
      case Kind::deleteRow:
        return take(step.from) >= 0;
      case Kind::insertRow:
        return put(step.to, matching_.rows.oldCount + newRow(step.inNew));
      case Kind::moveRow: {
        const PieceLists::Item row = take(step.from);
        return row >= 0 && put(step.to, row);
      }
      case Kind::insertSection: {
        if (step.to.section() < 0 || step.to.section() > sections_.size(0)) return false;
        const PieceLists::List list = rows_.addList();
        new_section_of_list_.push_back(step.inNew.section());
        sections_.insert(0, static_cast<std::int32_t>(step.to.section()), list);
        return true;
      }
      case Kind::moveSection: {
        if (!hasSection(step.from)) return false;
        const auto list = sections_.erase(0, static_cast<std::int32_t>(step.from.section()));
        if (step.to.section() < 0 || step.to.section() > sections_.size(0)) return false;
        sections_.insert(0, static_cast<std::int32_t>(step.to.section()), list);
        return true;
      }
      case Kind::deleteSection:
        if (!hasSection(step.from) || rows_.size(listAt(step.from)) != 0) return false;
        sections_.erase(0, static_cast<std::int32_t>(step.from.section()));
        return true;
      case Kind::updateSection:
        return hasSection(step.to);
      case Kind::updateRow:
        return hasSection(step.to) && step.to.item() >= 0 &&
               step.to.item() < rows_.size(listAt(step.to));
    }
    return false;
  }

  bool isNewSnapshot() {
    if (sections_.size(0) != matching_.sections.newCount) return false;
    std::int32_t number = 0;
    return sections_.forEachPiece(0, [&](const PieceLists::Piece& piece) {
      for (std::int32_t i = 0; i < piece.length; ++i, ++number) {
        if (!isNewSection(piece.start + i, number)) return false;
      }
      return true;
    });
  }

 private:
  bool hasSection(const IndexPath& path) const {
    return path.section() >= 0 && path.section() < sections_.size(0);
  }
  PieceLists::List listAt(const IndexPath& path) const {
    return sections_.at(0, static_cast<std::int32_t>(path.section()));
  }
  PieceLists::Item take(const IndexPath& path) {
    if (!hasSection(path) || path.item() < 0 || path.item() >= rows_.size(listAt(path))) return -1;
    return rows_.erase(listAt(path), static_cast<std::int32_t>(path.item()));
  }
  bool put(const IndexPath& path, PieceLists::Item row) {
    if (!hasSection(path) || path.item() < 0 || path.item() > rows_.size(listAt(path)))
      return false;
    rows_.insert(listAt(path), static_cast<std::int32_t>(path.item()), row);
    return true;
  }
  std::int32_t newRow(const IndexPath& path) const {
    return matching_.newStarts[static_cast<std::size_t>(path.section())] +
           static_cast<std::int32_t>(path.item());
  }

  /// Looks up where old elements are in the new list, best those near the one asked for last.
  class Counterparts {
   public:
    explicit Counterparts(const LevelMatching& level) : runs_(level.runs) {}

    /// Where `old` is, and how many after it follow it there; -1 if nowhere.
    LevelMatching::Run of(std::int32_t old) {
      if (!isLast(at_, old) && !isLast(++at_, old) && !isLast(++at_, old)) {
        const auto next =
            std::upper_bound(runs_.begin(), runs_.end(), old,
                             [](std::int32_t position, const LevelMatching::Run& run) {
                               return position < run.oldStart;
                             });
        at_ = static_cast<std::size_t>(next - runs_.begin());
        if (at_-- == 0) return {old, -1, 1};
      }
      const LevelMatching::Run& run = runs_[at_];
      const std::int32_t offset = old - run.oldStart;
      if (offset >= run.length) return {old, -1, 1};
      return {old, run.newStart + offset, run.length - offset};
    }

   private:
    /// Whether the run is the last that begins at `old` or before it.
    bool isLast(std::size_t at, std::int32_t old) const {
      return at < runs_.size() && runs_[at].oldStart <= old &&
             (at + 1 == runs_.size() || old < runs_[at + 1].oldStart);
    }

    const std::vector<LevelMatching::Run>& runs_;
    std::size_t at_ = 0;
  };

  bool isNewSection(PieceLists::List list, std::int32_t number) {
    const bool is_right =
        list < matching_.sections.oldCount
            ? counterpart_of_sections_.of(list).newStart == number
            : new_section_of_list_[static_cast<std::size_t>(list - matching_.sections.oldCount)] ==
                  number;
    if (!is_right) return false;
    std::int32_t expected = matching_.newStarts[static_cast<std::size_t>(number)];
    return rows_.forEachPiece(list, [&](const PieceLists::Piece& piece) {
      return follows(piece, expected);
    }) && expected == matching_.newStarts[static_cast<std::size_t>(number) + 1];
  }

  /// Whether a piece holds the new rows from `expected` on, which then goes behind them.
  bool follows(PieceLists::Piece piece, std::int32_t& expected) {
    while (piece.length > 0) {
      std::int32_t length = piece.length;
      std::int32_t found = piece.start - matching_.rows.oldCount;
      if (found < 0) {
        const LevelMatching::Run run = counterpart_of_rows_.of(piece.start);
        found = run.newStart;
        length = std::min(length, run.length);
      }
      if (found != expected) return false;
      expected += length;
      piece = {piece.start + length, piece.length - length};
    }
    return true;
  }

  const SnapshotMatching& matching_;
  PieceLists rows_;      // a list a section: the old ones first, then those inserted
  PieceLists sections_;  // the one list of the lists' numbers
  std::vector<std::int64_t> new_section_of_list_;
  Counterparts counterpart_of_sections_{matching_.sections};
  Counterparts counterpart_of_rows_{matching_.rows};
};

}  // namespace

bool replaysToNewSnapshot(const SnapshotMatching& matching, const std::vector<TableStep>& steps) {
  Replay replay(matching);
  return std::all_of(steps.begin(), steps.end(),
                     [&](const TableStep& step) { return replay.perform(step); }) &&
         replay.isNewSnapshot();
}

}  // namespace tessarine
