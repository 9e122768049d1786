#include <any>
#include <array>
#include <concepts>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tessarine/preferences/UserDefaultEnum.hpp"
#include "tessarine/preferences/UserDefaultNullable.hpp"
#include "tessarine/preferences/UserDefaults+PropWrapper.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tests/system/store/support/ChildProcess.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

namespace tessarine {
namespace {

enum class Size : std::int8_t { cold = -1, none = 0, small = 1, large = 2, other = 7 };
enum class Level : std::uint8_t { zero = 0, one = 1, two = 2, high = 200, other = 7 };
enum class Wide : std::uint64_t { one = 1, top = std::uint64_t{1} << 63, other = 7 };
struct Point {
  int x = 0;
  bool operator==(const Point&) const = default;
};

}  // namespace

template <>
struct EnumCases<Size> {
  static constexpr std::array all{Size::cold, Size::none, Size::small, Size::large, Size::other};
};
template <>
struct EnumCases<Level> {
  static constexpr std::array all{Level::zero, Level::one, Level::two, Level::high, Level::other};
};
template <>
struct EnumCases<Wide> {
  static constexpr std::array all{Wide::one, Wide::top, Wide::other};
};

namespace {

static_assert(std::copyable<UserDefaultNullable<int>> && std::copyable<UserDefaultIntEnum<Size>>);
static_assert(EnumWithIntegerCases<Size> && !EnumWithIntegerCases<testing::TestPartResult::Type>);

// Domains write to their files until the process ends, and so these stay until then.
const TemporaryFolder folder;
const TemporaryFolder otherFolder;

class AccessorsTest : public testing::Test {
 protected:
  template <class T>
  UserDefaultNullable<T> nullable(UserDefaultNullableOptions<T> options) {
    options.userDefaults = store;
    options.copyToUserDefaults = mirror;
    return UserDefaultNullable<T>("key", options);
  }
  template <template <class> class Accessor, class T>
  Accessor<T> enumeration(UserDefaultEnumOptions<T> options) {
    options.userDefaults = store;
    options.copyToUserDefaults = mirror;
    return Accessor<T>("key", options);
  }
  UserDefaultIntEnum<Size> size(UserDefaultEnumOptions<Size> options) {
    return enumeration<UserDefaultIntEnum>(std::move(options));
  }

  std::shared_ptr<UserDefaults> store = UserDefaults::temporary();
  std::shared_ptr<UserDefaults> mirror = UserDefaults::temporary();
  int writes = 0;
  std::shared_ptr<void> counter = store->observe("key", [this](const auto&) { ++writes; });
};

// Named like a death test, which run first: the other process is forked while no domain is open.
TEST(AccessorsByNameDeathTest, FollowTheFolderAndHearOfOtherProcesses) {
  ChildProcess child([&](const Channel& parent) {
    UserDefaults::setDirectory(folder / "");
    for (int value = 1; value <= 2; ++value) {
      parent.receive();
      UserDefaults::suite("suite")->set(value, "key");
      parent.send(1);
    }
    return true;
  });
  UserDefaults::setDirectory(otherFolder / "");
  UserDefaultNullable<int> number(
      "key", {.suiteName = "suite", .copyToSuiteName = "mirror", .cacheValues = true});
  UserDefaultUIntEnum<Level> level(
      "key", {.defaultValue = Level::other, .suiteName = "suite", .cacheValues = true});
  EXPECT_TRUE(otherFolder.names("suite").empty()) << "nothing is opened before it is used";
  UserDefaults::setDirectory(folder / "");
  EXPECT_EQ(number.wrappedValue(), std::nullopt);
  for (int value = 1; value <= 2; ++value) {
    child.send(1);
    child.receive();
    EXPECT_EQ(number.wrappedValue(), value);
    EXPECT_EQ(level.wrappedValue(), Level(value));
  }
  EXPECT_TRUE(child.end());
  UserDefaults::suite("suite")->set(200, "key");
  EXPECT_EQ(level.wrappedValue(), Level::high) << "its observer lives with the domain";
  EXPECT_EQ(number.wrappedValue(), 200);
  number.setWrappedValue(5);
  EXPECT_EQ(UserDefaults::suite("mirror")->object("key"), PreferenceObject(5));
  EXPECT_EQ(UserDefaults::suite("suite")->object("key"), PreferenceObject(5));

  UserDefaultNullable<int> misnamed("key", {.suiteName = "../x", .copyToSuiteName = "a/b"});
  misnamed.setWrappedValue(3);
  EXPECT_EQ(UserDefaults::standard()->object("key"), PreferenceObject(3));
}

// The law: a read gives what is stored, else the default; every write reaches store and mirror.
TEST_F(AccessorsTest, NullableIsItsModelUnderRandomUse) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const std::array<std::optional<int>, 3> values{std::nullopt, 1, 2};
  std::optional<int> mirrored;
  for (const std::optional<int> fallback : {std::optional<int>(), std::optional(-1)}) {
    auto plain = nullable<int>({.defaultValue = fallback});
    auto cached = nullable<int>({.defaultValue = fallback, .cacheValues = true});
    for (int i = 0; i < 2000; ++i) {
      const auto next = values.at(random() % values.size());
      const auto who = random() % 3;
      if (who == 0) {
        store->removeObject("key");
        if (next) store->set(*next, "key");
      } else {
        (who == 1 ? plain : cached).setWrappedValue(next);
        mirrored = next;
      }
      ASSERT_EQ(plain.wrappedValue(), next ? next : fallback) << i;
      ASSERT_EQ(cached.wrappedValue(), next ? next : fallback) << i;
      ASSERT_EQ(dynamicCast<int>(store->object("key")), next) << i;
      ASSERT_EQ(dynamicCast<int>(mirror->object("key")), mirrored) << i;
    }
  }
}

TEST_F(AccessorsTest, NullableCachesAbsenceAndAlternatesOnlyWhatIsPresent) {
  int calls = 0;
  int conversions = 0;
  const auto raised = [](Point value) { return Point{value.x + 100}; };
  const auto read = [&](const std::optional<AnyHashable>& form) {
    ++conversions;
    return Point{form ? form->cast<int>().value_or(-1) : -2};
  };
  auto point =
      nullable<Point>({.defaultValue = Point{9},
                       .cacheValues = true,
                       .alternateValueCallback = raised,
                       .storeAsHashable = [](const Point& value) { return AnyHashable(value.x); },
                       .readFromNullableHashable = read});
  EXPECT_EQ(point.wrappedValue(), Point{98}) << "the callback owns the default of a store read";
  point.setWrappedValue(Point{3});
  point.setWrappedValue(Point{3});
  EXPECT_EQ(writes, 2) << "nothing is compared";
  point.setWrappedValue(std::nullopt);
  EXPECT_EQ(store->object("key"), std::nullopt);
  EXPECT_EQ(point.wrappedValue(), Point{109}) << "a cached absence gives the default";
  EXPECT_EQ(conversions, 1) << "the store was read once";
  store->set(4, "key");
  EXPECT_EQ(point.wrappedValue(), Point{104});

  const auto counted = [&](int value) { return ++calls, value; };
  auto absent = nullable<int>({.cacheValues = true, .alternateValueCallback = counted});
  calls = 0;
  store->removeObject("key");
  EXPECT_EQ(absent.wrappedValue(), std::nullopt);
  EXPECT_EQ(absent.wrappedValue(), std::nullopt);
  EXPECT_EQ(calls, 0);
  store->set("12", "key");
  EXPECT_EQ(absent.wrappedValue(), 12) << "a text reads as the number";
  store->set(Date(1), "key");
  EXPECT_EQ(absent.wrappedValue(), std::nullopt);
}

TEST_F(AccessorsTest, NullableWithOneCallbackRaisesWhereTheFormIsNeeded) {
  for (const bool caches : {false, true}) {
    auto broken =
        nullable<Point>({.cacheValues = caches, .storeAsHashable = [](const Point& value) {
                           return AnyHashable(value.x);
                         }});
    store->set(1, "key");
    EXPECT_THROW(broken.wrappedValue(), NSInternalInconsistencyException);
    EXPECT_THROW(broken.setWrappedValue(Point{2}), NSInternalInconsistencyException);
    EXPECT_EQ(store->object("key"), PreferenceObject(1));
    EXPECT_FALSE(UserDefaultCache::shared().isChanging());
    if (!caches) continue;
    UserDefaultCache::shared().setValue<Point>(Point{5}, {store->name(), "key"}, "key", store);
    EXPECT_THROW(broken.setWrappedValue(Point{2}), NSInternalInconsistencyException)
        << "also when the old value comes from the cache";
    UserDefaultCache::shared().setValue<Point>(Point{5}, {store->name(), "key"}, "key", store);
    broken.setWrappedValue(std::nullopt);
    EXPECT_EQ(store->object("key"), std::nullopt) << "an absent value needs no form";
  }
}

struct EnumRow {
  std::optional<PreferenceObject> stored;
  Size size;
  Level level;
  const char* why;
};
constexpr double infinity = std::numeric_limits<double>::infinity();
const EnumRow enumRows[] = {
    {std::nullopt, Size::other, Level::other, "missing"},
    {2, Size::large, Level::two, "a number"},
    {" 2\n", Size::large, Level::two, "a text of one"},
    {"+1", Size::small, Level::one, "with a sign"},
    {true, Size::small, Level::one, "a boolean number"},
    {2.7, Size::large, Level::two, "a fraction is cut off"},
    {"1.9", Size::small, Level::one, "also in a text"},
    {-0.5, Size::none, Level::zero, "toward zero"},
    {"true", Size::other, Level::other, "a word is no number"},
    {"", Size::other, Level::other, "empty"},
    {Date(2), Size::other, Level::other, "a date"},
    {PreferenceObject::Array{2}, Size::other, Level::other, "a list"},
    {99, Size::other, Level::other, "no case"},
    {-1, Size::cold, Level::other, "negative, and unsigned never"},
    {200, Size::other, Level::high, "fits the one type only"},
    {258, Size::other, Level::other, "fits neither, though its low byte would"},
    {-56, Size::other, Level::other, "low byte of 200"},
    {std::numeric_limits<std::uint64_t>::max(), Size::cold, Level::other, "read as signed"},
    {infinity, Size::other, Level::other, "out of every range"},
};

TEST_F(AccessorsTest, EnumsReadNumbersAndTextsOfCases) {
  for (const auto& row : enumRows) {
    SCOPED_TRACE(row.why);
    store->set(row.stored, "key");
    for (const bool caches : {false, true}) {
      EXPECT_EQ(size({.defaultValue = Size::other, .cacheValues = caches}).wrappedValue(),
                row.size);
      const auto level = enumeration<UserDefaultUIntEnum, Level>(
          {.defaultValue = Level::other, .cacheValues = caches});
      EXPECT_EQ(level.wrappedValue(), row.level);
      const auto neverCold = enumeration<UserDefaultUIntEnum, Size>(
          {.defaultValue = Size::other, .cacheValues = caches});
      EXPECT_EQ(neverCold.wrappedValue(), row.size == Size::cold ? Size::other : row.size);
    }
    EXPECT_EQ(store->object("key"), row.stored) << "it stays until the next write";
  }
}

TEST_F(AccessorsTest, EnumsStoreTheRawValueEveryTimeWithoutReading) {
  for (const bool caches : {false, true}) {
    writes = 0;
    int reads = 0;
    const auto counted = [&](Size value) { return ++reads, value; };
    auto any = size(
        {.defaultValue = Size::other, .cacheValues = caches, .alternateValueCallback = counted});
    any.setWrappedValue(Size::cold);
    any.setWrappedValue(Size::cold);
    EXPECT_EQ(writes, 2) << "nothing is compared";
    EXPECT_EQ(reads, 0);
    EXPECT_TRUE(store->object("key")->isIdenticalTo(std::int64_t{-1}));
    EXPECT_TRUE(mirror->object("key")->isIdenticalTo(std::int64_t{-1}));
    const auto cache = UserDefaultCache::shared().cachedValue<Size>({store->name(), "key"});
    ASSERT_EQ(cache != nullptr, caches);
    if (cache) {
      EXPECT_EQ(cache->value(), Size::cold) << "filled by a write that nobody read before";
    }
  }
  auto wide = enumeration<UserDefaultUIntEnum, Wide>({.defaultValue = Wide::other});
  wide.setWrappedValue(Wide::top);
  EXPECT_TRUE(store->object("key")->isIdenticalTo(std::uint64_t{1} << 63));
  EXPECT_EQ(wide.wrappedValue(), Wide::other) << "too great to be read back";
  store->set(-1, "key");
  const auto isSigned = enumeration<UserDefaultIntEnum, Wide>({.defaultValue = Wide::other});
  EXPECT_EQ(isSigned.wrappedValue(), Wide::other);
}

TEST_F(AccessorsTest, ACachedAbsenceIsNoHitForAnEnum) {
  auto& caches = UserDefaultCache::shared();
  const UserDefaultCacheKey key{store->name(), "key"};
  store->set(2, "key");
  caches.setValue<Size>(std::nullopt, key, "key", store);
  auto optional = nullable<Size>({.defaultValue = Size::none, .cacheValues = true});
  EXPECT_EQ(optional.wrappedValue(), Size::none);
  const auto other = [](Size /*value*/) { return Size::small; };
  auto any =
      size({.defaultValue = Size::other, .cacheValues = true, .alternateValueCallback = other});
  EXPECT_EQ(any.wrappedValue(), Size::small);
  EXPECT_EQ(caches.value<Size>(key), Size::large) << "read from the store, and cached as it is";
}

TEST_F(AccessorsTest, AMirrorThatCannotBeLeavesTheCacheOfItsNameAlone) {
  UserDefaults::setDirectory(otherFolder / "");
  // Both names are impossible, so the first is the standard domain and the second no mirror.
  UserDefaultNullable<int> misnamed("key", {.suiteName = "a/b", .cacheValues = true});
  UserDefaults::standard()->set(1, "key");
  EXPECT_EQ(misnamed.wrappedValue(), 1);
  UserDefault<int> other(
      "key",
      {.defaultValue = 0, .suiteName = "suite", .copyToSuiteName = "a/b", .cacheValues = true});
  other.setWrappedValue(7);
  EXPECT_EQ(misnamed.wrappedValue(), 1);
}

/// Runs `run` in a child that publishes own changes, and compares what it is told of them.
template <class Run>
void expectPublished(const std::vector<std::string>& expected, Run run) {
  EXPECT_EXIT(
      {
        MainQueue::drain();
        UserDefaultConfiguration::setPublishesOwnChanges(true);
        std::vector<std::string> told;
        const auto show = [](const std::any& value) {
          if (std::any_cast<NSNull>(&value) != nullptr) return std::string("null");
          if (const auto* number = std::any_cast<NSNumber>(&value)) return number->stringValue();
          return "int " + std::to_string(std::any_cast<int>(value));
        };
        const auto token = NotificationCenter::defaultCenter().addObserver(
            userDefaultChanged, nullptr, [&](const Notification& notification) {
              const auto change =
                  dynamicCast<ChangeDictionary>(notification.userInfo.at("change")).value();
              told.push_back(show(change.at(NSKeyValueChangeOldKey)) + " -> " +
                             show(change.at(NSKeyValueChangeNewKey)));
              if (UserDefaultCache::shared().isChanging()) told.push_back("changing");
            });
        run();
        EXPECT_EQ(told, expected);
        std::fflush(stdout);
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

using AccessorsDeathTest = AccessorsTest;

TEST_F(AccessorsDeathTest, PublishTheirOwnChanges) {
  expectPublished({"null -> int 1", "int 1 -> null", "null -> int 2"}, [&] {
    auto number = nullable<int>({});
    number.setWrappedValue(std::nullopt);
    number.setWrappedValue(1);
    number.setWrappedValue(1);
    number.setWrappedValue(std::nullopt);
    number.setWrappedValue(2);
  });
  expectPublished({"int 5 -> int 6", "changing", "int 6 -> null", "changing"}, [&] {
    auto number = nullable<int>({.defaultValue = 5, .cacheValues = true});
    number.setWrappedValue(5);
    number.setWrappedValue(6);
    number.setWrappedValue(std::nullopt);
  });
  expectPublished({"null -> 2", "2 -> -1", "7 -> 1"}, [&] {
    auto any = size({.defaultValue = Size::other});
    any.setWrappedValue(Size::other);
    store->removeObject("key");
    any.setWrappedValue(Size::large);
    any.setWrappedValue(Size::cold);
    any.setWrappedValue(Size::cold);
    store->set("no number", "key");
    any.setWrappedValue(Size::small);
  });
}

TEST_F(AccessorsTest, ManyThreadsEndWithCacheAndStoreInStep) {
  counter.reset();
  auto number = nullable<int>({.defaultValue = -1, .cacheValues = true});
  auto any = size({.defaultValue = Size::other, .cacheValues = true});
  UserDefault<int> compared("key",
                            {.defaultValue = -1, .cacheValues = true, .userDefaults = store});
  const auto repeat = [&](auto write) {
    return std::thread([=]() mutable {
      for (int i = 0; i < 1000; ++i) {
        write(i);
        number.wrappedValue();
        any.wrappedValue();
        compared.wrappedValue();
      }
    });
  };
  std::array threads{
      repeat([=](int i) mutable { number.setWrappedValue(i); }),
      repeat([=](int /*i*/) mutable { number.setWrappedValue(std::nullopt); }),
      repeat([=](int i) mutable { any.setWrappedValue(static_cast<Size>(i % 3)); }),
      repeat([=](int i) mutable { compared.setWrappedValue(i % 5); }),
      repeat([this](int i) { store->set(i % 8, "key"); }),
  };
  for (auto& thread : threads) thread.join();
  const int stored = dynamicCast<int>(store->object("key")).value_or(-1);
  EXPECT_EQ(number.wrappedValue(), stored);
  EXPECT_EQ(compared.wrappedValue(), stored);
  EXPECT_EQ(any.wrappedValue(), size({.defaultValue = Size::other}).wrappedValue());
}

}  // namespace
}  // namespace tessarine
