#include "tessarine/system/desktop/CVDisplayLink.hpp"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <semaphore>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tessarine/system/desktop/internal/RandR.hpp"
#include "tessarine/system/dispatch/Clock.hpp"
#include "tessarine/system/dispatch/ManualClock.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

struct Tick {
  double at, now, output;
};

double secondsOf(const CVTimeStamp& stamp) {
  return static_cast<double>(stamp.videoTime) / stamp.videoTimeScale;
}

double secondsNow() { return static_cast<double>(Clock::now().uptimeNanoseconds()) * 1e-9; }

/// A link whose ticks are written down.
struct Ticking {
  std::shared_ptr<CVDisplayLink> link;
  std::vector<Tick> ticks;

  explicit Ticking(double hertz) : link(CVDisplayLinkCreateWithRefreshRate(hertz)) {
    link->setOutputHandler([this](const CVTimeStamp& now, const CVTimeStamp& output) {
      ticks.push_back({secondsNow(), secondsOf(now), secondsOf(output)});
      return 0;
    });
  }
};

TEST(CVDisplayLink, TicksAtItsRateWithoutDriftForAnHour) {
  ManualClock clock;
  for (const double hertz : {59.94, 60.0, 144.0}) {
    Ticking t(hertz);
    clock.advance(1);
    EXPECT_TRUE(t.ticks.empty()) << "not before it is started";
    t.link->start();
    clock.advance(3600);
    t.link->stop();
    EXPECT_NEAR(static_cast<double>(t.ticks.size()), 3600 * hertz, 1);
    const double first = t.ticks.front().now;
    for (std::size_t i = 0; i < t.ticks.size(); i += 997) {
      ASSERT_NEAR(t.ticks[i].now, first + static_cast<double>(i) / hertz, 4e-9) << hertz;
      ASSERT_NEAR(t.ticks[i].output - t.ticks[i].now, 1 / hertz, 4e-9);
      ASSERT_NEAR(t.ticks[i].at, t.ticks[i].now, 2e-9) << "right when it is due";
    }
    const std::size_t count = t.ticks.size();
    clock.advance(10);
    EXPECT_EQ(t.ticks.size(), count) << "not after it is stopped";
  }
}

TEST(CVDisplayLink, AStallIsNotMadeUpFor) {
  ManualClock clock;
  Ticking t(60);
  t.link->setOutputHandler([&](const CVTimeStamp& now, const CVTimeStamp& output) {
    t.ticks.push_back({secondsNow(), secondsOf(now), secondsOf(output)});
    // The thread of the link itself is held up for an hour in its tenth tick.
    if (t.ticks.size() == 10) clock.advanceWithoutSettling(3600);
    return 0;
  });
  t.link->start();
  clock.advance(1);
  const std::size_t count = t.ticks.size();
  EXPECT_GE(count, 9U);
  EXPECT_LE(count, 61U) << "and not the 216 000 that were missed";
  std::set<double> instants;
  for (const auto& tick : t.ticks) {
    EXPECT_TRUE(instants.insert(tick.now).second) << "twice at one refresh";
    EXPECT_NEAR(tick.output - tick.now, 1 / 60.0, 4e-9);
  }
  t.link->stop();
}

TEST(CVDisplayLink, LinksOfOneRateShareTheirInstants) {
  ManualClock clock;
  Ticking first(60);
  Ticking second(60);
  first.link->start();
  clock.advance(0.1234);
  second.link->start();
  clock.advance(0.5);
  EXPECT_EQ(second.ticks.back().now, first.ticks.back().now);
  // Stopping and starting keeps the raster.
  second.link->stop();
  clock.advance(0.003);
  second.link->start();
  clock.advance(0.5);
  EXPECT_EQ(second.ticks.back().now, first.ticks.back().now);
  first.link.reset();
  const std::size_t count = first.ticks.size();
  clock.advance(1);
  EXPECT_EQ(first.ticks.size(), count);
}

TEST(CVDisplayLink, ItsHandlerMayStopStartReplaceAndDestroyIt) {
  ManualClock clock;
  std::shared_ptr<CVDisplayLink> link = CVDisplayLinkCreateWithRefreshRate(100);
  int ticks = 0;
  link->setOutputHandler([&](const CVTimeStamp&, const CVTimeStamp&) {
    ++ticks;
    link->stop();
    if (ticks < 3) link->start();
    return 0;
  });
  link->start();
  clock.advance(1);
  EXPECT_EQ(ticks, 3);
  link->setOutputHandler(
      [&link, &ticks, token = std::make_shared<int>(5)](const auto&, const auto&) {
        link.reset();
        ticks += *token;
        return 0;
      });
  link->start();
  clock.advance(1);
  EXPECT_EQ(ticks, 8);
}

TEST(CVDisplayLink, OddRatesAreBroughtIntoRange) {
  ManualClock clock;
  struct Row {
    double asked, got;
  };
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const auto& [asked, got] : {Row{0, 1}, Row{-5, 1}, Row{infinity, 1000}, Row{1e9, 1000},
                                   Row{std::numeric_limits<double>::quiet_NaN(), 60}}) {
    Ticking t(asked);
    t.link->start();
    clock.advance(10);
    EXPECT_NEAR(static_cast<double>(t.ticks.size()), 10 * got, 1) << asked;
    t.link->stop();
  }
}

TEST(CVDisplayLink, TicksByTheRealClock) {
  std::counting_semaphore<1000> ticked(0);
  const auto link = CVDisplayLinkCreateWithRefreshRate(500);
  link->setOutputHandler([&](const CVTimeStamp& now, const CVTimeStamp&) {
    EXPECT_LE(secondsOf(now), secondsNow() + 1e-6) << "never before its time";
    ticked.release();
    return 0;
  });
  link->start();
  for (int i = 0; i < 20; ++i) ticked.acquire();
}

// The thread sanitizer watches this: ticks, starts and stops on several threads, and the end.
TEST(CVDisplayLink, StartsAndStopsFromAnyThread) {
  for (int i = 0; i < 50; ++i) {
    const auto ticks = std::make_shared<std::atomic<int>>(0);
    const auto link = CVDisplayLinkCreateWithRefreshRate(1000);
    link->setOutputHandler([ticks](const CVTimeStamp&, const CVTimeStamp&) { return ++*ticks, 0; });
    const auto flip = [link] {
      for (int turn = 0; turn < 50; ++turn) {
        link->start();
        std::this_thread::yield();
        link->stop();
      }
    };
    std::thread other(flip);
    flip();
    link->start();
    other.join();
  }
}

TEST(RandR, SaysNothingWithoutADisplay) {
  const char* const display = std::getenv("DISPLAY");
  const std::optional<std::string> before =
      display ? std::optional<std::string>(display) : std::nullopt;
  ::unsetenv("DISPLAY");
  EXPECT_EQ(detail::randrRefreshRate(), std::nullopt);
  for (const char* const none : {"", "no display", ":98765", "/nowhere/at/all"}) {
    ::setenv("DISPLAY", none, 1);
    EXPECT_EQ(detail::randrRefreshRate(), std::nullopt) << none;
  }
  if (before)
    ::setenv("DISPLAY", before->c_str(), 1);
  else
    ::unsetenv("DISPLAY");
  EXPECT_GE(displayRefreshRate(), 10);
  EXPECT_LE(displayRefreshRate(), 1000);
}

}  // namespace
}  // namespace tessarine
