#include "tessarine/system/store/UserDefaults.hpp"

#include "tessarine/values/ManualDate.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tessarine {
namespace {

TEST(UserDefaults, SuiteNamesAreFileNames) {
  const TemporaryFolder folder;
  UserDefaults::setDirectory(folder / "new/folder");
  const std::string accepted[] = {"suite",    "com.example.app", "with space",
                                  "...",      "%41?mode=ro#",    "\xc3\xa4\xf0\x9f\x8e\xa8",
                                  "\xff\xfe", "a:b\\c",          std::string(200, 'n')};
  for (const auto& name : accepted) {
    SCOPED_TRACE(name);
    const auto suite = UserDefaults::suite(name);
    ASSERT_NE(suite, nullptr);
    EXPECT_EQ(suite->name(), name);
    EXPECT_EQ(UserDefaults::suite(name), suite);
    suite->set(name, "name");
    EXPECT_TRUE(suite->synchronize());
    EXPECT_TRUE(std::filesystem::exists(folder / ("new/folder/" + name + ".sqlite")));
  }
  struct Refused {
    const char* reason;
    std::string name;
  };
  const Refused refused[] = {{"no name", ""},
                             {"the folder itself", "."},
                             {"the folder above", ".."},
                             {"another folder", "a/b"},
                             {"another folder", "../a"},
                             {"cut short by the system", std::string("a\0b", 3)},
                             {"no room for suffixes", std::string(201, 'n')}};
  for (const auto& row : refused) EXPECT_EQ(UserDefaults::suite(row.name), nullptr) << row.reason;
}

TEST(UserDefaults, FilesAreForTheUserOnly) {
  const TemporaryFolder folder;
  UserDefaults::setDirectory(folder / "private");
  const auto mask = ::umask(0);
  const auto suite = UserDefaults::suite("suite");
  suite->set(1, "k");
  EXPECT_TRUE(suite->synchronize());
  ::umask(mask);
  const auto modeOf = [](const std::filesystem::path& path) {
    struct stat status {};
    ::stat(path.c_str(), &status);
    return status.st_mode & 0777U;
  };
  EXPECT_EQ(modeOf(folder / "private"), 0700U);
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder / "private")) {
    EXPECT_EQ(modeOf(entry.path()), 0600U) << entry.path();
    ++files;
  }
  EXPECT_GE(files, 2);
}

// With a relative path each later opening looked in the working directory of its own moment.
TEST(UserDefaults, StayInTheDirectoryThatWasSet) {
  const TemporaryFolder folder;
  const TemporaryFolder elsewhere;
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder / "");
  UserDefaults::setDirectory("here");
  const auto standard = UserDefaults::standard();
  std::filesystem::current_path(elsewhere / "");
  EXPECT_EQ(standard->name(), "standard");
  (*standard)["k"] = 1;
  EXPECT_TRUE(standard->synchronize());
  std::filesystem::current_path(before);
  EXPECT_TRUE(std::filesystem::exists(folder / "here/standard.sqlite"));
  EXPECT_TRUE(elsewhere.names("").empty());

  UserDefaults::setDirectory(elsewhere / "");
  EXPECT_NE(UserDefaults::standard(), standard) << "later ones look in the new directory";
  EXPECT_EQ(UserDefaults::standard()->object("k"), std::nullopt);
  EXPECT_EQ(dynamicCast<int>(std::optional<PreferenceObject>((*standard)["k"])), 1);
}

TEST(UserDefaults, TemporaryOnesLeaveNoTraceAndShareNothing) {
  const TemporaryFolder folder;
  UserDefaults::setDirectory(folder / "");
  const auto one = UserDefaults::temporary();
  const auto two = UserDefaults::temporary();
  EXPECT_NE(one->name(), two->name());
  one->set(std::string(2'000'000, 'x'), "k");
  EXPECT_TRUE(one->synchronize());
  EXPECT_EQ(two->object("k"), std::nullopt);
  EXPECT_TRUE(one->lastWritten("k").has_value());
  EXPECT_EQ(one->dictionaryRepresentation().size(), 1U);
  EXPECT_TRUE(folder.names("").empty());
}

TEST(UserDefaults, StoresByAnOlderStateOnlyWhatNobodyWroteSince) {
  ManualDate clock(Date(1000));
  const auto defaults = UserDefaults::temporary();
  const std::vector<PreferenceChange> changes{{"a", 1}, {"b", std::nullopt}};
  EXPECT_TRUE(defaults->setAll(changes, "a", std::nullopt));
  EXPECT_EQ(defaults->lastWritten("a"), Date(1000));
  EXPECT_EQ(defaults->lastWritten("b"), Date(1000)) << "one step has one time";
  clock.set(Date(10));  // back
  defaults->set(2, "a");
  EXPECT_GT(defaults->lastWritten("a"), Date(1000)) << "a later write has a later time";
  EXPECT_FALSE(defaults->setAll(changes, "a", Date(1000)));
  EXPECT_FALSE(defaults->setAll(changes, "a", std::nullopt));
  EXPECT_EQ(dynamicCast<int>(defaults->object("a")), 2);
  EXPECT_TRUE(defaults->setAll(changes, "a", defaults->lastWritten("a")));
  EXPECT_EQ(dynamicCast<int>(defaults->object("a")), 1);
}

}  // namespace
}  // namespace tessarine
