#include "tessarine/scheduling/NetworkRequests.hpp"

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <vector>

#include "tessarine/system/dispatch/ManualClock.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

struct Status : HTTPStatusCodeError {
  explicit Status(int number) : code(number) {}
  const char* what() const noexcept override { return "status"; }
  int code;
};

constexpr std::uint64_t tenth = 100'000'000;

/// One request whose attempts do what `script` says, and what became of it.
struct Request {
  enum class Attempt : std::uint8_t { succeeds, isMarked, isPlain };
  using Script = std::vector<Attempt>;
  static constexpr Attempt yes = Attempt::succeeds;
  static constexpr Attempt busy = Attempt::isMarked;
  static constexpr Attempt plain = Attempt::isPlain;

  Script script;
  std::vector<std::uint64_t> starts;  // nanoseconds since the first
  std::size_t asked = 0;
  std::size_t refusedAt = 0;  // the asking that is answered with false
  std::string outcome;

  Async<int> attempt() {
    starts.push_back(DispatchTime::now().uptimeNanoseconds());
    const std::size_t number = starts.size();
    switch (script.at(number - 1)) {
      case Attempt::isMarked:
        throw Status(static_cast<int>(number));
      case Attempt::isPlain:
        throw std::runtime_error("plain");
      case Attempt::succeeds:
        break;
    }
    co_return static_cast<int>(number);
  }

  Async<> run(std::int64_t times, double delay) {
    try {
      const auto retryOn = [this](const HTTPStatusCodeError&) { return ++asked != refusedAt; };
      const int value =
          co_await retryNetworkRequest(times, delay, retryOn, [this] { return attempt(); });
      outcome = "value " + std::to_string(value);
    } catch (const Status& status) {
      outcome = "status " + std::to_string(status.code);
    } catch (const std::exception& error) {
      outcome = error.what();
    }
    for (std::uint64_t& start : starts) start -= first;
  }
  std::uint64_t first = DispatchTime::now().uptimeNanoseconds();
};

TEST(NetworkRequests, AttemptsWaitsAndOutcome) {
  constexpr auto yes = Request::yes;
  constexpr auto busy = Request::busy;
  constexpr auto plain = Request::plain;
  struct Row {
    Request::Script script;
    std::int64_t times;
    double delay;
    std::size_t refusedAt;
    std::string outcome;
    std::vector<std::uint64_t> starts;
    std::size_t asked;
  };
  const Row rows[] = {
      {{yes}, 3, 0.1, 0, "value 1", {0}, 0},
      {{busy}, 1, 0.1, 0, "status 1", {0}, 1},
      {{busy, busy, busy}, 3, 0.1, 0, "status 3", {0, 0, tenth}, 3},
      {{busy, yes}, 3, 0.1, 0, "value 2", {0, 0}, 1},
      {{busy, busy, busy, yes}, 9, 0.1, 0, "value 4", {0, 0, tenth, 3 * tenth}, 3},
      {{plain}, 5, 0.1, 0, "plain", {0}, 0},
      {{busy, plain}, 5, 0.1, 0, "plain", {0, 0}, 1},
      {{busy, busy}, 5, 0.1, 2, "status 2", {0, 0}, 2},
      {{busy, busy, yes}, 3, -1e-10, 0, "value 3", {0, 0, 0}, 2},
      {{busy, busy}, 2, 1e300, 0, "status 2", {0, 0}, 2},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.outcome + " of " + std::to_string(row.times));
    ManualClock clock;
    Request request;
    request.script = row.script;
    request.refusedAt = row.refusedAt;
    const Task<> task([&] { return request.run(row.times, row.delay); });
    clock.advance(60);
    task.wait();
    EXPECT_EQ(request.outcome, row.outcome);
    EXPECT_EQ(request.starts, row.starts);
    EXPECT_EQ(request.asked, row.asked);
  }
}

TEST(NetworkRequests, CancellationEndsTheWaitWithItsOwnError) {
  for (const bool before : {true, false}) {
    ManualClock clock;
    Request request;
    request.script = {Request::busy, Request::busy, Request::yes};
    // On the main queue, so that it is known how far it has come.
    const Task<> task([&] { return request.run(3, 100); }, DispatchQueue::main());
    if (!before) clock.advance(50);
    task.cancel();
    clock.settle();
    EXPECT_TRUE(task.hasEnded());
    EXPECT_EQ(request.outcome, CancellationError().what());
    EXPECT_EQ(request.starts.size(), before ? 1U : 2U);
  }
}

TEST(NetworkRequests, ScheduleIsLinear) {
  EXPECT_EQ(retrySchedule(1, 0.1), std::vector<std::uint64_t>());
  EXPECT_EQ(
      retrySchedule(5, 0.1),
      (std::vector<std::uint64_t>{0, tenth, 2 * tenth, static_cast<std::uint64_t>(0.1 * 3 * 1e9)}));
  EXPECT_EQ(retrySchedule(3, -0.9e-9), (std::vector<std::uint64_t>{0, 0}));
  EXPECT_EQ(retryDelay(std::nextafter(0x1p64, 0) / 1e9, 2), 0xFFFF'FFFF'FFFF'F800U);
}

TEST(NetworkRequestsDeathTest, HostileArgumentsAreNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr double infinity = std::numeric_limits<double>::infinity();
  EXPECT_DEATH(retrySchedule(0, 1), "times is 0; it must be at least 1");
  EXPECT_DEATH(retrySchedule(INT64_MIN, 1), "times is -9223372036854775808");
  EXPECT_DEATH(retrySchedule(2, std::nan("")), "delay of nan seconds must be finite");
  EXPECT_DEATH(retrySchedule(2, -infinity), "delay of -inf seconds must be finite");
  EXPECT_DEATH(retrySchedule(3, -1e-9), "delay of -1e-09 seconds after attempt 2");
  EXPECT_DEATH(retrySchedule(3, 2e10), "delay of 2e\\+10 seconds after attempt 2 makes 2e\\+19");
  Request request;
  EXPECT_DEATH((void)request.run(0, 1).root().resume(), "times is 0");
}

TEST(RetryError, IsAValueThatCanBeThrown) {
  const std::unordered_set<RetryError> errors{RetryError::maxRetriesReached,
                                              RetryError::maxRetriesReached};
  EXPECT_EQ(errors.size(), 1U);
  EXPECT_THROW(throw RetryError(RetryError::maxRetriesReached), std::exception);
}

}  // namespace
}  // namespace tessarine
