#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "tessarine/system/store/EmbeddedCloudHub.hpp"
#include "tessarine/values/ManualDate.hpp"
#include "tests/system/store/support/Machine.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

namespace tessarine {
namespace {

/// A connection of another program.
class Connection {
 public:
  explicit Connection(const std::string& path) { sqlite3_open(path.c_str(), &database_); }
  ~Connection() { sqlite3_close(database_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  void execute(const char* sql) const {
    EXPECT_EQ(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr), SQLITE_OK);
  }

 private:
  sqlite3* database_ = nullptr;
};

void sql(const std::string& path, const char* text) { Connection(path).execute(text); }

class HubOutage : public testing::Test {
 protected:
  void expectWaiting(const std::string& reason) {
    SCOPED_TRACE(reason);
    a.store->set(++value_, "k");
    const auto result = a.store->exchange();
    EXPECT_NE(result.error.find(reason), std::string::npos) << result.error;
    EXPECT_NE(result.error.find(hub), std::string::npos);
    EXPECT_EQ(a.store->status().error, result.error);
    EXPECT_EQ(a.store->status().waiting, 1U);
    EXPECT_EQ(a.value("k"), value_);
  }
  void expectArriving() {
    EXPECT_EQ(a.store->exchange().error, "");
    EXPECT_EQ(a.store->status().waiting, 0U);
    EXPECT_EQ(b.store->exchange().error, "");
    EXPECT_EQ(b.value("k"), value_);
  }
  static void move(const std::string& from, const std::string& to) {
    for (const char* const part : {"", "-wal", "-shm"}) {
      std::error_code ignored;
      std::filesystem::rename(from + part, to + part, ignored);
    }
  }

  TemporaryFolder folder;
  const std::string hub = folder / "hub";
  Machine a{folder / "a", hub};
  Machine b{folder / "b", hub};

 private:
  int value_ = 0;
};

TEST_F(HubOutage, KeepsWhatIsWrittenAndSendsItLater) {
  a.store->set(0, "k");
  a.store->exchange();
  // Damaged, and put right.
  move(hub, folder / "away");
  std::ofstream(hub) << std::string(5'000, 'x');
  expectWaiting("the file is damaged");
  std::filesystem::remove(hub);
  move(folder / "away", hub);
  expectArriving();
  // Of a newer version.
  sql(hub, "PRAGMA user_version = 2");
  a.signIn("ann", hub);
  b.store->signOut();
  expectWaiting("newer version");
  sql(hub, "PRAGMA user_version = 1");
  b.signIn("ann", hub);
  expectArriving();
  // A folder that is not there.
  std::filesystem::create_directory(folder / "sub");
  move(hub, folder / "sub/hub");
  std::filesystem::create_directory(hub);
  expectWaiting("unable to open");
  std::filesystem::remove(hub);
  // Gone for good: a new one gets everything.
  expectArriving();
  EXPECT_EQ(*a.store->dictionaryRepresentation(), *b.store->dictionaryRepresentation());
}

TEST_F(HubOutage, WaitsForWhoHoldsTheHubLocked) {
  a.store->set(0, "k");
  a.store->exchange();
  a.store->signIn("ann", std::make_shared<EmbeddedCloudHub>(hub, "ann", 0));
  {
    const Connection other(hub);
    other.execute("BEGIN IMMEDIATE");
    expectWaiting("locked");
  }
  expectArriving();
}

TEST_F(HubOutage, GivesARestoredHubBackWhatItLost) {
  a.store->set(1, "k");
  a.store->exchange();
  b.store->exchange();
  a.store->signOut();
  b.store->signOut();
  std::filesystem::copy_file(hub, folder / "copy");
  a.signIn("ann", hub);
  b.signIn("ann", hub);
  a.store->set(2, "k");
  a.store->set(3, "other");
  a.store->exchange();
  b.store->exchange();
  a.store->signOut();
  std::filesystem::remove(folder / "a");  // only b knows it now
  move(hub, folder / "away");
  std::filesystem::rename(folder / "copy", hub);
  EXPECT_EQ(b.store->exchange().sent, 2U);
  Machine c(folder / "c", hub);
  c.store->exchange();
  EXPECT_EQ(c.value("k"), 2);
  EXPECT_EQ(c.value("other"), 3);
}

/// What a newer version may store is passed on untouched, and not shown.
TEST(CloudHub, PassesOnWhatItCannotRead) {
  const TemporaryFolder folder;
  EmbeddedCloudHub hub(folder / "hub", "ann");
  const UUID foreign = UUID::random();
  hub.push(std::vector<CloudEntry>{{"k", std::string("\xff???"), {1, 0, foreign}}});
  Machine a(folder / "a", folder / "hub");
  a.store->exchange();
  EXPECT_EQ(a.store->object("k"), std::nullopt);
  std::filesystem::rename(folder / "hub", folder / "away");
  EXPECT_EQ(a.store->exchange().sent, 1U) << "the new hub gets it too";
  EmbeddedCloudHub next(folder / "hub", "ann");
  const auto news = next.pull(foreign, "");
  ASSERT_EQ(news.entries.size(), 1U);
  EXPECT_EQ(news.entries.front().value, "\xff???");
  EXPECT_EQ(news.entries.front().stamp, (CloudStamp{1, 0, foreign}));
}

/// What a hub keeps of removals, and for whom.
class HubRemovals : public testing::Test {
 protected:
  static constexpr double day = 86'400;

  void SetUp() override {
    a.store->set(1, "k");
    a.store->exchange();
    away.store->exchange();
  }
  /// Enough pushes that the hub tidies up.
  void work() const {
    for (int i = 0; i < 70; ++i) {
      a.store->set(i, "counter");
      a.store->exchange();
    }
  }

  TemporaryFolder folder;
  ManualDate clock{Date(800'000'000)};
  Machine a{folder / "a", folder / "hub"};
  Machine away{folder / "b", folder / "hub"};
};

TEST_F(HubRemovals, AreForgottenOnlyWhenNobodyNeedsThem) {
  const auto rows = [&] {
    EmbeddedCloudHub hub(folder / "hub", "ann");
    return hub.pull(UUID(), "").entries.size();
  };
  a.store->removeObject("k");
  a.store->exchange();
  clock.advance(2 * day);
  a.store->exchange();
  work();
  EXPECT_EQ(rows(), 2U) << "one machine has not seen it yet";
  clock.advance(200 * day);
  work();
  EXPECT_EQ(rows(), 1U);
  // Who comes back after that takes what the hub says, and sends no old value again.
  away.store->set(5, "own");
  const auto back = away.store->exchange();
  EXPECT_EQ(away.value("k"), std::nullopt);
  EXPECT_EQ(back.sent, 1U);
}

TEST_F(HubRemovals, ReachWhoWasForgottenMeanwhile) {
  clock.advance(100 * day);
  a.store->removeObject("k");
  a.store->exchange();
  clock.advance(90 * day);  // the other one is forgotten, and the removal is young
  a.store->exchange();
  clock.advance(2 * day);
  a.store->exchange();
  work();
  EXPECT_EQ(away.store->exchange().sent, 0U);
  EXPECT_EQ(away.value("k"), std::nullopt);
}

TEST(CloudHub, IsNotMisledByPositionsItDoesNotKnow) {
  const TemporaryFolder folder;
  ManualDate clock(Date(800'000'000));
  EmbeddedCloudHub hub(folder / "hub", "ann");
  const UUID replica = UUID::random();
  for (const std::string position : {"", " ", "x", "-7 x", "99999999999999999999 x", "1000000 x"}) {
    const auto news = hub.pull(replica, position);
    EXPECT_TRUE(news.isWhole) << position;
    clock.advance(2 * 86'400.0);  // so that the next one is noted
  }
  const auto push = [&](const std::string& key, std::int64_t time) {
    hub.push(std::vector<CloudEntry>{{key, std::nullopt, {time, 0, replica}}});
  };
  const std::int64_t now = 1'778'307'200'000'000;
  push("removed", now);
  for (int i = 0; i < 70; ++i) push("other", now + i);
  EXPECT_EQ(hub.pull(replica, "").entries.size(), 2U) << "nobody has seen the removal yet";
}

/// What lies in the place of the hub or its bell may fail, and never holds anybody up.
TEST(CloudHub, BearsWhatIsNoFile) {
  const TemporaryFolder folder;
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  Machine a(folder / "a", folder / "fifo");
  a.store->set(1, "k");
  EXPECT_NE(a.store->exchange().error, "");
  ASSERT_EQ(::mkfifo((folder / "hub.bell").c_str(), 0600), 0);
  a.signIn("ann", folder / "hub");
  EXPECT_EQ(a.store->exchange().sent, 1U);
  // Without a bell it is to be asked now and then.
  std::filesystem::remove(folder / "hub.bell");
  std::filesystem::create_symlink("missing/bell", folder / "hub.bell");
  EmbeddedCloudHub hub(folder / "hub", "ann");
  EXPECT_EQ(hub.pull(UUID::random(), "").entries.size(), 1U);
  EXPECT_EQ(hub.newsDescriptor(), -1);
  std::filesystem::create_directory(folder / "missing");
  hub.pull(UUID::random(), "");
  EXPECT_GE(hub.newsDescriptor(), 0);
}

}  // namespace
}  // namespace tessarine
