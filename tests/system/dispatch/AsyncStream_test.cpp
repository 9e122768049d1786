#include "tessarine/system/dispatch/AsyncStream.hpp"

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/dispatch/ManualClock.hpp"
#include "tessarine/system/dispatch/PassthroughSubject.hpp"
#include "tessarine/system/dispatch/Task.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

using Reason = StreamTermination::Reason;
using Numbers = AsyncStream<int>;

static_assert(Publisher<PassthroughSubject<int>>);
static_assert(Publisher<PassthroughSubject<std::unique_ptr<int>, std::runtime_error>>);
static_assert(!Publisher<int>);

/// Takes a stream to its end; a failure is -1.
template <class Stream>
std::vector<int> allOf(Stream stream) {
  std::vector<int> values;
  const Task<> task([&values, stream]() -> Async<> {
    auto each = stream.makeAsyncIterator();
    try {
      while (const std::optional<int> value = co_await each.next()) values.push_back(*value);
    } catch (const std::runtime_error&) {
      values.push_back(-1);
    }
    const std::optional<int> behind = co_await each.next();
    EXPECT_FALSE(behind.has_value());
  });
  task.wait();
  return values;
}

/// Notes each call of a termination handler.
struct Ends {
  std::vector<Reason> reasons;
  void watch(const Numbers::Continuation& continuation) {
    continuation.setOnTermination(
        [this](const StreamTermination& end) { reasons.push_back(end.reason); });
  }
};

TEST(AsyncStream, KeepsOrderAcrossThreadsWithoutBound) {
  constexpr int count = 20'000;
  const Numbers stream([](const Numbers::Continuation& c) {
    DispatchQueue::global()->async([c] {
      for (int i = 0; i < count; ++i) EXPECT_EQ(c.yield(i), YieldResult::enqueued);
      c.finish();
      EXPECT_EQ(c.yield(-1), YieldResult::terminated);
    });
  });
  const std::vector<int> values = allOf(stream);
  ASSERT_EQ(values.size(), static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) ASSERT_EQ(values[static_cast<std::size_t>(i)], i);
}

TEST(AsyncStream, FailsOnceAfterWhatWasGivenBefore) {
  const AsyncThrowingStream<int> stream([](const AsyncThrowingStream<int>::Continuation& c) {
    c.yield(1);
    c.finish(std::make_exception_ptr(std::runtime_error("lost")));
    c.finish();
  });
  EXPECT_EQ(allOf(stream), (std::vector<int>{1, -1}));
}

TEST(AsyncStream, TellsItsEndOnceWhicheverComesFirst) {
  const auto endsAfter = [](auto act) {
    Ends ends;
    {
      auto [stream, continuation] = Numbers::makeStream();
      ends.watch(continuation);
      act(std::optional<Numbers>(std::move(stream)),
          std::optional<Numbers::Continuation>(std::move(continuation)));
    }
    return ends.reasons;
  };
  using Ended = std::vector<Reason>;
  EXPECT_EQ(endsAfter([](auto, auto) {}).size(), 1U);
  EXPECT_EQ(endsAfter([](auto stream, auto) { stream.reset(); }), Ended{Reason::cancelled});
  EXPECT_EQ(endsAfter([](auto, auto continuation) { continuation.reset(); }),
            Ended{Reason::finished});
  EXPECT_EQ(endsAfter([](auto stream, auto continuation) {
              continuation->finish();
              continuation->finish();
              stream.reset();
            }),
            Ended{Reason::finished});
  EXPECT_EQ(endsAfter([](auto, auto continuation) {
              continuation->finish();
              Ends late;
              late.watch(*continuation);
              EXPECT_EQ(late.reasons, Ended{Reason::finished}) << "at once, as it has ended";
            }),
            Ended{Reason::finished});
  EXPECT_EQ(endsAfter([](auto stream, auto continuation) {
              { const auto each = stream->makeAsyncIterator(); }
              EXPECT_EQ(continuation->yield(1), YieldResult::terminated);
            }),
            Ended{Reason::cancelled});
  EXPECT_EQ(endsAfter([](auto stream, auto continuation) {
              std::optional each = stream->makeAsyncIterator();
              const auto other = stream->makeAsyncIterator();
              stream.reset();
              each.reset();
              EXPECT_EQ(continuation->yield(1), YieldResult::enqueued);
            }),
            Ended{Reason::cancelled});
}

TEST(AsyncStream, CancelledTaskTakesWhatIsThereThenEnds) {
  ManualClock clock;
  for (const bool waitsAlready : {true, false}) {
    Ends ends;
    auto [stream, continuation] = Numbers::makeStream();
    ends.watch(continuation);
    std::atomic<bool> mayGoOn = waitsAlready;
    std::vector<int> values;
    const Task<> task([&, &numbers = stream]() -> Async<> {
      auto each = numbers.makeAsyncIterator();
      mayGoOn.wait(false);
      while (const auto value = co_await each.next()) values.push_back(*value);
    });
    if (waitsAlready) clock.settle();
    continuation.yield(1);
    continuation.yield(2);
    if (waitsAlready) clock.settle();
    task.cancel();
    mayGoOn = true;
    mayGoOn.notify_all();
    task.wait();
    EXPECT_EQ(values, (std::vector<int>{1, 2}));
    EXPECT_EQ(ends.reasons, std::vector<Reason>{Reason::cancelled});
  }
}

TEST(AsyncStream, ProducersConsumersAndCancellationsMeetSafely) {
  for (int round = 0; round < 200; ++round) {
    std::atomic<int> ends = 0;
    auto [stream, continuation] = Numbers::makeStream();
    continuation.setOnTermination([&](const StreamTermination&) { ++ends; });
    int taken = 0;
    const Task<> task([&taken, numbers = std::move(stream)]() -> Async<> {
      auto each = numbers.makeAsyncIterator();
      while (co_await each.next()) ++taken;
    });
    std::atomic<int> given = 0;
    std::vector<std::thread> producers;
    producers.reserve(2);
    for (int producer = 0; producer < 2; ++producer)
      producers.emplace_back([&given, producing = continuation] {
        for (int i = 0; i < 50; ++i)
          if (producing.yield(i) == YieldResult::enqueued) ++given;
      });
    if (round % 2 == 0) task.cancel();
    for (std::thread& producer : producers) producer.join();
    continuation.finish();
    task.wait();
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(taken, given);
  }
}

TEST(AsyncStreamDeathTest, OneCoroutineAtATimeAwaitsTheNext) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto awaitTwice = [] {
    const auto [stream, continuation] = Numbers::makeStream();
    auto each = stream.makeAsyncIterator();
    const auto next = [&each]() -> Async<> { co_await each.next(); };
    const Task<> first(next, DispatchQueue::main());
    const Task<> second(next, DispatchQueue::main());
    MainQueue::drain();
  };
  EXPECT_DEATH(awaitTwice(), "next\\(\\) of a stream is awaited by two coroutines at once");
}

TEST(PassthroughSubject, SendsToThoseWhoSubscribedUntilCancelledOrComplete) {
  const PassthroughSubject<int, std::runtime_error> subject;
  std::vector<int> first;
  std::vector<int> second;
  int completions = 0;
  const auto complete = [&](const auto& end) { completions += end.isFinished() ? 100 : 1; };
  subject.send(0);
  AnyCancellable one = subject.sink(complete, [&](int value) {
    first.push_back(value);
    if (value == 2) one.cancel();
  });
  subject.send(1);
  const AnyCancellable two = subject.sink(complete, [&](int value) { second.push_back(value); });
  for (const int value : {2, 3}) subject.send(value);
  const auto failure = Completion<std::runtime_error>::failed(std::runtime_error("over"));
  subject.sendCompletion(failure);
  subject.sendCompletion(Completion<std::runtime_error>::finished());
  subject.send(4);
  EXPECT_EQ(first, (std::vector<int>{1, 2}));
  EXPECT_EQ(second, (std::vector<int>{2, 3}));
  EXPECT_EQ(completions, 1);
  const AnyCancellable late = subject.sink(complete, [](int) {});
  EXPECT_EQ(completions, 2);
}

TEST(AnyCancellable, ActsOnceOnCancelMoveOrEnd) {
  int ran = 0;
  {
    AnyCancellable outer;
    {
      AnyCancellable inner([&] { ++ran; });
      outer = std::move(inner);
    }
    EXPECT_EQ(ran, 0);
    outer.cancel();
    outer.cancel();
    EXPECT_EQ(ran, 1);
    outer = AnyCancellable([&] { ran += 10; });
  }
  EXPECT_EQ(ran, 11);
}

}  // namespace
}  // namespace tessarine
