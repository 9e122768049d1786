#include "tessarine/values/Data.hpp"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace tessarine {
namespace {

TEST(Data, ReadsStandardBase64AndNothingElse) {
  EXPECT_EQ(Data::fromBase64("")->text(), "");
  EXPECT_EQ(Data::fromBase64("Zm9vYmE=")->text(), "fooba");
  EXPECT_EQ(Data::fromBase64("Zh==")->text(), "f") << "unused bits may be non-zero";
  const struct {
    const char* text;
    const char* why;
  } refused[] = {{"Zg", "padding missing"},      {"Zg=", "padding incomplete"},
                 {"Zg===", "too much padding"},  {"Z===", "a group of one digit"},
                 {"Zm9v\n", "a line end"},       {"Zm9-", "the alphabet for URLs"},
                 {"Zg==Zg==", "padding inside"}, {"====", "padding alone"}};
  for (const auto& row : refused) EXPECT_FALSE(Data::fromBase64(row.text)) << row.why;
}

RC_GTEST_PROP(DataProperty, Base64ReadsBack, (const std::vector<std::uint8_t>& bytes)) {
  RC_ASSERT(Data::fromBase64(Data(bytes).base64EncodedString()) == Data(bytes));
}

}  // namespace
}  // namespace tessarine
