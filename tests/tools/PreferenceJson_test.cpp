#include "PreferenceJson.hpp"

#include <cmath>

#include "DateText.hpp"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace tessarine::tool {
namespace {

const double infinity = std::numeric_limits<double>::infinity();

TEST(PreferenceJson, WritesEveryKindInItsOwnForm) {
  const struct {
    PreferenceObject object;
    const char* json;
  } rows[] = {
      {true, "true"},
      {1, "1"},
      {1U, R"({"$uint":1})"},
      {std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
      {1.0, "1.0"},
      {-0.0, "-0.0"},
      {1e-5, "1e-05"},
      {1e20, "1e+20"},
      {0.1F, R"({"$float":0.1})"},
      {infinity, R"({"$double":"inf"})"},
      {-std::numeric_limits<float>::infinity(), R"({"$float":"-inf"})"},
      {Date(736259696.789), R"({"$date":"2024-05-01T12:34:56.789Z"})"},
      {Date(1e300), R"({"$date":1e+300})"},
      {Data::fromText("foo"), R"({"$data":"Zm9v"})"},
      {"a\"\\\n\x01", R"("a\"\\\n\u0001")"},
      {PreferenceObject::Array{}, "[]"},
      {PreferenceObject::Dictionary{{"$date", 1}}, R"({"$dictionary":{"$date":1}})"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(jsonText(row.object), row.json);
    EXPECT_TRUE(objectFromJson(row.json).isIdenticalTo(row.object)) << row.json;
  }
  EXPECT_EQ(jsonText("a\xff"), "\"a\xef\xbf\xbd\"");
}

TEST(PreferenceJson, RefusesWhatIsNoPreference) {
  const struct {
    std::string json;
    const char* why;
  } refused[] = {{"null", "no value"},
                 {"[1,null]", "no value inside"},
                 {"{\"a\":1", "not closed"},
                 {"1 2", "two documents"},
                 {"", "none"},
                 {"18446744073709551616", "beyond 64 bits"},
                 {"\"\xff\"", "ill-formed UTF-8"},
                 {R"({"$date":"2023-02-29T00:00:00Z"})", "no such day"},
                 {R"({"$data":"Zg"})", "no base64"},
                 {R"({"$uint":-1})", "below zero"},
                 {R"({"$float":true})", "no number"},
                 {R"({"$dictionary":[]})", "no dictionary"},
                 {std::string(600, '[') + std::string(600, ']'), "too deep"},
                 {std::string(1 << 20, '['), "far too deep"}};
  for (const auto& row : refused) EXPECT_THROW(objectFromJson(row.json), JsonError) << row.why;
  EXPECT_NO_THROW(objectFromJson(std::string(512, '[') + std::string(512, ']')));
}

RC_GTEST_PROP(PreferenceJsonProperty, DatesAndFloatsReadBackExactly, (double value)) {
  const double seconds = std::fmod(value, 6e10);
  for (const PreferenceObject& object :
       {PreferenceObject(value), PreferenceObject(Date(value)), PreferenceObject(Date(seconds)),
        PreferenceObject(static_cast<float>(value))}) {
    RC_ASSERT(objectFromJson(jsonText(object)).isIdenticalTo(object));
  }
}

TEST(DateText, ReadsIsoTextsAndNothingElse) {
  EXPECT_EQ(dateFromIso("2001-01-01T00:00:00Z"), Date(0));
  EXPECT_EQ(dateFromIso("2001-01-01T02:00:00.25+02:00"), Date(0.25));
  EXPECT_EQ(dateFromIso("2000-12-31T23:59:59.75Z"), Date(-0.25));
  for (const char* refused :
       {"2001-01-01", "2001-01-01T00:00:00", "2001-01-01t00:00:00Z", "2001-01-01T24:00:00Z",
        "2001-01-01T00:00:60Z", "2001-13-01T00:00:00Z", "2001-01-01T00:00:00.Z",
        "2001-01-01T00:00:00+24:00", "2001-01-01T00:00:00Z ", "1-01-01T00:00:00Z",
        "2001-01-01T00:00:00Z.5", "2001-01-01T00:00.5:00Z", ""}) {
    EXPECT_EQ(dateFromIso(refused), std::nullopt) << refused;
  }
  EXPECT_EQ(isoText(Date(-63145526400.0)), "0000-01-01T00:00:00Z");
  EXPECT_EQ(isoText(Date(252423993600.0)), std::nullopt);
}

}  // namespace
}  // namespace tessarine::tool
