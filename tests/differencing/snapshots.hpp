#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tessarine/differencing/Diffable.hpp"
#include "tests/support/thoroughness.hpp"

namespace tessarine::test {

struct Element {
  int id = 0;
  int version = 0;  // -1: comparable with nothing

  int identifier() const { return id; }
  ElementDifference compare(const Element& old) const {
    if (version < 0 || old.version < 0) return ElementDifference::incomparable;
    return version == old.version ? ElementDifference::unchanged : ElementDifference::needsUpdate;
  }
  bool operator==(const Element&) const = default;
};

struct Snapshot {
  std::vector<Element> all_sections;
  std::vector<std::vector<Element>> all_items;

  const std::vector<Element>& sections() const { return all_sections; }
  const std::vector<Element>& items(std::int64_t section) const {
    return all_items[static_cast<std::size_t>(section)];
  }
  void add(Element section, std::vector<Element> items) {
    all_sections.push_back(section);
    all_items.push_back(std::move(items));
  }
  bool operator==(const Snapshot&) const = default;
};

/// `A1 a b | B` in short: sections and rows by their numbers, versions behind a dot.
inline std::string textOf(const Snapshot& snapshot) {
  const auto text = [](const Element& element) {
    std::string made = std::to_string(element.id);
    if (element.version != 0) made += '.' + std::to_string(element.version);
    return made;
  };
  std::string all;
  for (std::size_t i = 0; i < snapshot.all_sections.size(); ++i) {
    if (i > 0) all += " | ";
    all += 'S' + text(snapshot.all_sections[i]) + ":";
    for (const Element& item : snapshot.all_items[i]) all += ' ' + text(item);
  }
  return all;
}

/// Random snapshots and what may become of them.
class SnapshotMaker {
 public:
  /// New rows are numbered from `first_row`.
  explicit SnapshotMaker(unsigned seed, int first_row = 1) : random_(seed), next_row_(first_row) {}

  unsigned below(std::size_t bound) { return static_cast<unsigned>(random_() % bound); }
  bool oneIn(unsigned n) { return below(n) == 0; }

  Snapshot make(unsigned most_sections, unsigned most_rows) {
    Snapshot made;
    for (unsigned s = below(most_sections + 1); s > 0; --s) {
      std::vector<Element> rows(below(most_rows + 1));
      for (Element& row : rows) row.id = next_row_++;
      made.add({next_section_++, 0}, std::move(rows));
    }
    return made;
  }

  /// A few changes of every kind, some at once.
  Snapshot changed(Snapshot snapshot) {
    for (unsigned edits = 1 + below(5); edits > 0; --edits) edit(snapshot);
    return snapshot;
  }

  /// Makes some identifiers repeat.
  void repeat(Snapshot& snapshot) {
    for (auto& rows : snapshot.all_items) {
      for (Element& row : rows) {
        if (oneIn(3)) row.id = static_cast<int>(below(4));
      }
    }
  }

 private:
  using Rows = std::vector<Element>;

  template <class List>
  auto anyPlace(List& list, bool end = false) {
    return list.begin() + below(list.size() + (end ? 1 : 0));
  }
  Rows* filled(Snapshot& snapshot) {
    if (snapshot.all_items.empty()) return nullptr;
    Rows& rows = *anyPlace(snapshot.all_items);
    return rows.empty() ? nullptr : &rows;
  }

  void edit(Snapshot& snapshot) {
    if (snapshot.all_sections.empty() || oneIn(10)) {
      const auto at = below(snapshot.all_sections.size() + 1);
      snapshot.all_sections.insert(snapshot.all_sections.begin() + at, {next_section_++, 0});
      Rows rows;
      if (oneIn(2)) rows.push_back({next_row_++, 0});
      snapshot.all_items.insert(snapshot.all_items.begin() + at, std::move(rows));
    } else if (oneIn(8)) {
      const auto at = below(snapshot.all_sections.size());
      snapshot.all_sections.erase(snapshot.all_sections.begin() + at);
      const Rows rows = snapshot.all_items[at];
      snapshot.all_items.erase(snapshot.all_items.begin() + at);
      // Some of its rows live on elsewhere.
      for (const Element& row : rows) {
        if (snapshot.all_items.empty() || !oneIn(3)) continue;
        Rows& target = *anyPlace(snapshot.all_items);
        target.insert(anyPlace(target, true), row);
      }
    } else if (oneIn(6)) {
      const auto from = below(snapshot.all_sections.size());
      const auto to = below(snapshot.all_sections.size());
      std::swap(snapshot.all_sections[from], snapshot.all_sections[to]);
      std::swap(snapshot.all_items[from], snapshot.all_items[to]);
    } else if (oneIn(8)) {
      anyPlace(snapshot.all_sections)->version += oneIn(4) ? -1 : 1;
    } else {
      editRows(snapshot);
    }
  }

  void editRows(Snapshot& snapshot) {
    Rows* rows = filled(snapshot);
    if (rows == nullptr || oneIn(4)) {
      Rows& target = *anyPlace(snapshot.all_items);
      target.insert(anyPlace(target, true), Element{next_row_++, 0});
      return;
    }
    const auto row = anyPlace(*rows);
    if (oneIn(4)) {
      rows->erase(row);
    } else if (oneIn(3)) {
      row->version += oneIn(4) ? -1 : 1;
    } else {
      const Element moved = *row;
      rows->erase(row);
      Rows& target = oneIn(2) ? *rows : *anyPlace(snapshot.all_items);
      target.insert(anyPlace(target, true), moved);
    }
  }

  std::mt19937 random_;
  int next_section_ = 100;
  int next_row_;
};

/// Every snapshot of at most two sections, 1 and 2, with every arrangement of at most `rows` rows.
inline std::vector<Snapshot> smallSnapshots(int rows) {
  std::vector<Snapshot> all;
  const std::vector<std::vector<int>> section_lists = {{}, {1}, {2}, {1, 2}, {2, 1}};
  for (const auto& sections : section_lists) {
    Snapshot empty;
    for (const int id : sections) empty.add({id, 0}, {});
    // Rows are inserted one after the other at every place, so that every arrangement comes once.
    std::vector<Snapshot> current = {empty};
    for (int row = 1; row <= rows && !sections.empty(); ++row) {
      const std::size_t count = current.size();
      for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t s = 0; s < sections.size(); ++s) {
          for (std::size_t at = 0; at <= current[i].all_items[s].size(); ++at) {
            Snapshot longer = current[i];
            auto& items = longer.all_items[s];
            items.insert(items.begin() + static_cast<std::ptrdiff_t>(at), Element{row, 0});
            current.push_back(std::move(longer));
          }
        }
      }
    }
    all.insert(all.end(), current.begin(), current.end());
  }
  return all;
}

}  // namespace tessarine::test
