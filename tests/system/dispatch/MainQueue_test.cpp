#include "tessarine/system/dispatch/MainQueue.hpp"

#include <memory>
#include <semaphore>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tessarine/system/dispatch/DispatchQueue.hpp"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace tessarine {
namespace {

// The first driver is the main thread for good, so each test plays it on the thread it runs on, and
// all of them on the same one: the process's initial thread.

bool hasWorkSignal() {
  pollfd signal{MainQueue::fileDescriptor(), POLLIN, 0};
  return poll(&signal, 1, 0) == 1;
}

TEST(MainQueue, DrainRunsWhatIsDueAndLeavesWhatItSubmits) {
  const auto& queue = DispatchQueue::main();
  std::vector<int> order;
  queue->async([&] {
    order.push_back(1);
    queue->async([&] { order.push_back(3); });
  });
  queue->async([&] { order.push_back(2); });
  EXPECT_TRUE(order.empty());
  EXPECT_EQ(MainQueue::drain(), 2U);
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  EXPECT_TRUE(hasWorkSignal());
  EXPECT_EQ(MainQueue::drain(), 1U);
  EXPECT_EQ(MainQueue::drain(), 0U);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
  EXPECT_FALSE(hasWorkSignal());
}

TEST(MainQueue, NestedDrainRunsTheBlocksBehindAndEndsTheOuter) {
  const auto& queue = DispatchQueue::main();
  std::vector<int> order;
  std::size_t nested = 0;
  queue->async([&] {
    queue->async([&] { order.push_back(2); });
    nested = MainQueue::drain();
    queue->async([&] { order.push_back(3); });
  });
  queue->async([&] { order.push_back(1); });
  EXPECT_EQ(MainQueue::drain(), 1U);
  EXPECT_EQ(nested, 2U);
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  EXPECT_EQ(MainQueue::drain(), 1U);
}

TEST(MainQueue, RunGoesOnUntilStopAndLeavesTheRestQueued) {
  const auto& queue = DispatchQueue::main();
  bool ranRest = false;
  std::thread other([&] {
    queue->sync([] { EXPECT_TRUE(MainQueue::isMainThread()); });
    queue->async([&] {
      MainQueue::stop();
      queue->async([] {});
    });
    queue->async([&] { ranRest = true; });
  });
  MainQueue::run();
  EXPECT_FALSE(ranRest);
  other.join();
  MainQueue::stop();
  MainQueue::run();
  EXPECT_FALSE(ranRest);
  while (MainQueue::drain() != 0) {
  }
  EXPECT_TRUE(ranRest);
}

TEST(MainQueue, StopFromAnotherThreadWakesRun) {
  for (int round = 0; round < 50; ++round) {
    std::thread other([] { MainQueue::stop(); });
    MainQueue::run();
    other.join();
  }
  EXPECT_FALSE(hasWorkSignal());
}

TEST(MainQueue, EpollLoopSeesEveryBlockOfManyProducers) {
  const int loop = epoll_create1(EPOLL_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  ASSERT_EQ(epoll_ctl(loop, EPOLL_CTL_ADD, MainQueue::fileDescriptor(), &event), 0);
  constexpr int producers = 3;
  constexpr int rounds = 2000;
  int ran = 0;
  std::vector<std::thread> threads;
  threads.reserve(producers);
  for (int producer = 0; producer < producers; ++producer)
    threads.emplace_back([&] {
      for (int round = 0; round < rounds; ++round)
        if (round % 50 == 0)
          DispatchQueue::main()->sync([&] { ++ran; });
        else
          DispatchQueue::main()->async([&] { ++ran; });
    });
  // A lost signal would leave this waiting with work queued.
  // NOLINTNEXTLINE(bugprone-infinite-loop): the blocks that it drains count
  while (ran < producers * rounds) {
    ASSERT_EQ(epoll_wait(loop, &event, 1, -1), 1);
    MainQueue::drain();
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(epoll_wait(loop, &event, 1, 0), 0);
  close(loop);
}

TEST(MainQueue, IsTheContextOfTheMainThreadAndOfQueuesThatTargetIt) {
  const DispatchSpecificKey<int> key;
  DispatchQueue::main()->setSpecific<int>(key, 1);
  const auto here = [&] {
    const bool isFound = DispatchQueue::getSpecific(key).has_value();
    EXPECT_EQ(DispatchQueue::isMainQueue(), isFound);
    EXPECT_EQ(DispatchQueue::isCurrent(*DispatchQueue::main()), isFound);
    return isFound;
  };
  const auto queue = std::make_shared<DispatchQueue>("on.main", DispatchQueue::main());
  const auto background = std::make_shared<DispatchQueue>("background");
  EXPECT_TRUE(here());
  EXPECT_FALSE(background->sync(here)) << "the main thread, but another queue";
  std::vector<bool> seen;
  queue->async([&] { seen.push_back(here() && MainQueue::isMainThread()); });
  MainQueue::drain();
  EXPECT_EQ(seen, std::vector<bool>{true});

  std::thread other([&] {
    EXPECT_FALSE(here());
    EXPECT_FALSE(MainQueue::isMainThread());
    EXPECT_TRUE(queue->sync([&] { return here() && MainQueue::isMainThread(); }));
    EXPECT_THROW(queue->sync([] { throw std::runtime_error("on main"); }), std::runtime_error);
    MainQueue::stop();
  });
  MainQueue::run();
  other.join();
  DispatchQueue::main()->setSpecific<int>(key, std::nullopt);
}

TEST(MainQueueDeathTest, MisuseSaysWhatIsWrong) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        DispatchQueue::main()->async([] { DispatchQueue::main()->sync([] {}); });
        MainQueue::drain();
      },
      "Tessarine: sync on queue \"com.tessarine.main\" while this thread is running");
  EXPECT_DEATH(
      {
        const auto queue = std::make_shared<DispatchQueue>("on.main", DispatchQueue::main());
        queue->sync([] {});
      },
      "sync on queue \"on.main\" while this thread is running queue \"com.tessarine.main\"");
  EXPECT_DEATH(
      {
        MainQueue::drain();
        std::thread([] { MainQueue::drain(); }).join();
      },
      "driven from a second thread");
}

}  // namespace
}  // namespace tessarine
