#include "tessarine/system/dispatch/OperationQueue.hpp"

#include <array>
#include <atomic>
#include <memory>
#include <random>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "tessarine/system/dispatch/Mutex.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using Priority = Operation::QueuePriority;

/// A queue that is suspended, so that a test can arrange what is in it.
struct Arranged {
  OperationQueue queue;
  std::string order;
  explicit Arranged(int limit = 1) {
    queue.setMaxConcurrentOperationCount(limit);
    queue.setSuspended(true);
  }
  std::shared_ptr<Operation> make(char name) {
    return std::make_shared<Operation>([this, name] { order += name; });
  }
  std::shared_ptr<Operation> add(char name, Priority priority = Priority::normal) {
    auto operation = make(name);
    operation->setQueuePriority(priority);
    queue.addOperation(operation);
    return operation;
  }
  std::string run() {
    queue.setSuspended(false);
    queue.waitUntilAllOperationsAreFinished();
    return order;
  }
};

TEST(OperationQueue, PriorityGoesBeforeOrderAndDependenciesBeforeBoth) {
  Arranged plain;
  for (const char name : {'a', 'b', 'c'}) plain.add(name);
  EXPECT_EQ(plain.run(), "abc");

  Arranged ranked;
  ranked.add('a', Priority::veryLow);
  const auto b = ranked.add('b', Priority::low);
  ranked.add('c', Priority::high);
  const auto d = ranked.add('d', Priority::veryHigh);
  d->addDependency(b);
  const auto e = ranked.add('e');
  e->setQueuePriority(Priority::veryHigh);
  EXPECT_FALSE(d->isReady());
  EXPECT_EQ(ranked.run(), "ecbda");
  EXPECT_TRUE(d->isFinished());
  EXPECT_TRUE(d->dependencies().empty());
  EXPECT_EQ(ranked.queue.operationCount(), 0U);
}

TEST(OperationQueue, CancelledOnesArePassedOverAndCountAsFinished) {
  Arranged arranged;
  const auto never = arranged.make('n');  // on no queue
  const auto a = arranged.add('a');
  a->addDependency(never);
  const auto b = arranged.add('b');
  b->addDependency(a);
  EXPECT_FALSE(a->isReady());
  a->cancel();
  EXPECT_TRUE(a->isReady()) << "waits for nothing any more";
  EXPECT_EQ(arranged.run(), "b");
  EXPECT_TRUE(a->isFinished());
  Arranged all;
  const auto c = all.add('c');
  all.queue.cancelAllOperations();
  EXPECT_EQ(all.run(), "");
  EXPECT_TRUE(c->isCancelled() && c->isFinished());
}

TEST(OperationQueue, DependsAcrossQueuesAndGoesOnWhenItsQueueIsGone) {
  std::binary_semaphore ran(0);
  Arranged first;
  const auto a = first.add('a');
  {
    OperationQueue second;
    const auto b = std::make_shared<Operation>([&] { ran.release(); });
    b->addDependency(a);
    second.addOperation(b);
    EXPECT_FALSE(ran.try_acquire());
  }
  first.run();
  ran.acquire();
}

TEST(OperationQueue, RunsAsManyAtATimeAsItMay) {
  constexpr int limit = 3;
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(limit);
  std::atomic<int> running = 0;
  std::atomic<int> most = 0;
  std::counting_semaphore<limit> met(0);
  for (int i = 0; i < 30; ++i)
    queue.addOperation([&, i] {
      const int now = ++running;
      for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
      }
      // The first ones wait for one another, so that the limit is reached for certain.
      if (i + 1 == limit) met.release(limit - 1);
      if (i + 1 < limit) met.acquire();
      --running;
    });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(most, limit);
}

TEST(OperationQueue, ALongChainEndsWithoutDeepRecursion) {
  OperationQueue queue;
  queue.setSuspended(true);
  std::shared_ptr<Operation> last;
  int ran = 0;
  for (int i = 0; i < 100'000; ++i) {
    auto next = std::make_shared<Operation>([&] { ++ran; });
    if (last) next->addDependency(last);
    queue.addOperation(next);
    last = std::move(next);
  }
  queue.setSuspended(false);
  last->waitUntilFinished();
  EXPECT_EQ(ran, 100'000);
}

/// What a thread of the next test does: adds operations to either queue, after some of any
/// thread's, and meddles with those that it knows.
struct Meddler {
  static constexpr int rounds = 400;
  struct Entry {
    std::shared_ptr<Operation> operation;
    std::shared_ptr<int> runs;
  };
  std::array<OperationQueue, 2>& queues;
  int& inside;  // written by operations of the first queue only, so one at a time
  Mutex& mutex;
  std::shared_ptr<Operation>& latest;  // of all threads, under the mutex
  std::mt19937 random;
  std::vector<Entry> entries = {};

  void addOne() {
    const auto runs = std::make_shared<int>(0);
    const bool isSerial = random() % 2 == 0;
    const auto operation = std::make_shared<Operation>([this, runs, isSerial] {
      ++*runs;
      if (!isSerial) return;
      EXPECT_EQ(++inside, 1);
      --inside;
    });
    {
      const MutexLock lock(mutex);
      if (latest && random() % 2 == 0) operation->addDependency(latest);
      latest = operation;
    }
    queues[isSerial ? 0 : 1].addOperation(operation);
    entries.push_back({operation, runs});
  }
  void meddle() {
    const Entry& entry = entries[random() % entries.size()];
    OperationQueue& queue = queues[random() % 2];
    switch (random() % 16) {
      case 0:
        return entry.operation->cancel();
      case 1:
        return queue.cancelAllOperations();
      case 2:
        return entry.operation->setQueuePriority(Priority::high);
      case 3:
        queue.setSuspended(true);
        return queue.setSuspended(false);
      case 4:
        return queue.waitUntilAllOperationsAreFinished();
      case 5:
        return entry.operation->waitUntilFinished();
      default:
        return;
    }
  }
  void run() {
    for (int round = 0; round < rounds; ++round) {
      addOne();
      meddle();
    }
  }
};

// The thread sanitizer watches this. An operation is on a queue by the time another one can wait
// for it to finish, so no thread waits for ever.
TEST(OperationQueue, ThreadsAddCancelAndWaitAtOnce) {
  std::array<OperationQueue, 2> queues;
  queues[0].setMaxConcurrentOperationCount(1);
  int inside = 0;
  Mutex mutex;
  std::shared_ptr<Operation> latest;
  std::vector<std::unique_ptr<Meddler>> meddlers;
  std::vector<std::thread> threads;
  constexpr unsigned meddlerCount = 4;
  meddlers.reserve(meddlerCount);
  threads.reserve(meddlerCount);
  for (unsigned seed = 0; seed < meddlerCount; ++seed) {
    meddlers.push_back(
        std::make_unique<Meddler>(Meddler{queues, inside, mutex, latest, std::mt19937(seed)}));
    threads.emplace_back([meddler = meddlers.back().get()] { meddler->run(); });
  }
  for (std::thread& thread : threads) thread.join();
  for (OperationQueue& queue : queues) queue.waitUntilAllOperationsAreFinished();
  for (const auto& meddler : meddlers)
    for (const auto& [operation, runs] : meddler->entries) {
      EXPECT_TRUE(operation->isFinished());
      EXPECT_LE(*runs, 1);
      EXPECT_TRUE(*runs == 1 || operation->isCancelled());
    }
  EXPECT_EQ(queues[0].operationCount() + queues[1].operationCount(), 0U);
}

TEST(OperationQueueDeath, RefusesWhatItCannotMean) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  OperationQueue queue;
  EXPECT_DEATH(queue.setMaxConcurrentOperationCount(0), "limited to 0 operations");
  EXPECT_DEATH(queue.addOperation(std::shared_ptr<Operation>()), "null operation");
  const auto operation = std::make_shared<Operation>([] {});
  queue.addOperation(operation);
  EXPECT_DEATH(queue.addOperation(operation), "a second time");
  queue.waitUntilAllOperationsAreFinished();
}

}  // namespace
}  // namespace tessarine
