#include "tessarine/system/json/JSONDecoder.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tessarine/system/json/JSONSerialization.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using Case = DecodingError::Case;

struct Line {
  std::string sku;
  std::int32_t quantity = 0;
  static constexpr auto codingFields =
      fields(field("sku", &Line::sku), field("quantity", &Line::quantity));
};
struct Order {
  std::string id;
  std::optional<bool> paid = true;
  std::vector<Line> lines;
  static constexpr auto codingFields =
      fields(field("id", &Order::id), field("paid", &Order::paid), field("lines", &Order::lines));
};

/// Only reading, and through every kind of container.
struct Explorer {
  std::vector<std::string> seen;
  static Explorer decode(Decoder& decoder) {
    Explorer explorer;
    auto container = decoder.container();
    for (const AnyCodingKey& key : container.allKeys()) explorer.seen.push_back(key.stringValue());
    auto list = container.nestedContainer("inner").nestedUnkeyedContainer("list");
    explorer.seen.push_back(std::to_string(*list.count()));
    if (list.decodeNil()) explorer.seen.emplace_back("nil");
    explorer.seen.push_back(list.decode<std::string>());
    auto element = list.superDecoder();
    explorer.seen.push_back(description(element->codingPath()));
    explorer.seen.push_back(element->singleValueContainer().decode<std::string>());
    explorer.seen.push_back(std::to_string(container.superDecoder()->container().decode<int>("x")));
    explorer.seen.push_back(std::any_cast<std::string>(decoder.userInfo().at("who")));
    if (container.decodeIfPresent<int>("none")) explorer.seen.emplace_back("wrong");
    return explorer;
  }
};

/// Names as long as those that are compared at once, and one longer.
struct Names {
  int a = 0;
  int thirteenChars = 0;
  int fourteenCharsX = 0;
  static constexpr auto codingFields =
      fields(field("a", &Names::a), field("thirteenChars", &Names::thirteenChars),
             field("fourteenCharsX", &Names::fourteenCharsX));
};

// NOLINTBEGIN(cppcoreguidelines-macro-usage): 66 members
#define SIX(p) p##0 = 0, p##1 = 0, p##2 = 0, p##3 = 0, p##4 = 0, p##5 = 0
#define FIELDS(p)                                                                     \
  field(#p "0", &Wide::p##0), field(#p "1", &Wide::p##1), field(#p "2", &Wide::p##2), \
      field(#p "3", &Wide::p##3), field(#p "4", &Wide::p##4), field(#p "5", &Wide::p##5)
// NOLINTEND(cppcoreguidelines-macro-usage)
struct Wide {
  int SIX(a), SIX(b), SIX(c), SIX(d), SIX(e), SIX(f), SIX(g), SIX(h), SIX(i), SIX(j), SIX(k);
  static constexpr auto codingFields =
      fields(FIELDS(a), FIELDS(b), FIELDS(c), FIELDS(d), FIELDS(e), FIELDS(f), FIELDS(g), FIELDS(h),
             FIELDS(i), FIELDS(j), FIELDS(k));
};

DecodingError errorOf(auto decode) {
  try {
    decode();
  } catch (const DecodingError& error) {
    return error;
  }
  ADD_FAILURE() << "no error";
  return {Case::dataCorrupted, {}};
}

TEST(JSONDecoder, TakesWhatIsJSONAndNothingElse) {
  struct Row {
    std::string_view text;
    std::string_view why;  // empty: it is JSON
  };
  constexpr std::string_view control("\"a\x01\"");
  const Row rows[] = {
      {"null", ""},
      {" [ ] ", ""},
      {"\xEF\xBB\xBF{}", ""},
      {R"({"a":[1,-0,0.5,1e5,1E+5,-1.5e-5],"b":{"":""}})", ""},
      {R"("\"\\\/\b\f\n\r\t\u00e9\ud83d\ude42")", ""},
      {"1e400", ""},
      {"123456789012345678901234567890", ""},
      {"", "no value"},
      {"  ", "no value"},
      {"[1,]", "a comma behind the last element"},
      {"[,1]", "a comma before the first"},
      {"[1 2]", "no comma"},
      {"[1", "no end"},
      {"]", "no beginning"},
      {"{\"a\":1,}", "a comma behind the last member"},
      {"{\"a\"}", "no value"},
      {"{a:1}", "no quotes"},
      {"{\"a\" 1}", "no colon"},
      {"{1:1}", "a number for a key"},
      {"{} {}", "two documents"},
      {"[1}", "the wrong bracket"},
      {"01", "a leading zero"},
      {"-", "no digits"},
      {"1.", "no fraction"},
      {".5", "no integer part"},
      {"+1", "a plus sign"},
      {"1e", "no exponent"},
      {"0x1", "hexadecimal"},
      {"1a", "more than a number"},
      {"NaN", "no literal of JSON"},
      {"True", "upper case"},
      {"nul", "cut"},
      {"nulls", "more than a literal"},
      {"'a'", "single quotes"},
      {"\"a", "no closing quote"},
      {"\"a\"b", "text behind a string"},
      {"\"\\x41\"", "an escape that there is not"},
      {"\"\\u12\"", "a short escape"},
      {"\"\\ud800\"", "half a surrogate pair"},
      {"\"\\ude42\\ud83d\"", "a pair in the wrong order"},
      {control, "a control character"},
      {"\"\xff\"", "no UTF-8"},
      {"\"\xed\xa0\x80\"", "a surrogate in UTF-8"},
      {"[1] // one", "a comment"},
      {"\\u0031", "an escape outside a string"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    bool isTaken = true;
    try {
      JSONSerialization::validate(Data::fromText(row.text));
    } catch (const DecodingError& error) {
      isTaken = false;
      EXPECT_EQ(error.kind(), Case::dataCorrupted);
      EXPECT_LE(error.context().byteOffset.value(), row.text.size());
    }
    EXPECT_EQ(isTaken, row.why.empty()) << row.why;
    // A described type skips the value as an unknown member, by the same rules.
    const std::string member = "{\"id\":\"\",\"lines\":[],\"x\":" + std::string(row.text) + "}";
    const bool hasMark = row.text.starts_with('\xEF');
    if (row.why.empty() && !hasMark) {
      EXPECT_NO_THROW((void)JSONDecoder().decode<Order>(member));
    } else {
      EXPECT_THROW((void)JSONDecoder().decode<Order>(member), DecodingError);
    }
  }
}

// Every prefix and every changed byte of a document either reads or throws, in a block of its exact
// size.
TEST(JSONDecoder, SurvivesCutAndChangedTexts) {
  const std::string text =
      R"({"lines":[{"sku":"a\u00e9\"","quantity":-12},{"quantity":3,"sku":"","more":[{}]}],"id":"x"})";
  const auto attempt = [](std::string_view cut) {
    const std::vector<char> block(cut.begin(), cut.end());
    const std::string_view exact(block.data(), block.size());
    try {
      return JSONDecoder().decode<Order>(exact).lines.size() == 2;
    } catch (const DecodingError&) {
      return false;
    }
  };
  ASSERT_TRUE(attempt(text));
  for (std::size_t i = 0; i < text.size(); ++i) {
    EXPECT_FALSE(attempt(std::string_view(text).substr(0, i))) << i;
    for (const char c : {'"', '\\', '{', ']', ',', '0', '\xC3', '\0'}) {
      std::string changed = text;
      changed[i] = c;
      attempt(changed);
    }
  }
}

TEST(JSONDecoder, NestsTo512Levels) {
  const auto nested = [](std::size_t levels) {
    return Data::fromText(std::string(levels, '[') + std::string(levels, ']'));
  };
  EXPECT_NO_THROW(JSONSerialization::validate(nested(512)));
  EXPECT_NO_THROW((void)JSONSerialization::jsonObject(nested(512)));
  for (const std::size_t levels : {513, 100000}) {
    EXPECT_THROW(JSONSerialization::validate(nested(levels)), DecodingError);
    EXPECT_THROW(
        (void)JSONDecoder().decode<Order>("{\"x\":" + std::string(nested(levels - 1).text()) + "}"),
        DecodingError);
  }
}

TEST(JSONDecoder, ErrorsSayWhatWhereAndWhichByte) {
  const auto orderError = [](std::string_view text) {
    return errorOf([&] { (void)JSONDecoder().decode<Order>(text); });
  };
  auto error = orderError(R"({"id":"a","lines":[{"sku":"s","quantity":1},{"sku":2}]})");
  EXPECT_EQ(error.kind(), Case::typeMismatch);
  EXPECT_STREQ(error.what(), "Expected text but found number: lines[1].sku (byte 51)");

  error = orderError(R"({"id":"a","lines":[{"sku":"s"}]})");
  EXPECT_EQ(error.kind(), Case::keyNotFound);
  EXPECT_EQ(error.key()->stringValue(), "quantity");
  EXPECT_STREQ(error.what(), "No value for the key \"quantity\": lines[0] (byte 19)");

  error = orderError(R"({"id":null,"lines":[]})");
  EXPECT_EQ(error.kind(), Case::valueNotFound);

  error = orderError(R"({"id":"a","lines":[{"sku":"s","quantity":3000000000}]})");
  EXPECT_EQ(error.kind(), Case::dataCorrupted);
  EXPECT_STREQ(error.what(),
               "The number 3000000000 does not fit in int32: lines[0].quantity (byte 41)");

  // That a text is no JSON is told before all else that is wrong with it.
  error = orderError(R"({"id":1,"lines":[}])");
  EXPECT_EQ(error.kind(), Case::dataCorrupted);
  EXPECT_EQ(error.context().byteOffset, 17U);
}

TEST(JSONDecoder, OfEqualKeysTheLastWinsAndUnknownOnesAreIgnored) {
  const auto order = JSONDecoder().decode<Order>(
      R"({"lines":[{"sku":"gone","quantity":1}],"id":"a","x":[{"y":1}],"paid":false,
          "\u0069d":"b","lines":[]})");
  EXPECT_EQ(order.id, "b");
  EXPECT_EQ(order.paid, false);
  EXPECT_TRUE(order.lines.empty());
  EXPECT_EQ(JSONDecoder().decode<Order>(R"({"id":"a","lines":[]})").paid, std::nullopt);
  const auto map = JSONDecoder().decode<std::map<std::string, int>>(R"({"a":1,"b":2,"a":3})");
  EXPECT_EQ(map, (std::map<std::string, int>{{"a", 3}, {"b", 2}}));
}

TEST(JSONDecoder, ReadsNumbersByWhatTheyAreNotByTheirNotation) {
  const JSONDecoder decoder;
  EXPECT_EQ(decoder.decode<int>("120"), 120);
  EXPECT_EQ(decoder.decode<int>("1.2e2"), 120);
  EXPECT_EQ(decoder.decode<int>("120.000"), 120);
  EXPECT_EQ(decoder.decode<int>("-1200e-1"), -120);
  EXPECT_EQ(decoder.decode<std::uint64_t>("18446744073709551615"), ~std::uint64_t{0});
  EXPECT_EQ(decoder.decode<std::int64_t>("-9223372036854775808"),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(decoder.decode<double>("123456789012345678901234567890"),
            123456789012345678901234567890.0);
  EXPECT_EQ(decoder.decode<double>("0.1"), 0.1);
  EXPECT_EQ(decoder.decode<double>("9007199254740993"), 9007199254740992.0);
  EXPECT_EQ(decoder.decode<double>("1e-400"), 0.0);
  EXPECT_EQ(decoder.decode<double>("5e-324"), 5e-324);
  EXPECT_EQ(decoder.decode<float>("16777217.0000001"), 16777218.0F);  // not by way of a double
  EXPECT_EQ(decoder.decode<Decimal>("0.10").description(), "0.1");
  for (const char* text :
       {"1.5", "1e-1", "-0.0", "9223372036854775808", "1e1000000000000", "true"}) {
    EXPECT_THROW((void)decoder.decode<std::int64_t>(text), DecodingError) << text;
  }
  for (const char* text : {"-1", "256", "18446744073709551616", "1e400"}) {
    EXPECT_THROW((void)decoder.decode<std::uint8_t>(text), DecodingError) << text;
  }
  EXPECT_THROW((void)decoder.decode<double>("1e400"), DecodingError);
  EXPECT_THROW((void)decoder.decode<float>("1e39"), DecodingError);
  EXPECT_EQ(decoder.decode<double>("0." + std::string(400, '0') + "1e401"), 1.0);
}

TEST(JSONDecoder, FindsKeysHoweverTheyStand) {
  const JSONDecoder decoder;
  for (const char* text :
       {R"({"a":1,"thirteenChars":2,"fourteenCharsX":3})",
        R"({ "a" : 1 , "thirteenChars" : 2 , "fourteenCharsX" : 3 })",
        R"({"fourteenCharsX":3,"thirteenChars" :2,"a":1})",
        R"({"a":1,"thirteenCharsX":9,"thirteenChars":2,"fourteenChars":8,"fourteenCharsX":3})",
        R"({"a":9,"\u0061":1,"thirteen\u0043hars":2,"a\"":7,"fourteenCharsX":3})"}) {
    const auto names = decoder.decode<Names>(text);
    EXPECT_EQ(std::vector({names.a, names.thirteenChars, names.fourteenCharsX}),
              std::vector({1, 2, 3}))
        << text;
  }
  for (const char* text : {R"({"a":1,"thirteenChars":2})", R"({"a";1})", R"({"a")", R"({"a":)"}) {
    EXPECT_THROW((void)decoder.decode<Names>(text), DecodingError) << text;
  }
}

TEST(JSONDecoder, NoticesEachOfManyFields) {
  std::vector<std::string> keys;
  for (char letter = 'a'; letter <= 'k'; ++letter) {
    for (char digit = '0'; digit <= '5'; ++digit) keys.push_back({letter, digit});
  }
  // Backwards, and without one of them.
  const auto textWithout = [&](const std::string& missing) {
    std::string text;
    for (std::size_t i = keys.size(); i-- > 0;) {
      if (keys[i] == missing) continue;
      text.append(text.empty() ? "" : ",").append("\"" + keys[i] + "\":" + std::to_string(i));
    }
    return "{" + text + "}";
  };
  const JSONDecoder decoder;
  const Wide all = decoder.decode<Wide>(textWithout(""));
  EXPECT_EQ(std::vector({all.a0, all.a1, all.k4, all.k5}), std::vector({0, 1, 64, 65}));
  for (const std::string& key : keys) {
    const auto error = errorOf([&] { (void)decoder.decode<Wide>(textWithout(key)); });
    EXPECT_EQ(error.kind(), Case::keyNotFound) << key;
  }
}

TEST(JSONDecoder, ReadsDecimalsOfAnyLengthExactly) {
  const JSONDecoder decoder;
  const std::string digits = "9705318264";
  for (std::size_t integer = 1; integer <= digits.size(); ++integer) {
    for (std::size_t fraction = 1; fraction <= digits.size(); ++fraction) {
      const std::string number = digits.substr(0, integer) + "." + digits.substr(0, fraction);
      const std::string small = "0.0" + digits.substr(0, fraction);
      std::string list = "[";
      list.append(number).append(",-").append(number).append(" ,-").append(small).append("]");
      const auto read = decoder.decode<std::vector<double>>(list);
      EXPECT_EQ(read, std::vector({std::stod(number), -std::stod(number), -std::stod(small)}));
      EXPECT_EQ(decoder.decode<double>(number), std::stod(number));
      for (const char* behind : {"x", ".", ".5", "e"}) {
        EXPECT_THROW((void)decoder.decode<std::vector<double>>("[" + number + behind + ",1.5]"),
                     DecodingError)
            << number << behind;
      }
    }
  }
}

TEST(JSONDecoder, OffersContainersOfAllKinds) {
  const JSONDecoder decoder({.userInfo = {{"who", std::string("me")}}});
  const auto explorer = decoder.decode<Explorer>(
      R"({"inner":{"list":[null,"one","two"]},"super":{"x":7},"inner":{"list":[null,"1","2"]}})");
  EXPECT_EQ(explorer.seen, (std::vector<std::string>{"inner", "super", "3", "nil", "1",
                                                     "inner.list[2]", "2", "7", "me"}));
  EXPECT_THROW((void)decoder.decode<Explorer>("[]"), DecodingError);
  EXPECT_THROW((void)decoder.decode<Explorer>(R"({"inner":{"list":[null]},"super":{"x":7}})"),
               DecodingError);
}

TEST(JSONSerialization, KeepsKindsAndRefusesWhatFitsNone) {
  const auto read = [](std::string_view text) {
    return JSONSerialization::jsonObject(Data::fromText(text));
  };
  const auto object = read(R"({"a":[1,-1,18446744073709551615,1.0,-0.0,null,true,"t"]})");
  EXPECT_EQ(JSONSerialization::data(object).text(),
            R"({"a":[1,-1,18446744073709551615,1.0,-0.0,null,true,"t"]})");
  EXPECT_TRUE(JSONSerialization::isValidJSONObject(object));
  EXPECT_FALSE(JSONSerialization::isValidJSONObject(Date()));
  EXPECT_THROW((void)read("18446744073709551616"), DecodingError);
  EXPECT_THROW(
      (void)JSONSerialization::jsonObject(Data::fromText("1"), {.fragmentsAllowed = false}),
      DecodingError);
}

}  // namespace
}  // namespace tessarine
