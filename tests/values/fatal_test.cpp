#include "tessarine/values/fatal.hpp"

#include <gtest/gtest.h>

TEST(FatalDeathTest, SaysTheMessageAndAborts) {
  EXPECT_DEATH(tessarine::fatal("queue \"a\" waits for itself"),
               "Tessarine: queue \"a\" waits for itself");
}
