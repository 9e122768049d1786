#include "tessarine/system/store/internal/ObjectCoding.hpp"

#include <memory>

#include "tests/system/store/support/arbitraryObject.hpp"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace tessarine::detail {
namespace {

/// Decodes from a block of just that size, so that a read beyond it shows.
std::optional<PreferenceObject> decodedExactly(std::string_view bytes) {
  const auto block = std::make_unique<char[]>(bytes.size());
  bytes.copy(block.get(), bytes.size());
  return decodeObject({block.get(), bytes.size()});
}

std::string encoded(const PreferenceObject& object) {
  std::string bytes;
  EXPECT_TRUE(encodeObject(object, bytes));
  return bytes;
}

PreferenceObject nested(int depth) {
  PreferenceObject object("leaf");
  for (int i = 0; i < depth; ++i) {
    object = i % 2 == 0 ? PreferenceObject(PreferenceObject::Array{object})
                        : PreferenceObject(PreferenceObject::Dictionary{{"", object}});
  }
  return object;
}

RC_GTEST_PROP(ObjectCoding, EverythingComesBackAsItWas, ()) {
  const auto object = *arbitraryObject(4);
  const auto back = decodedExactly(encoded(object));
  RC_ASSERT(back.has_value());
  RC_ASSERT(back->isIdenticalTo(object));
}

RC_GTEST_PROP(ObjectCoding, IncompleteBytesAreNoObject, ()) {
  const auto bytes = encoded(*arbitraryObject(3));
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    RC_ASSERT(!decodedExactly(std::string_view(bytes).substr(0, size)).has_value());
  }
  RC_ASSERT(!decodedExactly(bytes + '\0').has_value());
}

RC_GTEST_PROP(ObjectCoding, DamagedBytesAreNoObjectOrAWholeOne, ()) {
  auto bytes = encoded(*arbitraryObject(3));
  for (int flips = 0; flips < 20; ++flips) {
    bytes[*rc::gen::inRange<std::size_t>(0, bytes.size())] = *rc::gen::arbitrary<char>();
    const auto object = decodedExactly(bytes);
    if (object) RC_ASSERT(decodedExactly(encoded(*object))->isIdenticalTo(*object));
  }
}

TEST(ObjectCoding, NestsToALimit) {
  const auto deepest = nested(deepestObject);
  EXPECT_TRUE(decodedExactly(encoded(deepest))->isIdenticalTo(deepest));
  std::string bytes;
  EXPECT_FALSE(encodeObject(nested(deepestObject + 1), bytes));

  const std::string oneArray = encoded(PreferenceObject::Array{0}).substr(0, 5);
  std::string deeper;
  for (int i = 0; i < 100'000; ++i) deeper += oneArray;
  EXPECT_EQ(decodedExactly(deeper + encoded("leaf")), std::nullopt) << "no file overruns the stack";
  EXPECT_EQ(decodedExactly(std::string("\x09\xff\xff\xff\xff", 5)), std::nullopt)
      << "nor takes memory for a count that cannot be";
}

}  // namespace
}  // namespace tessarine::detail
