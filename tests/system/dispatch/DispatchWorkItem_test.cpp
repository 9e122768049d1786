#include "tessarine/system/dispatch/DispatchWorkItem.hpp"

#include <memory>
#include <semaphore>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tessarine/system/dispatch/DispatchQueue.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

TEST(DispatchWorkItem, CancelSkipsWhatHasNotBegunAndWaitReturns) {
  const auto queue = std::make_shared<DispatchQueue>("test.items");
  std::binary_semaphore mayGo(0);
  bool ran = false;
  const auto item = std::make_shared<DispatchWorkItem>([&] { ran = true; });
  queue->async([&] { mayGo.acquire(); });
  queue->async(item);
  EXPECT_FALSE(item->isCancelled());
  item->cancel();
  mayGo.release();
  item->wait();
  item->wait();
  EXPECT_TRUE(item->isCancelled());
  EXPECT_FALSE(ran);
}

TEST(DispatchWorkItem, CancellingARunningBlockOnlySetsTheFlag) {
  const auto queue = std::make_shared<DispatchQueue>("test.items");
  std::binary_semaphore begun(0);
  std::binary_semaphore mayGo(0);
  int steps = 0;
  const auto item = std::make_shared<DispatchWorkItem>([&] {
    begun.release();
    mayGo.acquire();
    ++steps;
  });
  queue->async(item);
  begun.acquire();
  item->cancel();
  std::vector<std::thread> waiters;
  waiters.reserve(3);
  for (int i = 0; i < 3; ++i)
    waiters.emplace_back([&] {
      item->wait();
      EXPECT_EQ(steps, 1);
    });
  mayGo.release();
  for (std::thread& waiter : waiters) waiter.join();
}

TEST(DispatchWorkItem, PerformRunsEachTimeAndLetsWaitersGoAfterAnException) {
  int runs = 0;
  DispatchWorkItem item([&] {
    if (++runs == 2) throw std::runtime_error("second");
  });
  item.perform();
  EXPECT_THROW(item.perform(), std::runtime_error);
  item.wait();
  EXPECT_EQ(runs, 2);

  DispatchWorkItem thrower([] { throw std::runtime_error("first"); });
  EXPECT_THROW(thrower.perform(), std::runtime_error);
  thrower.wait();
}

}  // namespace
}  // namespace tessarine
