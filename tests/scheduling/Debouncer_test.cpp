#include "tessarine/scheduling/Debouncer.hpp"

#include <array>
#include <atomic>
#include <limits>
#include <memory>
#include <optional>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/dispatch/ManualClock.hpp"
#include "tessarine/system/dispatch/Task.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

static_assert(!std::is_default_constructible_v<Debouncer> &&
              !std::is_copy_constructible_v<Debouncer>);

std::shared_ptr<DispatchQueue> makeQueue() {
  return std::make_shared<DispatchQueue>("test.actions");
}

TEST(Debouncer, RunsTheLastRequestOnceTheIntervalHasPassedWithoutAnother) {
  ManualClock clock;
  Debouncer debouncer(0.2);
  const auto queue = makeQueue();
  std::vector<int> ran;
  for (int i = 1; i <= 3; ++i) {
    debouncer.debounce(queue, [&ran, i] { ran.push_back(i); });
    EXPECT_TRUE(ran.empty());
    if (i < 3) clock.advance(0.05);
  }
  EXPECT_EQ(debouncer.debounceCount(), 2);
  clock.advance(0.2 - 1e-9);
  EXPECT_TRUE(ran.empty());
  clock.advance(1e-9);
  EXPECT_EQ(ran, std::vector{3});
  EXPECT_EQ(debouncer.debounceCount(), 0);
  clock.advance(10);
  EXPECT_EQ(ran.size(), 1U);
  debouncer.debounce(queue, [] {});
  EXPECT_EQ(debouncer.debounceCount(), 1) << "a request that has run still counts as found";
}

TEST(Debouncer, TheOverrideIsForItsRequestAlone) {
  ManualClock clock;
  Debouncer debouncer(0.1);
  const auto queue = makeQueue();
  const auto other = makeQueue();
  std::vector<std::string> ran;
  debouncer.debounce(queue, 1.0, [&] { ran.emplace_back("long"); });
  clock.advance(0.05);
  debouncer.debounce(other, [&] {
    EXPECT_TRUE(DispatchQueue::isCurrent(*other));
    ran.emplace_back("short");
  });
  clock.advance(0.1);
  EXPECT_EQ(ran, std::vector<std::string>{"short"});
  clock.advance(2);
  EXPECT_EQ(ran.size(), 1U);
  EXPECT_EQ(debouncer.interval(), 0.1);
}

constexpr int interval = 10;
constexpr int oneWait = 6;  // one leaves a request waiting, two end it
enum Step { request, cancel, reset, wait };

/// What one channel promises; the other one is not used.
struct Model {
  static constexpr int never = std::numeric_limits<int>::max();
  const bool isAsynchronous;
  int now = 0;
  bool stored = false;
  int due = never;
  int count = 0;
  int runs = 0;

  void apply(int step) {
    if (step == wait) now += oneWait;
    if (step == cancel && isAsynchronous) return;
    if ((step == request || step == cancel) && stored) ++count;
    if (step == reset) count = 0;
    if (step != wait) {
      stored = step == request;
      due = stored ? now + interval : never;
    }
    if (due > now) return;
    ++runs;
    count = 0;
    due = never;
  }
};

/// All sequences of seven steps, checked after each, so shorter ones too. The clock settles after a
/// step, as a task counts itself in when it begins.
void checkEverySequence(bool isAsynchronous) {
  constexpr int length = 7;
  ManualClock clock;
  const auto queue = makeQueue();
  for (int sequence = 0; sequence < 1 << (2 * length); ++sequence) {
    std::string told;
    std::atomic<int> runs = 0;
    Model model{.isAsynchronous = isAsynchronous};
    auto debouncer = std::make_shared<Debouncer>(interval);
    for (int i = 0; i < length; ++i) {
      const int step = (sequence >> (2 * i)) & 3;
      told += "qcrw"[step];
      model.apply(step);
      if (step == request && isAsynchronous)
        debouncer->debounce(std::nullopt, [&]() -> Async<> {
          ++runs;
          co_return;
        });
      else if (step == request)
        debouncer->debounce(queue, [&] { ++runs; });
      if (step == cancel) debouncer->cancelWork();
      if (step == reset) debouncer->reset();
      if (step == wait) clock.advance(oneWait);
      clock.settle();
      ASSERT_EQ(runs, model.runs) << told;
      ASSERT_EQ(debouncer->debounceCount(), model.count) << told;
    }
    debouncer.reset();
    clock.advance(2 * interval);
    // A waiting task keeps its debouncer and runs; a waiting item does not.
    ASSERT_EQ(runs, model.runs + (isAsynchronous && model.due != Model::never ? 1 : 0)) << told;
  }
}

TEST(Debouncer, EverySequenceOfSevenStepsIsAsTheModelHasIt) { checkEverySequence(false); }

TEST(AsyncDebouncer, EverySequenceOfSevenStepsIsAsTheModelHasIt) { checkEverySequence(true); }

TEST(AsyncDebouncer, ChannelsReplaceTheirOwnRequestsAndShareCountAndReset) {
  ManualClock clock;
  const auto queue = makeQueue();
  auto debouncer = std::make_shared<Debouncer>(0.1);
  const std::weak_ptr<Debouncer> watched = debouncer;
  std::atomic<int> onQueue = 0;
  std::atomic<int> inTask = 0;
  const auto request = [&] {
    debouncer->debounce(queue, [&] { ++onQueue; });
    debouncer->debounce(0.2, [&]() -> Async<> {
      ++inTask;
      co_return;
    });
    clock.settle();
  };
  request();
  EXPECT_EQ(debouncer->debounceCount(), 0);
  request();
  EXPECT_EQ(debouncer->debounceCount(), 2);
  debouncer->cancelWork();
  EXPECT_EQ(debouncer->debounceCount(), 3);
  clock.advance(0.2);
  EXPECT_EQ(onQueue, 0);
  EXPECT_EQ(inTask, 1);
  EXPECT_EQ(debouncer->debounceCount(), 0);
  request();
  debouncer->reset();
  clock.advance(1);
  EXPECT_EQ(onQueue + inTask, 1);
  request();
  debouncer.reset();
  EXPECT_FALSE(watched.expired()) << "the task keeps it, and with it the other channel's request";
  clock.advance(0.2);
  EXPECT_EQ(onQueue, 1);
  EXPECT_EQ(inTask, 2);
  EXPECT_TRUE(watched.expired());
}

TEST(AsyncDebouncer, AnActionMayCallBackInAndIsToldThatItIsReplaced) {
  ManualClock clock;
  auto debouncer = std::make_shared<Debouncer>(0.1);
  const std::weak_ptr<Debouncer> watched = debouncer;
  int runs = 0;
  const auto first = [&]() -> Async<> {
    debouncer->debounce(DispatchQueue::global(), [] {});
    debouncer->cancelWork();
    debouncer->reset();
    EXPECT_TRUE(Task<>::isCancelledHere());
    EXPECT_EQ(debouncer->debounceCount(), 0);
    const auto last = [&]() -> Async<> {
      ++runs;
      debouncer.reset();
      EXPECT_FALSE(watched.expired()) << "the task keeps it while the action runs";
      co_return;
    };
    debouncer->debounce(std::nullopt, last);
    ++runs;
    co_await Task<>::sleep(1);  // throws, which ends it quietly
    ADD_FAILURE();
  };
  debouncer->debounce(std::nullopt, first);
  clock.advance(0.2);
  EXPECT_EQ(runs, 2);
  EXPECT_TRUE(watched.expired());
}

TEST(AsyncDebouncerDeath, MisuseIsNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto nothing = []() -> Async<> { co_return; };
  const auto debouncer = std::make_shared<Debouncer>(0.1);
  EXPECT_DEATH(debouncer->debounce(-1.0, nothing), "delay of -1 seconds");
  EXPECT_DEATH(debouncer->debounce(-2e-9, nothing), "delay of -2e-09 seconds");
  EXPECT_DEATH(debouncer->debounce(2e10, nothing), "delay of 2e\\+10 seconds");
  EXPECT_DEATH(debouncer->debounce(std::numeric_limits<double>::infinity(), nothing), "of inf sec");
  EXPECT_DEATH(debouncer->debounce(std::numeric_limits<double>::quiet_NaN(), nothing),
               "nan seconds");
  EXPECT_DEATH(Debouncer(1).debounce(std::nullopt, nothing), "no std::shared_ptr holds");
  EXPECT_DEATH(
      {
        ManualClock clock;
        debouncer->debounce(0.1, []() -> Async<> {
          throw std::runtime_error("no such page");
          co_return;
        });
        clock.advance(0.1);
      },
      "asynchronous debounce: no such page");
  ManualClock clock;
  debouncer->debounce(-0.5e-9, nothing);  // truncates to none
  clock.settle();
}

TEST(Debouncer, AnyDoubleIsADelay) {
  using Limits = std::numeric_limits<double>;
  ManualClock clock;
  const auto queue = makeQueue();
  for (const double delay :
       {0.0, -0.0, -1.0, -1e300, -Limits::infinity(), Limits::quiet_NaN(), Limits::denorm_min()}) {
    Debouncer debouncer(delay);
    std::atomic<int> runs = 0;
    debouncer.debounce(queue, [&] { ++runs; });
    clock.advance(0);
    EXPECT_EQ(runs, 1) << delay;
  }
  for (const double delay : {1e10, 0x1p64, 1e300, Limits::infinity()}) {
    Debouncer debouncer(0.1);
    std::atomic<int> runs = 0;
    debouncer.debounce(queue, delay, [&] { ++runs; });
    clock.advance(1e9);
    EXPECT_EQ(runs, 0) << delay;
  }
}

TEST(Debouncer, AnActionMayCallBackIn) {
  ManualClock clock;
  const auto queue = makeQueue();
  auto debouncer = std::make_unique<Debouncer>(0.1);
  int runs = 0;
  debouncer->debounce(queue, [&] {
    debouncer->reset();
    debouncer->debounce(queue, [&] {
      ++runs;
      debouncer->cancelWork();
      debouncer->debounce(queue, [&] {
        ++runs;
        debouncer.reset();
      });
    });
    EXPECT_EQ(debouncer->debounceCount(), 0);
    ++runs;
  });
  clock.advance(0.1);
  EXPECT_EQ(runs, 1);
  clock.advance(0.2);
  EXPECT_EQ(runs, 3);
  EXPECT_FALSE(debouncer) << "the last action destroyed it";
}

TEST(Debouncer, ReleasesWhatIsReplacedAtOnceAndOutsideOfItsQueue) {
  ManualClock clock;
  Debouncer debouncer(0.1);
  const auto queue = makeQueue();
  // The end of the closure asks the debouncer, which would wait for itself on the state queue.
  const auto makeToken = [&debouncer](int& ended) {
    return std::shared_ptr<void>(nullptr, [&](void*) {
      debouncer.debounceCount();
      ++ended;
    });
  };
  int ended = 0;
  for (int i = 0; i < 3; ++i) debouncer.debounce(queue, [token = makeToken(ended)] {});
  EXPECT_EQ(ended, 2);
  debouncer.cancelWork();
  EXPECT_EQ(ended, 3);
  debouncer.debounce(queue, [token = makeToken(ended)] {});
  debouncer.reset();
  EXPECT_EQ(ended, 4);
  EXPECT_EQ(queue.use_count(), 1) << "nothing waits on it any more";
}

TEST(Debouncer, ASubmittedRequestIsStillCancelled) {
  ManualClock clock;
  const auto queue = makeQueue();
  std::binary_semaphore goesOn(0);
  queue->async([&] { goesOn.acquire(); });
  std::atomic<int> runs = 0;
  auto debouncer = std::make_unique<Debouncer>(0.1);
  debouncer->debounce(queue, [&] { ++runs; });
  clock.advanceWithoutSettling(0.1);
  debouncer.reset();
  goesOn.release();
  clock.settle();
  EXPECT_EQ(runs, 0);
}

TEST(Debouncer, OverlapsWithARunningActionThatOutlastsTheDelay) {
  ManualClock clock;
  Debouncer debouncer(0.1);
  std::binary_semaphore began(0);
  std::binary_semaphore second(0);
  std::atomic<bool> overlapped = false;
  debouncer.debounce(DispatchQueue::global(), [&] {
    began.release();
    second.acquire();
    overlapped = true;
  });
  clock.advanceWithoutSettling(0.1);
  began.acquire();
  debouncer.debounce(DispatchQueue::global(), [&] { second.release(); });
  clock.advanceWithoutSettling(0.1);
  clock.settle();  // does not return unless the second one ran beside the first
  EXPECT_TRUE(overlapped);
}

// The thread sanitizer watches this: actions, requests and ends on several threads, by real time.
TEST(Debouncer, AThousandEndWhileTheirActionsRun) {
  constexpr int number = 1000;
  std::atomic<int> begun = 0;
  std::atomic<int> ended = 0;
  {
    std::vector<std::unique_ptr<Debouncer>> debouncers;
    debouncers.reserve(number);
    for (int i = 0; i < number; ++i)
      debouncers.push_back(std::make_unique<Debouncer>(0.0005 * (i % 8)));
    for (auto& debouncer : debouncers)
      debouncer->debounce(DispatchQueue::global(), [&] {
        ++begun;
        std::this_thread::yield();
        ++ended;
      });
    std::thread other([&] {
      for (int i = 0; i < number / 2; ++i)
        debouncers[i]->debounce(DispatchQueue::global(), 0, [&] { ++begun, ++ended; });
    });
    for (int i = number / 2; i < number; ++i) debouncers[i].reset();
    other.join();
  }
  const int begunByNow = begun;
  ManualClock clock;
  clock.settle();
  EXPECT_EQ(begun, ended);
  EXPECT_GE(begun, begunByNow);
}

// As above for tasks, which keep their debouncers.
TEST(AsyncDebouncer, ThreadsAskResetAndLetGoAtOnce) {
  constexpr int number = 200;
  const auto token = std::make_shared<std::atomic<int>>(0);  // the actions that run
  struct Inside {
    explicit Inside(std::atomic<int>& runningActions) : running(runningActions) { ++running; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
    ~Inside() { --running; }
    std::atomic<int>& running;
  };
  const auto makeAll = [] {
    std::vector<std::shared_ptr<Debouncer>> made;
    made.reserve(number);
    for (int i = 0; i < number; ++i) made.push_back(std::make_shared<Debouncer>(2e-5 * (i % 8)));
    return made;
  };
  auto useAll = [&token, debouncers = makeAll()](int seed) {
    for (int i = 0; i < 5 * number; ++i) {
      Debouncer& debouncer = *debouncers[static_cast<std::size_t>((7 * i + seed) % number)];
      debouncer.debounce(std::nullopt, [token]() -> Async<> {
        const Inside inside(*token);
        co_await Task<>::sleep(10'000);
      });
      if ((i + seed) % 5 == 0) debouncer.reset();
    }
  };
  std::thread first(useAll, 0);
  std::thread second(std::move(useAll), 1);
  first.join();
  second.join();
  while (token.use_count() != 1) std::this_thread::yield();
  EXPECT_EQ(*token, 0);
}

TEST(DebouncerDeath, AnActionThatThrowsEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        ManualClock clock;
        Debouncer debouncer(0.1);
        debouncer.debounce(makeQueue(), [] { throw std::runtime_error("no such page"); });
        clock.advance(0.1);
      },
      "block of queue \"test.actions\": no such page");
  EXPECT_DEATH(Debouncer(1).debounce(nullptr, [] {}), "null queue");
  EXPECT_DEATH(Debouncer(1).debounce(makeQueue(), Block()), "empty action");
}

// The deadline is the real clock's, which goes on.
TEST(Debouncer, KeepsARequestThatWaitsWhenAManualClockBegins) {
  Debouncer debouncer(0.01);
  const auto queue = makeQueue();
  bool ran = false;
  std::binary_semaphore later(0);
  debouncer.debounce(queue, [&] { ran = true; });
  queue->asyncAfter(0.02, [&] { later.release(); });
  const ManualClock clock;
  later.acquire();
  EXPECT_TRUE(ran);
}

TEST(Debouncer, FiresByTheRealClockAndNotBeforeIt) {
  Debouncer debouncer(0.02);
  std::binary_semaphore ran(0);
  const DispatchTime start = DispatchTime::now();
  DispatchTime end;
  debouncer.debounce(makeQueue(), [&] {
    end = DispatchTime::now();
    ran.release();
  });
  ran.acquire();
  EXPECT_GE(end, start + 0.02);
}

}  // namespace
}  // namespace tessarine
