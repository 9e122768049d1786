#pragma once

// The rules of the table engine written down one by one, on plain lists, without regard to time:
// what the library's engine has to equal.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tessarine/differencing/Difference.hpp"
#include "tests/differencing/snapshots.hpp"

namespace tessarine::test {

struct BrokenTable : std::runtime_error {
  BrokenTable() : std::runtime_error("a row came before the section at hand") {}
};

struct Wrapped {
  IndexPath index;
  Element value;
};

/// The section level lies in section 0 of an `IndexPath`; only its shifting and costs differ.
struct StepwiseTable {
  std::vector<Wrapped> items;
  const IndexSet<std::int64_t>* deletedSections;  // null at the section level
  bool handled = false;

  std::optional<std::size_t> positionOf(const IndexPath& index) const {
    std::map<IndexPath, std::size_t> map;
    for (std::size_t i = 0; i < items.size(); ++i) map[items[i].index] = i;
    const auto found = map.find(index);
    return found == map.end() ? std::nullopt : std::optional(found->second);
  }
  std::optional<IndexPath> indexFor(const Element& value) const {
    for (const Wrapped& item : items) {
      if (item.value.id == value.id) return item.index;
    }
    return std::nullopt;
  }
  void remove(const std::set<IndexPath>& indexes) {
    if (indexes.empty()) return;
    std::set<std::size_t> positions;
    for (const IndexPath& index : indexes) {
      if (const auto position = positionOf(index)) positions.insert(*position);
    }
    // NOLINTNEXTLINE(modernize-loop-convert): clang 14 does not compile this library's views
    for (auto i = positions.rbegin(); i != positions.rend(); ++i) {
      items.erase(items.begin() + static_cast<std::ptrdiff_t>(*i));
    }
    reindex(!handled);
    handled = true;
  }
  void reindex(bool withSections) {
    if (items.empty()) return;
    std::int64_t current = items[0].index.section();
    std::int64_t row = 0;
    std::int64_t skipped = 0;
    for (Wrapped& item : items) {
      const std::int64_t section = item.index.section();
      if (section != current) {
        std::int64_t gap = 0;
        if (withSections && deletedSections && current + 1 < section) {
          while (deletedSections->contains(current + 1 + gap)) ++gap;
        }
        skipped += gap;
        if (current < section - gap) row = 0;
        current = section;
      }
      item.index = IndexPath(row++, current - skipped);
    }
  }
  void insert(std::vector<Wrapped> added) {
    if (added.empty()) return;
    std::int64_t section = 0;
    std::int64_t amount = 0;
    std::vector<Wrapped> result;
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < items.size() || j < added.size()) {
      if (i == items.size()) {
        result.push_back(added[j++]);
        continue;
      }
      const IndexPath own = items[i].index;
      if (own.section() < section) throw BrokenTable();
      const IndexPath shifted =
          own.section() == section ? IndexPath(own.item() + amount, section) : own;
      if (j < added.size() && added[j].index <= shifted) {
        const IndexPath at = added[j].index;
        amount = at.section() == section ? amount + 1 : 0;
        section = at.section();
        result.push_back(added[j++]);
      } else {
        if (own.section() != section) amount = 0;
        section = own.section();
        result.push_back({shifted, items[i++].value});
      }
    }
    items = std::move(result);
  }
  std::vector<std::pair<IndexPath, IndexPath>> filteredMoves(
      std::vector<std::pair<Wrapped, Wrapped>> candidates) {
    std::map<std::int64_t, std::int64_t> rows;
    for (const Wrapped& item : items) {
      rows[item.index.section()] = std::max(rows[item.index.section()], item.index.item() + 1);
    }
    const auto impact = [&](const auto& move) {
      const IndexPath a = move.first.index;
      const IndexPath b = move.second.index;
      if (a.section() == b.section()) return std::abs(a.item() - b.item());
      return (rows[a.section()] - a.item() - 1) + (rows[b.section()] - b.item() - 1);
    };
    std::stable_sort(candidates.begin(), candidates.end(),
                     [&](const auto& a, const auto& b) { return impact(a) < impact(b); });
    std::reverse(candidates.begin(), candidates.end());
    std::vector<std::pair<IndexPath, IndexPath>> moves;
    for (const auto& [old, now] : candidates) {
      const auto position = positionOf(now.index);
      if (position && items[*position].value.id == now.value.id &&
          old.index.section() == now.index.section()) {
        continue;
      }
      const auto current = indexFor(old.value);
      if (!current) continue;
      remove({*current});
      insert({now});
      moves.emplace_back(*current, now.index);
    }
    return moves;
  }
};

struct StepwiseLevel {
  std::set<IndexPath> insertions;
  std::set<IndexPath> deletions;
  std::vector<std::pair<IndexPath, IndexPath>> updates;
  std::vector<std::pair<IndexPath, IndexPath>> moves;
  bool tooManyMoves = false;
  bool isEmpty() const {
    return insertions.empty() && deletions.empty() && updates.empty() && moves.empty();
  }
};

inline StepwiseLevel stepwiseLevel(const std::vector<Wrapped>& old, const std::vector<Wrapped>& now,
                                   const IndexSet<std::int64_t>* deletedSections,
                                   const SuppressedMovePositions* suppressed) {
  std::map<int, Wrapped> old_set;
  std::map<int, Wrapped> new_set;
  for (const Wrapped& each : old) old_set.emplace(each.value.id, each);
  for (const Wrapped& each : now) new_set.emplace(each.value.id, each);
  StepwiseLevel level;
  std::vector<Wrapped> inserted;
  for (const Wrapped& each : now) {
    if (old_set.contains(each.value.id) || new_set.at(each.value.id).index != each.index) continue;
    inserted.push_back(each);
    level.insertions.insert(each.index);
  }
  for (const auto& [id, each] : old_set) {
    if (!new_set.contains(id)) level.deletions.insert(each.index);
  }
  if (old.empty()) return level;
  StepwiseTable table{old, deletedSections};
  table.remove(level.deletions);
  table.insert(inserted);
  std::vector<std::pair<Wrapped, Wrapped>> candidates;
  for (const Wrapped& each : old) {
    const auto found = new_set.find(each.value.id);
    if (found == new_set.end()) continue;
    const Wrapped& other = found->second;
    const auto difference = other.value.compare(each.value);
    if (difference == ElementDifference::incomparable) continue;
    if (difference == ElementDifference::needsUpdate) {
      level.updates.emplace_back(each.index, other.index);
    }
    if (each.index == other.index) continue;
    if (suppressed && suppressed->suppresses(each.index, other.index)) {
      level.deletions.insert(each.index);
      table.remove({each.index});
      level.insertions.insert(other.index);
      table.insert({other});
    } else {
      candidates.emplace_back(each, other);
    }
  }
  if (candidates.size() > 300) {
    level = {};
    level.tooManyMoves = true;
    return level;
  }
  level.moves = table.filteredMoves(candidates);
  return level;
}

// NOLINTNEXTLINE(readability-function-cognitive-complexity): the steps in their order
inline Difference stepwiseDifference(const Snapshot& now, const Snapshot& old,
                                     const SuppressedMovePositions* suppressed) {
  using Kind = Difference::ChangeKind;
  const auto wrapSections = [](const Snapshot& snapshot) {
    std::vector<Wrapped> made;
    for (const Element& each : snapshot.all_sections) made.push_back({{std::ssize(made), 0}, each});
    return made;
  };
  const auto wrapRows = [](const Snapshot& snapshot) {
    std::vector<Wrapped> made;
    for (std::int64_t s = 0; s < std::ssize(snapshot.all_sections); ++s) {
      std::int64_t i = 0;
      for (const Element& each : snapshot.items(s)) made.push_back({{i++, s}, each});
    }
    return made;
  };
  const auto level = stepwiseLevel(wrapSections(old), wrapSections(now), nullptr, nullptr);
  CollectionDifference<std::int64_t> sections;
  const auto numbers = [](const std::set<IndexPath>& paths) {
    std::vector<std::int64_t> made;
    made.reserve(paths.size());
    for (const IndexPath& path : paths) made.push_back(path.item());
    return IndexSet<std::int64_t>(made);
  };
  sections.insertions = numbers(level.insertions);
  sections.deletions = numbers(level.deletions);
  for (const auto& [a, b] : level.updates) sections.updates.emplace_back(a.item(), b.item());
  for (const auto& [a, b] : level.moves) sections.moves.emplace_back(a.item(), b.item());

  StepwiseLevel rows;
  try {
    rows = stepwiseLevel(wrapRows(old), wrapRows(now), &sections.deletions, suppressed);
  } catch (const BrokenTable&) {
    return {{}, {}, Kind::hasChangeButCannotApply};
  }
  if (rows.tooManyMoves) return {{}, {}, Kind::hasChangeButCannotApply};
  const bool changes = !level.isEmpty() || !rows.isEmpty();

  const auto& gone = sections.deletions;
  const auto& came = sections.insertions;
  std::set<IndexPath> insertions = rows.insertions;
  std::set<IndexPath> deletions = rows.deletions;
  std::vector<std::pair<IndexPath, IndexPath>> moves;
  for (const auto& move : rows.moves) {
    if (gone.contains(move.first.section())) insertions.insert(move.second);
    if (came.contains(move.second.section())) deletions.insert(move.first);
    if (!gone.contains(move.first.section()) && !came.contains(move.second.section())) {
      moves.push_back(move);
    }
  }
  CollectionDifference<IndexPath> items;
  bool applicable = true;
  std::vector<IndexPath> kept;
  for (const IndexPath& each : insertions) {
    if (!came.contains(each.section())) kept.push_back(each);
  }
  items.insertions = IndexSet<IndexPath>(kept);
  kept.clear();
  for (const IndexPath& each : deletions) {
    if (gone.contains(each.section())) continue;
    for (const auto& move : sections.moves) applicable = applicable && move.first != each.section();
    kept.push_back(each);
  }
  items.deletions = IndexSet<IndexPath>(kept);
  for (const auto& update : rows.updates) {
    if (!gone.contains(update.first.section())) items.updates.push_back(update);
  }
  const auto count = [](const auto& set, const auto& test) {
    return static_cast<std::int64_t>(std::count_if(set.begin(), set.end(), test));
  };
  for (const auto& move : moves) {
    const IndexPath source = move.first;
    const IndexPath destination = move.second;
    const auto s1 = source.section() - count(gone, [&](auto s) { return s < source.section(); });
    const auto section = s1 + count(came, [&](auto s) { return s <= s1; });
    const auto r1 = source.item() - count(items.deletions, [&](const IndexPath& each) {
                      return each.section() == source.section() && each.item() < source.item();
                    });
    const auto item = r1 + count(items.insertions, [&](const IndexPath& each) {
                        return each.section() == destination.section() && each.item() <= r1;
                      });
    if (IndexPath(item, section) != destination) items.moves.push_back(move);
  }
  const auto kind = !applicable || level.tooManyMoves ? Kind::hasChangeButCannotApply
                    : changes                         ? Kind::hasChangeAndCanApply
                                                      : Kind::noChange;
  return {sections, items, kind};
}

}  // namespace tessarine::test
