#include "tessarine/differencing/DifferenceEngine.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tessarine/differencing/internal/DifferenceIndex.hpp"
#include "tessarine/differencing/internal/Layout.hpp"
#include "tessarine/differencing/internal/SimulatedTableView.hpp"
#include "tessarine/values/IndexPath.hpp"

namespace tessarine {
namespace {

constexpr std::size_t mostCandidateMoves = 300;

/// What one level gives. A broken table is one whose sections went out of order.
template <class Index>
struct FastCollectionDifferenceWrapper {
  enum class Case { available, tooManyMoves, brokenTable };
  Case kind = Case::available;
  CollectionDifference<Index> difference;
};

template <class Index>
class LevelDifference {
 public:
  using Item = WrappedDifferenceComparable<Index>;
  using Result = FastCollectionDifferenceWrapper<Index>;

  LevelDifference(const LevelMatching& matching, Layout<Index> old, Layout<Index> now,
                  const MetaMutator* metaMutator, const SuppressedMovePositions* suppressed)
      : matching_(matching),
        old_(old),
        now_(now),
        meta_mutator_(metaMutator),
        suppressed_(suppressed) {}

  Result result() {
    forEachDeleted(matching_, [&](std::int32_t at) { deletions_.push_back(old_.at(at)); });
    forEachInserted(matching_, [&](std::int32_t at) { inserted_.push_back(newItem(at)); });
    Result result;
    if (matching_.oldCount > 0) {
      walk();
      if (candidates_.size() > mostCandidateMoves) return {Result::Case::tooManyMoves, {}};
      if (!simulate(result.difference.moves)) return {Result::Case::brokenTable, {}};
    }
    std::vector<Index> insertions;
    insertions.reserve(inserted_.size() + replaced_.size());
    for (const Item& item : inserted_) insertions.push_back(item.index);
    for (const auto& [old, now] : replaced_) {
      deletions_.push_back(old.index);
      insertions.push_back(now.index);
    }
    result.difference.insertions = IndexSet<Index>(std::move(insertions));
    result.difference.deletions = IndexSet<Index>(std::move(deletions_));
    result.difference.updates = std::move(updates_);
    return result;
  }

 private:
  using Pair = std::pair<Item, Item>;

  Item newItem(std::int32_t at) const { return {now_.at(at), matching_.oldCount + at}; }

  /// Goes through the old elements that stayed and collects updates, candidate moves and moves that
  /// become a deletion and an insertion.
  void walk() {
    auto mark = matching_.marks.begin();
    const auto use = [&](const LevelMatching::Run& run, std::int32_t oldSection,
                         std::int32_t newSection) {
      const std::int32_t old_row = run.oldStart - old_.sectionStart(oldSection);
      const std::int32_t new_row = run.newStart - now_.sectionStart(newSection);
      const Index first_old = DifferenceIndex<Index>::make(old_row, oldSection);
      const Index first_new = DifferenceIndex<Index>::make(new_row, newSection);
      const bool moves = !(first_old == first_new);
      for (std::int32_t i = 0; i < run.length; ++i) {
        auto difference = ElementDifference::unchanged;
        if (mark != matching_.marks.end() && (!moves || mark->old == run.oldStart + i)) {
          // Where nothing moves, only the marks are looked at.
          if (mark->old >= run.oldStart + run.length) break;
          i = mark->old - run.oldStart;
          difference = mark++->difference;
        } else if (!moves) {
          break;
        }
        if (difference == ElementDifference::incomparable) continue;
        const Item old = {DifferenceIndex<Index>::make(old_row + i, oldSection), run.oldStart + i};
        const Item now = {DifferenceIndex<Index>::make(new_row + i, newSection),
                          matching_.oldCount + run.newStart + i};
        if (difference == ElementDifference::needsUpdate)
          updates_.emplace_back(old.index, now.index);
        if (moves) take(old, now);
      }
      return candidates_.size() <= mostCandidateMoves;
    };
    CutRuns<Index>(old_, now_).forEach(matching_.runs, use);
  }

  void take(const Item& old, const Item& now) {
    if constexpr (std::is_same_v<Index, IndexPath>) {
      if (suppressed_ && suppressed_->suppresses(old.index, now.index)) {
        replaced_.emplace_back(old, now);
        return;
      }
    }
    candidates_.emplace_back(old, now);
  }

  /// False when the table breaks on the way.
  bool simulate(std::vector<std::pair<Index, Index>>& moves) {
    const bool closes = meta_mutator_ && !meta_mutator_->sectionDifference.deletions.empty();
    if (candidates_.empty() && replaced_.empty() && !closes) return true;
    SimulatedTableView<Index> table(matching_, old_, now_.sectionCount(), meta_mutator_);
    table.deleteIndexes(deletions_);
    table.insert(inserted_);
    for (const auto& [old, now] : replaced_) {
      if (table.isBroken()) return false;
      table.deleteIndexes({old.index});
      table.insert({now});
    }
    if (!table.isBroken()) moves = table.filteredMoves(candidates_);
    return !table.isBroken();
  }

  const LevelMatching& matching_;
  Layout<Index> old_;
  Layout<Index> now_;
  const MetaMutator* meta_mutator_;
  const SuppressedMovePositions* suppressed_;

  std::vector<Index> deletions_;
  std::vector<Item> inserted_;
  std::vector<std::pair<Index, Index>> updates_;
  std::vector<Pair> candidates_;
  std::vector<Pair> replaced_;
};

/// Rewrites row changes that touch sections that are deleted, inserted or moved.
class Reconciliation {
 public:
  explicit Reconciliation(const CollectionDifference<std::int64_t>& sections)
      : sections_(sections) {
    for (const auto& [source, destination] : sections.moves) moved_.insert(source);
  }

  CollectionDifference<IndexPath> reconcile(CollectionDifference<IndexPath> rows) {
    std::vector<IndexPath> insertions(rows.insertions.begin(), rows.insertions.end());
    std::vector<IndexPath> deletions(rows.deletions.begin(), rows.deletions.end());
    std::erase_if(rows.moves, [&](const auto& move) {
      const bool leaves = isDeleted(move.first);
      const bool enters = isInserted(move.second);
      if (leaves) insertions.push_back(move.second);
      if (enters) deletions.push_back(move.first);
      return leaves || enters;
    });
    std::erase_if(insertions, [&](const IndexPath& path) { return isInserted(path); });
    std::erase_if(deletions, [&](const IndexPath& path) { return isDeleted(path); });
    std::erase_if(rows.updates, [&](const auto& update) { return isDeleted(update.first); });
    for (const IndexPath& path : deletions) {
      if (moved_.contains(path.section())) isApplicable = false;
    }
    rows.insertions = IndexSet<IndexPath>(std::move(insertions));
    rows.deletions = IndexSet<IndexPath>(std::move(deletions));
    std::erase_if(rows.moves,
                  [&](const auto& move) { return predicted(rows, move) == move.second; });
    return rows;
  }

  bool isApplicable = true;

 private:
  bool isDeleted(const IndexPath& path) const {
    return sections_.deletions.contains(path.section());
  }
  bool isInserted(const IndexPath& path) const {
    return sections_.insertions.contains(path.section());
  }

  static std::int64_t countUpTo(const IndexSet<IndexPath>& rows, std::int64_t section,
                                std::int64_t item) {
    return static_cast<std::int64_t>(rows.countBelow({item, section}) -
                                     rows.countBelow({0, section}));
  }

  /// Where the other changes take the source of a move.
  IndexPath predicted(const CollectionDifference<IndexPath>& rows,
                      const std::pair<IndexPath, IndexPath>& move) const {
    const auto& [source, destination] = move;
    const std::int64_t section =
        source.section() -
        static_cast<std::int64_t>(sections_.deletions.countBelow(source.section()));
    const std::int64_t item =
        source.item() - countUpTo(rows.deletions, source.section(), source.item());
    return {item + countUpTo(rows.insertions, destination.section(), item + 1),
            section + static_cast<std::int64_t>(sections_.insertions.countBelow(section + 1))};
  }

  const CollectionDifference<std::int64_t>& sections_;
  std::unordered_set<std::int64_t> moved_;
};

}  // namespace

Difference differenceOf(const SnapshotMatching& matching,
                        const SuppressedMovePositions* suppressedMovePositions) {
  using ChangeKind = Difference::ChangeKind;
  const std::array<std::int32_t, 2> old_sections = {0, matching.sections.oldCount};
  const std::array<std::int32_t, 2> new_sections = {0, matching.sections.newCount};
  auto sections =
      LevelDifference<std::int64_t>(matching.sections, Layout<std::int64_t>(old_sections),
                                    Layout<std::int64_t>(new_sections), nullptr, nullptr)
          .result();
  const MetaMutator meta_mutator{sections.difference};
  auto rows = LevelDifference<IndexPath>(matching.rows, Layout<IndexPath>(matching.oldStarts),
                                         Layout<IndexPath>(matching.newStarts), &meta_mutator,
                                         suppressedMovePositions)
                  .result();
  using RowCase = decltype(rows)::Case;
  if (rows.kind != RowCase::available) {
    return {{}, {}, ChangeKind::hasChangeButCannotApply};
  }
  const bool changes = !sections.difference.isEmpty() || !rows.difference.isEmpty();
  Reconciliation reconciliation(sections.difference);
  auto items = reconciliation.reconcile(std::move(rows.difference));
  auto kind = changes ? ChangeKind::hasChangeAndCanApply : ChangeKind::noChange;
  if (!reconciliation.isApplicable || sections.kind == decltype(sections)::Case::tooManyMoves) {
    kind = ChangeKind::hasChangeButCannotApply;
  }
  return {std::move(sections.difference), std::move(items), kind};
}

}  // namespace tessarine
