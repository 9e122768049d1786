// Replays the batches of `difference` on a plain list of lists, over all small snapshots, and
// prints by circumstance how many give the new snapshot: the table in docs/differencing.md. No
// test, for the batches follow their rules; build and run the target differencing_report.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tessarine/differencing.hpp"
#include "tests/differencing/snapshots.hpp"
#include "tests/differencing/tableModels.hpp"

namespace {

using namespace tessarine;
using namespace tessarine::test;

template <class List>
bool moveIn(List& list, std::int64_t from, std::int64_t to) {
  if (from < 0 || from >= std::ssize(list) || to < 0 || to >= std::ssize(list)) return false;
  auto moved = std::move(list[static_cast<std::size_t>(from)]);
  list.erase(list.begin() + from);
  list.insert(list.begin() + to, std::move(moved));
  return true;
}

/// Deletions in old positions, from the last; then insertions in new ones, from the first; then the
/// moves in their order. Sections go before rows, and inserted ones bring their rows.
std::optional<Identifiers> replayed(const Difference& difference, const Snapshot& old,
                                    const Snapshot& now) {
  const auto& sections = difference.sectionChanges();
  const auto& rows = difference.itemChanges();
  Identifiers table = identifiersOf(old);
  const Identifiers after = identifiersOf(now);
  const auto rowsOf = [&](const IndexPath& path) -> std::vector<int>* {
    if (path.section() < 0 || path.section() >= std::ssize(table)) return nullptr;
    return &table[static_cast<std::size_t>(path.section())].second;
  };
  const std::vector<IndexPath> deletions(rows.deletions.begin(), rows.deletions.end());
  // NOLINTNEXTLINE(modernize-loop-convert): clang 14 does not compile libstdc++'s views
  for (auto path = deletions.rbegin(); path != deletions.rend(); ++path) {
    // Not always a place of the old snapshot: sources of moves become deletions as they are.
    auto* const list = rowsOf(*path);
    if (list == nullptr || path->item() >= std::ssize(*list)) return std::nullopt;
    list->erase(list->begin() + path->item());
  }
  const std::vector<std::int64_t> gone(sections.deletions.begin(), sections.deletions.end());
  // NOLINTNEXTLINE(modernize-loop-convert): as above
  for (auto section = gone.rbegin(); section != gone.rend(); ++section) {
    table.erase(table.begin() + *section);
  }
  for (const std::int64_t section : sections.insertions) {
    if (section > std::ssize(table)) return std::nullopt;
    table.insert(table.begin() + section, after[static_cast<std::size_t>(section)]);
  }
  for (const auto& [from, to] : sections.moves) {
    if (!moveIn(table, from, to)) return std::nullopt;
  }
  for (const IndexPath& path : rows.insertions) {
    auto* const list = rowsOf(path);
    if (list == nullptr || path.item() > std::ssize(*list)) return std::nullopt;
    list->insert(list->begin() + path.item(), after[static_cast<std::size_t>(path.section())]
                                                  .second[static_cast<std::size_t>(path.item())]);
  }
  for (const auto& [from, to] : rows.moves) {
    auto* const source = rowsOf(from);
    auto* const target = rowsOf(to);
    if (source == nullptr || target == nullptr || from.item() >= std::ssize(*source)) {
      return std::nullopt;
    }
    const int row = (*source)[static_cast<std::size_t>(from.item())];
    source->erase(source->begin() + from.item());
    if (to.item() > std::ssize(*target)) return std::nullopt;
    target->insert(target->begin() + to.item(), row);
  }
  return table;
}

std::string circumstance(const Snapshot& old, const Snapshot& now) {
  const Identifiers before = identifiersOf(old);
  const Identifiers after = identifiersOf(now);
  std::map<int, std::pair<int, std::size_t>> places;
  for (const auto& [section, rows] : after) {
    for (std::size_t i = 0; i < rows.size(); ++i) places[rows[i]] = {section, i};
  }
  bool sections = before.size() != after.size();
  for (std::size_t s = 0; s < before.size() && !sections; ++s) {
    sections = before[s].first != after[s].first;
  }
  bool crosses = false;
  bool reorders = false;
  std::size_t common = 0;
  std::size_t count = 0;
  for (const auto& [section, rows] : before) {
    std::size_t last = 0;
    count += rows.size();
    for (const int row : rows) {
      const auto found = places.find(row);
      if (found == places.end()) continue;
      ++common;
      crosses = crosses || found->second.first != section;
      if (found->second.first != section) continue;
      reorders = reorders || found->second.second < last;
      last = found->second.second;
    }
  }
  const bool edits = common != count || common != places.size();
  std::string text;
  const auto add = [&](bool holds, const char* what) {
    if (!holds) return;
    text += text.empty() ? "" : " + ";
    text += what;
  };
  add(sections, "sections change");
  add(edits, "rows come or go");
  add(reorders, "rows change order");
  add(crosses, "rows change section");
  return text.empty() ? "nothing" : text;
}

std::string shown(const Snapshot& snapshot) {
  std::string text;
  for (std::size_t s = 0; s < snapshot.all_sections.size(); ++s) {
    if (s > 0) text += ' ';
    text += static_cast<char>('A' + snapshot.all_sections[s].id - 1);
    text += '(';
    for (const Element& row : snapshot.all_items[s]) text += static_cast<char>('a' + row.id - 1);
    text += ')';
  }
  return text.empty() ? "nothing" : text;
}

struct Tally {
  int applicable = 0;
  int replay = 0;  // step by step
  int placed = 0;  // as one batch
  std::string smallest;
};

}  // namespace

int main() {
  const auto all = smallSnapshots(3);
  std::map<std::string, Tally> tallies;
  Tally total;
  for (const Snapshot& old : all) {
    for (const Snapshot& now : all) {
      const Difference found = difference(now, old);
      if (found.changeKind() != Difference::ChangeKind::hasChangeAndCanApply) continue;
      Tally& tally = tallies[circumstance(old, now)];
      const bool replays = replayed(found, old, now) == identifiersOf(now);
      const bool places = performedBatch(found.sectionChanges(), found.itemChanges(), old, now) ==
                          identifiersOf(now);
      tally.placed += places ? 1 : 0;
      total.placed += places ? 1 : 0;
      ++tally.applicable;
      ++total.applicable;
      if (replays) {
        ++tally.replay;
        ++total.replay;
        continue;
      }
      const std::string text = shown(old) + " to " + shown(now);
      if (tally.smallest.empty() || text.size() < tally.smallest.size()) tally.smallest = text;
    }
  }
  std::puts(
      "| what changes | applicable | right step by step | right as one batch | wrong at first |");
  std::puts("|---|---|---|---|---|");
  for (const auto& [name, tally] : tallies) {
    std::printf("| %s | %d | %.0f%% | %.0f%% | %s |\n", name.c_str(), tally.applicable,
                100.0 * tally.replay / tally.applicable, 100.0 * tally.placed / tally.applicable,
                tally.smallest.c_str());
  }
  std::printf("| all | %d | %.0f%% | %.0f%% | |\n", total.applicable,
              100.0 * total.replay / total.applicable, 100.0 * total.placed / total.applicable);
}
