#include "tessarine/system/json/JSONEncoder.hpp"

#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "tessarine/coding/Encoder.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

/// Encodes by a function, so that a test can say what a type's own `encode` does.
struct ByHand {
  std::function<void(Encoder&)> write;
  void encode(Encoder& encoder) const { write(encoder); }
};

struct Tree {
  std::vector<Tree> children;
  static constexpr auto codingFields = fields(field("c", &Tree::children));
};

std::string textOf(std::function<void(Encoder&)> write) {
  return JSONEncoder().text(ByHand{std::move(write)});
}

template <class Write>
void expectInvalid(Write write, std::string_view what) {
  try {
    ADD_FAILURE() << textOf(write);
  } catch (const EncodingError& error) {
    EXPECT_EQ(std::string_view(error.what()), what);
  }
}

TEST(JSONEncoder, WritesContainersInTheOrderOfTheirFirstUse) {
  EXPECT_EQ(textOf([](Encoder& encoder) {
              auto outer = encoder.container();
              auto late = outer.nestedUnkeyedContainer("late");
              outer.encode(1, "a");
              auto base = outer.superEncoder();
              outer.encodeNil("nil");
              late.encode("first");
              encoder.container().encode(2, "b");  // lands in the same place
              late.nestedContainer().encode(true, "x");
              late.encodeNil();
              base->singleValueContainer().encode(1.5);
              outer.encode("again", "a");  // keeps its place
              outer.superEncoder("named")->unkeyedContainer().encode(0);
              outer.encodeIfPresent(std::optional<int>(), "absent");
              EXPECT_EQ(late.count(), 3U);
              EXPECT_EQ(description(late.codingPath()), "late");
            }),
            R"({"late":["first",{"x":true},null],"a":"again","super":1.5,"nil":null,"b":2,)"
            R"("named":[0]})");
  std::string many = "{";
  for (int i = 0; i < 40; ++i) {
    many.append(i > 0 ? "," : "").append("\"").append(std::to_string(i)).append("\":1");
  }
  EXPECT_EQ(textOf([](Encoder& encoder) {
              auto container = encoder.container();
              for (int round = 0; round < 2; ++round) {
                for (int i = 0; i < 40; ++i) container.encode(round, std::to_string(i));
              }
            }),
            many + "}");
}

TEST(JSONEncoder, RefusesWhatHasNoForm) {
  expectInvalid([](Encoder&) {}, "Top-level value did not encode any values.");
  expectInvalid(
      [](Encoder& encoder) {
        auto container = encoder.singleValueContainer();
        container.encode(1);
        container.encode(2);
      },
      "Attempt to encode value through single value container when previously value already "
      "encoded.");
  expectInvalid(
      [](Encoder& encoder) {
        encoder.container().encode(1, "a");
        (void)encoder.unkeyedContainer();
      },
      "Attempt to encode a value in two forms at the same place.");
  expectInvalid(
      [](Encoder& encoder) {
        const std::map<std::string, std::vector<double>> values{{"x", {1, std::nan("")}}};
        encoder.container().encode(values, "deep");
      },
      "JSON has no number for nan.: deep.x[1]");
  EXPECT_EQ(JSONEncoder().text(std::vector<ByHand>(1, {[](Encoder&) {}})), "[{}]");
  const ByHand throwing{[](Encoder&) { throw std::runtime_error("mine"); }};
  EXPECT_THROW((void)JSONEncoder().text(std::vector<ByHand>{throwing}), std::runtime_error);
}

TEST(JSONEncoder, BoundsDepthInBothForms) {
  const auto nested = [](std::size_t levels) {
    Tree tree;  // two levels each
    for (std::size_t i = 2; i < levels; i += 2) {
      Tree parent;
      parent.children.push_back(std::move(tree));
      tree = std::move(parent);
    }
    return tree;
  };
  EXPECT_NO_THROW((void)JSONEncoder().text(nested(512)));
  EXPECT_THROW((void)JSONEncoder().text(nested(514)), EncodingError);
  expectInvalid(
      [](Encoder& encoder) {
        std::vector<UnkeyedEncodingContainer> open;
        open.push_back(encoder.unkeyedContainer());
        for (int i = 0; i < 512; ++i) open.push_back(open.back().nestedUnkeyedContainer());
        open.back().encode(1);
      },
      "Nested deeper than 512 levels.: " +
          [] {
            std::string path;
            for (int i = 0; i < 512; ++i) path += "[0]";
            return path;
          }());
}

TEST(JSONEncoder, FormatsAsAsked) {
  const std::map<std::string, std::vector<std::string>> value{{"b", {"/", "\x7f\x1f"}}, {"a", {}}};
  EXPECT_EQ(JSONEncoder().text(value), "{\"a\":[],\"b\":[\"\\/\",\"\x7f\\u001f\"]}");
  EXPECT_EQ(
      JSONEncoder({.outputFormatting = {.prettyPrinted = true, .withoutEscapingSlashes = true}})
          .text(value),
      "{\n  \"a\": [],\n  \"b\": [\n    \"/\",\n    \"\x7f\\u001f\"\n  ]\n}");
  const ByHand unsorted{[](Encoder& encoder) {
    auto container = encoder.container();
    container.encode(1, "b");
    container.encode(std::map<std::string, int>{{"z", 1}, {"y", 2}}, "a");
  }};
  EXPECT_EQ(JSONEncoder({.outputFormatting = {.sortedKeys = true}}).text(unsorted),
            R"({"a":{"y":2,"z":1},"b":1})");
  EXPECT_EQ(JSONEncoder().text("ill \xff formed"), "\"ill \xEF\xBF\xBD formed\"");
}

// A host that catches goes on as if it had not tried, in small objects and in large ones.
TEST(JSONEncoder, WhatFailsLeavesNoTrace) {
  const double bad = std::nan("");
  for (const int others : {1, 15, 16, 17, 40}) {
    std::string expected = R"({"kept":1)";
    const std::string text = textOf([&](Encoder& encoder) {
      auto container = encoder.container();
      container.encode(1, "kept");
      for (int i = 0; i < others; ++i) {
        const std::string key = "k" + std::to_string(i);
        EXPECT_THROW(container.encode(bad, key), EncodingError);
        EXPECT_THROW(container.encode(bad, "kept"), EncodingError);
        EXPECT_THROW(container.encode(bad, "gone"), EncodingError);
        container.encode(i, key);
        expected += ",\"" + key + "\":" + std::to_string(i);
      }
      auto list = container.nestedUnkeyedContainer("list");
      EXPECT_THROW(list.encode(bad), EncodingError);
      list.encode(2);
    });
    EXPECT_EQ(text, expected + R"(,"list":[2]})");
  }
}

// Escapes at every place of texts of every length up to beyond two blocks, and back.
TEST(JSONEncoder, EscapesWhereverTheCharacterStands) {
  for (std::size_t size = 1; size < 40; ++size) {
    for (std::size_t at = 0; at < size; ++at) {
      std::string text(size, 'x');
      text[at] = '"';
      std::string expected = text;
      expected.insert(at, 1, '\\');
      const std::string json = JSONEncoder().text(text);
      ASSERT_EQ(json, std::string("\"").append(expected).append("\""));
      ASSERT_EQ(JSONDecoder().decode<std::string>(json), text);
    }
  }
}

TEST(JSONEncoder, EqualUnorderedMapsGiveEqualBytes) {
  std::unordered_map<std::string, int> forward;
  std::unordered_map<std::string, int> backward(1000);
  for (int i = 0; i < 100; ++i) forward.emplace(std::to_string(i), i);
  for (int i = 99; i >= 0; --i) backward.emplace(std::to_string(i), i);
  EXPECT_EQ(JSONEncoder().encode(forward), JSONEncoder().encode(backward));
}

}  // namespace
}  // namespace tessarine
