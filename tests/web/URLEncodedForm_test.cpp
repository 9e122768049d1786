#include <any>
#include <array>
#include <cctype>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tessarine/web/URLEncodedFormDecoder.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"
#include "tessarine/web/URLEncodedFormSerializer.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using Form = URLEncodedFormEncoder;
using Pairs = std::vector<std::pair<std::string, std::string>>;

/// Encodes by a function, so that a test can say what a type's own `encode` does.
struct ByHand {
  std::function<void(Encoder&)> write;
  void encode(Encoder& encoder) const { write(encoder); }
};

std::string textOf(std::function<void(Encoder&)> write, Form::Options options = {}) {
  return Form(std::move(options)).text(ByHand{std::move(write)});
}

/// The pairs of a form by another parser than the library's: strtok-like and byte by byte.
Pairs independentlyParsed(const std::string& form) {
  Pairs pairs;
  std::string key;
  std::string value;
  std::string* part = &key;
  for (std::size_t i = 0; i <= form.size(); ++i) {
    if (i == form.size() || form[i] == '&') {
      if (part == &value) pairs.emplace_back(key, value);
      key.clear();
      value.clear();
      part = &key;
    } else if (form[i] == '=' && part == &key) {
      part = &value;
    } else if (form[i] == '%') {
      *part += static_cast<char>(std::stoi(form.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      *part += form[i] == '+' ? ' ' : form[i];
    }
  }
  return pairs;
}

struct Inner {
  std::string b;
  std::vector<int> list;
  static constexpr auto codingFields = fields(field("b", &Inner::b), field("list", &Inner::list));
};
struct Outer {
  Inner a;
  std::vector<Inner> rows;
  std::vector<std::vector<int>> grid;
  std::optional<bool> flag;
  static constexpr auto codingFields =
      fields(field("a", &Outer::a), field("rows", &Outer::rows), field("grid", &Outer::grid),
             field("flag", &Outer::flag));
};

TEST(URLEncodedForm, WritesNestedKeysInBrackets) {
  const Outer value{{"1", {9, 10}}, {{"x", {}}, {"y", {1}}}, {{1, 2}, {}, {3}}, true};
  const Pairs expected{{"a[b]", "1"},      {"a[list][]", "9"}, {"a[list][]", "10"},
                       {"rows[][b]", "x"}, {"rows[][b]", "y"}, {"rows[][list][]", "1"},
                       {"grid[][]", "1"},  {"grid[][]", "2"},  {"grid[][]", "3"},
                       {"flag", "1"}};
  EXPECT_EQ(independentlyParsed(Form().text(value)), expected);
  EXPECT_TRUE(Form().text(value).starts_with("a%5Bb%5D=1&a%5Blist%5D%5B%5D=9"));

  Pairs bare = independentlyParsed(Form({.arrayEncoding = Form::ArrayEncoding::noBrackets,
                                         .boolEncoding = Form::BoolEncoding::literal})
                                       .text(value));
  EXPECT_EQ(bare[1].first, "a[list]");
  EXPECT_EQ(bare[3].first, "rows[b]");
  EXPECT_EQ(bare[6].first, "grid");
  EXPECT_EQ(bare[9].second, "true");

  EXPECT_EQ(Form().text(Outer{}), "a%5Bb%5D=");
  EXPECT_EQ(Form().text(std::map<std::string, std::vector<int>>{{"a", {}}}), "");
}

TEST(URLEncodedForm, SortsFinishedSegmentsAtEveryLevel) {
  const Form sorted(
      {.alphabetizeKeyValuePairs = true, .arrayEncoding = Form::ArrayEncoding::noBrackets});
  EXPECT_EQ(sorted.text(std::map<std::string, std::vector<int>>{{"a", {9, 10}}}), "a=10&a=9");
  const auto unordered = [](Encoder& encoder) {
    auto container = encoder.container();
    container.encode(1, "b");
    container.encode(std::map<std::string, int>{{"z", 1}, {"y", 2}}, "c");
    container.encode(2, "a");
  };
  EXPECT_EQ(textOf(unordered), "b=1&c%5By%5D=2&c%5Bz%5D=1&a=2");
  EXPECT_EQ(textOf(unordered, {.alphabetizeKeyValuePairs = true}), "a=2&b=1&c%5By%5D=2&c%5Bz%5D=1");
}

TEST(URLEncodedForm, TreesAreWrittenFromAnyKeyOn) {
  using Component = URLEncodedFormComponent;
  const auto serializer = [](Form::KeyEncoding keys) {
    return URLEncodedFormSerializer(false, Form::ArrayEncoding::brackets, std::move(keys),
                                    Form::SpaceEncoding::percentEscaped, afURLQueryAllowed());
  };
  Component tree;
  tree.set("1", {AnyCodingKey("aB")});
  tree.set(Component::Array(), {AnyCodingKey("none")});
  tree.set("2", {AnyCodingKey(""), AnyCodingKey("c")});
  const auto plain = serializer(Form::KeyEncoding::useDefaultKeys);
  // A list without elements, which only a tree made by hand has, is an empty segment.
  EXPECT_EQ(plain.serialize(*tree.object()), "aB=1&&%5Bc%5D=2");
  EXPECT_EQ(plain.serialize(*tree.object(), "k e"), "k%20e%5BaB%5D=1&&k%20e%5B%5D%5Bc%5D=2");
  EXPECT_EQ(plain.serialize(Component::Array{"x", Component::Array{"y"}}, "k"),
            "k%5B%5D=x&k%5B%5D%5B%5D=y");
  EXPECT_EQ(plain.serialize(Component::Array(), "k"), "");
  EXPECT_EQ(serializer(Form::KeyEncoding::uppercased).serialize(*tree.object(), "k e"),
            "K%20E%5BAB%5D=1&&K%20E%5B%5D%5BC%5D=2");
}

TEST(URLEncodedForm, ObjectsOfAnySizeKeepTheOrderOfTheirKeys) {
  for (const std::size_t count : {0U, 1U, 16U, 17U, 1023U, 1024U, 1025U, 2048U, 5000U}) {
    URLEncodedFormObject object;
    for (const int turn : {1, 2}) {  // the second time each key is there, and gets another value
      for (std::size_t i = 0; i < count; ++i) {
        object.valueFor(std::to_string(i * 7919 % 10'007)) = std::to_string(i * turn);
      }
    }
    ASSERT_EQ(object.size(), count);
    std::size_t i = 0;
    for (const auto& [key, value] : object) {
      ASSERT_EQ(key, std::to_string(i * 7919 % 10'007));
      ASSERT_EQ(*value.string(), std::to_string(2 * i));
      ASSERT_EQ(object.find(key), &value);
      ++i;
    }
    ASSERT_EQ(i, count);
    EXPECT_EQ(object.find("no number"), nullptr);
    auto copy = object;
    EXPECT_EQ(copy, object);
    copy.valueFor("one more") = "";
    EXPECT_NE(copy, object);
    EXPECT_EQ(object.find("one more"), nullptr);
    object = std::move(copy);
    EXPECT_EQ(object.size(), count + 1);
    EXPECT_NE(object.find("one more"), nullptr);
  }
}

TEST(URLEncodedForm, EscapesEveryByteThatIsNotAllowed) {
  const auto one = [](std::string_view value, Form::Options options = {}) {
    const std::map<std::string, std::string> form{{"k", std::string(value)}};
    return Form(std::move(options)).text(form).substr(2);
  };
  const std::string allowed = "-._~/?";
  for (int c = 1; c < 128; ++c) {
    const std::string text(1, static_cast<char>(c));
    const bool isPlain = std::isalnum(c) != 0 || allowed.find(text) != std::string::npos;
    std::array<char, 4> escaped{};
    std::snprintf(escaped.data(), escaped.size(), "%%%02X", static_cast<unsigned>(c));
    EXPECT_EQ(one(text), isPlain ? text : escaped.data()) << c;
  }
  EXPECT_EQ(one("a b+", {.spaceEncoding = Form::SpaceEncoding::plusReplaced}), "a+b%2B");
  EXPECT_EQ(one("🙂\xff"), "%F0%9F%99%82%EF%BF%BD");
  EXPECT_EQ(one("é[", {.allowedCharacters = CharacterSet("ké[")}), "é[");
  EXPECT_EQ(Form().text(std::map<std::string, std::string>{{"", ""}}), "=");
}

TEST(URLEncodedForm, ConvertsWholeKeys) {
  using KeyEncoding = Form::KeyEncoding;
  const auto converted = [](std::string_view key, const KeyEncoding& encoding) {
    return encoding.encode(std::string(key));
  };
  const std::pair<std::string_view, std::string_view> snake[] = {
      {"userIDValue", "user_id_value"},
      {"URLValue", "u_rl_value"},
      {"fooBar[bazQux]", "foo_bar[baz_qux]"},
      {"", ""},
      {"a", "a"},
      {"aB", "a_b"},
      {"already_snake", "already_snake"},
      {"myURL", "my_url"},
      {"éÀçÑ", "é_àç_ñ"}};
  for (const auto& [key, expected] : snake) {
    EXPECT_EQ(converted(key, KeyEncoding::convertToSnakeCase), expected);
  }
  EXPECT_EQ(converted("userIDValue", KeyEncoding::convertToKebabCase), "user-id-value");
  EXPECT_EQ(converted("foo[bar]", KeyEncoding::capitalized), "Foo[bar]");
  EXPECT_EQ(converted("straße", KeyEncoding::uppercased), "STRASSE");
  EXPECT_EQ(converted("FOO[Bar]", KeyEncoding::lowercased), "foo[bar]");

  // What is converted is found again.
  const Outer value{{"1", {9}}, {{"x", {2}}}, {}, {}};
  for (const KeyEncoding& encoding :
       {KeyEncoding(KeyEncoding::capitalized), KeyEncoding(KeyEncoding::uppercased),
        KeyEncoding::withCallback([](const std::string& key) { return "p." + key; })}) {
    const std::string form = Form({.keyEncoding = encoding}).text(value);
    const auto back = URLEncodedFormDecoder({.keyEncoding = encoding}).decode<Outer>(form);
    EXPECT_EQ(back.a.list, value.a.list) << form;
    EXPECT_EQ(back.rows.at(0).b, "x") << form;
  }
}

TEST(URLEncodedForm, WritesDatesAndBytesAsAsked) {
  const std::map<std::string, Date> dates{{"d", Date::since1970(1.5)}};
  using Dates = Form::DateEncoding;
  const auto date = [&](const Dates& encoding) {
    return Form({.dateEncoding = encoding}).text(dates);
  };
  EXPECT_EQ(date(Dates::deferredToDate), "d=-978307198.5");
  EXPECT_EQ(date(Dates::secondsSince1970), "d=1.5");
  EXPECT_EQ(date(Dates::millisecondsSince1970), "d=1500.0");
  EXPECT_EQ(date(Dates::iso8601), "d=1970-01-01T00%3A00%3A01Z");
  const DateFormatter year("yyyy", {.timeZone = TimeZone::gmt()});
  EXPECT_EQ(date(Dates::withFormatter(year)), "d=1970");
  const URLEncodedFormDecoder years({.dateEncoding = Dates::formatted, .formatter = year});
  using Members = std::map<std::string, Date>;
  EXPECT_EQ(years.decode<Members>("d=1970").at("d"), Date::since1970(0));
  EXPECT_EQ(date(Dates::withCallback([](Date) { return std::string("x"); })), "d=x");
  EXPECT_THROW((void)date(Dates::withCallback(
                   [](Date) -> std::string { throw std::runtime_error("mine"); })),
               std::runtime_error);
  const std::map<std::string, Data> bytes{{"b", Data::fromText("\x01")}};
  EXPECT_EQ(Form().text(bytes), "b=AQ%3D%3D");
  EXPECT_EQ(Form({.dataEncoding = Form::DataEncoding::deferredToData}).text(bytes), "b%5B%5D=1");
  EXPECT_EQ(Form({.dataEncoding = Form::DataEncoding::withCallback(
                      [](const Data&) { return std::string("y"); })})
                .text(bytes),
            "b=y");
}

TEST(URLEncodedForm, OptionalsFollowTheStrategiesOfWhatTheyHold) {
  using Members = std::map<std::string, std::optional<Date>>;
  const Members dates{{"d", Date::since1970(1)}};
  const auto iso8601 = Form::DateEncoding::iso8601;
  const std::string form = Form({.dateEncoding = iso8601}).text(dates);
  EXPECT_EQ(form, "d=1970-01-01T00%3A00%3A01Z");
  EXPECT_EQ(URLEncodedFormDecoder({.dateEncoding = iso8601}).decode<Members>(form), dates);
  EXPECT_EQ(textOf([](Encoder& encoder) {
              encoder.container().encode(std::optional(Data::fromText("\x03")), "d");
            }),
            "d=Aw%3D%3D");
  using Bytes = std::map<std::string, std::optional<Data>>;
  EXPECT_EQ(URLEncodedFormDecoder().decode<Bytes>("d=Aw==").at("d"), Data::fromText("\x03"));
}

TEST(URLEncodedForm, ContainersWriteToTheTree) {
  const auto tree = [](std::function<void(Encoder&)> write) {
    return Form().component(ByHand{std::move(write)}).description();
  };
  EXPECT_EQ(tree([](Encoder& encoder) {
              auto container = encoder.container();
              container.encode(1, "a");
              container.encode(2, "b");
              container.encode(3, "a");
              (void)container.nestedContainer("empty");
              container.superEncoder()->container().encode(true, "base");
              container.superEncoder("named")->singleValueContainer().encode(1.5);
            }),
            R"(object([a: string("3"), b: string("2"), base: string("1"), named: string("1.5")]))");
  EXPECT_EQ(tree([](Encoder& encoder) {
              auto list = encoder.container().nestedUnkeyedContainer("l");
              list.encode("x");
              (void)list.nestedContainer();
              list.nestedUnkeyedContainer().encode("y");
              EXPECT_EQ(list.count(), 3U);
              EXPECT_EQ(description(list.codingPath()), "l");
            }),
            R"(object([l: array([string("x"), array([string("y")])])]))");
  // An unkeyed container's base part takes the list's own place.
  EXPECT_EQ(tree([](Encoder& encoder) {
              auto list = encoder.container().nestedUnkeyedContainer("l");
              list.encode("x");
              list.superEncoder()->singleValueContainer().encode("base");
            }),
            R"(object([l: string("base")]))");
  // The last writer decides what stands in a place.
  URLEncodedFormComponent component;
  component.set("text", {AnyCodingKey("k")});
  component.set("element", {AnyCodingKey("k"), AnyCodingKey(5)});
  EXPECT_EQ(component.description(), R"(object([k: array([string("element")])]))");
  component.set("inner", {AnyCodingKey("k"), AnyCodingKey(0), AnyCodingKey("x")});
  EXPECT_EQ(component.description(), R"(object([k: array([object([x: string("inner")])])]))");
}

TEST(URLEncodedForm, RefusesWhatHasNoForm) {
  const auto expectInvalid = [](std::function<void(Encoder&)> write, std::string_view what) {
    try {
      ADD_FAILURE() << textOf(std::move(write));
    } catch (const EncodingError& error) {
      EXPECT_EQ(std::string_view(error.what()), what);
    }
  };
  const std::string noNil = "URLEncodedFormEncoder cannot encode nil values.";
  expectInvalid([](Encoder& encoder) { encoder.container().encodeNil("k"); }, noNil);
  expectInvalid([](Encoder& encoder) { encoder.unkeyedContainer().encodeNil(); }, noNil);
  expectInvalid([](Encoder& encoder) { encoder.singleValueContainer().encodeNil(); }, noNil);
  expectInvalid([](Encoder& encoder) { encoder.container().encode(std::optional<int>(), "k"); },
                noNil + ": k");
  try {
    (void)textOf([](Encoder& encoder) { encoder.container().encodeNil("k"); });
  } catch (const EncodingError& error) {
    EXPECT_EQ(std::any_cast<std::string>(error.value()),
              R"(AnyCodingKey(stringValue: "k", intValue: nil): nil)");
  }
  expectInvalid(
      [](Encoder& encoder) {
        auto container = encoder.singleValueContainer();
        container.encode(ByHand{[](Encoder&) {}});
        container.encode(2);
      },
      "Attempt to encode value through single value container when previously value already "
      "encoded.");
  for (const auto& text : {Form().component(1).description(), std::string("string(\"1\")")}) {
    try {
      (void)Form().text(1);
      ADD_FAILURE();
    } catch (const Form::Error& error) {
      EXPECT_EQ(error.rootDescription(), text);
    }
  }
  EXPECT_THROW((void)Form().text(std::vector<int>{1}), Form::Error);
}

// The tree and the direct way give the same text; an `encode` by hand forces the tree.
TEST(URLEncodedForm, TheDirectWayGivesTheTextOfTheTree) {
  std::mt19937 random(7);
  const auto below = [&](unsigned n) { return random() % n; };
  const auto inner = [&] {
    return Inner{std::to_string(below(99)), std::vector<int>(below(3), 7)};
  };
  for (int round = 0; round < 300; ++round) {
    Outer value{inner(), {}, {}, {}};
    for (unsigned n = below(4); n > 0; --n) value.rows.push_back(inner());
    for (unsigned n = below(4); n > 0; --n) value.grid.emplace_back(below(3), 1);
    const ByHand tree{[&](Encoder& encoder) { encode(value, encoder); }};
    ASSERT_EQ(Form().text(value), Form().text(tree)) << round;
  }
}

TEST(URLEncodedFormDecoder, TakesFormsOfOtherHands) {
  const URLEncodedFormDecoder decoder;
  using Texts = std::map<std::string, std::vector<std::string>>;
  const auto texts = [&](std::string_view form) { return decoder.decode<Texts>(form); };
  EXPECT_EQ(texts("a=1&a=2&b[]=3&c=x+y%20z&&"),
            (Texts{{"a", {"1", "2"}}, {"b", {"3"}}, {"c", {"x y z"}}}));
  EXPECT_EQ(texts("a[10]=c&a[2]=b&a[0]=a"), (Texts{{"a", {"a", "b", "c"}}}));
  // Brackets that do not pair are part of the key.
  EXPECT_EQ(texts("a[=1&b]=2&c[d]e=4&f[[g]]=5"),
            (Texts{{"a[", {"1"}}, {"b]", {"2"}}, {"c[d]e", {"4"}}, {"f[[g]]", {"5"}}}));
}

TEST(URLEncodedFormDecoder, RefusesWhatMakesNoSense) {
  const std::pair<std::string, std::string_view> rows[] = {
      {"a=%4", "an escape that there is not"},
      {"a=%zz", "an escape that there is not"},
      {"a=%FF", "ill-formed UTF-8"},
      {"a=1&a[b]=2", "one key stands for a text"},
      {"a[b]=2&a=1", "one key stands for a text"},
      {"a=1&a[]=2", "one key stands for a text"},
      {"a[]=1&a[b]=2", "one key stands for a text"},
  };
  for (const auto& [form, why] : rows) {
    try {
      ADD_FAILURE() << URLEncodedFormDecoder::component(form).description();
    } catch (const DecodingError& error) {
      EXPECT_NE(std::string_view(error.what()).find(why), std::string_view::npos) << error.what();
      EXPECT_TRUE(error.context().byteOffset.has_value());
    }
  }
  std::string brackets = "a";
  for (int i = 0; i < 1000000; ++i) brackets += "[]";
  EXPECT_THROW((void)URLEncodedFormDecoder::component(brackets + "=1"), DecodingError);
  try {
    (void)URLEncodedFormDecoder().decode<Outer>("a[b]=1&rows[][b]=x&rows[][list][]=no");
    ADD_FAILURE();
  } catch (const DecodingError& error) {
    EXPECT_STREQ(error.what(), "The text \"no\" is no int32: rows[0].list[0]");
  }
  EXPECT_THROW((void)URLEncodedFormDecoder().decode<Outer>("rows[][b]=x"), DecodingError);
}

}  // namespace
}  // namespace tessarine
