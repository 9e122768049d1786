#include "tessarine/differencing/HashTable.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

using tessarine::HashTable;

/// Hashes to what it is told to.
struct Key {
  std::int64_t value;
  std::int64_t hash;
  bool operator==(const Key& other) const { return value == other.value; }
  std::string description() const { return std::to_string(value); }
};

}  // namespace

template <>
struct std::hash<Key> {
  std::size_t operator()(const Key& key) const { return static_cast<std::size_t>(key.hash); }
};

namespace {

TEST(HashTable, KeepsItsShapeAndOrder) {
  HashTable<Key, std::string> table(3);
  EXPECT_EQ(table.description(), "");
  table.updateValue("a", {1, 4});
  table.updateValue("b", {2, -1});  // the remainder is -1, the bucket 1
  table.updateValue("c", {3, 7});
  table.updateValue("d", {4, INT64_MIN});
  EXPECT_EQ(table.updateValue("B", {2, -1}), "b");
  EXPECT_EQ(table.count(), 4);
  EXPECT_EQ(table.debugDescription(),
            "bucket 0: \nbucket 1: 1 = a, 2 = B, 3 = c\nbucket 2: 4 = d\n");
  EXPECT_EQ(table.removeValue({2, -1}), "B");
  EXPECT_EQ(table.removeValue({2, -1}), std::nullopt);
  EXPECT_EQ(table.description(), "1 = a, 3 = c, 4 = d");
  table.removeAll();
  EXPECT_TRUE(table.isEmpty());
  EXPECT_EQ(table.debugDescription(), "bucket 0: \nbucket 1: \nbucket 2: \n");
}

TEST(HashTable, CopiesAreIndependent) {
  HashTable<std::string, int> first(1);
  first["a"] = 1;
  auto second = first;
  second["b"] = 2;
  second["a"] = std::nullopt;
  second["missing"] = std::nullopt;
  EXPECT_EQ(first.description(), "a = 1");
  EXPECT_EQ(second.description(), "b = 2");
  first = second;
  first.removeAll();
  const auto& constant = second;
  EXPECT_EQ(constant["b"], 2);
  EXPECT_EQ(constant["a"], std::nullopt);
}

TEST(HashTable, AgreesWithAMap) {
  std::mt19937 random(7);
  HashTable<int, int> table(5);
  std::map<int, int> model;
  for (int step = 0; step < 5'000; ++step) {
    const int key = static_cast<int>(random() % 40) - 20;
    const auto known = model.contains(key) ? std::optional(model[key]) : std::nullopt;
    const std::optional<int> read = table[key];
    ASSERT_EQ(read, known);
    if (random() % 2 == 0) {
      ASSERT_EQ(table.updateValue(step, key), known);
      model[key] = step;
    } else {
      ASSERT_EQ(table.removeValue(key), known);
      model.erase(key);
    }
    ASSERT_EQ(table.count(), static_cast<std::int64_t>(model.size()));
  }
}

TEST(HashTableDeathTest, NeedsBuckets) {
  HashTable<int, int> none(0);
  EXPECT_DEATH(none.value(1), "division by zero");
  EXPECT_DEATH((HashTable<int, int>(-1)), "negative capacity");
}

}  // namespace
