#include <memory>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tessarine/scheduling/addOperationAfterLast.hpp"
#include "tessarine/scheduling/assertMainThread.hpp"
#include "tessarine/scheduling/getCallStack.hpp"
#include "tessarine/scheduling/synchronized.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

TEST(AddOperationAfterLast, ChainsWhateverThePriorities) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(1);
  queue.setSuspended(true);
  std::string order;
  std::vector<std::shared_ptr<Operation>> operations;
  for (const char name : {'a', 'b', 'c'}) {
    operations.push_back(std::make_shared<Operation>([&order, name] { order += name; }));
    operations.back()->setQueuePriority(name == 'a' ? Operation::QueuePriority::veryLow
                                                    : Operation::QueuePriority::veryHigh);
    addOperationAfterLast(queue, operations.back());
  }
  EXPECT_TRUE(operations[0]->dependencies().empty());
  EXPECT_EQ(operations[2]->dependencies(), std::vector{operations[1]});
  operations[2]->cancel();
  const auto last = std::make_shared<Operation>([&order] { order += 'd'; });
  addOperationAfterLast(queue, last);
  EXPECT_EQ(last->dependencies(), std::vector{operations[2]});
  last->addDependency(operations[1]);
  queue.setSuspended(false);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(order, "abd");
}

TEST(Synchronized, ExcludesByIdentityAndNests) {
  struct Plain {
    int value = 0;
  };
  const auto shared = std::make_shared<Plain>();
  Plain other;
  EXPECT_EQ(synchronized(shared, [&] { return synchronized(*shared, [] { return 7; }); }), 7);
  EXPECT_THROW(synchronized(other, [] { throw std::runtime_error("left"); }), std::runtime_error);
  constexpr int rounds = 20'000;
  const auto count = [&] {
    for (int i = 0; i < rounds; ++i) synchronized(shared, [&] { ++shared->value; });
  };
  std::thread first(count);
  std::thread second(count);
  first.join();
  second.join();
  EXPECT_EQ(shared->value, 2 * rounds);
  // Another object's lock is free meanwhile.
  synchronized(shared,
               [&] { std::thread([&] { synchronized(other, [&] { other.value = 1; }); }).join(); });
  EXPECT_EQ(other.value, 1);
}

TEST(HelpersDeath, MisuseIsNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  OperationQueue queue;
  EXPECT_DEATH(addOperationAfterLast(queue, std::make_shared<Operation>([] {})),
               "maxConcurrentOperationCount -1");
  EXPECT_DEATH(synchronized(std::shared_ptr<int>(), [] {}), "null object");
  assertMainThread();
  std::thread([] { assertIsNotMainThread(); }).join();
#ifdef NDEBUG
  std::thread([] { assertMainThread(); }).join();
#else
  EXPECT_DEATH(std::thread([] { assertMainThread(); }).join(), "helpers_test.cpp.*not on the main");
#endif
}

TEST(GetCallStack, HasALineForEachCall) {
  const std::string text = getCallStack();
  EXPECT_EQ(text.find("0 "), 0U);
  EXPECT_NE(text.find("\n1 "), std::string::npos);
  EXPECT_EQ(text.back(), '\n');
}

}  // namespace
}  // namespace tessarine
