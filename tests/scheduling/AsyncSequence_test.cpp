#include "tessarine/scheduling/AsyncSequence.hpp"

#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "tessarine/scheduling/AsyncArraySequence.hpp"
#include "tessarine/scheduling/PublisherStreams.hpp"
#include "tessarine/system/dispatch/ManualClock.hpp"
#include "tessarine/system/dispatch/PassthroughSubject.hpp"
#include "tessarine/system/dispatch/Task.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

template <class F>
void runTask(F operation) {
  const Task<> task(std::move(operation));
  task.wait();
}

TEST(AsyncSequence, MapsInOrderOneAtATime) {
  ManualClock clock;
  int inside = 0;
  std::vector<int> results;
  const Task<> task([&]() -> Async<> {
    const auto slower = [&](int element) -> Async<int> {
      EXPECT_EQ(++inside, 1);
      co_await Task<>::sleep(static_cast<std::uint64_t>(10 - element));
      --inside;
      co_return element* element;
    };
    std::vector<int> numbers(3);
    for (int i = 0; i < 3; ++i) numbers[static_cast<std::size_t>(i)] = i + 1;
    results = co_await asyncMap(std::move(numbers), slower);
  });
  clock.advance(1);
  task.wait();
  EXPECT_EQ(results, (std::vector<int>{1, 4, 9}));
}

TEST(AsyncSequence, FirstFailureStopsTheWalk) {
  const std::vector<int> numbers{1, 2, 3, 4};
  int calls = 0;
  bool caught = false;
  runTask([&]() -> Async<> {
    const auto third = [&](int) -> Async<int> {
      if (++calls == 3) throw std::runtime_error("third");
      co_return calls;
    };
    try {
      co_await asyncMap(numbers, third);
    } catch (const std::runtime_error&) {
      caught = true;
    }
    const std::vector<int> none;
    EXPECT_TRUE((co_await asyncMap(none, third)).empty());
  });
  EXPECT_TRUE(caught);
  EXPECT_EQ(calls, 3);
}

TEST(AsyncSequence, ForEachGivesTheElementsThemselves) {
  std::vector<std::unique_ptr<int>> boxes;
  boxes.reserve(3);
  for (int i = 0; i < 3; ++i) boxes.push_back(std::make_unique<int>(i));
  runTask([&]() -> Async<> {
    const auto raise = [](std::unique_ptr<int>& box) -> Async<> {
      ++*box;
      co_return;
    };
    co_await asyncForEach(boxes, raise);
  });
  EXPECT_EQ(*boxes[0] + *boxes[1] + *boxes[2], 6);
}

TEST(AsyncArraySequence, IteratesFromWhereTheValueStands) {
  runTask([]() -> Async<> {
    std::vector<int> numbers(2, 7);
    numbers[1] = 8;
    AsyncArraySequence<int> sequence(numbers);
    auto whole = sequence.makeAsyncIterator();
    EXPECT_EQ(co_await whole.next(), 7);
    auto rest = whole.makeAsyncIterator();
    EXPECT_EQ(co_await rest.next(), 8);
    EXPECT_EQ(co_await rest.next(), std::nullopt);
    EXPECT_EQ(co_await rest.next(), std::nullopt);
    EXPECT_EQ(rest.currentIndex(), 2);
    EXPECT_EQ(whole.currentIndex(), 1);
    EXPECT_EQ(sequence.currentIndex(), 0);
    AsyncArraySequence<int> empty{std::vector<int>()};
    EXPECT_EQ(co_await empty.next(), std::nullopt);
  });
}

TEST(PublisherStreams, CarryValuesThenTheEnd) {
  runTask([]() -> Async<> {
    const PassthroughSubject<int> good;
    auto values = stream(good).makeAsyncIterator();
    static_assert(std::is_same_v<decltype(stream(good)), AsyncStream<int>>);
    auto same = throwingStream(good).makeAsyncIterator();
    good.send(1);
    good.send(2);
    good.sendCompletion(Completion<Never>::finished());
    for (const std::optional<int> expected :
         {std::optional(1), std::optional(2), std::optional<int>()}) {
      EXPECT_EQ(co_await values.next(), expected);
      EXPECT_EQ(co_await same.next(), expected);
    }
    const PassthroughSubject<int, std::runtime_error> bad;
    auto failing = stream(bad).makeAsyncIterator();
    bad.send(1);
    bad.sendCompletion(Completion<std::runtime_error>::failed(std::runtime_error("that")));
    EXPECT_EQ(co_await failing.next(), 1);
    std::string message;
    try {
      co_await failing.next();
    } catch (const std::runtime_error& error) {
      message = error.what();
    }
    EXPECT_EQ(message, "that");
    auto late = stream(good).makeAsyncIterator();
    EXPECT_EQ(co_await late.next(), std::nullopt);
  });
}

TEST(PublisherStreams, DroppingTheIteratorCancelsTheSubscription) {
  const auto token = std::make_shared<int>(0);
  struct Counting {
    using Output = int;
    using Failure = Never;
    std::shared_ptr<int> cancelled;
    AnyCancellable sink(const std::function<void(const Completion<Never>&)>&,
                        const std::function<void(const int&)>& receive) const {
      receive(1);
      return AnyCancellable([cancelled = cancelled, receive] { ++*cancelled; });
    }
  };
  const AsyncStream<int> kept = stream(Counting{token});
  {
    auto each = kept.makeAsyncIterator();
    EXPECT_EQ(*token, 0);
  }
  EXPECT_EQ(*token, 1);
  { const AsyncStream<int> unused = stream(Counting{token}); }
  EXPECT_EQ(*token, 2);
  EXPECT_EQ(token.use_count(), 1);
}

}  // namespace
}  // namespace tessarine
