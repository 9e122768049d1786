#include <atomic>
#include <stdexcept>
#include <thread>

#include "tessarine/preferences/UserDefaults+Conveniences.hpp"
#include "tessarine/preferences/UserDefaults+PropWrapper.hpp"
#include "tessarine/preferences/UserDefaultsRepresentable.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

struct Zoom {
  using T = Zoom;
  double factor = 1;
  bool operator==(const Zoom&) const = default;
  AnyHashable userDefaultsRepresentation() const { return factor; }
  static std::optional<Zoom> construct(const AnyHashable& from) {
    const auto factor = from.cast<double>();
    return factor ? std::optional(Zoom{*factor}) : std::nullopt;
  }
};
static_assert(UserDefaultsRepresentable<Zoom>);
static_assert(!UserDefaultsRepresentable<int>);
static_assert(std::copyable<UserDefault<int>>);

class UserDefaultTest : public testing::Test {
 protected:
  template <class T>
  UserDefault<T> accessor(UserDefaultOptions<T> options, const char* key = "key") {
    options.userDefaults = store;
    return UserDefault<T>(key, std::move(options));
  }
  /// How often anything wrote the key of the store.
  std::atomic<int> writes = 0;
  std::shared_ptr<UserDefaults> store = UserDefaults::temporary();
  std::shared_ptr<UserDefaults> mirror = UserDefaults::temporary();
  std::shared_ptr<void> counter = store->observe("key", [this](const auto&) { ++writes; });
};

TEST_F(UserDefaultTest, ReadsDefaultThenConvertsWhatIsStored) {
  const auto number = accessor<int>({.defaultValue = 12});
  EXPECT_EQ(number.wrappedValue(), 12);
  store->set("7", "key");
  EXPECT_EQ(number.wrappedValue(), 7);
  store->set(Date(1), "key");
  EXPECT_EQ(number.wrappedValue(), 12);
  EXPECT_EQ(accessor<std::string>({.defaultValue = "x"}).wrappedValue(), "x");
}

TEST_F(UserDefaultTest, WritesOnlyWhatDiffersFromTheStore) {
  for (const bool caches : {false, true}) {
    store->removeObject("key");
    writes = 0;
    auto number = accessor<int>({.defaultValue = 12, .cacheValues = caches});
    number.setWrappedValue(12);
    EXPECT_EQ(writes, 1) << "a value that equals the default is stored";
    number.setWrappedValue(12);
    EXPECT_EQ(writes, 1);
    store->set("12", "key");
    number.setWrappedValue(12);
    EXPECT_TRUE(store->object("key")->isIdenticalTo(12)) << "a text that reads as 12 is not 12";
  }
}

TEST_F(UserDefaultTest, CachedReadsDoNotTouchTheStoreUntilSomebodyElseWrites) {
  int conversions = 0;
  auto zoom = accessor<Zoom>(
      {.defaultValue = {},
       .cacheValues = true,
       .storeAsHashable = [](const Zoom& value) { return value.userDefaultsRepresentation(); },
       .readFromNullableHashable =
           [&](const std::optional<AnyHashable>& form) {
             ++conversions;
             UserDefaultWrappedObject<Zoom> object;
             object.setWrappedValue(form);
             return object.internalValue().value_or(Zoom{0.5});
           }});
  EXPECT_EQ(zoom.wrappedValue(), Zoom{0.5}) << "the callback owns the default";
  EXPECT_EQ(zoom.wrappedValue(), Zoom{0.5});
  EXPECT_EQ(conversions, 1);
  zoom.setWrappedValue({2});
  zoom.setWrappedValue({2});
  EXPECT_EQ(writes, 2) << "a hashable form is written every time";
  EXPECT_EQ(zoom.wrappedValue(), Zoom{2});
  EXPECT_EQ(conversions, 1);
  store->set(3.0, "key");
  EXPECT_EQ(zoom.wrappedValue(), Zoom{3});
  EXPECT_EQ(conversions, 2);
}

TEST_F(UserDefaultTest, AlternateValueIsReturnedButNeitherStoredNorCached) {
  for (const bool caches : {false, true}) {
    store->set(2, "key");
    auto doubled = accessor<int>({.defaultValue = 1,
                                  .cacheValues = caches,
                                  .alternateValueCallback = [](int value) { return value * 2; }});
    EXPECT_EQ(doubled.wrappedValue(), 4);
    EXPECT_EQ(doubled.wrappedValue(), 4);
    doubled.setWrappedValue(4);
    EXPECT_EQ(store->object("key"), PreferenceObject(4)) << "old equals new, but the store differs";
    EXPECT_EQ(doubled.wrappedValue(), 8);
  }
}

TEST_F(UserDefaultTest, MirrorIsWrittenRepairedAndItsCacheKeptRight) {
  auto number =
      accessor<int>({.defaultValue = 1, .cacheValues = true, .copyToUserDefaults = mirror});
  UserDefault<int> mirrored("key",
                            {.defaultValue = 0, .cacheValues = true, .userDefaults = mirror});
  number.setWrappedValue(5);
  EXPECT_EQ(mirror->object("key"), PreferenceObject(5));
  EXPECT_EQ(mirrored.wrappedValue(), 5);
  mirror->set(9, "key");
  EXPECT_EQ(mirrored.wrappedValue(), 9);
  writes = 0;
  number.setWrappedValue(5);
  EXPECT_EQ(mirror->object("key"), PreferenceObject(5)) << "a drifted mirror is repaired";
  EXPECT_EQ(mirrored.wrappedValue(), 5);
  EXPECT_EQ(writes, 1);
}

TEST_F(UserDefaultTest, OneCallbackWithoutTheOtherRaises) {
  auto broken = accessor<Zoom>({.defaultValue = {}, .storeAsHashable = [](const Zoom& value) {
                                  return value.userDefaultsRepresentation();
                                }});
  try {
    broken.wrappedValue();
    FAIL();
  } catch (const NSInternalInconsistencyException& error) {
    EXPECT_STREQ(error.what(), "readFromNullableHashable must also be set. Programmer error.");
  }
  EXPECT_THROW(broken.setWrappedValue({2}), NSInternalInconsistencyException);
}

TEST_F(UserDefaultTest, ExceptionsReachTheCallerAndNothingIsHalfDone) {
  for (const bool caches : {false, true}) {
    store->set(1, "key");
    bool throws = false;
    auto number = accessor<int>(
        {.defaultValue = 0, .cacheValues = caches, .alternateValueCallback = [&](int value) {
           if (throws) throw std::runtime_error("callback");
           return value;
         }});
    throws = true;
    EXPECT_THROW(number.wrappedValue(), std::runtime_error);
    EXPECT_THROW(number.setWrappedValue(2), std::runtime_error);
    throws = false;
    EXPECT_EQ(number.wrappedValue(), 1);
    {
      const auto observer =
          store->observe("key", [](const auto&) { throw std::runtime_error("observer"); });
      EXPECT_THROW(number.setWrappedValue(3), std::runtime_error);
      EXPECT_FALSE(UserDefaultCache::shared().isChanging());
      EXPECT_EQ(number.wrappedValue(), 3);
    }
    number.setWrappedValue(4);
    EXPECT_EQ(number.wrappedValue(), 4);
    EXPECT_EQ(store->object("key"), PreferenceObject(4));
  }
}

TEST_F(UserDefaultTest, TwoTypesOnOneKeyEachReadTheirOwn) {
  auto number = accessor<int>({.defaultValue = 0, .cacheValues = true});
  auto text = accessor<std::string>({.defaultValue = "none", .cacheValues = true});
  for (int i = 1; i < 4; ++i) {
    number.setWrappedValue(i);
    EXPECT_EQ(text.wrappedValue(), "none");
    text.setWrappedValue(std::to_string(i * 10));
    EXPECT_EQ(number.wrappedValue(), i * 10);
  }
}

TEST(UserDefaultPublishing, TellsOfOwnChangesOnceWithOldAndNew) {
  MainQueue::drain();  // what earlier tests left
  const auto store = UserDefaults::temporary();
  UserDefault<int> number("key", {.defaultValue = 1, .userDefaults = store});
  std::vector<ChangeDictionary> changes;
  const auto token = NotificationCenter::defaultCenter().addObserver(
      userDefaultChanged, nullptr, [&](const Notification& notification) {
        changes.push_back(
            dynamicCast<ChangeDictionary>(notification.userInfo.at("change")).value());
      });
  number.setWrappedValue(2);
  EXPECT_TRUE(changes.empty()) << "not asked for";
  UserDefaultConfiguration::setPublishesOwnChanges(true);
  number.setWrappedValue(2);
  EXPECT_TRUE(changes.empty()) << "unchanged";
  number.setWrappedValue(3);
  ASSERT_EQ(changes.size(), 1U) << "at once on the main thread";
  EXPECT_EQ(dynamicCast<int>(changes[0].at(NSKeyValueChangeOldKey)), 2);
  EXPECT_EQ(dynamicCast<int>(changes[0].at(NSKeyValueChangeNewKey)), 3);
  std::thread([&] { number.setWrappedValue(4); }).join();
  EXPECT_EQ(changes.size(), 1U) << "from another thread it waits for the main queue";
  MainQueue::drain();
  EXPECT_EQ(changes.size(), 2U);
}

TEST(UserDefaultDeathTest, ProgrammerErrorsSayWhatIsWrong) {
  EXPECT_DEATH(
      {
        UserDefaultConfiguration::setPublishesOwnChanges(true);
        UserDefaultConfiguration::setPublishesOwnChanges(true);
      },
      "only once");
  struct Opaque {
    bool operator==(const Opaque&) const { return false; }
  };
  UserDefault<Opaque> opaque("window",
                             {.defaultValue = {}, .userDefaults = UserDefaults::temporary()});
  EXPECT_DEATH(opaque.setWrappedValue({}), "preference \"window\" is no property-list value");
}

TEST(Representable, WrappedObjectGoesByConstruct) {
  UserDefaultWrappedObject<Zoom> object;
  EXPECT_EQ(object.wrappedValue(), std::nullopt);
  EXPECT_EQ(object, UserDefaultWrappedObject<Zoom>());
  object.setWrappedValue(AnyHashable(2.0));
  EXPECT_EQ(object.internalValue(), Zoom{2});
  EXPECT_EQ(object.wrappedValue(), AnyHashable(2));
  EXPECT_FALSE(object == UserDefaultWrappedObject<Zoom>());
  object.setWrappedValue(AnyHashable("no number"));
  EXPECT_EQ(object.internalValue(), std::nullopt);
}

struct Coder {
  template <class T>
  T decode(const Data& data) const {
    if (data.bytes().size() != 1) throw std::runtime_error("not one byte");
    return T(data.bytes().front());
  }
  Data encode(int value) const {
    if (value < 0 || value > 255) throw std::runtime_error("not one byte");
    return Data({static_cast<std::uint8_t>(value)});
  }
};

TEST(Conveniences, DropErrorsAndMismatches) {
  const auto store = UserDefaults::temporary();
  setObject(*store, 7, "key", Coder{});
  EXPECT_EQ(objectForKey<int>(*store, "key", Coder{}), 7);
  setObject(*store, 700, "key", Coder{});
  EXPECT_EQ(store->object("key"), std::nullopt) << "what fails to encode removes the key";
  store->set(Data::fromText("two"), "key");
  EXPECT_EQ(objectForKey<int>(*store, "key", Coder{}), std::nullopt);
  store->set("text", "key");
  EXPECT_EQ(objectForKey<int>(*store, "key", Coder{}), std::nullopt);
  EXPECT_EQ(floatForKey(*store, "key"), std::nullopt);
  EXPECT_EQ(dateForKey(*store, "key"), std::nullopt);
  (*store)["key"] = 0.1;
  EXPECT_EQ(floatForKey(*store, "key"), std::nullopt) << "not exact";
  (*store)["key"] = 0.5;
  EXPECT_EQ(floatForKey(*store, "key"), 0.5F);
  (*store)["key"] = std::nullopt;
  const std::optional<PreferenceObject> missing = (*store)["key"];
  EXPECT_EQ(missing, std::nullopt);
}

}  // namespace
}  // namespace tessarine
