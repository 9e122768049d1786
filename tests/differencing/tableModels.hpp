#pragma once

// Tables as plain lists of lists, which know nothing of how changes are found.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tessarine/differencing/Difference.hpp"
#include "tessarine/differencing/TablePlan.hpp"
#include "tests/differencing/snapshots.hpp"

namespace tessarine::test {

/// Performs a plan step by step; a step that is not valid throws `std::out_of_range`.
class ListOfListsView : public TablePlanView {
 public:
  ListOfListsView(const Snapshot& old, const Snapshot& now) : table(old), now_(now) {}

  void deleteSection(std::int64_t at) override {
    if (!rows(at).empty()) throw std::out_of_range("a section with rows is deleted");
    table.all_items.erase(table.all_items.begin() + at);
    table.all_sections.erase(table.all_sections.begin() + at);
  }
  void insertSection(std::int64_t at, std::int64_t inNew) override {
    check(at, table.all_sections.size() + 1);
    table.all_sections.insert(table.all_sections.begin() + at,
                              now_.all_sections.at(static_cast<std::size_t>(inNew)));
    table.all_items.insert(table.all_items.begin() + at, std::vector<Element>());
  }
  void moveSection(std::int64_t from, std::int64_t to) override {
    check(from, table.all_sections.size());
    check(to, table.all_sections.size());
    move(table.all_sections, from, to);
    move(table.all_items, from, to);
    ++moves;
  }
  void updateSection(std::int64_t at) override {
    check(at, table.all_sections.size());
    updated_sections.push_back(at);
  }
  void deleteRow(IndexPath at) override {
    check(at.item(), rows(at.section()).size());
    rows(at.section()).erase(rows(at.section()).begin() + at.item());
  }
  void insertRow(IndexPath at, IndexPath inNew) override {
    check(at.item(), rows(at.section()).size() + 1);
    rows(at.section())
        .insert(rows(at.section()).begin() + at.item(),
                now_.all_items.at(static_cast<std::size_t>(inNew.section()))
                    .at(static_cast<std::size_t>(inNew.item())));
  }
  void moveRow(IndexPath from, IndexPath to) override {
    check(from.item(), rows(from.section()).size());
    const Element row = rows(from.section())[static_cast<std::size_t>(from.item())];
    rows(from.section()).erase(rows(from.section()).begin() + from.item());
    check(to.item(), rows(to.section()).size() + 1);
    rows(to.section()).insert(rows(to.section()).begin() + to.item(), row);
    ++moves;
  }
  void updateRow(IndexPath at) override {
    check(at.item(), rows(at.section()).size());
    updated_rows.push_back(at);
  }
  void reload() override { reloaded = true; }

  Snapshot table;
  std::vector<std::int64_t> updated_sections;
  std::vector<IndexPath> updated_rows;
  int moves = 0;
  bool reloaded = false;

 private:
  static void check(std::int64_t at, std::size_t size) {
    if (at < 0 || at >= static_cast<std::int64_t>(size)) throw std::out_of_range("no such place");
  }
  std::vector<Element>& rows(std::int64_t section) {
    check(section, table.all_items.size());
    return table.all_items[static_cast<std::size_t>(section)];
  }
  template <class List>
  static void move(List& list, std::int64_t from, std::int64_t to) {
    auto moved = std::move(list[static_cast<std::size_t>(from)]);
    list.erase(list.begin() + from);
    list.insert(list.begin() + to, std::move(moved));
  }

  const Snapshot& now_;
};

/// The identifiers of a table, section by section.
using Identifiers = std::vector<std::pair<int, std::vector<int>>>;

inline Identifiers identifiersOf(const Snapshot& snapshot) {
  Identifiers made;
  for (std::size_t s = 0; s < snapshot.all_sections.size(); ++s) {
    made.emplace_back(snapshot.all_sections[s].id, std::vector<int>());
    for (const Element& row : snapshot.all_items[s]) made.back().second.push_back(row.id);
  }
  return made;
}

/// Puts what was not named into the places that were, in order; absent when the counts do not
/// agree.
template <class Value>
std::optional<std::vector<Value>> filled(std::map<std::int64_t, Value> named,
                                         const std::vector<Value>& rest) {
  std::vector<Value> made;
  std::size_t next = 0;
  const std::size_t count = named.size() + rest.size();
  for (std::size_t at = 0; at < count; ++at) {
    const auto found = named.find(static_cast<std::int64_t>(at));
    if (found != named.end()) {
      made.push_back(found->second);
      named.erase(found);
    } else if (next < rest.size()) {
      made.push_back(rest[next++]);
    } else {
      return std::nullopt;
    }
  }
  return made;
}

/// Performs a batch as a view does that takes deletions and sources in old positions, insertions
/// and destinations in new ones; absent when it cannot.
// NOLINTNEXTLINE(readability-function-cognitive-complexity): the steps in their order
inline std::optional<Identifiers> performedBatch(const CollectionDifference<std::int64_t>& sections,
                                                 const CollectionDifference<IndexPath>& rows,
                                                 const Snapshot& old, const Snapshot& now) {
  const Identifiers before = identifiersOf(old);
  const Identifiers after = identifiersOf(now);
  using Section = std::size_t;  // an old section, or one of the new ones behind them
  std::map<std::int64_t, Section> named;
  std::vector<bool> taken(before.size(), false);
  for (const auto at : sections.deletions) taken.at(static_cast<std::size_t>(at)) = true;
  for (const auto at : sections.insertions) {
    named[at] = before.size() + static_cast<std::size_t>(at);
  }
  for (const auto& [from, to] : sections.moves) {
    if (taken.at(static_cast<std::size_t>(from)) || named.contains(to)) return std::nullopt;
    taken[static_cast<std::size_t>(from)] = true;
    named[to] = static_cast<Section>(from);
  }
  std::vector<Section> rest;
  for (Section s = 0; s < before.size(); ++s) {
    if (!taken[s]) rest.push_back(s);
  }
  const auto order = filled(named, rest);
  if (!order) return std::nullopt;

  std::map<IndexPath, bool> row_taken;
  std::vector<std::map<std::int64_t, int>> placed(order->size());
  const auto take = [&](const IndexPath& path) { return !std::exchange(row_taken[path], true); };
  const auto oldRow = [&](const IndexPath& path) {
    return before.at(static_cast<std::size_t>(path.section()))
        .second.at(static_cast<std::size_t>(path.item()));
  };
  for (const IndexPath& path : rows.deletions) (void)take(path);
  for (const IndexPath& path : rows.insertions) {
    if (path.section() >= std::ssize(placed)) return std::nullopt;
    if (path.item() >= std::ssize(after.at(static_cast<std::size_t>(path.section())).second)) {
      return std::nullopt;
    }
    placed[static_cast<std::size_t>(path.section())][path.item()] =
        after.at(static_cast<std::size_t>(path.section()))
            .second.at(static_cast<std::size_t>(path.item()));
  }
  for (const auto& [from, to] : rows.moves) {
    const bool known =
        from.section() < std::ssize(before) &&
        from.item() < std::ssize(before[static_cast<Section>(from.section())].second);
    if (!known || to.section() >= std::ssize(placed) || !take(from)) return std::nullopt;
    if (!placed[static_cast<std::size_t>(to.section())].emplace(to.item(), oldRow(from)).second) {
      return std::nullopt;
    }
  }
  Identifiers made;
  for (std::size_t s = 0; s < order->size(); ++s) {
    const Section section = (*order)[s];
    if (section >= before.size()) {
      made.push_back(after.at(section - before.size()));
      continue;
    }
    std::vector<int> kept;
    for (std::size_t i = 0; i < before[section].second.size(); ++i) {
      const IndexPath path(static_cast<std::int64_t>(i), static_cast<std::int64_t>(section));
      if (!row_taken.contains(path)) kept.push_back(oldRow(path));
    }
    const auto all = filled(placed[s], kept);
    if (!all) return std::nullopt;
    made.emplace_back(before[section].first, *all);
  }
  return made;
}

}  // namespace tessarine::test
