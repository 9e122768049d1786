#include "tessarine/animation/DisplayLink.hpp"

#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tessarine/animation/FrameSource.hpp"
#include "tessarine/animation/Spring.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/dispatch/ManualClock.hpp"
#include "tests/animation/Frames.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

/// A link whose refreshes are called by hand.
struct HandLink final : CVDisplayLink {
  void setOutputHandler(OutputHandler given) override { handler = std::move(given); }
  void start() override { calls += 's'; }
  void stop() override { calls += 'e'; }
  int refresh(std::int64_t number) const { return handler({60, number}, {60, number + 1}); }

  OutputHandler handler;
  std::string calls;
};

struct Linked {
  std::shared_ptr<HandLink> hand = std::make_shared<HandLink>();
  std::shared_ptr<FrameSource> source = std::make_shared<FrameSource>(hand);
  std::vector<DisplayLink::Frame> seen;
  std::optional<DisplayLink> link{std::in_place, source};

  Linked() {
    link->setOnFrame([this](const DisplayLink::Frame& frame) { seen.push_back(frame); });
  }
};

TEST(DisplayLink, HandsBothStampsOfARefreshToTheMainQueue) {
  Linked l;
  EXPECT_TRUE(l.link->isPaused());
  l.link->setIsPaused(false);
  l.link->setIsPaused(false);
  EXPECT_EQ(l.hand->calls, "s");
  std::thread([&] { EXPECT_EQ(l.hand->refresh(120), 0); }).join();
  EXPECT_TRUE(l.seen.empty()) << "not before the main queue runs";
  MainQueue::drain();
  EXPECT_EQ(l.seen, (std::vector<DisplayLink::Frame>{{2.0, 121 / 60.0}}));

  l.hand->refresh(121);
  l.link->setIsPaused(true);
  MainQueue::drain();
  EXPECT_EQ(l.seen.size(), 1U) << "what waits at a pause is dropped";
  EXPECT_EQ(l.hand->calls, "se");
  l.link->setIsPaused(false);
  l.hand->refresh(122);
  l.link.reset();
  EXPECT_EQ(l.hand->calls, "sese") << "its end is a pause";
  l.source.reset();
  MainQueue::drain();
  l.hand->refresh(123);
  MainQueue::drain();
  EXPECT_EQ(l.seen.size(), 1U);
}

TEST(DisplayLink, AStallEndsWithOneFrame) {
  Linked l;
  l.link->setIsPaused(false);
  for (int i = 0; i < 3600 * 60; ++i) l.hand->refresh(i);
  EXPECT_EQ(MainQueue::drain(), 1U);
  EXPECT_EQ(l.seen, (std::vector<DisplayLink::Frame>{{0.0, 3600.0}}));
  l.hand->refresh(300'000);
  MainQueue::drain();
  EXPECT_EQ(l.seen.back(), (DisplayLink::Frame{5000.0, 300'001 / 60.0}));
}

TEST(DisplayLink, FramesThatTakeNoTimeAreNone) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  constexpr double infinity = std::numeric_limits<double>::infinity();
  Frames frames;
  DisplayLink link(frames.source);
  int seen = 0;
  link.setOnFrame([&](const DisplayLink::Frame& frame) {
    ++seen;
    EXPECT_GT(frame.timestamp, frame.previousTimestamp);
  });
  link.setIsPaused(false);
  for (const DisplayLink::Frame frame :
       {DisplayLink::Frame{1, 1}, {2, 1}, {nan, 1}, {1, nan}, {-infinity, 1}, {1, infinity}}) {
    frames.source->frame(frame);
    MainQueue::drain();
  }
  Linked l;
  l.link->setIsPaused(false);
  l.hand->handler({0, 1}, {60, 2});
  MainQueue::drain();
  EXPECT_EQ(seen + static_cast<int>(l.seen.size()), 0);
}

TEST(FrameSource, TheHostsTimesBecomeSpans) {
  Frames frames;
  DisplayLink link(frames.source);
  std::vector<double> spans;
  link.setOnFrame([&](const DisplayLink::Frame& frame) {
    spans.push_back(frame.timestamp - frame.previousTimestamp);
  });
  const auto give = [&](double time) {
    frames.source->frame(time);
    MainQueue::drain();
  };
  give(5);  // nobody moves
  link.setIsPaused(false);
  for (const double time : {8.0, 8.5, std::numeric_limits<double>::quiet_NaN(), 8.5, 8.0, 8.25})
    give(time);
  link.setIsPaused(true);
  link.setIsPaused(false);
  give(100);  // the rest before it does not count
  ASSERT_EQ(spans.size(), 4U);
  EXPECT_NEAR(spans[0], 1 / 60.0, 1e-12);
  EXPECT_EQ(spans[1], 0.5);
  EXPECT_EQ(spans[2], 0.25) << "a clock set back goes on from where it is";
  EXPECT_NEAR(spans[3], 1 / 60.0, 1e-12);
  // Who goes on from within a frame has not rested.
  link.setOnFrame([&](const DisplayLink::Frame& frame) {
    spans.push_back(frame.timestamp - frame.previousTimestamp);
    link.setIsPaused(true);
    link.setIsPaused(false);
  });
  for (const double time : {100.5, 100.75}) give(time);
  ASSERT_EQ(spans.size(), 6U);
  EXPECT_EQ(spans[5], 0.25);
}

TEST(FrameSource, ManyMoveOnOneLinkInTheOrderTheyWereSetGoing) {
  Linked l;
  l.link.reset();
  std::vector<std::unique_ptr<DisplayLink>> links;
  std::string told;
  for (int i = 0; i < 6; ++i) {
    links.push_back(std::make_unique<DisplayLink>(l.source));
    links.back()->setOnFrame([&told, i](const DisplayLink::Frame&) { told += char('a' + i); });
  }
  const auto frame = [&] {
    told.clear();
    l.hand->refresh(1);
    MainQueue::drain();
    return told;
  };
  for (const int i : {2, 0, 1, 3, 5, 4}) links[i]->setIsPaused(false);
  EXPECT_EQ(frame(), "cabdfe");
  // One ends another and itself, one throws, one is set going during the frame.
  links[0]->setOnFrame([&](const DisplayLink::Frame&) {
    told += 'A';
    links[1].reset();
    links[0]->setIsPaused(true);
  });
  links[3]->setOnFrame([&](const DisplayLink::Frame&) {
    told += 'D';
    links[0]->setIsPaused(false);
    throw std::runtime_error("on purpose");
  });
  // A frame within a frame.
  links[5]->setOnFrame([&](const DisplayLink::Frame&) {
    links[5]->setOnFrame([&](const DisplayLink::Frame&) { told += 'f'; });
    told += '(';
    l.hand->refresh(2);
    MainQueue::drain();
    told += ')';
  });
  testing::internal::CaptureStderr();
  EXPECT_EQ(frame(), "cAD(cDfeA)e");
  EXPECT_NE(testing::internal::GetCapturedStderr().find("on purpose"), std::string::npos);
  EXPECT_EQ(l.hand->calls, "s");
  links.clear();
  EXPECT_EQ(l.hand->calls, "se");
}

TEST(FrameSource, TheSharedOneServesWhoBringsNone) {
  Frames frames;
  FrameSource::setShared(frames.source);
  Spring<double> spring(0.0);
  spring.setTarget(10);
  EXPECT_TRUE(frames.isWanted);
  frames.give(0.05);
  EXPECT_GT(spring.value(), 0);
  FrameSource::setShared(nullptr);
  Spring<double> own(0.0);
  own.setTarget(10);
  spring.reset(0);
  EXPECT_FALSE(frames.isWanted);
}

TEST(FrameSource, AnimatorsRunByTheClock) {
  ManualClock clock;
  const auto source = std::make_shared<FrameSource>(CVDisplayLinkCreateWithRefreshRate(60));
  Animator<double> animator(0.0, source);
  std::optional<CompletionReason> reason;
  int changes = 0;
  animator.setOnChange([&](double) { ++changes; });
  animator.animate(60, 1, TimingFunction::linear(),
                   [&](CompletionReason given) { reason = given; });
  clock.advance(0.5);
  EXPECT_NEAR(animator.value(), 30, 1.01);
  EXPECT_FALSE(reason);
  clock.advance(0.6);
  EXPECT_EQ(reason, CompletionReason::finished);
  EXPECT_EQ(animator.value(), 60);
  EXPECT_TRUE(changes == 60 || changes == 61) << changes;
  // The main queue stands still for an hour, the motion does not pile up.
  animator.animate(0, 7200, TimingFunction::linear(), {});
  clock.advanceWithoutSettling(3600);
  changes = 0;
  clock.settle();
  EXPECT_EQ(changes, 1);
  EXPECT_NEAR(animator.value(), 30, 0.01);
}

TEST(DisplayLinkDeath, MisuseIsNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(FrameSource(std::shared_ptr<CVDisplayLink>()), "There is no display link");
  DisplayLink link;
  EXPECT_DEATH(std::thread([&] { link.setIsPaused(false); }).join(),
               "DisplayLink::setIsPaused is called off the main queue");
}

}  // namespace
}  // namespace tessarine
