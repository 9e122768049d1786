#include "tessarine/values/PreferenceObject.hpp"

#include "tessarine/values/AnyHashable.hpp"
#include "tessarine/values/NSNull.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

struct Opaque {
  int id;
  bool operator==(const Opaque&) const = default;
};

static_assert(PreferenceBridged<int> && PreferenceBridged<std::string>);
static_assert(PreferenceBridged<std::vector<std::map<std::string, double>>>);
static_assert(!PreferenceBridged<Opaque> && !PreferenceBridged<std::vector<Opaque>>);
static_assert(!PreferenceBridged<std::map<int, int>>, "keys of a dictionary are texts");

TEST(PreferenceObject, CastsOnlyToItsOwnKind) {
  EXPECT_EQ(dynamicCast<std::string>(PreferenceObject("7")), "7");
  EXPECT_EQ(dynamicCast<int>(PreferenceObject("7")), std::nullopt);
  EXPECT_EQ(dynamicCast<std::string>(PreferenceObject(7)), std::nullopt);
  EXPECT_EQ(dynamicCast<Date>(PreferenceObject(7.0)), std::nullopt);
  EXPECT_EQ(dynamicCast<double>(PreferenceObject(Date(7))), std::nullopt);
  EXPECT_EQ(dynamicCast<Data>(PreferenceObject("7")), std::nullopt);
  EXPECT_FALSE(dynamicCast<Opaque>(PreferenceObject(7)).has_value());
  EXPECT_EQ(dynamicCast<int>(std::optional<PreferenceObject>()), std::nullopt);
}

TEST(PreferenceObject, ContainersCastElementByElement) {
  const PreferenceObject mixed(PreferenceObject::Array{1, 2.0, true});
  EXPECT_EQ(dynamicCast<std::vector<int>>(mixed), (std::vector<int>{1, 2, 1}));
  EXPECT_EQ(dynamicCast<std::vector<bool>>(mixed), std::nullopt) << "2 is no boolean";
  const std::map<std::string, std::vector<double>> nested{{"a", {0.5}}, {"b", {}}};
  EXPECT_EQ((dynamicCast<std::map<std::string, std::vector<double>>>(PreferenceObject(nested))),
            nested);
}

TEST(PreferenceObject, EqualityIsByValueAndIdentityKeepsTheKindOfNumber) {
  EXPECT_EQ(PreferenceObject(1), PreferenceObject(1.0));
  EXPECT_FALSE(PreferenceObject(1).isIdenticalTo(1.0));
  EXPECT_FALSE(PreferenceObject(1).isIdenticalTo(true));
  EXPECT_FALSE(PreferenceObject(0.0).isIdenticalTo(-0.0));
  EXPECT_FALSE(PreferenceObject("1") == PreferenceObject(1));
  const PreferenceObject integers(PreferenceObject::Array{1, 2});
  const PreferenceObject floats(PreferenceObject::Array{1.0, 2.0});
  EXPECT_EQ(integers, floats);
  EXPECT_EQ(integers.hash(), floats.hash());
  EXPECT_FALSE(integers.isIdenticalTo(floats));
}

TEST(AnyHashable, KeepsPropertyListValuesApartFromAllOthers) {
  EXPECT_EQ(AnyHashable(1), AnyHashable(1.0));
  EXPECT_EQ(AnyHashable("a").cast<std::string>(), "a");
  const AnyHashable pointer(std::optional<int>(3));
  EXPECT_EQ(pointer.preferenceObject(), nullptr);
  EXPECT_EQ(pointer.cast<std::optional<int>>(), std::optional<std::optional<int>>(3));
  EXPECT_EQ(pointer.cast<int>(), std::nullopt);
  EXPECT_FALSE(pointer == AnyHashable(3));
  EXPECT_EQ(pointer.hash(), AnyHashable(std::optional<int>(3)).hash());
}

TEST(DynamicCast, LooksThroughEveryErasedForm) {
  EXPECT_EQ(dynamicCast<int>(std::any(4)), 4);
  EXPECT_EQ(dynamicCast<int>(std::any(PreferenceObject(4.0))), 4);
  EXPECT_EQ(dynamicCast<int>(std::any(AnyHashable(4))), 4);
  EXPECT_EQ(dynamicCast<int>(std::any(4.5)), std::nullopt);
  EXPECT_TRUE(dynamicCast<NSNull>(std::any(NSNull())).has_value());
}

}  // namespace
}  // namespace tessarine
