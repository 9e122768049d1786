#include "tessarine/animation/Spring.hpp"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/animation/Frames.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

struct Watched {
  Frames frames;
  Spring<double> spring{0.0, frames.source};
  std::vector<double> values;

  Watched() {
    spring.setOnChange([this](double value) { values.push_back(value); });
  }
  int settle() {
    int count = 0;
    for (; count < 2000 && frames.isWanted; ++count) frames.give(1.0 / 60);
    return count;
  }
};

TEST(Spring, BeginsAtRestWithItsDefaults) {
  Watched w;
  EXPECT_EQ(w.spring.value(), 0);
  EXPECT_EQ(w.spring.target(), 0);
  EXPECT_EQ(w.spring.velocity(), 0);
  EXPECT_EQ(w.spring.tension(), 120);
  EXPECT_EQ(w.spring.damping(), 12);
  EXPECT_EQ(w.spring.threshold(), 0.1);
  EXPECT_FALSE(w.frames.isWanted);
}

TEST(Spring, FollowsItsTargetAndSettlesAsADampedOscillation) {
  Watched w;
  w.spring.setTarget(100);
  EXPECT_EQ(w.spring.value(), 0);
  w.settle();
  EXPECT_EQ(w.spring.value(), 100);
  const double highest = *std::max_element(w.values.begin(), w.values.end());
  // exp(-pi zeta / sqrt(1 - zeta^2)) with zeta = 12 / (2 sqrt(120))
  EXPECT_NEAR(highest, 112.8, 0.2);
}

TEST(Spring, ANewTargetKeepsTheSpeed) {
  Watched w;
  w.spring.setTarget(100);
  w.frames.give(0.08);
  const double velocity = w.spring.velocity();
  const double value = w.spring.value();
  EXPECT_GT(velocity, 100);
  w.spring.setTarget(-50);
  EXPECT_EQ(w.spring.velocity(), velocity);
  EXPECT_EQ(w.spring.value(), value);
  w.frames.give(0.01);
  EXPECT_GT(w.spring.value(), value) << "still under way";
  w.settle();
  EXPECT_EQ(w.spring.value(), -50);
}

TEST(Spring, APushComesBackAndAWrittenValueGoesOn) {
  Watched w;
  w.spring.setVelocity(300);
  w.frames.give(0.05);
  EXPECT_GT(w.spring.value(), 5);
  w.settle();
  EXPECT_EQ(w.spring.value(), 0);

  w.spring.setTarget(100);
  w.frames.give(0.05);
  const double velocity = w.spring.velocity();
  w.values.clear();
  w.spring.setValue(200);
  EXPECT_EQ(w.values, std::vector{200.0});
  EXPECT_EQ(w.spring.velocity(), velocity);
  w.settle();
  EXPECT_EQ(w.spring.value(), 100);
}

TEST(Spring, ResetStandsStill) {
  Watched w;
  w.spring.setTarget(100);
  w.frames.give(0.05);
  w.values.clear();
  w.spring.reset(7);
  EXPECT_EQ(w.values, std::vector{7.0});
  EXPECT_EQ(w.spring.velocity(), 0);
  EXPECT_EQ(w.spring.target(), 7);
  w.frames.give(1);
  w.spring.reset(7);
  EXPECT_EQ(w.values.size(), 1U);
  EXPECT_FALSE(w.frames.isWanted);
}

TEST(Spring, AnyWriteSetsItGoingForAFrameAtLeast) {
  Watched w;
  for (const auto write : {+[](Spring<double>& spring) { spring.setTarget(0); },
                           +[](Spring<double>& spring) { spring.setTension(300); },
                           +[](Spring<double>& spring) { spring.setDamping(3); },
                           +[](Spring<double>& spring) { spring.setThreshold(0.5); }}) {
    write(w.spring);
    EXPECT_TRUE(w.frames.isWanted);
    EXPECT_EQ(w.settle(), 1);
  }
  EXPECT_EQ(w.spring.tension(), 300);
  EXPECT_EQ(w.spring.damping(), 3);
  EXPECT_EQ(w.spring.threshold(), 0.5);
  EXPECT_TRUE(w.values.empty());
}

TEST(Spring, OddParametersEndNothingButTheMotion) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const double odd : {nan, infinity, -infinity, -1.0, 1e300}) {
    for (const auto write : {&Spring<double>::setTension, &Spring<double>::setDamping,
                             &Spring<double>::setThreshold}) {
      Watched w;
      (w.spring.*write)(odd);
      w.spring.setTarget(100);
      for (int i = 0; i < 200; ++i) w.frames.give(0.02);
      w.spring.reset(1);  // always brings it back
      EXPECT_EQ(w.spring.value(), 1);
      EXPECT_FALSE(w.frames.isWanted);
    }
  }
  Watched undamped;
  undamped.spring.setDamping(0);
  undamped.spring.setTarget(100);
  EXPECT_EQ(undamped.settle(), 2000);
}

TEST(Spring, CallbacksMayDestroyItOrThrow) {
  for (const bool byValue : {true, false}) {
    Frames frames;
    std::optional<Spring<double>> spring;
    spring.emplace(0.0, frames.source);
    spring->setOnChange([&](double) { spring.reset(); });
    if (byValue) {
      spring->setValue(3);
    } else {
      spring->setTarget(3);
      frames.give(0.1);
    }
    EXPECT_FALSE(spring);
    EXPECT_FALSE(frames.isWanted);
  }
  Watched w;
  w.spring.setTarget(100);
  w.frames.give(0.05);
  const double velocity = w.spring.velocity();
  w.spring.setOnChange([](double) { throw std::runtime_error("no"); });
  EXPECT_THROW(w.spring.setValue(200), std::runtime_error);
  EXPECT_EQ(w.spring.velocity(), velocity) << "the motion went on all the same";
}

TEST(SpringDeath, OffTheMainQueueTheOperationIsNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Frames frames;
  Spring<double> spring(0.0, frames.source);
  const auto elsewhere = [](auto action) { std::thread(action).join(); };
  EXPECT_DEATH(elsewhere([] { Spring<double> made(0.0); }),
               "Spring::Spring is called off the main");
  EXPECT_DEATH(elsewhere([&] { spring.setTarget(1); }), "Spring::setTarget is");
  EXPECT_DEATH(elsewhere([&] { spring.setValue(1); }), "Spring::setValue is");
  EXPECT_DEATH(elsewhere([&] { spring.reset(1); }), "Spring::reset is");
}

}  // namespace
}  // namespace tessarine
