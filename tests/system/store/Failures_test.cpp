// What the disk refuses, and files that are damaged or not ours.
#include "tessarine/system/store/internal/Domain.hpp"
#include "tests/system/store/support/ChildProcess.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"
#include "tests/system/store/support/writes.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>

namespace tessarine::detail {
namespace {

/// What is written to standard error meanwhile, by way of a pipe: a file might be refused as well.
class StandardError {
 public:
  StandardError() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) std::abort();
    saved_ = ::dup(2);
    ::dup2(ends[1], 2);
    ::close(ends[1]);
    input_ = ends[0];
  }
  /// Waits for it.
  std::string firstLine() {
    std::string line;
    for (char c = 0; c != '\n' && ::read(input_, &c, 1) == 1;) line += c;
    return line;
  }
  std::string text() {
    ::dup2(saved_, 2);
    std::string all;
    std::array<char, 4096> part{};
    for (ssize_t n = 0; (n = ::read(input_, part.data(), part.size())) > 0;) {
      all.append(part.data(), n);
    }
    return all;
  }
  ~StandardError() {
    ::dup2(saved_, 2);
    ::close(saved_);
    ::close(input_);
  }
  StandardError(const StandardError&) = delete;
  StandardError& operator=(const StandardError&) = delete;

 private:
  int saved_ = -1;
  int input_ = -1;
};

int count(const std::string& text, const std::string& part) {
  int found = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

void limitFileSize(rlim_t most) {
  rlimit limit{};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = most;
  ::setrlimit(RLIMIT_FSIZE, &limit);
}

#define REQUIRE_HERE(condition)                           \
  if (!(condition)) {                                     \
    std::fprintf(stderr, "child: not: %s\n", #condition); \
    return false;                                         \
  }

bool writeThroughOutages(const std::string& path) {
  ::signal(SIGXFSZ, SIG_IGN);
  StandardError messages;
  limitFileSize(0);
  Domain domain(path);
  set(domain, "a", 1);
  setAll(domain, {{"b", 2}, {"c", std::string(300'000, 'c')}});
  REQUIRE_HERE(domain.object("a") == PreferenceObject(1));
  REQUIRE_HERE(domain.dictionary().size() == 3);
  REQUIRE_HERE(!domain.synchronize() && !domain.synchronize());
  set(domain, "b", std::nullopt);
  limitFileSize(RLIM_INFINITY);
  REQUIRE_HERE(domain.synchronize());
  REQUIRE_HERE(Domain(path).dictionary() == domain.dictionary());
  REQUIRE_HERE(Domain(path).lastWritten("b").has_value());

  limitFileSize(0);
  set(domain, "a", 10);
  set(domain, "c", std::string(400'000, 'd'));
  REQUIRE_HERE(!domain.synchronize() && !domain.synchronize());
  REQUIRE_HERE(domain.object("a") == PreferenceObject(10));
  limitFileSize(RLIM_INFINITY);
  REQUIRE_HERE(domain.synchronize());
  REQUIRE_HERE(Domain(path).object("a") == PreferenceObject(10));
  REQUIRE_HERE(Domain(path).object("c") == PreferenceObject(std::string(400'000, 'd')));
  const std::string told = messages.text();
  if (count(told, "cannot be written") != 2) std::fprintf(stderr, "told: %s\n", told.c_str());
  return count(told, "cannot be written") == 2;  // once an outage
}

TEST(Failures, OutagesKeepValuesInMemoryAndStoreThemAfterwards) {
  const TemporaryFolder folder;
  ChildProcess child([&](const Channel&) { return writeThroughOutages(folder / "domain"); });
  EXPECT_TRUE(child.end());
}

TEST(Failures, FolderThatIsAFile) {
  const TemporaryFolder folder;
  overwrite(folder / "file", "");
  StandardError messages;
  int heard = 0;
  Domain domain(folder / "file/domain");
  const auto token = std::make_shared<int>();
  domain.addObserver("a", token, nullptr, [&](auto&&...) { ++heard; });
  set(domain, "a", 1);
  EXPECT_EQ(heard, 1);
  EXPECT_FALSE(domain.synchronize());
  EXPECT_FALSE(domain.synchronize());
  EXPECT_EQ(domain.object("a"), PreferenceObject(1));
  EXPECT_EQ(count(messages.text(), "cannot be written"), 1);

  std::filesystem::remove(folder / "file");
  EXPECT_TRUE(domain.synchronize());
  EXPECT_EQ(Domain(folder / "file/domain").object("a"), PreferenceObject(1));
  EXPECT_EQ(heard, 1);
}

void fill(const std::string& path) {
  Domain domain(path);
  for (int i = 0; i < 500; ++i) set(domain, std::to_string(i), std::string(1000, 'x'));
}

TEST(Failures, DamagedFilesAreSetAsideAndTheDomainWorksOn) {
  struct Row {
    const char* reason;
    const char* file;
    std::string (*damage)(const std::string&);
  };
  const Row rows[] = {
      {"garbage header", "domain.sqlite",
       [](const std::string& whole) { return std::string(100, '?') + whole.substr(100); }},
      {"another format altogether", "domain.sqlite",
       [](const std::string&) { return std::string("{}"); }},
      {"truncated", "domain.sqlite",
       [](const std::string& whole) { return whole.substr(0, 4096); }},
      {"truncated journal", "domain.journal",
       [](const std::string& whole) { return whole.substr(0, 100'000); }},
      {"garbage journal", "domain.journal",
       [](const std::string& whole) { return std::string(whole.size(), '?'); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.reason);
    const TemporaryFolder folder;
    fill(folder / "domain");
    const std::string damaged = row.damage(contentsOf(folder / row.file));
    for (int times = 1; times <= 3; ++times) {  // within a second: no name may be used twice
      overwrite(folder / row.file, damaged);
      StandardError messages;
      Domain domain(folder / "domain");
      domain.dictionary();
      set(domain, "a", times);
      EXPECT_TRUE(domain.synchronize());
      EXPECT_EQ(Domain(folder / "domain").object("a"), PreferenceObject(times));
      EXPECT_EQ(count(messages.text(), "set aside as"), 1);
      std::size_t kept = 0;
      for (const auto& name : folder.names(std::string(row.file) + ".damaged")) {
        if (contentsOf(folder / name) == damaged) ++kept;
      }
      EXPECT_EQ(kept, times);
    }
  }
}

TEST(Failures, EmptyDatabaseIsANewOne) {
  const TemporaryFolder folder;
  fill(folder / "domain");
  overwrite(folder / "domain.sqlite", "");
  Domain domain(folder / "domain");
  EXPECT_TRUE(domain.dictionary().empty());
  set(domain, "a", 1);
  EXPECT_TRUE(domain.synchronize());
  EXPECT_EQ(Domain(folder / "domain").object("a"), PreferenceObject(1));
}

std::string withoutItsMiddle(std::string contents) {
  std::fill(contents.begin() + 8192, contents.end() - 4096, '?');
  return contents;
}

TEST(Failures, DamageFoundLaterKeepsWhatIsInMemory) {
  const TemporaryFolder folder;
  fill(folder / "domain");
  {
    Domain domain(folder / "domain");
    set(domain, "known", 1);
    ASSERT_TRUE(domain.synchronize());
  }
  const std::string whole = contentsOf(folder / "domain.sqlite");
  int heard = 0;
  Domain domain(folder / "domain");
  Domain other(folder / "domain");  // as if in another process
  ASSERT_EQ(domain.object("known"), PreferenceObject(1));
  ASSERT_EQ(other.object("known"), PreferenceObject(1));
  set(domain, "new", 2);
  ASSERT_EQ(other.object("new"), PreferenceObject(2));
  const auto token = std::make_shared<int>();
  for (const auto* key : {"known", "new"}) {
    domain.addObserver(key, token, nullptr, [&](auto&&...) { ++heard; });
  }
  overwrite(folder / "domain.sqlite", withoutItsMiddle(whole));

  StandardError messages;
  for (int i = 0; i < 500; ++i) domain.object(std::to_string(i));
  EXPECT_EQ(count(messages.firstLine(), "set aside as"), 1) << "without being asked to";
  EXPECT_TRUE(domain.synchronize());
  EXPECT_EQ(folder.names(".sqlite.damaged").empty(), false);
  EXPECT_EQ(domain.object("known"), PreferenceObject(1));
  EXPECT_EQ(heard, 0) << "nothing has changed";

  set(domain, "new", 3);
  other.synchronize();
  EXPECT_EQ(other.object("new"), PreferenceObject(3)) << "others come over to the new files";
  set(other, "later", 4);
  EXPECT_TRUE(other.synchronize());
  EXPECT_EQ(domain.object("later"), PreferenceObject(4));
  const auto values = Domain(folder / "domain").dictionary();
  EXPECT_EQ(values.at("known"), PreferenceObject(1));
  EXPECT_EQ(values.at("new"), PreferenceObject(3));
  EXPECT_EQ(values.at("later"), PreferenceObject(4));
}

// The message came again with every attempt.
TEST(Failures, DamageThatCannotBeSetAsideIsToldOnce) {
  const TemporaryFolder folder;
  const std::string path = folder / std::string(240, 'n');  // too long with ".damaged" and a time
  overwrite(path + ".sqlite", std::string(5000, '?'));
  StandardError messages;
  Domain domain(path);
  set(domain, "a", 1);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(domain.synchronize());
  EXPECT_EQ(domain.object("a"), PreferenceObject(1));
  EXPECT_EQ(count(messages.text(), "\n"), 1);
  EXPECT_EQ(contentsOf(path + ".sqlite"), std::string(5000, '?'));
}

// Files without an application's number were taken for new ones, and others put into WAL mode.
TEST(Failures, FilesOfOtherProgramsAreLeftAlone) {
  for (const auto* mark : {"", "PRAGMA application_id = 7", "PRAGMA user_version = 1",
                           "PRAGMA application_id = 0x54455353; PRAGMA user_version = 2"}) {
    SCOPED_TRACE(mark);
    const TemporaryFolder folder;
    const std::string file = folder / "domain.sqlite";
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
    sqlite3_exec(database, "CREATE TABLE entries(mine)", nullptr, nullptr, nullptr);
    sqlite3_exec(database, mark, nullptr, nullptr, nullptr);
    sqlite3_close(database);
    const std::string whole = contentsOf(file);
    StandardError messages;
    {
      Domain domain(folder / "domain");
      set(domain, "a", 1);
      EXPECT_EQ(domain.object("a"), PreferenceObject(1));
      EXPECT_FALSE(domain.synchronize());
    }
    EXPECT_TRUE(contentsOf(file) == whole);
    EXPECT_EQ(folder.names("").size(), 1U) << "and nothing is put beside it";
    EXPECT_EQ(count(messages.text(), "written by another program"), 1);
  }
}

}  // namespace
}  // namespace tessarine::detail
