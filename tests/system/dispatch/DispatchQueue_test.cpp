#include "tessarine/system/dispatch/DispatchQueue.hpp"

#include <array>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tessarine/system/dispatch/DispatchWorkItem.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using Queue = std::shared_ptr<DispatchQueue>;

Queue makeQueue(std::string label = "test.queue", Queue target = nullptr) {
  return std::make_shared<DispatchQueue>(std::move(label), std::move(target));
}

struct NeedsArgument {
  void operator()(int) const {}
};
struct MoveOnly {
  std::unique_ptr<int> value;
  void operator()() { ++*value; }
};
template <class F>
concept CanAsync = requires(DispatchQueue& queue, F f) {
  queue.async(std::move(f));
};
static_assert(CanAsync<MoveOnly> && !CanAsync<NeedsArgument>);
static_assert(!std::is_copy_constructible_v<DispatchQueue> && !std::is_copy_constructible_v<Block>);

TEST(DispatchQueue, AsyncNeverRunsOnSubmittersNorOnThreadsThatOnlySync) {
  const Queue queue = makeQueue();
  const auto caller = std::this_thread::get_id();
  for (int round = 0; round < 200; ++round) {
    bool before = false;
    std::thread::id runner;
    queue->sync([&] {
      // Lies behind the sync that runs, so this thread is the one that passes the turn on.
      queue->async([&] {
        runner = std::this_thread::get_id();
        before = true;
      });
      EXPECT_FALSE(before);
      EXPECT_EQ(std::this_thread::get_id(), caller);
    });
    EXPECT_TRUE(queue->sync([&] { return before; }));
    EXPECT_NE(runner, caller);
  }
}

TEST(DispatchQueue, SyncAnswersValuesReferencesAndExceptions) {
  const std::array<Queue, 3> queues{makeQueue(), makeQueue("inner", makeQueue("outer")),
                                    DispatchQueue::global()};
  for (const Queue& queue : queues) {
    SCOPED_TRACE(queue->label());
    int value = 7;
    EXPECT_EQ(queue->sync([&] { return std::make_unique<int>(value); }).operator*(), 7);
    int& reference = queue->sync([&]() -> int& { return value; });
    EXPECT_EQ(&reference, &value);
    EXPECT_THROW(queue->sync([] { throw std::out_of_range("beyond"); }), std::out_of_range);
    std::atomic<bool> ran = false;
    queue->async([&] {
      ran = true;
      ran.notify_all();
    });
    ran.wait(false);
    EXPECT_EQ(queue->sync([&] { return value + 1; }), 8);
  }
}

TEST(DispatchQueue, MixedProducersNeverOverlapAndKeepTheirOrder) {
  for (const Queue& target : {Queue(), makeQueue("shared.target")}) {
    const Queue queue = makeQueue("stress", target);
    constexpr int producers = 4;
    constexpr int rounds = 3000;
    std::array<int, producers> last{};
    int inside = 0;
    int ran = 0;
    const auto step = [&](size_t producer, int round) {
      EXPECT_EQ(++inside, 1);
      EXPECT_EQ(last[producer], round);
      last[producer] = round + 1;
      ++ran;
      --inside;
    };
    std::vector<std::thread> threads;
    threads.reserve(producers);
    for (size_t producer = 0; producer < producers; ++producer)
      threads.emplace_back([&, producer] {
        for (int round = 0; round < rounds; ++round)
          if ((static_cast<size_t>(round) + producer) % 5 == 0)
            queue->sync([&] { step(producer, round); });
          else
            queue->async([&step, producer, round] { step(producer, round); });
      });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(queue->sync([&] { return ran; }), producers * rounds);
  }
}

TEST(DispatchQueue, QueuesWithOneTargetExcludeEachOther) {
  const Queue target = makeQueue("target");
  const std::array<Queue, 3> queues{makeQueue("a", target), makeQueue("b", makeQueue("c", target)),
                                    target};
  int unguarded = 0;
  std::vector<std::thread> threads;
  threads.reserve(queues.size());
  for (const Queue& queue : queues)
    threads.emplace_back([&unguarded, queue] {
      for (int round = 0; round < 2000; ++round) {
        queue->async([&unguarded] { ++unguarded; });
        if (round % 7 == 0) queue->sync([&unguarded] { ++unguarded; });
      }
    });
  for (std::thread& thread : threads) thread.join();
  for (const Queue& queue : queues) queue->sync([] {});
  EXPECT_EQ(target->sync([&] { return unguarded; }), 3 * (2000 + 286));
}

TEST(DispatchQueue, ClosuresOfAnySizeAreDestroyedOnceRightAfterTheyRan) {
  const Queue queue = makeQueue();
  const auto token = std::make_shared<int>(0);
  std::array<char, 200> large{};
  large[199] = 'z';
  long usesDuringSecond = 0;
  char seen = 0;
  queue->async([token, large, &seen] { seen = large[199]; });
  queue->async(Block([token] {}));
  queue->async([&token, &usesDuringSecond] { usesDuringSecond = token.use_count(); });
  queue->sync([] {});
  EXPECT_EQ(seen, 'z');
  EXPECT_EQ(usesDuringSecond, 1);
  EXPECT_EQ(token.use_count(), 1);
}

// Nodes go round between threads and within one, in numbers beyond what is kept at rest.
TEST(DispatchQueue, CarriesLargeBacklogsAndBlocksThatSubmitMore) {
  const std::array<Queue, 2> queues{makeQueue("a"), makeQueue("b")};
  std::binary_semaphore mayGo(0);
  std::array<int, 2> ran{};
  constexpr int backlog = 40'000;
  queues[0]->async([&] { mayGo.acquire(); });
  for (int round = 0; round < backlog; ++round)
    queues[0]->async([&] {
      ++ran[0];
      queues[1]->async([&ran] { ++ran[1]; });
    });
  mayGo.release();
  queues[0]->sync([] {});
  queues[1]->sync([] {});
  EXPECT_EQ(ran, (std::array{backlog, backlog}));

  std::binary_semaphore done(0);
  int left = 1000;
  const std::function<void()> again = [&] {
    if (--left == 0) return done.release();
    queues[0]->async([&] { again(); });
  };
  queues[0]->async([&] { again(); });
  done.acquire();
}

TEST(DispatchQueue, LivesUntilItsBlocksHaveRunAlsoIfTheLastHandleGoesInsideOne) {
  for (int round = 0; round < 100; ++round) {
    std::binary_semaphore mayGo(0);
    std::binary_semaphore done(0);
    Queue queue = makeQueue("gone", round % 2 ? makeQueue("target") : nullptr);
    const std::weak_ptr<DispatchQueue> watch = queue;
    auto* const owner = new Queue(queue);
    queue->async([owner, &mayGo] {
      mayGo.acquire();
      delete owner;
    });
    queue->async([&done, watch] {
      EXPECT_FALSE(watch.expired());
      done.release();
    });
    queue.reset();
    mayGo.release();
    done.acquire();
  }
}

TEST(DispatchQueue, SpecificsAreFoundAlongTheTargetsOfTheCurrentQueueOnly) {
  const Queue target = makeQueue("target");
  const Queue queue = makeQueue("queue", target);
  const Queue other = makeQueue("other");
  const DispatchSpecificKey<std::string> key;
  const DispatchSpecificKey<int> unused;
  const auto here = [&] { return DispatchQueue::getSpecific(key); };

  EXPECT_FALSE(DispatchQueue::isCurrent(*queue));
  for (const Queue& each : {target, queue, other})
    EXPECT_EQ(queue->sync([&] { return DispatchQueue::isCurrent(*each); }), each != other);
  target->setSpecific<std::string>(key, "of target");
  other->setSpecific<std::string>(key, "of other");
  EXPECT_EQ(queue->sync(here), "of target");
  EXPECT_EQ(queue->specific(key), std::nullopt);
  queue->setSpecific<std::string>(key, "of queue");
  EXPECT_EQ(queue->sync(here), "of queue");
  EXPECT_EQ(queue->specific(key), "of queue");
  EXPECT_EQ(target->sync(here), "of target");
  EXPECT_EQ(queue->sync([&] { return DispatchQueue::getSpecific(unused); }), std::nullopt);

  // Nested in a block of another queue, only the inner one counts, and the outer one comes back.
  const Queue bare = makeQueue("bare");
  std::vector<std::optional<std::string>> seen;
  other->async([&] {
    seen.push_back(bare->sync(here));
    seen.push_back(here());
  });
  other->sync([] {});
  EXPECT_EQ(seen, (std::vector<std::optional<std::string>>{std::nullopt, "of other"}));

  queue->setSpecific<std::string>(key, std::nullopt);
  EXPECT_EQ(queue->sync(here), "of target");
}

TEST(DispatchQueue, KeyMadeWhereAnotherLayFindsNothing) {
  const Queue queue = makeQueue();
  std::optional<DispatchSpecificKey<int>> key;
  key.emplace();
  queue->setSpecific<int>(*key, 1);
  key.emplace();
  EXPECT_EQ(queue->specific(*key), std::nullopt);
}

// More blocks than threads can be cores, each waiting for a later one: only further threads help.
TEST(WorkerPool, GrowsWhenRunningBlocksWaitForReadyOnes) {
  const int waiting = static_cast<int>(std::thread::hardware_concurrency()) + 6;
  std::mutex mutex;
  std::condition_variable changed;
  int arrived = 0;
  for (int i = 0; i < waiting; ++i)
    DispatchQueue::global()->async([&] {
      std::unique_lock lock(mutex);
      ++arrived;
      changed.notify_all();
      changed.wait(lock, [&] { return arrived >= waiting; });
      ++arrived;
      changed.notify_all();
    });
  std::unique_lock lock(mutex);
  changed.wait(lock, [&] { return arrived == 2 * waiting; });
}

TEST(WorkerPool, ChainOfSyncCallsLongerThanTheCoresComesThrough) {
  std::vector<Queue> queues;
  queues.reserve(24);
  for (int i = 0; i < 24; ++i) queues.push_back(makeQueue("chain." + std::to_string(i)));
  std::binary_semaphore hold(0);
  std::atomic<int> passed = 0;
  queues.back()->async([&] { hold.acquire(); });
  for (size_t i = 0; i + 1 < queues.size(); ++i)
    queues[i]->async([&, i] { queues[i + 1]->sync([&] { ++passed; }); });
  // Needs a worker while all that there are wait in the chain.
  const Queue helper = makeQueue("helper");
  helper->async([&] { hold.release(); });
  for (const Queue& queue : queues) queue->sync([] {});
  EXPECT_EQ(passed, 23);
}

TEST(DispatchQueueDeathTest, MisuseNamesTheQueue) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        const Queue queue = makeQueue("com.example.self");
        queue->sync([&] { queue->sync([] {}); });
      },
      "Tessarine: sync on queue \"com.example.self\" while this thread is running queue "
      "\"com.example.self\"");
  EXPECT_DEATH(
      {
        const Queue target = makeQueue("com.example.target");
        const Queue queue = makeQueue("com.example.inner", target);
        const Queue between = makeQueue("com.example.between");
        queue->async([&] { between->sync([&] { target->sync([] {}); }); });
        std::binary_semaphore(0).acquire();
      },
      "sync on queue \"com.example.target\" while this thread is running");
  EXPECT_DEATH(
      {
        const Queue target = makeQueue("com.example.target");
        const Queue queue = makeQueue("com.example.inner", target);
        // Has the turn of the inner queue and waits for the target, as soon as it comes to run.
        std::thread other;
        target->sync([&] {
          other = std::thread([&] { queue->sync([] {}); });
          queue->sync([] {});
        });
      },
      "sync on queue \"com.example.inner\" while this thread is running queue "
      "\"com.example.target\"");
  EXPECT_DEATH(
      {
        makeQueue("com.example.thrower")->async([] { throw std::runtime_error("spilt milk"); });
        std::binary_semaphore(0).acquire();
      },
      "An exception left a block of queue \"com.example.thrower\": spilt milk");
  EXPECT_DEATH(
      {
        Queue queue = makeQueue("com.example.dropped");
        DispatchQueue& bare = *queue;
        bare.sync([&] { queue.reset(); });
      },
      "\"com.example.dropped\" is destroyed while a sync call uses it");
  const Queue queue = makeQueue("com.example.empty");
  EXPECT_DEATH(queue->async(Block()), "An empty block is submitted to a queue");
  EXPECT_DEATH(queue->asyncAfter(1, Block()), "An empty block is submitted to a queue");
  EXPECT_DEATH(queue->debounce(1, Block()), "limited action of queue \"com.example.empty\"");
  EXPECT_DEATH(DispatchWorkItem{Block()}, "A work item is made of an empty block");
}

}  // namespace
}  // namespace tessarine
