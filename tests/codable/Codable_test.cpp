#include <any>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "tessarine/codable/Codable+JSON.hpp"
#include "tessarine/codable/CodableAnyHashable.hpp"
#include "tessarine/codable/CodableDictionary.hpp"
#include "tessarine/codable/Data+Helpers.hpp"
#include "tessarine/values/NSNull.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace tessarine {
namespace {

using Dictionary = AnyHashable::Dictionary;
using Array = AnyHashable::Array;

AnyHashable read(std::string_view json) {
  return JSONDecoder().decode<CodableAnyHashable>(json).value();
}
std::string written(const AnyHashable& value) {
  return JSONEncoder({.outputFormatting = {.withoutEscapingSlashes = true}})
      .text(CodableAnyHashable(value));
}

TEST(CodableAnyHashable, FormFollowsFromTheType) {
  const UUID uuid = *UUID::fromString("00112233-4455-6677-8899-aabbccddeeff");
  const std::pair<AnyHashable, std::string_view> rows[] = {
      {"text", R"("text")"},
      {true, "true"},
      {1, "1"},
      {std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
      {2.0, "2.0"},
      {AnyHashable(uuid), R"("00112233-4455-6677-8899-AABBCCDDEEFF")"},
      {Data::fromText("\x01\x02\xff"), R"("AQL/")"},
      {Date::since1970(1714566896.9), R"("2024-05-01T12:34:56Z")"},
      {Array{1, "a", AnyHashable(uuid)}, R"([1,"a","00112233-4455-6677-8899-AABBCCDDEEFF"])"},
      {Dictionary{{"b", Array{}}, {"a", 1}}, R"({"a":1,"b":[]})"},
  };
  for (const auto& [value, json] : rows) EXPECT_EQ(written(value), json);
  try {
    (void)written(Dictionary{{"a", Array{AnyHashable(NSNull())}}});
    ADD_FAILURE();
  } catch (const EncodingError& error) {
    EXPECT_STREQ(error.what(), "Unsupported type: a[0]");
    EXPECT_EQ(std::any_cast<AnyHashable>(error.value()), AnyHashable(NSNull()));
  }
  // What is not hashable is dropped without a word.
  EXPECT_EQ(written(anyHashableArray(
                {1, std::any(std::vector<int*>{}), std::string("a"), std::vector<std::any>{2.5}})),
            R"([1,"a",[2.5]])");
  using AnyMap = std::map<std::string, std::any>;
  EXPECT_EQ(written(anyHashableDictionary({{"kept", AnyMap{{"x", 1}, {"y", std::any()}}},
                                           {"gone", std::any(std::vector<int*>{})},
                                           {"list", std::vector<std::any>{AnyMap{{"z", true}}}}})),
            R"({"kept":{"x":1},"list":[{"z":true}]})");
}

TEST(CodableAnyHashable, ReadsByTheFormAlone) {
  EXPECT_EQ(read(R"("00112233-4455-6677-8899-aabbccddeeff")").cast<UUID>(),
            UUID::fromString("00112233-4455-6677-8899-AABBCCDDEEFF"));
  EXPECT_EQ(read(R"("2024-05-01T12:34:56Z")"), AnyHashable(Date::since1970(1714566896)));
  // In years -1 and 10000 of GMT, which have no text: such a date could not be written again.
  for (const char* outside : {"0000-01-01T00:00:00+00:01", "9999-12-31T23:59:59-00:01"}) {
    EXPECT_EQ(read('"' + std::string(outside) + '"'), AnyHashable(outside));
  }
  EXPECT_EQ(read(R"("test")").cast<Data>()->bytes().size(), 3U);
  EXPECT_EQ(read(R"("")"), AnyHashable(Data()));
  EXPECT_EQ(read(R"("Unsupported type")"), AnyHashable("Unsupported type"));
  const auto kind = [](std::string_view json) {
    return read(json).preferenceObject()->number()->kind();
  };
  EXPECT_EQ(kind("true"), NSNumber::Kind::boolean);
  EXPECT_EQ(kind("2.0"), NSNumber::Kind::signedInteger);
  EXPECT_EQ(kind("-9223372036854775808"), NSNumber::Kind::signedInteger);
  EXPECT_EQ(kind("18446744073709551615"), NSNumber::Kind::unsignedInteger);
  EXPECT_EQ(kind("18446744073709551616"), NSNumber::Kind::float64);
  EXPECT_EQ(kind("-0.0"), NSNumber::Kind::float64);
  EXPECT_TRUE(std::signbit(*read("-0.0").cast<double>()));
  EXPECT_EQ(read(R"({"a":[1,{"b":false}]})"),
            AnyHashable(Dictionary{{"a", Array{1, Dictionary{{"b", false}}}}}));
  for (const char* json : {"null", "[1,null]", R"({"a":null})", "1e400"}) {
    try {
      (void)read(json);
      ADD_FAILURE() << json;
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.kind(), DecodingError::Case::dataCorrupted);
      EXPECT_EQ(error.context().debugDescription, "Unsupported type");
    }
  }
}

TEST(CodableDictionary, KeepsEveryKey) {
  EXPECT_EQ(encoded(CodableDictionary()).text(), "{}");
  const CodableDictionary dictionary({{"", 1}, {"7", "seven"}, {"list", Array{true}}});
  EXPECT_EQ(decoded<CodableDictionary>(encoded(dictionary)), dictionary);
  EXPECT_EQ(dictionary.dictionary().at("list").cast<Array>()->size(), 1U);
  EXPECT_THROW((void)decoded<CodableDictionary>(Data::fromText(R"({"a":1,"b":null})")),
               DecodingError);
}

struct Settings {
  std::string name;
  double scale = 1;
  static constexpr auto codingFields =
      fields(field("name", &Settings::name), field("scale", &Settings::scale));
};

/// Its own failure is none of a coder's.
struct Failing {
  void encode(Encoder& /*encoder*/) const { throw std::runtime_error("mine"); }
  static Failing decode(Decoder& /*decoder*/) { return {}; }
};

TEST(Codable, DeepCopyAndIsDistinctSwallowErrors) {
  const Settings settings{"a", 2};
  EXPECT_EQ(deepCopy(settings)->name, "a");
  EXPECT_FALSE(isDistinct(settings, *deepCopy(settings)));
  EXPECT_TRUE(isDistinct(settings, Settings{"a", 3}));
  const Settings infinite{"a", std::numeric_limits<double>::infinity()};
  EXPECT_EQ(deepCopy(infinite).has_value(), false);
  EXPECT_FALSE(isDistinct(infinite, settings));
  EXPECT_FALSE(deepCopy(Failing()).has_value());
  EXPECT_FALSE(isDistinct(Failing(), Failing()));
}

TEST(DataHelpers, ReadTextsInTheirEncoding) {
  using enum StringEncoding;
  const std::pair<StringEncoding, std::string_view> good[] = {
      {utf8, "é"},
      {isoLatin1, "\xe9"},
      {windowsCP1252, "\xe9"},
      {utf16, std::string_view("\0\xe9", 2)},
      {utf16LittleEndian, std::string_view("\xe9\0", 2)},
      {utf32BigEndian, std::string_view("\0\0\0\xe9", 4)},
      {macOSRoman, "\x8e"}};
  for (const auto& [encoding, bytes] : good) {
    EXPECT_EQ(string(Data::fromText(bytes), encoding), "é") << static_cast<int>(encoding);
  }
  EXPECT_EQ(string(Data::fromText("\xe9"), utf8), std::nullopt);
  EXPECT_EQ(string(Data::fromText("\xe9"), ascii), std::nullopt);
  EXPECT_EQ(string(Data::fromText("\xd8"), utf16), std::nullopt);
  EXPECT_EQ(string(Data(), ascii), "");
  EXPECT_TRUE(bytes(Data()).empty());
  EXPECT_EQ(jsonObject(Data::fromText("[1]")), AnyHashable(Array{1}));
}

TEST(DataHelpers, WriteReplacesWholeFilesAndTellsOfFailure) {
  namespace fs = std::filesystem;
  const std::string name = "tessarine-" + UUID::random().uuidString();
  EXPECT_EQ(write(Data::fromText("old and long"), name), fs::temp_directory_path() / name);
  const fs::path path = write(Data::fromText("new"), name);
  std::ifstream file(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "new");
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  fs::remove(path);
  fs::create_directory(path);  // no file can take its place
  EXPECT_THROW((void)write(Data(), name), std::system_error);
  fs::remove(path);
  std::size_t left = 0;
  for (const auto& entry : fs::directory_iterator(fs::temp_directory_path())) {
    left += entry.path().filename().string().starts_with(name) ? 1 : 0;
  }
  EXPECT_EQ(left, 0U);
  for (const std::string_view bad : {"", "..", "a/b", "/etc/x"}) {
    EXPECT_THROW((void)write(Data(), bad), std::system_error) << bad;
  }
}

}  // namespace
}  // namespace tessarine
