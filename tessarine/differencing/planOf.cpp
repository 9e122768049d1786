// How a plan is made: what stays is decided first, by the heaviest increasing subsequence; then the
// sections are put in order, and in each the rows, from the first to the last, every one behind the
// one before it.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "tessarine/differencing/TablePlan.hpp"
#include "tessarine/differencing/internal/Layout.hpp"
#include "tessarine/differencing/internal/PieceLists.hpp"
#include "tessarine/differencing/internal/PlanReplay.hpp"
#include "tessarine/differencing/internal/PrefixSums.hpp"
#include "tessarine/differencing/internal/heaviestIncreasing.hpp"
#include "tessarine/values/IndexPath.hpp"

namespace tessarine {
namespace {

using Kind = TableStep::Kind;
using Verdict = TablePlan::Verdict;

class Planner {
 public:
  Planner(const SnapshotMatching& matching, const TablePlanOptions& options)
      : matching_(matching),
        options_(options),
        old_(matching.oldStarts),
        now_(matching.newStarts),
        order_(std::array<std::int32_t, 2>{0, matching.sections.oldCount}) {}

  TablePlan plan() {
    matchSections();
    matchRows();
    if (isPastBounds()) return {Verdict::reload, {}};
    steps_.reserve(moves_ + changed_rows_ + 16);
    deleteRows();
    placeSections();
    placeRows();
    deleteSections();
    update();
    return {steps_.empty() ? Verdict::noChange : Verdict::apply, std::move(steps_)};
  }

 private:
  /// Rows that are neighbours in both snapshots, in one section of each.
  struct Block {
    LevelMatching::Run run;
    std::int32_t oldSection;
    std::int32_t newSection;
    bool stays;
    std::size_t first;            // of the blocks of its old section
    std::int32_t mostPlaced = 0;  // rows of the new section before the next block that stays
  };
  using List = PieceLists::List;

  static constexpr std::int32_t none = std::numeric_limits<std::int32_t>::max();

  static IndexPath sectionAt(std::int64_t section) { return {0, section}; }
  std::size_t at(std::int32_t i) const { return static_cast<std::size_t>(i); }

  // ---- what stays ----

  /// Each section's list of rows: an old section has its own, an inserted one gets a new one.
  void matchSections() {
    list_of_new_.assign(at(matching_.sections.newCount), -1);
    new_of_old_.assign(at(matching_.sections.oldCount), -1);
    std::vector<std::int32_t> keys;
    for (const auto& run : matching_.sections.runs) {
      for (std::int32_t i = 0; i < run.length; ++i) {
        list_of_new_[at(run.newStart + i)] = run.oldStart + i;
        new_of_old_[at(run.oldStart + i)] = run.newStart + i;
        keys.push_back(run.newStart + i);
      }
    }
    const auto stays = heaviestIncreasing(keys, std::vector<std::int32_t>(keys.size(), 1));
    section_moves_.assign(at(matching_.sections.newCount), false);
    for (std::size_t i = 0; i < keys.size(); ++i) {
      if (stays[i]) continue;
      section_moves_[at(keys[i])] = true;
      ++moves_;
    }
    for (std::int32_t& list : list_of_new_) {
      if (list < 0) list = list_count_++;
    }
  }

  void matchRows() {
    std::size_t first = 0;  // of the blocks of the section at hand
    const auto use = [&](const LevelMatching::Run& run, std::int32_t oldSection,
                         std::int32_t newSection) {
      if (!blocks_.empty() && blocks_.back().oldSection != oldSection) {
        chooseStaying(std::exchange(first, blocks_.size()));
      }
      blocks_.push_back(
          {run, oldSection, newSection, new_of_old_[at(oldSection)] == newSection, first});
      return true;
    };
    CutRuns<IndexPath>(old_, now_).forEach(matching_.rows.runs, use);
    chooseStaying(first);
    forEachDeleted(matching_.rows, [&](std::int32_t row) { deleted_.push_back(row); });
    countRows();
  }

  void countRows() {
    leaving_.assign(at(list_count_), 0);
    placed_.assign(at(list_count_), 0);
    std::vector<std::int32_t> waiting(blocks_.size());
    changed_rows_ = at(matching_.rows.newCount);
    std::int32_t most_placed = none;
    for (std::size_t i = blocks_.size(); i-- > 0;) {
      Block& block = blocks_[i];
      if (i + 1 == blocks_.size() || blocks_[i + 1].oldSection != block.oldSection) {
        most_placed = none;
      }
      block.mostPlaced = most_placed;
      if (block.stays) most_placed = block.run.newStart - now_.sectionStart(block.newSection);
      waiting[i] = block.stays ? block.run.length : countMoves(block);
      changed_rows_ -= at(block.run.length);
    }
    waiting_ = PrefixSums(std::move(waiting));
    changed_rows_ += moves_of_rows_ + deleted_.size();
    for (const auto& mark : matching_.rows.marks) {
      if (mark.difference == ElementDifference::needsUpdate) ++changed_rows_;
    }
    moves_ += moves_of_rows_;
  }

  /// Of the blocks from `first` on, those of one section, lets the heaviest increasing ones stay.
  void chooseStaying(std::size_t first) {
    bool is_increasing = true;
    std::int32_t previous = -1;
    for (std::size_t i = first; i < blocks_.size(); ++i) {
      if (!blocks_[i].stays) continue;
      is_increasing = is_increasing && blocks_[i].run.newStart > previous;
      previous = blocks_[i].run.newStart;
    }
    if (is_increasing) return;  // the common case: all of them stay
    std::vector<std::int32_t> keys;
    std::vector<std::int32_t> weights;
    for (std::size_t i = first; i < blocks_.size(); ++i) {
      if (!blocks_[i].stays) continue;
      keys.push_back(blocks_[i].run.newStart);
      weights.push_back(blocks_[i].run.length);
    }
    const auto stays = heaviestIncreasing(keys, weights);
    std::size_t next = 0;
    for (std::size_t i = first; i < blocks_.size(); ++i) {
      if (blocks_[i].stays) blocks_[i].stays = stays[next++];
    }
  }

  bool isReplaced(std::int32_t old, std::int32_t now) const {
    const SuppressedMovePositions& suppressed = options_.suppressedMovePositions;
    if (suppressed.sources.empty() && suppressed.destinations.empty()) return false;
    return suppressed.suppresses(old_.at(old), now_.at(now));
  }

  /// The rows of a block that does not stay are replaced where moves are suppressed; how many are
  /// moved.
  std::int32_t countMoves(const Block& block) {
    std::int32_t moved = 0;
    for (std::int32_t i = 0; i < block.run.length; ++i) {
      const std::int32_t old = block.run.oldStart + i;
      if (isReplaced(old, block.run.newStart + i)) {
        deleted_.push_back(old);
        replaced_.push_back(old);
      } else {
        ++moved;
      }
    }
    moves_of_rows_ += at(moved);
    leaving_[at(block.oldSection)] += moved;
    return moved;
  }

  bool isPastBounds() const {
    return (options_.mostMoves && moves_ > *options_.mostMoves) ||
           (options_.mostChangedRows && changed_rows_ > *options_.mostChangedRows);
  }

  // ---- the steps ----

  /// From the last to the first, so that each is still at its old place.
  void deleteRows() {
    std::sort(deleted_.begin(), deleted_.end());
    std::sort(replaced_.begin(), replaced_.end());
    std::int32_t section = old_.sectionCount() - 1;
    // NOLINTNEXTLINE(modernize-loop-convert): clang 14 does not compile this library's views
    for (auto row = deleted_.rbegin(); row != deleted_.rend(); ++row) {
      while (*row < old_.sectionStart(section)) --section;
      const IndexPath path = old_.at(*row, section);
      steps_.push_back({Kind::deleteRow, path, {}, path, {}});
    }
  }

  void placeSections() {
    std::int32_t next = 0;  // behind the section that was placed last
    for (std::int32_t number = 0; number < matching_.sections.newCount; ++number) {
      const List list = list_of_new_[at(number)];
      if (list >= matching_.sections.oldCount) {
        order_.insert(0, next, list);
        steps_.push_back({Kind::insertSection, {}, sectionAt(next), {}, sectionAt(number)});
      } else if (section_moves_[at(number)]) {
        const std::int32_t from = order_.locate(list)->rank;
        order_.erase(0, from);
        if (from < next) --next;
        order_.insert(0, next, list);
        steps_.push_back({Kind::moveSection, sectionAt(from), sectionAt(next), sectionAt(list),
                          sectionAt(number)});
      } else {
        next = order_.locate(list)->rank;
      }
      ++next;
    }
    place_of_list_.resize(at(list_count_));
    std::int32_t place = 0;
    order_.forEachPiece(0, [&](const PieceLists::Piece& piece) {
      for (std::int32_t i = 0; i < piece.length; ++i) place_of_list_[at(piece.start + i)] = place++;
      return true;
    });
  }

  /// Those that stay are mostly in order already, and the others few.
  std::vector<std::size_t> numbersByNewPosition() const {
    std::vector<std::size_t> numbers;
    std::vector<std::size_t> leaving;
    numbers.reserve(blocks_.size());
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
      (blocks_[i].stays ? numbers : leaving).push_back(i);
    }
    const auto precedes = [&](std::size_t a, std::size_t b) {
      return blocks_[a].run.newStart < blocks_[b].run.newStart;
    };
    if (!std::is_sorted(numbers.begin(), numbers.end(), precedes)) {
      std::sort(numbers.begin(), numbers.end(), precedes);
    }
    std::sort(leaving.begin(), leaving.end(), precedes);
    const auto middle = numbers.insert(numbers.end(), leaving.begin(), leaving.end());
    std::inplace_merge(numbers.begin(), middle, numbers.end(), precedes);
    return numbers;
  }

  void placeRows() {
    const std::vector<std::size_t> order = numbersByNewPosition();
    auto next = order.begin();
    for (section_ = 0; section_ < matching_.sections.newCount; ++section_) {
      const std::int32_t end = now_.sectionStart(section_ + 1);
      list_ = list_of_new_[at(section_)];
      next_ = 0;
      std::int32_t row = now_.sectionStart(section_);
      for (; next != order.end() && blocks_[*next].run.newStart < end; ++next) {
        const Block& block = blocks_[*next];
        for (; row < block.run.newStart; ++row) insertRow(row);
        if (block.stays) {
          stay(*next);
        } else {
          for (std::int32_t i = 0; i < block.run.length; ++i) moveRow(*next, i);
        }
        row += block.run.length;
      }
      for (; row < end; ++row) insertRow(row);
    }
  }

  // A list is, from the front: rows that were placed, and between them, behind the block that stays
  // and was before them, rows that have still to leave; then, behind `next_`, those that are still
  // where they were.

  /// Where the first row is of those of a block that are still where they were.
  std::int32_t rankOf(std::size_t number) const {
    const Block& block = blocks_[number];
    const std::int32_t waiting = waiting_.sumBefore(number) - waiting_.sumBefore(block.first);
    return std::min(placed_[at(block.oldSection)], block.mostPlaced) + waiting;
  }

  /// Goes behind a block that stays.
  void stay(std::size_t number) {
    const std::int32_t length = blocks_[number].run.length;
    if (leaving_[at(list_)] == 0) {  // nobody will ask where its rows are any more
      next_ += length;
      return;
    }
    next_ = rankOf(number) + length;
    waiting_.add(number, -length);
    placed_[at(list_)] += length;
  }

  void insertRow(std::int32_t row) {
    ++placed_[at(list_)];
    steps_.push_back(
        {Kind::insertRow, {}, {next_++, place_of_list_[at(list_)]}, {}, now_.at(row, section_)});
  }

  /// The row `i` of a block, of which those before it have left.
  void moveRow(std::size_t number, std::int32_t i) {
    const Block& block = blocks_[number];
    const std::int32_t old = block.run.oldStart + i;
    const std::int32_t row = block.run.newStart + i;
    if (isReplaced(old, row)) return insertRow(row);
    const std::int32_t from = rankOf(number);
    waiting_.add(number, -1);
    --leaving_[at(block.oldSection)];
    if (block.oldSection == list_ && from < next_) --next_;
    ++placed_[at(list_)];
    steps_.push_back({Kind::moveRow,
                      {from, place_of_list_[at(block.oldSection)]},
                      {next_++, place_of_list_[at(list_)]},
                      old_.at(old, block.oldSection),
                      now_.at(row, section_)});
  }

  /// From the last to the first.
  void deleteSections() {
    std::vector<std::pair<std::int32_t, std::int32_t>> gone;
    for (std::int32_t old = 0; old < matching_.sections.oldCount; ++old) {
      if (new_of_old_[at(old)] < 0) gone.emplace_back(place_of_list_[at(old)], old);
    }
    std::sort(gone.rbegin(), gone.rend());
    for (const auto& [place, old] : gone) {
      steps_.push_back({Kind::deleteSection, sectionAt(place), {}, sectionAt(old), {}});
    }
  }

  void update() {
    for (const auto& mark : matching_.sections.marks) {
      if (mark.difference != ElementDifference::needsUpdate) continue;
      const IndexPath path = sectionAt(new_of_old_[at(mark.old)]);
      steps_.push_back({Kind::updateSection, {}, path, sectionAt(mark.old), path});
    }
    auto run = matching_.rows.runs.begin();
    std::int32_t old_section = 0;
    std::int32_t new_section = 0;
    for (const auto& mark : matching_.rows.marks) {
      if (mark.difference != ElementDifference::needsUpdate) continue;
      while (run->oldStart + run->length <= mark.old) ++run;
      // A row that was replaced came as it is in the new snapshot.
      if (std::binary_search(replaced_.begin(), replaced_.end(), mark.old)) continue;
      const std::int32_t row = run->newStart + mark.old - run->oldStart;
      while (mark.old >= old_.sectionStart(old_section + 1)) ++old_section;
      new_section = now_.sectionOf(row, new_section);
      const IndexPath path = now_.at(row, new_section);
      steps_.push_back({Kind::updateRow, {}, path, old_.at(mark.old, old_section), path});
    }
  }

  const SnapshotMatching& matching_;
  const TablePlanOptions& options_;
  Layout<IndexPath> old_;
  Layout<IndexPath> now_;
  PieceLists order_;  // the one list of the sections' lists

  List list_count_ = matching_.sections.oldCount;  // a list a section: the old ones, then new ones
  std::vector<List> list_of_new_;
  std::vector<std::int32_t> new_of_old_;
  std::vector<bool> section_moves_;  // by new section
  std::vector<Block> blocks_;        // by old position
  std::vector<std::int32_t> deleted_;
  std::vector<std::int32_t> replaced_;
  std::vector<std::int32_t> leaving_;  // by list: rows that have still to move to another place
  std::vector<std::int32_t> placed_;   // by list: rows of the new section that are in their place
  PrefixSums waiting_{{}};  // by block: rows still where they were, behind those placed before
  std::size_t moves_ = 0;
  std::size_t moves_of_rows_ = 0;
  std::size_t changed_rows_ = 0;

  std::vector<std::int32_t> place_of_list_;
  std::int32_t section_ = 0;  // the new section that is being put in order
  List list_ = 0;             // and its list
  std::int32_t next_ = 0;     // behind its row that was placed last
  std::vector<TableStep> steps_;
};

bool isSame(const SnapshotMatching& matching) {
  const auto same = [](const LevelMatching& level) {
    if (level.repeats) return level.isSame;
    const auto updates = [](const auto& mark) {
      return mark.difference == ElementDifference::needsUpdate;
    };
    const bool matched =
        level.oldCount == 0 || (level.runs.size() == 1 && level.runs[0].newStart == 0 &&
                                level.runs[0].length == level.oldCount);
    return matched && level.oldCount == level.newCount &&
           std::none_of(level.marks.begin(), level.marks.end(), updates);
  };
  return matching.oldStarts == matching.newStarts && same(matching.sections) && same(matching.rows);
}

}  // namespace

TablePlan planOf(const SnapshotMatching& matching, const TablePlanOptions& options) {
  if (isSame(matching)) return {Verdict::noChange, {}};
  if (matching.sections.repeats || matching.rows.repeats) return {Verdict::reload, {}};
  TablePlan plan = Planner(matching, options).plan();
  const bool is_proved =
      plan.verdict() == Verdict::reload || replaysToNewSnapshot(matching, plan.steps());
  return is_proved ? plan : TablePlan(Verdict::reload, {});
}

}  // namespace tessarine
