#include "tessarine/preferences/PreferenceConversion.hpp"

#include <cmath>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace tessarine {
namespace {

using Object = std::optional<PreferenceObject>;

template <class T>
struct Row {
  Object object;
  std::optional<T> expected;
  const char* why;
};

template <class T>
void expectRows(std::initializer_list<Row<T>> rows) {
  for (const auto& row : rows) {
    EXPECT_EQ(typedUserDefaultScalarValue<T>(row.object), row.expected) << row.why;
  }
}

TEST(PreferenceConversion, Boolean) {
  using namespace std::string_literals;
  expectRows<bool>({
      {" TRUE\n", true, "trimmed and lower-cased"},
      {"No", false, "a word"},
      {"0", false, "found in neither 1, true nor yes"},
      {"y", true, "a fragment of yes"},
      {"ye", true, "a fragment of yes"},
      {"t", true, "a fragment of true"},
      {"e", true, "true comes before yes"},
      {".", true, "matches the first word, 1"},
      {"f", false, "a fragment of false"},
      {"n", false, "a fragment of no"},
      {"^fa|^x", false, "any regular expression"},
      {"\\S", std::nullopt, "lower-cased before: white space, which is in none"},
      {"maybe", std::nullopt, "in none of the words"},
      {"2", std::nullopt, "a text that is no word"},
      {"[", std::nullopt, "no regular expression"},
      {" \n", std::nullopt, "empty after trimming"},
      {"true\0"s, std::nullopt, "a NUL is a character like any other"},
      {"\xff", std::nullopt, "ill-formed"},
      {"(y+)+(y+)+$x", std::nullopt, "bounded in time"},
      {2, true, "a number by boolValue"},
      {0.0, false, "a number by boolValue"},
      {std::nan(""), true, "not zero"},
      {Date(1), std::nullopt, "no conversion from dates"},
      {PreferenceObject::Array{true}, std::nullopt, "no conversion from arrays"},
      {std::nullopt, std::nullopt, "missing"},
  });
}

TEST(PreferenceConversion, Integers) {
  using namespace std::string_literals;
  expectRows<std::int64_t>({
      {" 42 ", 42, "trimmed"},
      {"+42", 42, "a sign"},
      {"-0", 0, "a sign"},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min(), "the least"},
      {"-9223372036854775809", std::nullopt, "below the least"},
      {"9223372036854775808", std::nullopt, "above the greatest"},
      {"12345678901234567890", std::nullopt, "20 digits"},
      {"", std::nullopt, "empty"},
      {"-", std::nullopt, "a lone sign"},
      {"+-1", std::nullopt, "two signs"},
      {"2.7", std::nullopt, "another character"},
      {"4 2", std::nullopt, "a space inside"},
      {"\v1", std::nullopt, "a vertical tab is not trimmed"},
      {"1\0"s, std::nullopt, "a NUL"},
      {"\u0661", std::nullopt, "ASCII digits only"},
      {2.7, 2, "truncates"},
      {-2.7, -2, "truncates"},
      {true, 1, "holds it exactly"},
      {Date(5), std::nullopt, "no conversion from dates"},
      {Data::fromText("5"), std::nullopt, "no conversion from data"},
  });
  expectRows<std::uint64_t>({
      {"18446744073709551615", std::numeric_limits<std::uint64_t>::max(), "the greatest"},
      {"18446744073709551616", std::nullopt, "above the greatest"},
      {"-0", 0, "zero has no sign"},
      {"-1", std::nullopt, "below zero"},
      {-1, std::numeric_limits<std::uint64_t>::max(), "a number by unsignedIntegerValue"},
  });
  expectRows<std::int8_t>({
      {"127", std::int8_t{127}, "in range"},
      {"128", std::nullopt, "above the greatest of the type"},
      {300.5, std::nullopt, "truncated, and out of range"},
      {-128.9, std::int8_t{-128}, "truncated, and in range"},
  });
}

TEST(PreferenceConversion, Floats) {
  expectRows<double>({
      {" 2.5e3 ", 2500.0, "trimmed"},
      {"0x1p4", 16.0, "hexadecimal, by the grammar"},
      {"-inf", -HUGE_VAL, "an infinity, by the grammar"},
      {"1e999", HUGE_VAL, "overflows"},
      {".5", 0.5, "no digit before the point"},
      {"1,5", std::nullopt, "the C locale has a point"},
      {"1.5x", std::nullopt, "not the whole text"},
      {"\v1", std::nullopt, "a leading vertical tab"},
      {"\f1", std::nullopt, "a leading form feed"},
      {std::string_view("\0001", 2), std::nullopt, "a leading NUL"},
      {"", std::nullopt, "empty"},
      {std::int64_t{9007199254740993}, 9007199254740992.0, "rounds where it is not exact"},
      {Date(5), std::nullopt, "no conversion from dates"},
  });
  expectRows<float>({
      {"0.1", 0.1F, "read at single precision"},
      {0.1, 0.1F, "a number by floatValue"},
      {"16777217", 16777216.0F, "rounds"},
  });
  EXPECT_TRUE(std::isnan(typedUserDefaultScalarValue<double>(Object("nan")).value()));
}

TEST(PreferenceConversion, OtherTypesOnlyByTheDirectCast) {
  EXPECT_EQ(typedUserDefaultScalarValue<std::string>(Object("7")), "7");
  EXPECT_EQ(typedUserDefaultScalarValue<std::string>(Object(7)), std::nullopt);
  EXPECT_EQ(typedUserDefaultScalarValue<Date>(Object(Date(3))), Date(3));
  EXPECT_EQ(typedUserDefaultScalarValue<std::vector<int>>(Object(PreferenceObject::Array{1, "2"})),
            std::nullopt);
}

TEST(PreferenceConversion, NumberValue) {
  const auto number = [](const Object& object) { return userDefaultNumberValue(object); };
  EXPECT_EQ(number(2.7), NSNumber(2.7));
  EXPECT_EQ(number(true)->kind(), NSNumber::Kind::boolean) << "a number is returned unchanged";
  EXPECT_EQ(number(" 12 ")->kind(), NSNumber::Kind::signedInteger);
  EXPECT_EQ(number("2.7"), NSNumber(2.7));
  EXPECT_EQ(number("9223372036854775808")->kind(), NSNumber::Kind::float64);
  EXPECT_EQ(number("x"), std::nullopt);
  EXPECT_EQ(number(Date(1)), std::nullopt);
  EXPECT_EQ(number(std::nullopt), std::nullopt);
}

RC_GTEST_PROP(PreferenceConversionProperty, WhatAnIntegerPrintsReadsBack, (std::int64_t value)) {
  const Object text(std::string(" ").append(std::to_string(value)).append("\n"));
  RC_ASSERT(typedUserDefaultScalarValue<std::int64_t>(text) == value);
}

RC_GTEST_PROP(PreferenceConversionProperty, NoTextDoesHarm, (std::string text)) {
  const Object object(text);
  typedUserDefaultScalarValue<bool>(object);
  typedUserDefaultScalarValue<std::int64_t>(object);
  if (const auto value = typedUserDefaultScalarValue<std::uint64_t>(object)) {
    RC_ASSERT(typedUserDefaultScalarValue<double>(object) == static_cast<double>(*value));
  }
}

}  // namespace
}  // namespace tessarine
