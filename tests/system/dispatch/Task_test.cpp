#include "tessarine/system/dispatch/Task.hpp"

#include <array>
#include <atomic>
#include <chrono>
#include <coroutine>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tessarine/system/dispatch/CheckedContinuation.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/dispatch/ManualClock.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using namespace std::chrono_literals;

static_assert(!std::is_copy_constructible_v<Async<int>>);
template <class A>
concept CanAwaitNamed = requires(A a) {
  a.operator co_await();
};
template <class A>
concept CanAwaitGivenUp = requires(A a) {
  std::move(a).operator co_await();
};
static_assert(CanAwaitGivenUp<Async<int>> && !CanAwaitNamed<Async<int>>);

/// The value of a task that ends by itself.
template <class F>
auto valueOf(F operation) {
  using Value = detail::AsyncResult<F&>;
  detail::Outcome<Value> outcome;
  const Task<Value> task(std::move(operation));
  const Task<> looking([&]() -> Async<> {
    try {
      if constexpr (std::is_void_v<Value>) {
        co_await task.value();
        outcome.setValue();
      } else {
        outcome.setValue(co_await task.value());
      }
    } catch (...) {
      outcome.setError(std::current_exception());
    }
  });
  looking.wait();
  return outcome.take();
}

/// Alive while any copy is; held by what must not leak.
using Token = std::shared_ptr<int>;
Token makeToken() { return std::make_shared<int>(0); }

Async<int> odd(int i) { co_return i % 2; }
Async<std::string> text(std::string value) { co_return value; }
Async<int&> same(int& value) { co_return value; }
Async<std::unique_ptr<int>> boxed(int value) { co_return std::make_unique<int>(value); }
Async<int> failing(Token token) {
  const Token held = std::move(token);
  throw std::out_of_range("beyond");
  co_return 0;
}
Async<int> depth(int levels) {
  if (levels == 0) co_return 0;
  co_return 1 + co_await depth(levels - 1);
}

TEST(Async, AMillionAwaitsInARowLeaveTheStackAsItIs) {
  EXPECT_EQ(valueOf([]() -> Async<int> {
              int sum = 0;
              for (int i = 0; i < 1'000'000; ++i) sum += co_await odd(i);
              co_return sum;
            }),
            500'000);
  EXPECT_EQ(valueOf([] { return depth(100'000); }), 100'000);
}

TEST(Async, CarriesValuesReferencesAndExceptions) {
  int variable = 1;
  const Token token = makeToken();
  valueOf([&]() -> Async<> {
    EXPECT_EQ(co_await text("word"), "word");
    int& reference = co_await same(variable);
    EXPECT_EQ(&reference, &variable);
    const std::unique_ptr<int> box = co_await boxed(3);
    EXPECT_EQ(*box, 3);
    bool caught = false;
    try {
      co_await failing(token);
    } catch (const std::out_of_range& error) {
      caught = error.what() == std::string("beyond");
    }
    EXPECT_TRUE(caught);
  });
  EXPECT_EQ(token.use_count(), 1);
}

/// A host's own coroutine type, which the test destroys while it is suspended.
struct Foreign {
  struct promise_type {
    Foreign get_return_object() {
      return Foreign{std::coroutine_handle<promise_type>::from_promise(*this)};
    }
    std::suspend_always initial_suspend() noexcept { return {}; }
    std::suspend_always final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { std::terminate(); }
  };
  std::coroutine_handle<promise_type> coroutine;
};

TEST(Async, MayBeDestroyedUnawaitedAndAtAnySuspensionPoint) {
  const Token token = makeToken();
  { const Async<int> never = failing(token); }
  EXPECT_EQ(token.use_count(), 1);
  std::vector<std::function<void()>> events;
  const auto pause = [&events] {
    return withCheckedContinuation<void>(
        [&events](const Continuation<void>& c) { events.emplace_back([c] { c.resume(); }); });
  };
  const auto inner = [&](Token held) -> Async<> {
    for (int i = 0; i < 3; ++i) co_await pause();
    *held += 1;
  };
  const auto outer = [&](Token held) -> Async<> {
    co_await inner(held);
    co_await inner(held);
  };
  const auto drive = [&](Token held) -> Foreign { co_await outer(std::move(held)); };
  for (std::size_t steps = 0; steps <= 6; ++steps) {
    events.clear();
    const Foreign foreign = drive(token);
    foreign.coroutine.resume();
    for (std::size_t i = 0; i < steps; ++i) events.at(i)();
    EXPECT_EQ(foreign.coroutine.done(), steps == 6);
    foreign.coroutine.destroy();
    EXPECT_EQ(token.use_count(), 1);
    if (steps < 6) events.at(steps)();  // comes too late and does nothing
  }
}

TEST(Task, RunsOnWithoutItsHandleAndLetsEverythingGo) {
  const Token token = makeToken();
  std::atomic<bool> ran = false;
  {
    const Task<> task([&ran, token]() -> Async<> {
      co_await Task<>::sleep(1);
      ran = true;
      ran.notify_all();
    });
  }
  ran.wait(false);
  // The task ends, and with it its captures, on its own thread.
  const std::weak_ptr<int> weak = token;
  while (token.use_count() != 1) std::this_thread::yield();
}

TEST(Task, GivesItsOutcomeToAllWhoAwaitIt) {
  ManualClock clock;
  const Task<std::string> good([]() -> Async<std::string> {
    co_await Task<>::sleep(1'000'000'000);
    co_return "value";
  });
  const Task<int> bad([] { return failing(nullptr); });
  std::atomic<int> answers = 0;
  std::vector<Task<>> waiting;
  waiting.reserve(8);
  for (int i = 0; i < 8; ++i)
    waiting.emplace_back([good, bad, &answers]() -> Async<> {
      if (co_await good.value() == "value") ++answers;
      try {
        co_await bad.value();
      } catch (const std::out_of_range&) {
        ++answers;
      }
    });
  clock.advance(0.999'999);
  EXPECT_EQ(answers, 0);
  clock.advance(1);
  for (const Task<>& task : waiting) task.wait();
  EXPECT_EQ(answers, 16);
}

TEST(Task, RunsOnTheQueueGiven) {
  bool onMain = false;
  const Task<int> task(
      [&]() -> Async<int> {
        onMain = MainQueue::isMainThread();
        const int value = co_await withCheckedContinuation<int>(
            [](const Continuation<int>& c) { std::thread([c] { c.resume(7); }).join(); });
        co_await withCheckedContinuation<void>(
            [](const Continuation<void>& c) { DispatchQueue::main()->async([c] { c.resume(); }); });
        onMain = onMain && MainQueue::isMainThread();
        co_return value;
      },
      DispatchQueue::main());
  EXPECT_FALSE(task.hasEnded());
  EXPECT_EQ(MainQueue::drain(), 1U);
  EXPECT_EQ(MainQueue::drain(), 1U);
  EXPECT_FALSE(task.hasEnded());  // the continuation only submitted the rest
  EXPECT_EQ(MainQueue::drain(), 1U);
  EXPECT_TRUE(task.hasEnded() && onMain);
}

TEST(Task, SleepsByTheClockAndNeverLess) {
  ManualClock clock;
  std::vector<std::uint64_t> wakings;
  const DispatchTime start = DispatchTime::now();
  const Task<> task([&]() -> Async<> {
    for (const std::uint64_t wait : {0ULL, 1ULL, 90'000'000'000ULL, 5ULL}) {
      co_await Task<>::sleep(wait);
      wakings.push_back(DispatchTime::now().uptimeNanoseconds() - start.uptimeNanoseconds());
    }
  });
  clock.advance(120);
  task.wait();
  EXPECT_EQ(wakings, (std::vector<std::uint64_t>{0, 1, 90'000'000'001, 90'000'000'006}));
}

TEST(Task, CancellationEndsSleepsAlsoOnesThatBeginLater) {
  ManualClock clock;
  for (const std::uint64_t nanoseconds : {std::uint64_t{0}, std::uint64_t{1'000}, UINT64_MAX}) {
    SCOPED_TRACE(nanoseconds);
    std::atomic<bool> mayGoOn = false;
    std::atomic<int> cancelled = 0;
    const Task<> task([&]() -> Async<> {
      mayGoOn.wait(false);
      EXPECT_TRUE(Task<>::isCancelledHere());
      for (int i = 0; i < 2; ++i) try {
          co_await Task<>::sleep(nanoseconds);
        } catch (const CancellationError&) {
          ++cancelled;
        }
    });
    task.cancel();
    mayGoOn = true;
    mayGoOn.notify_all();
    task.wait();
    EXPECT_EQ(cancelled, 2);
  }
  EXPECT_FALSE(Task<>::isCancelledHere());
}

TEST(Task, CancelledAtEachSuspensionPointLeavesNothingBehind) {
  constexpr int points = 6;
  for (int point = 0; point <= points; ++point) {
    SCOPED_TRACE(point);
    ManualClock clock;
    const Token token = makeToken();
    int slept = 0;
    const auto nap = [&slept](Token /*held*/) -> Async<> {
      co_await Task<>::sleep(1'000'000'000);
      ++slept;
    };
    const Task<> task([&nap, token]() -> Async<> {
      for (int i = 0; i < points; ++i) co_await nap(token);
    });
    for (int i = 0; i < point; ++i) clock.advance(1);
    task.cancel();
    task.cancel();
    task.wait();
    EXPECT_EQ(slept, point);
    clock.settle();
    EXPECT_EQ(token.use_count(), 1);
  }
}

TEST(Task, CancellationHandlerRunsOnceOrNever) {
  ManualClock clock;
  std::atomic<int> handled = 0;
  const auto operation = [&handled]() -> Async<int> {
    const auto wait = []() -> Async<int> {
      try {
        co_await Task<>::sleep(1'000'000'000);
      } catch (const CancellationError&) {
        co_return 1;
      }
      co_return 0;
    };
    const auto count = [&handled] { ++handled; };
    co_return co_await withTaskCancellationHandler(wait, count);
  };
  const Task<int> left(operation);
  clock.advance(2);
  left.wait();
  left.cancel();
  EXPECT_EQ(handled, 0);
  const Task<int> cancelled(operation);
  clock.settle();
  cancelled.cancel();
  cancelled.cancel();
  EXPECT_EQ(handled, 1);
  cancelled.wait();
}

TEST(Task, ManyTasksCancelledFromOtherThreadsEndOnce) {
  const Token token = makeToken();
  std::atomic<int> ended = 0;
  constexpr int rounds = 400;
  for (int round = 0; round < rounds; ++round) {
    const Task<int> sleeper([token, round]() -> Async<int> {
      co_await Task<>::sleep(round % 4 == 0 ? UINT64_MAX : 1'000ULL * (round % 50 + 1));
      co_return 1;
    });
    const Task<> watcher([sleeper, token, &ended]() -> Async<> {
      try {
        co_await sleeper.value();
      } catch (const CancellationError&) {
      }
      ++ended;
    });
    DispatchQueue::global()->async([sleeper] { sleeper.cancel(); });
    if (round % 3 == 0) sleeper.cancel();
    watcher.wait();
  }
  EXPECT_EQ(ended, rounds);
  while (token.use_count() != 1) std::this_thread::yield();
}

TEST(Continuation, ResumesBeforeOrAfterTheSuspensionFromAnyThread) {
  const int sum = valueOf([]() -> Async<int> {
    int total = 0;
    for (int i = 0; i < 3'000; ++i)
      total += co_await withCheckedContinuation<int>([i](const Continuation<int>& c) {
        if (i % 3 == 0) return c.resume(1);
        DispatchQueue::global()->async([c] { c.resume(1); });
      });
    co_return total;
  });
  EXPECT_EQ(sum, 3'000);
}

TEST(Continuation, CarriesErrorsOfTheOperationItsBodyAndItsLoss) {
  std::vector<std::string> errors;
  valueOf([&]() -> Async<> {
    const std::vector<std::function<void(ThrowingContinuation<int>)>> bodies{
        [](const ThrowingContinuation<int>& c) { c.resumeThrowing(std::runtime_error("typed")); },
        [](const ThrowingContinuation<int>& c) {
          c.resumeThrowing(std::make_exception_ptr(std::runtime_error("general")));
        },
        [](const ThrowingContinuation<int>&) { throw std::runtime_error("body"); },
        [](const ThrowingContinuation<int>&) {}};
    for (const auto& body : bodies) try {
        co_await withCheckedThrowingContinuation<int>(body);
      } catch (const std::exception& error) {
        errors.emplace_back(error.what());
      }
  });
  EXPECT_EQ(errors,
            (std::vector<std::string>{"typed", "general", "body",
                                      "A continuation went away without resuming its coroutine."}));
}

TEST(ContinuationDeathTest, ASecondResumeSaysSo) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto twice = [] {
    const Task<> task([]() -> Async<> {
      co_await withCheckedContinuation<void>([](const Continuation<void>& c) {
        c.resume();
        c.resume();
      });
    });
    task.wait();
  };
  EXPECT_DEATH(twice(), "resumed twice; it resumes its coroutine exactly once");
}

}  // namespace
}  // namespace tessarine
