#include "tessarine/differencing/TablePlan.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tessarine/differencing/internal/PieceLists.hpp"
#include "tessarine/differencing/internal/PlanReplay.hpp"
#include "tests/differencing/snapshots.hpp"
#include "tests/differencing/tableModels.hpp"

#include <gtest/gtest.h>

namespace {

using namespace tessarine;
using namespace tessarine::test;
using Verdict = TablePlan::Verdict;

int longestIncreasing(const std::vector<std::int64_t>& values) {
  std::vector<int> best(values.size(), 1);
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (values[j] < values[i]) best[i] = std::max(best[i], best[j] + 1);
    }
  }
  return values.empty() ? 0 : *std::max_element(best.begin(), best.end());
}

/// What a plan has to reach, found by looking each identifier up.
struct Expectation {
  int moves = 0;
  std::vector<std::int64_t> updated_sections;
  std::vector<IndexPath> updated_rows;

  Expectation(const Snapshot& old, const Snapshot& now) {
    std::map<int, std::pair<std::int64_t, Element>> new_sections;
    std::map<int, std::pair<IndexPath, Element>> new_rows;
    for (std::int64_t s = 0; s < std::ssize(now.all_sections); ++s) {
      const Element& section = now.all_sections[static_cast<std::size_t>(s)];
      new_sections[section.id] = {s, section};
      std::int64_t i = 0;
      for (const Element& row : now.items(s)) new_rows[row.id] = {IndexPath(i++, s), row};
    }
    std::vector<std::int64_t> order;
    for (std::int64_t s = 0; s < std::ssize(old.all_sections); ++s) {
      const Element& section = old.all_sections[static_cast<std::size_t>(s)];
      const auto found = new_sections.find(section.id);
      if (found != new_sections.end()) {
        order.push_back(found->second.first);
        if (found->second.second.compare(section) == ElementDifference::needsUpdate) {
          updated_sections.push_back(found->second.first);
        }
      }
      std::vector<std::int64_t> own;
      int crossing = 0;
      for (const Element& row : old.items(s)) {
        const auto row_found = new_rows.find(row.id);
        if (row_found == new_rows.end()) continue;
        const auto& [path, value] = row_found->second;
        if (value.compare(row) == ElementDifference::needsUpdate) updated_rows.push_back(path);
        const bool stays = found != new_sections.end() && path.section() == found->second.first;
        if (stays) own.push_back(path.item());
        crossing += stays ? 0 : 1;
      }
      moves += crossing + static_cast<int>(own.size()) - longestIncreasing(own);
    }
    moves += static_cast<int>(order.size()) - longestIncreasing(order);
  }
};

void expectPlan(const Snapshot& old, const Snapshot& now) {
  SCOPED_TRACE(textOf(old) + "   to   " + textOf(now));
  const TablePlan plan = tablePlan(old, now);
  ASSERT_NE(plan.verdict(), Verdict::reload);
  ASSERT_EQ(plan.verdict() == Verdict::noChange, plan.steps().empty());
  ListOfListsView view(old, now);
  ASSERT_NO_THROW(plan.perform(view)) << plan;
  ASSERT_EQ(identifiersOf(view.table), identifiersOf(now)) << plan;
  const Expectation expected(old, now);
  ASSERT_EQ(view.moves, expected.moves) << plan;
  ASSERT_EQ(plan.moveCount(), static_cast<std::size_t>(expected.moves));
  ASSERT_EQ(view.updated_sections, expected.updated_sections) << plan;
  ASSERT_EQ(view.updated_rows, expected.updated_rows) << plan;
  const auto batch = plan.batch();
  ASSERT_EQ(performedBatch(batch.sections, batch.rows, old, now), identifiersOf(now)) << plan;
}

TEST(TablePlan, AllSmallSnapshots) {
  const auto all = smallSnapshots(3);
  std::size_t pair = 0;
  for (const Snapshot& old : all) {
    for (const Snapshot& now : all) {
      if (thoroughness == 1 && ++pair % 13 != 0) continue;
      ASSERT_NO_FATAL_FAILURE(expectPlan(old, now));
    }
  }
}

TEST(TablePlan, RandomSnapshots) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  SnapshotMaker maker(seed);
  for (int run = 0; run < 5'000 * thoroughness; ++run) {
    const Snapshot old = maker.make(5, 7);
    const Snapshot now = maker.changed(maker.oneIn(3) ? maker.changed(old) : old);
    ASSERT_NO_FATAL_FAILURE(expectPlan(old, now));
  }
}

/// Long enough that rows which stand in order are matched without a look-up.
Snapshot largeSnapshot(SnapshotMaker& maker) {
  Snapshot made;
  int row = 0;
  for (int s = 0; s < 12; ++s) {
    std::vector<Element> rows(50 + maker.below(200));
    for (Element& each : rows) each.id = row++;
    made.add({s, 0}, rows);
  }
  return made;
}

/// Takes rows out in one piece, which may go elsewhere, and puts new ones in.
void changeInPieces(Snapshot& snapshot, SnapshotMaker& maker, int fresh) {
  auto& from = snapshot.all_items[maker.below(snapshot.all_items.size())];
  auto& to = snapshot.all_items[maker.below(snapshot.all_items.size())];
  const auto begin = from.begin() + maker.below(from.size() + 1);
  const auto end = begin + maker.below(std::min<std::size_t>(20, from.end() - begin) + 1);
  std::vector<Element> piece(begin, end);
  from.erase(begin, end);
  if (maker.oneIn(2)) piece.assign(maker.below(20), {});
  for (Element& row : piece) {
    if (row.id == 0) row.id = fresh++;
  }
  to.insert(to.begin() + maker.below(to.size() + 1), piece.begin(), piece.end());
}

TEST(TablePlan, LargeSnapshots) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  SnapshotMaker maker(seed, 1'000'000);
  for (int run = 0; run < 20 * thoroughness; ++run) {
    const Snapshot old = largeSnapshot(maker);
    Snapshot now = old;
    for (unsigned edits = maker.below(20); edits > 0; --edits) now = maker.changed(now);
    for (int piece = static_cast<int>(maker.below(4)); piece > 0; --piece) {
      changeInPieces(now, maker, 2'000'000 + 1'000 * piece);
    }
    ASSERT_NO_FATAL_FAILURE(expectPlan(old, now));
    ASSERT_NO_FATAL_FAILURE(expectPlan(now, old));

    // Repeats that are seen are no plan's business; those that are not must do no harm.
    for (unsigned repeats = maker.below(4); repeats > 0; --repeats) {
      auto& rows = now.all_items[maker.below(now.all_items.size())];
      if (!rows.empty()) rows[maker.below(rows.size())].id = static_cast<int>(maker.below(1'000));
    }
    const TablePlan plan = tablePlan(old, now);
    ListOfListsView view(old, now);
    ASSERT_NO_THROW(plan.perform(view)) << plan;
    ASSERT_TRUE(view.reloaded || identifiersOf(view.table) == identifiersOf(now)) << plan;
  }
}

TEST(TablePlan, LargeShuffles) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int run = 0; run < 2 * thoroughness; ++run) {
    Snapshot old;
    int row = 0;
    for (int s = 0; s < 8; ++s) {
      std::vector<Element> rows(300);
      for (Element& each : rows) each.id = row++;
      old.add({s, 0}, rows);
    }
    Snapshot now = old;
    for (auto& rows : now.all_items) {
      const auto middle = rows.begin() + static_cast<std::ptrdiff_t>(random() % 300);
      std::shuffle(rows.begin(), middle, random);
    }
    for (int i = 0; i < 500; ++i) {
      auto& a = now.all_items[random() % 8];
      auto& b = now.all_items[random() % 8];
      if (a.empty() || b.empty()) continue;
      std::swap(a[random() % a.size()], b[random() % b.size()]);
    }
    std::shuffle(now.all_sections.begin(), now.all_sections.end(), random);
    ASSERT_NO_FATAL_FAILURE(expectPlan(old, now));
  }
}

TEST(TablePlan, SuppressedMovesAreReplaced) {
  SnapshotMaker maker(3);
  for (int run = 0; run < 500 * thoroughness; ++run) {
    const Snapshot old = maker.make(4, 6);
    const Snapshot now = maker.changed(old);
    const auto free = tablePlan(old, now);
    TablePlanOptions options;
    std::size_t suppressed = 0;
    std::vector<IndexPath> sources;
    std::vector<IndexPath> destinations;
    for (const TableStep& step : free.steps()) {
      if (step.kind != TableStep::Kind::moveRow || maker.oneIn(2)) continue;
      if (maker.oneIn(2)) {
        sources.push_back(step.inOld);
      } else {
        destinations.push_back(step.inNew);
      }
    }
    options.suppressedMovePositions = {IndexSet<IndexPath>(sources),
                                       IndexSet<IndexPath>(destinations)};
    for (const TableStep& step : free.steps()) {
      if (step.kind != TableStep::Kind::moveRow) continue;
      if (options.suppressedMovePositions.suppresses(step.inOld, step.inNew)) ++suppressed;
    }
    const auto plan = tablePlan(old, now, options);
    ListOfListsView view(old, now);
    ASSERT_NO_THROW(plan.perform(view)) << plan;
    ASSERT_EQ(identifiersOf(view.table), identifiersOf(now)) << plan;
    ASSERT_EQ(plan.moveCount() + suppressed, free.moveCount()) << plan << '\n' << free;
  }
}

TEST(TablePlan, ReloadsPastItsBounds) {
  Snapshot old;
  old.add({1, 0}, {{1, 0}, {2, 0}, {3, 0}, {4, 0}});
  Snapshot now;
  now.add({1, 0}, {{4, 0}, {3, 0}, {2, 7}, {5, 0}});  // 2 moves, 1 deleted, 1 inserted, 1 updated
  const auto verdict = [&](const TablePlanOptions& options) {
    return tablePlan(old, now, options).verdict();
  };
  EXPECT_EQ(verdict({.mostMoves = 2}), Verdict::apply);
  EXPECT_EQ(verdict({.mostMoves = 1}), Verdict::reload);
  EXPECT_EQ(verdict({.mostChangedRows = 5}), Verdict::apply);
  EXPECT_EQ(verdict({.mostChangedRows = 4}), Verdict::reload);
  ListOfListsView view(old, now);
  tablePlan(old, now, {.mostMoves = 0}).perform(view);
  EXPECT_TRUE(view.reloaded);
  EXPECT_EQ(view.table, old);
}

TEST(TablePlan, RepeatedIdentifiers) {
  Snapshot once;
  once.add({1, 0}, {{1, 0}, {2, 0}});
  Snapshot twice;
  twice.add({1, 0}, {{1, 0}, {1, 0}});
  Snapshot sections;
  sections.add({1, 0}, {});
  sections.add({1, 0}, {});
  for (const Snapshot* each : {&twice, &sections}) {
    EXPECT_EQ(tablePlan(*each, *each).verdict(), Verdict::noChange);
    EXPECT_EQ(tablePlan(*each, once).verdict(), Verdict::reload);
    EXPECT_EQ(tablePlan(once, *each).verdict(), Verdict::reload);
  }
  Snapshot updated = twice;
  updated.all_items[0][1].version = 1;
  EXPECT_EQ(tablePlan(twice, updated).verdict(), Verdict::reload);

  SnapshotMaker maker(1);
  Snapshot large = largeSnapshot(maker);
  for (const int at : {10, 20}) large.all_items[3][static_cast<std::size_t>(at)].id = -1;
  Snapshot now = large;
  now.all_items[3].erase(now.all_items[3].begin() + 15);
  ListOfListsView view(large, now);
  tablePlan(large, now).perform(view);
  EXPECT_EQ(view.table, now) << "rows in order are matched by their place";
  for (const int at : {5, 30}) now.all_items[7][static_cast<std::size_t>(at)].id = -2;
  EXPECT_EQ(tablePlan(large, now).verdict(), Verdict::reload);
  EXPECT_EQ(tablePlan(now, large).verdict(), Verdict::reload);
}

TEST(TablePlan, OneSectionOfAMillionRows) {
  const int count = 50'000 * thoroughness;
  Snapshot old;
  old.add({1, 0}, std::vector<Element>(static_cast<std::size_t>(count)));
  for (int i = 0; i < count; ++i) old.all_items[0][static_cast<std::size_t>(i)].id = i;
  Snapshot now = old;
  std::rotate(now.all_items[0].begin(), now.all_items[0].begin() + 3, now.all_items[0].end());
  EXPECT_EQ(tablePlan(old, now).moveCount(), 3U);
  EXPECT_EQ(tablePlan(Snapshot(), old).steps().size(), static_cast<std::size_t>(count) + 1);
  EXPECT_EQ(tablePlan(old, Snapshot()).steps().size(), static_cast<std::size_t>(count) + 1);
}

/// A plan with any one step left out, doubled or shifted is found out.
TEST(PlanReplay, FindsFaults) {
  SnapshotMaker maker(5);
  int faults = 0;
  for (int run = 0; run < 100 * thoroughness; ++run) {
    const Snapshot old = maker.make(4, 5);
    const Snapshot now = maker.changed(old);
    const auto matching = matchSnapshots(old, now);
    const auto steps = tablePlan(old, now).steps();
    for (std::size_t i = 0; i < steps.size(); ++i) {
      if (steps[i].kind >= TableStep::Kind::updateSection) continue;
      auto without = steps;
      without.erase(without.begin() + static_cast<std::ptrdiff_t>(i));
      ASSERT_FALSE(replaysToNewSnapshot(matching, without));
      auto shifted = steps;
      shifted[i].from = IndexPath(shifted[i].from.item() + 1, shifted[i].from.section() + 1);
      shifted[i].to = IndexPath(shifted[i].to.item(), shifted[i].to.section() - 1);
      ListOfListsView view(old, now);
      bool valid = true;
      try {
        TablePlan(Verdict::apply, shifted).perform(view);
      } catch (const std::out_of_range&) {
        valid = false;
      }
      valid = valid && identifiersOf(view.table) == identifiersOf(now);
      ASSERT_EQ(replaysToNewSnapshot(matching, shifted), valid);
      faults += valid ? 0 : 1;
    }
  }
  EXPECT_GT(faults, 100);
}

// NOLINTNEXTLINE(readability-function-cognitive-complexity): one step of each kind, by chance
TEST(PieceLists, BehaveAsVectors) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int run = 0; run < 20 * thoroughness; ++run) {
    const std::vector<std::int32_t> starts = {0, 5, 5, 30};
    PieceLists lists(starts);
    std::vector<std::vector<std::int32_t>> model(3);
    for (std::int32_t item = 0; item < 30; ++item) model[item < 5 ? 0 : 2].push_back(item);
    std::int32_t fresh = 30;
    std::vector<std::int32_t> out;
    for (int step = 0; step < 300; ++step) {
      const std::size_t list = random() % model.size();
      auto& own = model[list];
      const auto number = static_cast<std::int32_t>(list);
      if (random() % 2 == 0 && !own.empty()) {
        const auto rank = static_cast<std::int32_t>(random() % own.size());
        ASSERT_EQ(lists.at(number, rank), own[static_cast<std::size_t>(rank)]);
        ASSERT_EQ(lists.erase(number, rank), own[static_cast<std::size_t>(rank)]);
        out.push_back(own[static_cast<std::size_t>(rank)]);
        own.erase(own.begin() + rank);
      } else if (random() % 40 == 0) {
        ASSERT_EQ(lists.addList(), std::ssize(model));
        model.emplace_back();
      } else if (random() % 60 == 0 && list > 0) {
        lists.append(0, number);
        model[0].insert(model[0].end(), own.begin(), own.end());
        own.clear();
      } else {
        std::int32_t item = fresh;
        if (!out.empty() && random() % 2 == 0) {
          item = out.back();
          out.pop_back();
        } else {
          ++fresh;
        }
        const auto rank = static_cast<std::int32_t>(random() % (own.size() + 1));
        lists.insert(number, rank, item);
        own.insert(own.begin() + rank, item);
      }
    }
    for (std::size_t list = 0; list < model.size(); ++list) {
      const auto number = static_cast<std::int32_t>(list);
      std::vector<std::int32_t> items;
      lists.forEachPiece(number, [&](const PieceLists::Piece& piece) {
        for (std::int32_t i = 0; i < piece.length; ++i) items.push_back(piece.start + i);
        return true;
      });
      ASSERT_EQ(items, model[list]);
      ASSERT_EQ(lists.size(number), std::ssize(model[list]));
      for (std::size_t i = 0; i < items.size(); ++i) {
        const auto place = lists.locate(items[i]);
        ASSERT_TRUE(place);
        ASSERT_EQ(std::pair(place->list, place->rank), std::pair(number, static_cast<int>(i)));
      }
    }
    for (const auto item : out) ASSERT_FALSE(lists.locate(item));
  }
}

}  // namespace
