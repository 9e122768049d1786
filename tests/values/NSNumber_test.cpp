#include "tessarine/values/NSNumber.hpp"

#include <cmath>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace tessarine {
namespace {

constexpr auto int64Min = std::numeric_limits<std::int64_t>::min();
constexpr auto int64Max = std::numeric_limits<std::int64_t>::max();
constexpr auto uint64Max = std::numeric_limits<std::uint64_t>::max();
const double nan = std::nan("");
const double infinity = std::numeric_limits<double>::infinity();

static_assert(NSNumber(true).kind() == NSNumber::Kind::boolean);
static_assert(NSNumber(1L).kind() == NSNumber::Kind::signedInteger);
static_assert(NSNumber(1U).kind() == NSNumber::Kind::unsignedInteger);
static_assert(NSNumber(1.0).kind() == NSNumber::Kind::float64);
static_assert(NSNumber(1.0F).kind() == NSNumber::Kind::float32);
static_assert(!std::is_constructible_v<NSNumber, const char*>);

TEST(NSNumber, ConversionsAreDefinedAtAndBeyondEveryEdge) {
  const struct {
    NSNumber number;
    std::int64_t asSigned;
    std::uint64_t asUnsigned;
    bool asBool;
  } rows[] = {
      {0, 0, 0, false},
      {true, 1, 1, true},
      {-1, -1, uint64Max, true},
      {uint64Max, -1, uint64Max, true},
      {int64Min, int64Min, std::uint64_t{1} << 63U, true},
      {2.7, 2, 2, true},
      {-2.7, -2, uint64Max - 1, true},
      {-0.0, 0, 0, false},
      {0.3F, 0, 0, true},
      {1e20, int64Max, uint64Max, true},
      {-1e20, int64Min, std::uint64_t{1} << 63U, true},
      {9223372036854775808.0, int64Max, std::uint64_t{1} << 63U, true},
      {nan, 0, 0, true},
      {infinity, int64Max, uint64Max, true},
      {-infinity, int64Min, std::uint64_t{1} << 63U, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.number.stringValue());
    EXPECT_EQ(row.number.integerValue(), row.asSigned);
    EXPECT_EQ(row.number.unsignedIntegerValue(), row.asUnsigned);
    EXPECT_EQ(row.number.boolValue(), row.asBool);
  }
  EXPECT_EQ(NSNumber(1e300).floatValue(), std::numeric_limits<float>::infinity());
  EXPECT_EQ(NSNumber(int64_t{9007199791611905}).floatValue(), 9007200328482816.0F)
      << "an integer is rounded once on its way to a 32-bit float";
}

TEST(NSNumber, ExactlyRefusesWhatTheTypeDoesNotHold) {
  EXPECT_EQ(NSNumber(2.0).exactly<int>(), 2);
  EXPECT_EQ(NSNumber(2.7).exactly<int>(), std::nullopt);
  EXPECT_EQ(NSNumber(300).exactly<std::uint8_t>(), std::nullopt);
  EXPECT_EQ(NSNumber(-1).exactly<unsigned>(), std::nullopt);
  EXPECT_EQ(NSNumber(uint64Max).exactly<std::int64_t>(), std::nullopt);
  EXPECT_EQ(NSNumber(9223372036854775808.0).exactly<std::int64_t>(), std::nullopt);
  EXPECT_EQ(NSNumber(-9223372036854775808.0).exactly<std::int64_t>(), int64Min);
  EXPECT_EQ(NSNumber(18446744073709551616.0).exactly<std::uint64_t>(), std::nullopt);
  EXPECT_EQ(NSNumber((int64_t{1} << 53U) + 1).exactly<double>(), std::nullopt);
  EXPECT_EQ(NSNumber(int64Max).exactly<double>(), std::nullopt) << "rounds up to 2^63";
  EXPECT_EQ(NSNumber(uint64Max).exactly<double>(), std::nullopt);
  EXPECT_EQ(NSNumber(0.1).exactly<float>(), std::nullopt);
  EXPECT_EQ(NSNumber(0.5).exactly<float>(), 0.5F);
  EXPECT_TRUE(std::isnan(NSNumber(nan).exactly<float>().value()));
  EXPECT_EQ(NSNumber(1).exactly<bool>(), true);
  EXPECT_EQ(NSNumber(2).exactly<bool>(), std::nullopt);
  EXPECT_EQ(NSNumber(nan).exactly<int>(), std::nullopt);
}

rc::Gen<NSNumber> anyNumber() {
  return rc::gen::oneOf(
      rc::gen::map(rc::gen::arbitrary<bool>(), [](bool v) { return NSNumber(v); }),
      rc::gen::map(rc::gen::arbitrary<std::int64_t>(), [](std::int64_t v) { return NSNumber(v); }),
      rc::gen::map(rc::gen::arbitrary<std::uint64_t>(),
                   [](std::uint64_t v) { return NSNumber(v); }),
      rc::gen::map(rc::gen::arbitrary<double>(), [](double v) { return NSNumber(v); }),
      rc::gen::map(rc::gen::inRange(-3, 3), [](int v) { return NSNumber(v * 1.0); }),
      rc::gen::map(rc::gen::inRange(-3, 3), [](int v) { return NSNumber(static_cast<float>(v)); }),
      rc::gen::map(rc::gen::inRange(0U, 3U), [](unsigned v) { return NSNumber(v); }));
}

RC_GTEST_PROP(NSNumberProperty, EqualityIsNumericAndAgreesWithHash, ()) {
  const auto left = *anyNumber();
  const auto right = *anyNumber();
  RC_ASSERT(left == left);
  RC_ASSERT((left == right) == (right == left));
  if (left == right) RC_ASSERT(left.hash() == right.hash());
  // An 80-bit float holds all of these without rounding, so it is the judge.
  const auto exact = [](const NSNumber& n) -> long double {
    if (n.isFloat()) return n.doubleValue();
    if (n.kind() == NSNumber::Kind::signedInteger)
      return static_cast<long double>(n.integerValue());
    return static_cast<long double>(n.unsignedIntegerValue());
  };
  RC_ASSERT((left == right) == (exact(left) == exact(right)));
}

}  // namespace
}  // namespace tessarine
