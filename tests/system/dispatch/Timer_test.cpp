#include <array>
#include <atomic>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <semaphore>
#include <thread>
#include <tuple>
#include <vector>

#include "tessarine/system/dispatch/DispatchQueue.hpp"
#include "tessarine/system/dispatch/DispatchWorkItem.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/dispatch/ManualClock.hpp"
#include "tessarine/system/dispatch/internal/TimerService.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using detail::Timer;
using detail::TimerWheel;
using detail::WheelEntry;

TEST(DispatchTime, AddsAnyDouble) {
  using Limits = std::numeric_limits<double>;
  constexpr auto last = std::numeric_limits<std::uint64_t>::max();
  const struct {
    std::uint64_t from;
    double seconds;
    std::uint64_t to;
  } rows[] = {
      {5, 0, 5},
      {5, 1e-9, 6},
      {5, 1.9e-9, 6},
      {5, -1e-9, 4},
      {5, -1, 0},
      {5, -1e300, 0},
      {5, -Limits::infinity(), 0},
      {5, Limits::quiet_NaN(), 5},
      {5, 1e10, 5 + 10'000'000'000'000'000'000U},
      {last / 2 + 10, 1e10, last},
      {5, 0x1p64 / 1e9, last},
      {5, Limits::max(), last},
      {5, Limits::infinity(), last},
      {last, -1e300, last},
  };
  for (const auto& row : rows)
    EXPECT_EQ((DispatchTime(row.from) + row.seconds).uptimeNanoseconds(), row.to)
        << row.from << " + " << row.seconds;
}

// Against an ordered map: random arming, putting off, pulling forward, cancelling and passing of
// time at all scales. What is due comes out in order, nothing early, nothing late, nothing twice.
// NOLINTNEXTLINE(readability-function-cognitive-complexity): one random walk, read from top to end
TEST(TimerWheel, AgreesWithAnOrderedMap) {
  using Key = std::pair<std::uint64_t, std::uint64_t>;  // deadline, arming
  for (unsigned seed = 0; seed < 30; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    const auto upTo = [&](std::uint64_t bits) { return random() >> (64 - bits); };
    std::uint64_t now = random() >> 2;
    TimerWheel wheel(now);
    std::vector<WheelEntry> entries(200);
    std::map<Key, WheelEntry*> model;
    std::vector<Key> keys(entries.size());
    std::uint64_t armings = 0;
    for (int step = 0; step < 4000; ++step) {
      const auto i = random() % entries.size();
      WheelEntry& entry = entries[i];
      const auto action = random() % 8;
      if (action < 5) {
        const std::uint64_t shift = upTo(1 + random() % 50);
        const std::uint64_t deadline = random() % 8 ? now + shift : now - std::min(now, shift);
        if (entry.wheel) {
          model.erase(keys[i]);
          wheel.move(entry, deadline);
        } else {
          entry.deadline = deadline;
          wheel.add(entry);
        }
        keys[i] = {deadline, ++armings};
        model.emplace(keys[i], &entry);
      } else if (action == 5) {
        if (!entry.wheel) continue;
        wheel.remove(entry);
        model.erase(keys[i]);
      } else {
        if (!model.empty()) {
          ASSERT_LE(wheel.nextTime(), std::max(now, model.begin()->first.first));
        }
        now += upTo(1 + random() % 50);
        // Between two calls, earlier entries may be added; here each batch is taken whole.
        while (!model.empty() && model.begin()->first.first <= now) {
          ASSERT_EQ(wheel.takeDue(now), model.begin()->second);
          model.erase(model.begin());
        }
        ASSERT_EQ(wheel.takeDue(now), nullptr);
      }
    }
    while (WheelEntry* const entry = wheel.takeAny()) {
      const auto i = static_cast<std::size_t>(entry - entries.data());
      ASSERT_EQ(model.erase(keys[i]), 1U);
    }
    EXPECT_TRUE(model.empty());
    EXPECT_EQ(wheel.nextTime(), TimerWheel::never);
  }
}

struct Counted : Timer {
  Counted() : Timer([](Timer& timer) noexcept { ++static_cast<Counted&>(timer).calls; }) {}
  std::atomic<int> calls = 0;
};

TEST(Timer, IsCalledOnceAtItsLatestDeadlineUnlessCancelled) {
  ManualClock clock;
  Counted timer;
  EXPECT_FALSE(timer.cancel());
  EXPECT_TRUE(timer.schedule(DispatchTime::now() + 1));
  EXPECT_FALSE(timer.schedule(DispatchTime::now() + 5));
  clock.advance(4.999);
  EXPECT_EQ(timer.calls, 0);
  EXPECT_FALSE(timer.schedule(DispatchTime::now() + 0.0005));
  clock.advance(0.0005);
  EXPECT_EQ(timer.calls, 1);
  EXPECT_FALSE(timer.cancel()) << "has been called";
  EXPECT_TRUE(timer.schedule(DispatchTime::now() + 1));
  EXPECT_TRUE(timer.cancel());
  EXPECT_TRUE(timer.schedule(DispatchTime::distantFuture()));
  clock.advance(1e12);
  EXPECT_EQ(timer.calls, 1);
  EXPECT_TRUE(timer.cancel());
}

TEST(Timer, GoesOnByTheRealClockWhenTheManualOneEnds) {
  struct Signalled : Timer {
    Signalled()
        : Timer([](Timer& timer) noexcept { static_cast<Signalled&>(timer).called.release(); }) {}
    std::binary_semaphore called{0};
  } timer;
  {
    ManualClock clock;
    timer.schedule(DispatchTime::now() + 0.001);
    EXPECT_FALSE(timer.called.try_acquire());
  }
  timer.called.acquire();
}

// The real thread: each arming from several threads is either cancelled or called, never lost.
// NOLINTNEXTLINE(readability-function-cognitive-complexity): what the threads do is one story
TEST(Timer, NoCallIsLostOrDoubledBetweenThreads) {
  constexpr int threads = 4;
  constexpr int rounds = 3000;
  struct Tallied : Timer {
    Tallied()
        : Timer([](Timer& timer) noexcept {
            auto& self = static_cast<Tallied&>(timer);
            if (self.calls.fetch_add(1) + 1 == self.expected.load()) self.done.release();
          }) {}
    std::atomic<int> calls = 0;
    std::atomic<int> expected = -1;
    std::binary_semaphore done{0};
  };
  std::array<Tallied, threads> timers;
  std::array<int, threads> due{};
  std::vector<std::thread> workers;
  workers.reserve(threads);
  for (int t = 0; t < threads; ++t)
    workers.emplace_back([&, t] {
      Tallied& timer = timers[t];
      std::mt19937 random(t);
      for (int round = 0; round < rounds; ++round) {
        if (random() % 3 == 0) {
          due[t] -= timer.cancel() ? 1 : 0;
        } else {
          due[t] += timer.schedule(DispatchTime::now() + 1e-6 * static_cast<double>(random() % 200))
                        ? 1
                        : 0;
        }
      }
      due[t] -= timer.cancel() ? 1 : 0;
      // The last call is counted whichever comes first, it or the expectation.
      ++due[t];
      timer.expected = due[t];
      timer.schedule(DispatchTime::now() + 0.002);
    });
  for (auto& worker : workers) worker.join();
  for (auto& timer : timers) {
    timer.done.acquire();
    EXPECT_EQ(timer.calls, timer.expected);
  }
}

TEST(AsyncAfter, KeepsTheOrderOfDeadlinesAndThenOfCalls) {
  ManualClock clock;
  const auto queue = std::make_shared<DispatchQueue>("test.after");
  std::vector<int> order;
  const DispatchTime start = DispatchTime::now();
  queue->asyncAfter(start + 2.0, [&] { order.push_back(4); });
  queue->asyncAfter(start + 1.0, [&] { order.push_back(2); });
  queue->asyncAfter(1.0, DispatchQoS::utility, DispatchWorkItemFlags::barrier,
                    [&] { order.push_back(3); });
  queue->asyncAfter(-1.0, [&] { order.push_back(1); });
  queue->asyncAfter(std::numeric_limits<double>::infinity(), [&] { order.push_back(9); });
  const auto item = std::make_shared<DispatchWorkItem>([&] { order.push_back(8); });
  queue->asyncAfter(start + 1.0, item);
  item->cancel();
  clock.advance(0);
  EXPECT_EQ(order, (std::vector{1}));
  clock.advance(1);
  EXPECT_EQ(order, (std::vector{1, 2, 3}));
  item->wait();
  clock.advance(1e9);
  EXPECT_EQ(order, (std::vector{1, 2, 3, 4}));
}

TEST(AsyncAfter, ChainsOfDelaysRunWithinOneAdvance) {
  ManualClock clock;
  const auto queue = std::make_shared<DispatchQueue>("test.chain");
  const DispatchTime start = DispatchTime::now();
  std::vector<double> times;
  const std::function<void()> next = [&] {
    times.push_back(
        static_cast<double>((DispatchTime::now().uptimeNanoseconds() - start.uptimeNanoseconds())) /
        1e9);
    if (times.size() < 4)
      (times.size() % 2 ? DispatchQueue::main() : queue)->asyncAfter(0.25, next);
  };
  queue->asyncAfter(0.25, next);
  clock.advance(0.8);
  EXPECT_EQ(times, (std::vector{0.25, 0.5, 0.75}));
  clock.advance(0.2);
  EXPECT_EQ(times.size(), 4U);
}

TEST(AsyncAfter, ABlockThatWaitsKeepsItsQueueAndIsReleasedByIt) {
  ManualClock clock;
  auto queue = std::make_shared<DispatchQueue>("test.kept");
  const std::weak_ptr<DispatchQueue> watched = queue;
  auto token = std::make_shared<int>(0);
  const std::weak_ptr<int> watchedToken = token;
  queue->asyncAfter(1, [token = std::move(token)] {});
  queue.reset();
  EXPECT_FALSE(watched.expired());
  clock.advance(1);
  EXPECT_TRUE(watched.expired());
  EXPECT_TRUE(watchedToken.expired());
}

TEST(AsyncAfter, ABlockThatWillNeverRunIsNotKept) {
  const auto queue = std::make_shared<DispatchQueue>("test.never");
  const auto token = std::make_shared<int>(0);
  const auto limited = queue->debounce(1e300, [token] {});
  for (const double delay : {std::numeric_limits<double>::infinity(), 1e11})
    queue->asyncAfter(delay, [token] { ADD_FAILURE(); });
  for (int i = 0; i < 10; ++i) limited();
  EXPECT_EQ(token.use_count(), 2) << "the limited action itself";
}

TEST(QueueDebounce, RunsAtMostOnceADelayAndForgetsWhatItDropped) {
  ManualClock clock;
  const auto queue = std::make_shared<DispatchQueue>("test.limited");
  std::atomic<int> runs = 0;
  const auto limited = queue->debounce(0.1, [&] { ++runs; });
  for (int i = 0; i < 10; ++i) limited();
  clock.advance(0.0999);
  EXPECT_EQ(runs, 0) << "first run a delay after creation";
  clock.advance(0.0001);
  EXPECT_EQ(runs, 1);
  clock.advance(5);
  EXPECT_EQ(runs, 1);
  limited();
  clock.advance(0);
  EXPECT_EQ(runs, 2) << "the delay has long passed";
  limited();
  clock.advance(0.05);
  limited();
  EXPECT_EQ(runs, 2);
  clock.advance(0.05);
  EXPECT_EQ(runs, 3);
}

TEST(ManualClockDeath, OneAtATime) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        ManualClock first;
        ManualClock second;
      },
      "second ManualClock");
}

}  // namespace
}  // namespace tessarine
