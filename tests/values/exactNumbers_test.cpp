#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "tessarine/values/Decimal.hpp"
#include "tessarine/values/Int128.hpp"
#include "tessarine/values/UUID.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

TEST(Decimal, KeepsWhatFitsAndRefusesTheRest) {
  const std::pair<std::string_view, std::string_view> kept[] = {
      {"0", "0"},
      {"-0.00", "0"},
      {"1.50", "1.5"},
      {"-12e2", "-1200"},
      {"5e-3", "0.005"},
      {"1.0E+2", "100"},
      {"000120", "120"},
      {"0.10", "0.1"},
      {"0e999999999", "0"},
      {"99999999999999999999999999999999999999", "99999999999999999999999999999999999999"}};
  for (const auto& [text, description] : kept) {
    ASSERT_TRUE(Decimal::fromString(text)) << text;
    EXPECT_EQ(Decimal::fromString(text)->description(), description);
    EXPECT_EQ(Decimal::fromString(description), Decimal::fromString(text));
    EXPECT_EQ(std::hash<Decimal>{}(*Decimal::fromString(description)),
              std::hash<Decimal>{}(*Decimal::fromString(text)));
  }
  for (const std::string_view text :
       {"", "-", ".5", "1.", "1e", "1e+-2", "+1", "1 ", "nan", "1e128", "1e-129", "1e99999999999",
        "999999999999999999999999999999999999991"}) {
    EXPECT_FALSE(Decimal::fromString(text)) << text;
  }
}

TEST(Int128, ReadsBackItsEdges) {
  constexpr auto greatest = static_cast<Int128>(~UInt128{0} >> 1U);
  for (const Int128 value : {greatest, -greatest - 1, Int128{0}, Int128{-1}}) {
    EXPECT_TRUE(int128FromText(decimalText(value)) == value);
  }
  EXPECT_TRUE(uint128FromText(decimalText(~UInt128{0})) == ~UInt128{0});
  EXPECT_FALSE(int128FromText("170141183460469231731687303715884105728"));
  EXPECT_FALSE(int128FromText("-170141183460469231731687303715884105729"));
  EXPECT_FALSE(uint128FromText("340282366920938463463374607431768211456"));
  for (const std::string_view text : {"", "-", "1a", "+1", " 1"})
    EXPECT_FALSE(int128FromText(text));
}

TEST(UUID, TakesItsTextInEitherCaseAndNoOther) {
  const std::string text = UUID::random().uuidString();
  EXPECT_EQ(UUID::fromString(text)->uuidString(), text);
  EXPECT_EQ(text[14], '4');
  EXPECT_NE(UUID::random(), UUID::random());
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::string changed = text;
    changed[i] = changed[i] == '-' ? '0' : 'g';
    EXPECT_FALSE(UUID::fromString(changed)) << changed;
  }
  EXPECT_FALSE(UUID::fromString(text.substr(1)));
}

}  // namespace
}  // namespace tessarine
