#include "tessarine/system/store/internal/Journal.hpp"

#include <deque>
#include <thread>

#include "tests/system/store/support/ChildProcess.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace tessarine::detail {
namespace {

using Texts = std::vector<std::string>;

constexpr std::size_t pageSize = 4096;  // the header in front of the ring

std::unique_ptr<Journal> opened(const std::string& path, std::uint64_t folded = 0) {
  std::error_code error;
  auto journal = Journal::open(path, folded, error);
  EXPECT_TRUE(journal) << error.message();
  return journal;
}

bool append(Journal& journal, const Texts& values) {
  std::vector<Journal::Record> records;
  for (const auto& value : values) records.push_back({Journal::Kind::set, 0, "key", value});
  const JournalLock lock(journal);
  return journal.append(records);
}

Texts valuesOf(const Journal& journal) {
  Texts values;
  journal.forEach(journal.tail(), journal.head(), [&](const Journal::Record& record) {
    values.emplace_back(record.kind == Journal::Kind::everything ? "everything" : record.value);
  });
  return values;
}

RC_GTEST_PROP(Journal, HoldsWhatIsNotFoldedAcrossWrapAndReopening, ()) {
  const TemporaryFolder folder;
  auto journal = opened(folder / "j");
  std::deque<std::pair<Texts, std::uint64_t>> unfolded;  // batches, and where they end
  const int steps = *rc::gen::inRange(1, 40);
  for (int step = 0; step < steps; ++step) {
    Texts values(*rc::gen::inRange(1, 8));
    for (auto& value : values)
      value.assign(*rc::gen::inRange(0, 30'000), *rc::gen::arbitrary<char>());
    const auto head = journal->head().load();
    while (!append(*journal, values)) {
      RC_ASSERT(!unfolded.empty());
      RC_ASSERT(journal->head() == head);
      journal->moveTail(unfolded.front().second);
      unfolded.pop_front();
    }
    unfolded.emplace_back(values, journal->head());
    if (*rc::gen::inRange(0, 5) == 0) {
      journal.reset();
      journal = opened(folder / "j");
    }
    Texts expected;
    for (const auto& [batch, end] : unfolded)
      expected.insert(expected.end(), batch.begin(), batch.end());
    RC_ASSERT(valuesOf(*journal) == expected);
  }
}

// A process that died, or a power cut, left a batch whose end did not get into the file: its first
// records were taken for a batch of their own.
TEST(Journal, TornBatchIsNeverHalf) {
  const TemporaryFolder folder;
  append(*opened(folder / "j"), {"before"});
  const std::size_t begin = pageSize + opened(folder / "j")->head();
  append(*opened(folder / "j"), {"first", "second", "last"});
  const std::string whole = contentsOf(folder / "j");
  const std::size_t end = whole.find("last") + 4;
  for (std::size_t place = begin; place < end; ++place) {
    std::string torn = whole;
    torn[place] = static_cast<char>(torn[place] ^ 0x10);
    overwrite(folder / "j", torn);
    ASSERT_EQ(valuesOf(*opened(folder / "j")), Texts{"before"}) << "at byte " << place;
  }
}

// What lay behind a torn batch came back once the place of the torn one was written again.
TEST(Journal, LostBatchesStayLost) {
  const TemporaryFolder folder;
  append(*opened(folder / "j"), {"first"});
  append(*opened(folder / "j"), {"torn"});
  append(*opened(folder / "j"), {"stale"});
  std::string contents = contentsOf(folder / "j");
  contents[contents.find("torn")] = 'T';
  overwrite(folder / "j", contents);
  append(*opened(folder / "j"), {"anew"});
  EXPECT_EQ(valuesOf(*opened(folder / "j")), (Texts{"first", "anew"}));
}

TEST(Journal, WhatDoesNotFitLeavesEverythingAsItWas) {
  const TemporaryFolder folder;
  const auto journal = opened(folder / "j");
  const std::string big(Journal::largestBatch / 2, 'x');
  while (append(*journal, {big})) {
  }
  const std::string full = contentsOf(folder / "j");
  EXPECT_FALSE(append(*journal, {"a", big}));
  EXPECT_TRUE(contentsOf(folder / "j") == full) << "a slow reader may still be reading there";
}

// A writer may have died while it overwrote what is oldest.
TEST(Journal, HoldsLessThanTheRing) {
  const TemporaryFolder folder;
  const auto journal = opened(folder / "j");
  const std::string big(Journal::largestBatch / 2, 'x');
  while (journal->holds(0)) ASSERT_TRUE(append(*journal, {big}));
  EXPECT_LE(journal->head(), Journal::capacity);
  EXPECT_TRUE(journal->holds(journal->head()));
}

TEST(Journal, DeathOfTheHolderOfTheLockIsSurvivedAndTold) {
  const TemporaryFolder folder;
  ChildProcess child([&](const Channel& parent) {
    const auto journal = opened(folder / "j");
    const JournalLock lock(*journal);
    parent.send(1);
    return parent.receive().has_value();
  });
  child.receive();
  const auto journal = opened(folder / "j");
  child.kill();
  EXPECT_TRUE(append(*journal, {"after"}));
  EXPECT_EQ(valuesOf(*journal), (Texts{"everything", "after"}))
      << "what the dead one stored in the database, nobody has heard of";
  EXPECT_TRUE(append(*journal, {"again"})) << "and the lock is as good as before";
}

TEST(Journal, FilesThatItCannotBe) {
  struct Row {
    const char* reason;
    std::string contents;
    bool isNew;  // else damaged
  };
  const TemporaryFolder good;
  opened(good / "j");
  std::string future = contentsOf(good / "j");
  const std::size_t size = future.size();
  future[8] ^= 1;
  const Row rows[] = {
      {"empty: its creator died", "", true},
      {"some of its blocks: its creator died", std::string(8192, '\0'), true},
      {"all of its blocks, without a header: its creator died", std::string(size, '\0'), true},
      {"truncated", future.substr(0, 5000), false},
      {"garbage", std::string(size, '\x5a'), false},
      {"short garbage", "garbage", false},
      {"longer than any", std::string(size + 8, '\0'), false},
      {"another layout", future, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.reason);
    const TemporaryFolder folder;
    overwrite(folder / "j", row.contents);
    std::error_code error;
    const auto journal = Journal::open(folder / "j", 64, error);
    EXPECT_EQ(journal != nullptr, row.isNew);
    if (journal) {
      EXPECT_TRUE(append(*journal, {"works"}));
      EXPECT_EQ(valuesOf(*journal), Texts{"works"});
    } else {
      EXPECT_EQ(error, std::errc::bad_message);
    }
  }
}

TEST(Journal, WakesWhoeverSleepsAndWhoeverIsAboutTo) {
  const TemporaryFolder folder;
  const auto journal = opened(folder / "j");
  constexpr std::int64_t hour = 3'600'000'000'000;
  const auto ticket = journal->ticket();
  journal->wake();
  journal->sleep(ticket, hour);  // returns at once

  constexpr std::uint64_t end = 500'000;
  std::thread sleeper([&] {
    for (std::uint64_t seen = 0; seen < end;) {
      const auto next = journal->ticket();
      const auto head = journal->head().load();
      if (head == seen) journal->sleep(next, hour);
      seen = head;
    }
  });
  while (journal->head() < end) {
    append(*journal, {""});
    journal->wake();
  }
  sleeper.join();
}

}  // namespace
}  // namespace tessarine::detail
