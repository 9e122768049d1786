#include "tessarine/differencing/CollectionChanges.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <iterator>
#include <limits>
#include <list>
#include <numeric>
#include <optional>
#include <random>
#include <ranges>
#include <stdexcept>
#include <string>
#include <vector>

#include "tessarine/differencing/Diffing.hpp"
#include "tessarine/differencing/NumberEdit.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"
#include "tessarine/system/json/JSONEncoder.hpp"
#include "tests/differencing/paperSearch.hpp"
#include "tests/differencing/snapshots.hpp"

#include <gtest/gtest.h>

namespace {

using tessarine::applying;
using tessarine::changes;
using tessarine::CollectionChanges;
using tessarine::DecodingError;
using tessarine::JSONDecoder;
using tessarine::JSONEncoder;
using Changes = CollectionChanges<int>;
using Change = Changes::Change;
using Ints = std::vector<int>;

static_assert(std::ranges::bidirectional_range<Changes> && std::ranges::sized_range<Changes>);
static_assert(!std::indirectly_writable<Changes::iterator, Change>);

/// The script that the paper's search gives, as the library has to give it.
Changes paperChanges(const Ints& old, const Ints& now) {
  std::vector<Change> made;
  for (const auto& [isRemoval, offset] :
       tessarine::test::paperSearch(old, now, std::equal_to<>())) {
    const auto at = static_cast<std::size_t>(offset);
    made.push_back(isRemoval ? Change::remove(offset, old[at]) : Change::insert(offset, now[at]));
  }
  return *Changes::fromChanges(made);
}

std::size_t longestCommon(const Ints& a, const Ints& b) {
  std::vector<std::vector<std::size_t>> best(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i < a.size(); ++i) {
    for (std::size_t j = 0; j < b.size(); ++j) {
      best[i + 1][j + 1] = a[i] == b[j] ? best[i][j] + 1 : std::max(best[i][j + 1], best[i + 1][j]);
    }
  }
  return best[a.size()][b.size()];
}

/// Every law that holds for the difference of two lists.
void expectLaws(const Ints& old, const Ints& now) {
  const Changes found = changes(now, old);
  ASSERT_EQ(found, paperChanges(old, now));
  ASSERT_EQ(found.size(), old.size() + now.size() - 2 * longestCommon(old, now));
  ASSERT_EQ(applying(old, found), now);
  ASSERT_EQ(applying(now, found.inverse()), old);
  ASSERT_EQ(found.inverse().inverse(), found);
  const Changes moved = found.inferringMoves();
  ASSERT_EQ(applying(old, moved), now);
  ASSERT_EQ(Changes::fromChanges(moved), moved) << "the associations are a pairing";
  // The view's order is valid step by step on an array.
  Ints steps = old;
  for (const Change& change : found) {
    const auto at = steps.begin() + change.offset;
    change.isRemove() ? steps.erase(at) : steps.insert(at, change.element);
  }
  ASSERT_EQ(steps, now);
}

std::vector<Ints> listsUpTo(std::size_t length, int identifiers) {
  std::vector<Ints> lists = {{}};
  for (std::size_t i = 0; i < lists.size(); ++i) {
    if (lists[i].size() == length) break;
    for (int id = 0; id < identifiers; ++id) {
      Ints longer = lists[i];
      longer.push_back(id);
      lists.push_back(std::move(longer));
    }
  }
  return lists;
}

constexpr bool sanitized = tessarine::test::thoroughness == 1;

TEST(Changes, EveryPairOfSmallLists) {
  const auto lists = listsUpTo(5, 4);
  ASSERT_EQ(lists.size(), 1365U);
  std::size_t pair = 0;
  for (const Ints& old : lists) {
    for (const Ints& now : lists) {
      if (sanitized && ++pair % 101 != 0) continue;
      ASSERT_NO_FATAL_FAILURE(expectLaws(old, now))
          << testing::PrintToString(old) << " to " << testing::PrintToString(now);
    }
  }
}

TEST(Changes, RandomPairs) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int run = 0; run < (sanitized ? 50 : 500); ++run) {
    const int identifiers = 1 + static_cast<int>(random() % 300);
    Ints old(random() % 200);
    for (int& each : old) each = static_cast<int>(random() % identifiers);
    Ints now = old;
    if (random() % 4 == 0) now.resize(random() % 200);
    for (auto edits = random() % 40; edits > 0; --edits) {
      const auto at = static_cast<std::ptrdiff_t>(random() % (now.size() + 1));
      if (random() % 2 == 0 || at == std::ssize(now)) {
        now.insert(now.begin() + at, static_cast<int>(random() % identifiers));
      } else {
        now.erase(now.begin() + at);
      }
    }
    ASSERT_NO_FATAL_FAILURE(expectLaws(old, now));
  }
}

TEST(Changes, WhatIsForgottenOnTheWayIsFoundAgain) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int run = 0; run < 20; ++run) {
    const unsigned identifiers = 2 + random() % 500;
    const auto anyList = [&] {
      Ints list(random() % 600);
      for (int& each : list) each = static_cast<int>(random() % identifiers);
      return list;
    };
    const Ints old = anyList();
    const Ints now = anyList();
    const auto isEqual = [&](auto x, auto y) { return old[x] == now[y]; };
    const auto search = [&](std::size_t mostWords) {
      return tessarine::ShortestEdit<std::int64_t, decltype(isEqual)>(
          std::ssize(old), std::ssize(now), isEqual, mostWords);
    };
    const auto whole = *search(1'000'000).script();
    for (const std::size_t words : {0, 40, 300}) {
      ASSERT_TRUE(std::ranges::equal(whole, *search(words).script())) << words;
    }
    ASSERT_FALSE(search(1'000'000).script(whole.size() / 2)) << "a level has a point or more";
  }
}

TEST(Changes, NumbersFoundTheShortWayAreFoundAlike) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  int found = 0;
  for (int run = 0; run < 300 * tessarine::test::thoroughness; ++run) {
    // From all different to full of chance matches; what comes is new, known, or both.
    const unsigned identifiers = 1U << (1 + random() % 10);
    Ints old(random() % 300);
    for (int& each : old) each = static_cast<int>(random() % identifiers);
    if (random() % 2 == 0) std::iota(old.begin(), old.end(), 0);
    Ints now = old;
    for (auto edits = random() % 60; edits > 0; --edits) {
      const auto place = [&] {
        return now.begin() + static_cast<std::ptrdiff_t>(random() % (now.size() + 1));
      };
      const auto at = place();
      switch (random() % 4) {
        case 0:
          if (at != now.end()) now.erase(at);
          break;
        case 1:
          now.insert(at, static_cast<int>(random() % identifiers));
          break;
        case 2:
          now.insert(at, 1 + random() % 5, -static_cast<int>(random() % 100'000));
          break;
        default:
          if (random() % 8 == 0) std::rotate(now.begin(), at, now.end());
      }
    }
    const auto whole = *tessarine::shortestEdit(old.size(), now.size(),
                                                [&](auto x, auto y) { return old[x] == now[y]; });
    for (const std::size_t mostPoints : {0, 100, 1'000'000}) {
      const auto edits = tessarine::NumberEdit<int>(old, now).script(mostPoints);
      if (!edits) continue;
      ++found;
      ASSERT_TRUE(std::ranges::equal(whole, *edits))
          << testing::PrintToString(old) << " to " << testing::PrintToString(now);
    }
    ASSERT_TRUE(tessarine::NumberEdit<int>(old, now).script(1'000'000));
  }
  EXPECT_GT(found, 0);
}

TEST(Changes, LongListsTakeTheShortWayUnseen) {
  // Long enough, and changed enough, for the public function to go that way.
  std::mt19937 random(1);
  Ints old(3'000);
  std::iota(old.begin(), old.end(), 0);
  for (const bool moves : {false, true}) {
    Ints now = old;
    for (int i = 0; i < 600; ++i) {
      now.erase(now.begin() + static_cast<std::ptrdiff_t>(random() % now.size()));
      now.insert(now.begin() + static_cast<std::ptrdiff_t>(random() % now.size()), 3'000 + i);
    }
    if (moves) std::rotate(now.begin() + 900, now.begin() + 950, now.begin() + 1000);
    ASSERT_EQ(changes(now, old), paperChanges(old, now));
  }
  Ints others = old;
  for (int& each : others) each += 10'000;
  ASSERT_EQ(changes(others, old), paperChanges(old, others));
  EXPECT_EQ(changes(others, Ints{}).size(), 3'000U);
  EXPECT_EQ(changes(Ints{1, 2}, old).size(), 2'998U);
}

template <class Number>
void expectRunsEndWhereNumbersDiffer() {
  for (std::size_t length = 0; length < 70; ++length) {
    std::vector<Number> first(length, Number(7));
    const std::vector<Number> second(length, Number(7));
    const tessarine::EqualNumbers equal{first.data(), second.data()};
    EXPECT_EQ(equal.equalRun(0, 0, length), length);
    for (std::size_t at = 0; at < length; ++at) {
      first[at] = Number(-7);
      EXPECT_EQ(equal.equalRun(0, 0, length), at);
      EXPECT_EQ(equal.equalRun(at + 1, at + 1, length - at - 1), length - at - 1);
      first[at] = Number(7);
    }
  }
}

TEST(Changes, RunsOfNumbersEndWhereTheyDiffer) {
  expectRunsEndWhereNumbersDiffer<std::int8_t>();
  expectRunsEndWhereNumbersDiffer<std::int32_t>();
  expectRunsEndWhereNumbersDiffer<std::int64_t>();
  expectRunsEndWhereNumbersDiffer<double>();
}

TEST(Changes, ExactScripts) {
  const auto text = [](const std::string& old, const std::string& now) {
    return changes(now, old).description();
  };
  EXPECT_EQ(text("ab", "ba"), "remove a at 0, insert a at 1");
  EXPECT_EQ(text("ABCABBA", "CBABAC"),
            "remove B at 5, remove B at 1, remove A at 0, insert B at 1, insert C at 5");
  EXPECT_EQ(text("", "xy"), "insert x at 0, insert y at 1");
  EXPECT_EQ(changes(std::string("ba"), std::string("ab")).inferringMoves().description(),
            "remove a at 0 (moved to 1), insert a at 1 (moved from 0)");
}

TEST(Changes, OfAnyBidirectionalRanges) {
  const std::list<std::string> old = {"a", "b", "c"};
  const std::deque<std::string> now = {"b", "c", "d"};
  const auto found = changes(now, old);
  EXPECT_EQ(found.description(), "remove a at 0, insert d at 2");
  EXPECT_EQ(applying(old, found), (std::list<std::string>{"b", "c", "d"}));
  const std::vector<bool> bits = {true, false};
  EXPECT_EQ(applying(bits, changes(std::vector<bool>{false}, bits)), std::vector<bool>{false});
  EXPECT_EQ(applying(std::string("ab"), changes(std::string("ba"), std::string("ab"))), "ba");
  // Numbering strings first changes nothing of the result.
  const auto direct = changes(now, old, std::equal_to<>());
  EXPECT_EQ(found, direct);
  EXPECT_EQ(std::hash<CollectionChanges<std::string>>{}(found),
            std::hash<CollectionChanges<std::string>>{}(direct));
}

TEST(Changes, NotANumberIsItsOwnChange) {
  const std::vector<double> numbers = {1, std::nan("")};
  EXPECT_EQ(changes(numbers, numbers).size(), 2U);
}

TEST(Changes, TestsThatMisbehave) {
  const Ints old = {1, 2, 3, 4, 5, 6};
  const Ints now = {2, 4, 1, 3, 6, 5};
  // Not transitive: neighbours are equal. The elements it matches stay those of the old list.
  const auto near = changes(now, old, [](int a, int b) { return std::abs(a - b) <= 1; });
  ASSERT_TRUE(applying(old, near));
  EXPECT_EQ(applying(old, near)->size(), now.size());
  // Different answers each time.
  for (unsigned seed = 0; seed < 200; ++seed) {
    std::mt19937 random(seed);
    const auto found = changes(now, old, [&](int, int) { return random() % 2 == 0; });
    EXPECT_LE(found.size(), old.size() + now.size());
  }
  EXPECT_THROW(changes(now, old, [](int, int) -> bool { throw std::runtime_error("no"); }),
               std::runtime_error);
}

TEST(CollectionChanges, RejectsWhatIsNoDifference) {
  const auto insert = [](int offset, std::optional<int> with = {}) {
    return Change::insert(offset, 7, with);
  };
  const auto remove = [](int offset, std::optional<int> with = {}) {
    return Change::remove(offset, 7, with);
  };
  const struct {
    const char* reason;
    std::vector<Change> changes;
  } rejected[] = {
      {"negative offset", {insert(-1)}},
      {"two insertions at one offset", {insert(2), insert(2)}},
      {"two removals at one offset", {remove(0), remove(0)}},
      {"negative association", {remove(0, -1)}},
      {"a removal whose insertion names nothing", {remove(3, 5), insert(5)}},
      {"a removal whose insertion is missing", {remove(3, 5)}},
      {"an insertion whose removal is missing", {insert(5, 3)}},
      {"two insertions of one removal", {remove(3, 5), insert(5, 3), insert(6, 3)}},
      {"an insertion that names another", {remove(3, 5), remove(4), insert(5, 4)}},
  };
  for (const auto& row : rejected) EXPECT_FALSE(Changes::fromChanges(row.changes)) << row.reason;
  const auto made = Changes::fromChanges({insert(5, 3), remove(1), insert(2), remove(3, 5)});
  ASSERT_TRUE(made);
  EXPECT_EQ(made->insertions(), (std::vector{insert(2), insert(5, 3)}));
  EXPECT_EQ(made->removals(), (std::vector{remove(1), remove(3, 5)}));
  EXPECT_EQ(made->begin()->offset, 3) << "the view begins with the highest removal";
  EXPECT_EQ((*made)[made->indexBefore(made->endIndex())], insert(5, 3));
  EXPECT_DEATH((*made)[made->endIndex()], "outside a CollectionChanges");
  EXPECT_DEATH((*made)[{-1}], "outside a CollectionChanges");
  EXPECT_EQ(Changes::fromChanges({})->size(), 0U);
}

TEST(CollectionChanges, PairsOnlyWhatIsUnique) {
  const auto found = changes(Ints{9, 1}, Ints{1, 9, 1});
  const auto twice =
      *Changes::fromChanges({Change::remove(0, 1), Change::remove(1, 1), Change::insert(0, 1)});
  EXPECT_EQ(twice.inferringMoves(), twice);
  EXPECT_EQ(found.inferringMoves(), found);
}

TEST(CollectionChanges, ThatDoNotFitGiveAbsent) {
  const auto remove = [](std::int64_t offset) {
    return *Changes::fromChanges({Change::remove(offset, 1)});
  };
  EXPECT_FALSE(applying(Ints{}, remove(0)));
  EXPECT_FALSE(applying(Ints{1, 2}, remove(2)));
  EXPECT_FALSE(applying(Ints{1, 2}, remove(std::numeric_limits<std::int64_t>::max())));
  EXPECT_FALSE(applying(Ints{1}, *Changes::fromChanges({Change::insert(3, 1)})));
  EXPECT_EQ(applying(Ints{1}, Changes()), Ints{1});
}

TEST(CollectionChanges, UncheckedOnesNeverCrash) {
  const std::int64_t offsets[] = {std::numeric_limits<std::int64_t>::min(), -1, 0, 1, 3,
                                  std::numeric_limits<std::int64_t>::max()};
  for (const auto a : offsets) {
    for (const auto b : offsets) {
      for (const auto c : offsets) {
        const auto broken = Changes::unchecked({Change::insert(a, 1), Change::insert(b, 2)},
                                               {Change::remove(c, 3), Change::remove(a, 4)});
        const auto result = applying(Ints{5, 6, 7}, broken);
        ASSERT_TRUE(!result || result->size() == 3U);
        (void)broken.inverse();
      }
    }
  }
}

TEST(CollectionChanges, EncodedForm) {
  const auto made = *Changes::fromChanges(
      {Change::insert(5, 7, 3), Change::remove(3, 7, 5), Change::remove(0, 9)});
  const std::string text =
      R"({"insertions":[{"isRemove":false,"offset":5,"element":7,"associatedOffset":3}],)"
      R"("removals":[{"isRemove":true,"offset":0,"element":9,"associatedOffset":null},)"
      R"({"isRemove":true,"offset":3,"element":7,"associatedOffset":5}]})";
  EXPECT_EQ(JSONEncoder().text(made), text);
  EXPECT_EQ(JSONDecoder().decode<Changes>(text), made);
  // What breaks the invariants is stored as it comes; a missing association is an absent one.
  const auto broken = JSONDecoder().decode<Changes>(
      R"({"removals":[],"insertions":[{"isRemove":true,"offset":-4,"element":1},)"
      R"({"isRemove":false,"offset":-4,"element":1,"associatedOffset":-1}]})");
  EXPECT_EQ(broken.insertions(), (std::vector{Change::remove(-4, 1), Change::insert(-4, 1, -1)}));
  EXPECT_FALSE(applying(Ints{1}, broken));
  for (const char* refused :
       {"[]", R"({"insertions":[]})", R"({"insertions":[{"offset":0,"element":1}],"removals":[]})",
        R"({"insertions":[{"isRemove":1,"offset":0,"element":1}],"removals":[]})"}) {
    EXPECT_THROW(JSONDecoder().decode<Changes>(refused), DecodingError) << refused;
  }
}

}  // namespace
