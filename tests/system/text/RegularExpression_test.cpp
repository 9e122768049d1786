#include "tessarine/system/text/RegularExpression.hpp"

#include "tessarine/system/text/Characters.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

bool matches(std::string_view pattern, std::string_view subject) {
  const auto expression = RegularExpression::compile(pattern);
  return expression && expression->matchesInside(subject);
}

TEST(RegularExpression, SearchesInsideTheSubject) {
  EXPECT_TRUE(matches("ru", "true"));
  EXPECT_FALSE(matches("^ru", "true"));
  EXPECT_FALSE(matches("TRUE", "true"));
  EXPECT_FALSE(RegularExpression::compile("[").has_value());
  EXPECT_FALSE(RegularExpression::compile("(?<n").has_value());
  EXPECT_TRUE(matches("\xff", "a\xef\xbf\xbd")) << "an ill-formed byte is U+FFFD";
}

TEST(RegularExpression, HostilePatternsEnd) {
  const std::string subject(40, 'a');
  EXPECT_FALSE(matches("(a+)+$b", subject));
  EXPECT_FALSE(matches("(a|aa)+$b", subject + subject + subject));
  EXPECT_FALSE(matches("((((((a{1,500}){1,500}){1,500}){1,500}){1,500}){1,500})b", subject));
  EXPECT_FALSE(matches(std::string(1 << 20, '('), "true"));
  EXPECT_FALSE(matches(std::string(1 << 20, 'a'), "true"));
  EXPECT_TRUE(matches("true|" + std::string(1 << 20, 'a'), "true"));
  EXPECT_FALSE(RegularExpression::compile(std::string(5 << 20, 'a')).has_value());
  std::string nested;
  for (int i = 0; i < 200000; ++i) nested += "(a";
  EXPECT_FALSE(matches(nested + std::string(200000, ')'), "true"));
}

TEST(Characters, TrimsByTheNamedSetAndNothingElse) {
  EXPECT_EQ(trimmingWhitespaceAndNewlines(" \t\r\n TRUE\n"), "TRUE");
  EXPECT_EQ(trimmingWhitespaceAndNewlines("\u2028\u3000\u00a0x y\u0085\u2029"), "x y");
  EXPECT_EQ(trimmingWhitespaceAndNewlines("\v1\f"), "\v1\f");
  EXPECT_EQ(trimmingWhitespaceAndNewlines(" \n "), "");
  EXPECT_EQ(trimmingWhitespaceAndNewlines(std::string_view(" \0 ", 3)), std::string_view("\0", 1));
  EXPECT_EQ(trimmingWhitespaceAndNewlines(" \xff\x80 "), "\xff\x80");
  EXPECT_EQ(trimmingWhitespaceAndNewlines("\u200b"), "\u200b") << "a zero-width space stays";
}

TEST(Characters, LowercasesWithoutALocale) {
  EXPECT_EQ(lowercased("TRUE I"), "true i");
  EXPECT_EQ(lowercased("\u0130\u00c4"), "i\u0307\u00e4");
}

}  // namespace
}  // namespace tessarine
