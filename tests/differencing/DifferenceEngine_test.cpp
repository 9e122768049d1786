#include "tessarine/differencing/DifferenceEngine.hpp"

#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tessarine/differencing/internal/DifferenceIndex.hpp"
#include "tests/differencing/snapshots.hpp"
#include "tests/differencing/stepwiseEngine.hpp"

#include <gtest/gtest.h>

namespace {

using namespace tessarine;
using namespace tessarine::test;
using Kind = Difference::ChangeKind;
using Paths = IndexSet<IndexPath>;
using PathPairs = std::vector<std::pair<IndexPath, IndexPath>>;

void expectSteps(const Snapshot& old, const Snapshot& now,
                 const SuppressedMovePositions* suppressed = nullptr) {
  ASSERT_EQ(difference(now, old, suppressed), stepwiseDifference(now, old, suppressed))
      << textOf(old) << "   to   " << textOf(now);
}

Snapshot tableOf(const std::vector<std::vector<int>>& sections) {
  Snapshot made;
  int id = 0;
  for (const auto& rows : sections) {
    std::vector<Element> items;
    items.reserve(rows.size());
    for (const int row : rows) items.push_back({row, 0});
    made.add({id++, 0}, items);
  }
  return made;
}

SuppressedMovePositions randomSuppression(SnapshotMaker& maker) {
  const auto some = [&] {
    std::vector<IndexPath> paths(maker.below(4));
    for (IndexPath& each : paths) each = IndexPath(maker.below(6), maker.below(4));
    return Paths(paths);
  };
  return {some(), some()};
}

TEST(DifferenceEngine, SmallSnapshotsBehaveAsTheSteps) {
  const auto all = smallSnapshots(3);
  std::size_t pair = 0;
  for (const Snapshot& old : all) {
    for (const Snapshot& now : all) {
      if (thoroughness == 1 && ++pair % 13 != 0) continue;
      ASSERT_NO_FATAL_FAILURE(expectSteps(old, now));
    }
  }
}

TEST(DifferenceEngine, RandomSnapshotsBehaveAsTheSteps) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  SnapshotMaker maker(seed);
  for (int run = 0; run < 1'500 * thoroughness; ++run) {
    Snapshot old = maker.make(6, 8);
    Snapshot now = maker.changed(old);
    if (maker.oneIn(5)) std::swap(old, now);
    if (maker.oneIn(6)) maker.repeat(now);
    if (maker.oneIn(12)) maker.repeat(old);
    const auto suppressed = randomSuppression(maker);
    ASSERT_NO_FATAL_FAILURE(expectSteps(old, now, maker.oneIn(2) ? &suppressed : nullptr));
  }
}

TEST(DifferenceEngine, LargeSnapshotsBehaveAsTheSteps) {
  SnapshotMaker maker(11, 1'000'000);
  for (int run = 0; run < thoroughness; ++run) {
    Snapshot old;
    int row = 0;
    for (int s = 0; s < 40; ++s) {
      std::vector<Element> rows(50);
      for (Element& each : rows) each.id = row++;
      old.add({s, 0}, rows);
    }
    ASSERT_NO_FATAL_FAILURE(expectSteps(old, maker.changed(old)));
  }
}

TEST(DifferenceEngine, Verdicts) {
  const auto kindOf = [](const Snapshot& old, const Snapshot& now) {
    return difference(now, old).changeKind();
  };
  EXPECT_EQ(kindOf({}, {}), Kind::noChange);
  EXPECT_EQ(kindOf(tableOf({{1, 2}}), tableOf({{1, 2}})), Kind::noChange);
  Snapshot old = tableOf({{1, 2}});
  Snapshot now = tableOf({{2, 1}});
  for (Element& each : now.all_items[0]) each.version = -1;
  EXPECT_EQ(kindOf(old, now), Kind::noChange)
      << "what cannot be compared neither moves nor updates";
  // A row deleted from a section that moves.
  now = tableOf({{1}, {2, 3}});
  std::swap(now.all_sections[0], now.all_sections[1]);
  EXPECT_EQ(kindOf(tableOf({{2, 3}, {1, 4}}), now), Kind::hasChangeButCannotApply);
  // 300 moves of rows, each to the next section, and one more.
  for (const int count : {300, 301}) {
    old = tableOf({{}, {}});
    now = old;
    for (int i = 0; i < count; ++i) {
      old.all_items[0].push_back({i, 0});
      now.all_items[1].push_back({i, 0});
    }
    const Difference found = difference(now, old);
    EXPECT_EQ(found.itemChanges().moves.size(), count == 300 ? 300U : 0U);
    EXPECT_EQ(found.changeKind(),
              count == 300 ? Kind::hasChangeAndCanApply : Kind::hasChangeButCannotApply);
  }
  // Sections out of bounds: the rows of two deleted sections live on.
  const Snapshot four = tableOf({{1}, {2}, {3}, {4}});
  Snapshot one = tableOf({{1, 2, 3, 9}});
  EXPECT_NO_FATAL_FAILURE(expectSteps(four, one));
}

TEST(DifferenceEngine, ReconcilesRowsWithSections) {
  const Snapshot old = tableOf({{1, 2}, {3, 4}});
  // Section 1 is deleted and its row 3 moves to section 0.
  Difference found = difference(tableOf({{1, 2, 3}}), old);
  EXPECT_EQ(found.sectionChanges().deletions, IndexSet<std::int64_t>{1});
  EXPECT_EQ(found.itemChanges().insertions, Paths{IndexPath(2, 0)});
  EXPECT_TRUE(found.itemChanges().deletions.empty());
  EXPECT_TRUE(found.itemChanges().moves.empty());
  // A row moves into an inserted section.
  found = difference(tableOf({{1}, {3, 4}, {2}}), old);
  EXPECT_EQ(found.itemChanges().deletions, Paths{IndexPath(1, 0)});
  EXPECT_TRUE(found.itemChanges().insertions.empty());
  // Moved and updated.
  Snapshot now = tableOf({{1}, {3, 4, 2}});
  now.all_items[1][2].version = 7;
  found = difference(now, old);
  EXPECT_EQ(found.itemChanges().updates, (PathPairs{{{1, 0}, {2, 1}}}));
  EXPECT_EQ(found.itemChanges().moves, (PathPairs{{{1, 0}, {2, 1}}}));
  EXPECT_EQ(found.description(),
            "hasChangeAndCanApply\n"
            "sections: insertions [], deletions [], updates [], moves []\n"
            "rows: insertions [], deletions [], updates [(0.1 1.2)], moves [(0.1 1.2)]");
  // Suppressed by source, by destination.
  now.all_items[1][2].version = 0;
  for (const auto& suppressed : {SuppressedMovePositions{Paths{IndexPath(1, 0)}, {}},
                                 SuppressedMovePositions{{}, Paths{IndexPath(2, 1)}}}) {
    found = difference(now, old, suppressed);
    EXPECT_EQ(found.itemChanges().deletions, Paths{IndexPath(1, 0)});
    EXPECT_EQ(found.itemChanges().insertions, Paths{IndexPath(2, 1)});
    EXPECT_TRUE(found.itemChanges().moves.empty());
  }
}

TEST(DifferenceEngine, OneSectionOfAMillionRows) {
  const int count = 50'000 * thoroughness;
  Snapshot old = tableOf({{}});
  for (int i = 0; i < count; ++i) old.all_items[0].push_back({i, 0});
  Snapshot now = old;
  std::swap(now.all_items[0][1], now.all_items[0][static_cast<std::size_t>(count) - 2]);
  const Difference found = difference(now, old);
  EXPECT_EQ(found.itemChanges().moves.size(), 2U);
  EXPECT_EQ(difference(tableOf({{}}), old).itemChanges().deletions.size(),
            static_cast<std::size_t>(count));
}

TEST(DifferenceEngineDeathTest, RepeatedSectionsEndTheProcess) {
  Snapshot twice = tableOf({{1}, {2}});
  twice.all_sections[1].id = 0;
  twice.all_sections[0].id = 0;
  EXPECT_DEATH(difference(twice, Snapshot()),
               "two sections of a snapshot have the identifier \"0\"");
  EXPECT_DEATH(difference(Snapshot(), twice),
               "two sections of a snapshot have the identifier \"0\"");
  const IndexPathBumper bumper{3, 1};
  EXPECT_DEATH(bumper.bump(IndexPath(0, 2)), "before the section of its bumper");
}

/// A host whose snapshots give sections and items by value, and whose comparison may throw.
struct Thrower {
  int id;
  int identifier() const { return id; }
  ElementDifference compare(const Thrower&) const { throw std::runtime_error("compared"); }
};
struct ByValue {
  std::vector<int> ids;
  std::vector<Element> sections() const { return {{1, 0}}; }
  std::vector<Thrower> items(std::int64_t) const {
    std::vector<Thrower> made;
    for (const int id : ids) made.push_back({id});
    return made;
  }
};

TEST(DifferenceEngine, ComparisonsThatThrow) {
  EXPECT_THROW(difference(ByValue{{1, 2}}, ByValue{{2, 1}}), std::runtime_error);
  EXPECT_EQ(difference(ByValue{{1, 2}}, ByValue{{3}}).itemChanges().insertions.size(), 2U);
}

}  // namespace
