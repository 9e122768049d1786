#include "tessarine/system/store/NotificationCenter.hpp"

#include <stdexcept>

#include "tessarine/values/AnyHashable.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

struct Listener {
  std::vector<std::string> heard;
  void hear(const Notification& notification) {
    heard.push_back(dynamicCast<std::string>(notification.userInfo.at("text")).value());
  }
};

TEST(NotificationCenter, MatchesByNameAndObjectInOrderOfRegistration) {
  NotificationCenter center;
  const int one = 1;
  const int two = 2;
  std::string calls;
  const auto any = center.addObserver("n", nullptr, [&](const auto&) { calls += 'a'; });
  const auto about = center.addObserver("n", &one, [&](const auto&) { calls += 'b'; });
  const auto other = center.addObserver("m", nullptr, [&](const auto&) { calls += 'c'; });
  center.post("n", &one);
  calls += '|';
  center.post("n", &two);
  calls += '|';
  center.post("n");
  EXPECT_EQ(calls, "ab|a|a");
}

TEST(NotificationCenter, RegistrationDiesWithItsObserver) {
  NotificationCenter center;
  auto listener = std::make_shared<Listener>();
  center.addObserver(listener, "n", nullptr, &Listener::hear);
  center.post("n", nullptr, {{"text", std::string("1")}});
  EXPECT_EQ(listener->heard, std::vector<std::string>{"1"});
  EXPECT_EQ(listener.use_count(), 1) << "the centre does not keep an observer alive";

  const auto keep = std::make_shared<Listener>();
  center.addObserver(keep, "n", nullptr, &Listener::hear);
  listener.reset();
  center.post("n", nullptr, {{"text", std::string("2")}});
  center.removeObserver(keep.get(), "n");
  center.post("n", nullptr, {{"text", std::string("3")}});
  EXPECT_EQ(keep->heard, std::vector<std::string>{"2"});

  int calls = 0;
  auto token = center.addObserver("n", nullptr, [&](const auto&) { ++calls; });
  token.reset();
  center.post("n", nullptr, {{"text", std::string("4")}});
  EXPECT_EQ(calls, 0);
}

TEST(NotificationCenter, ObserversMayChangeRegistrationsAndThrow) {
  NotificationCenter center;
  std::vector<NotificationCenter::Token> tokens;
  int late = 0;
  int after = 0;
  tokens.push_back(center.addObserver("n", nullptr, [&](const auto&) {
    tokens.push_back(center.addObserver("n", nullptr, [&](const auto&) { ++late; }));
    throw std::runtime_error("first");
  }));
  tokens.push_back(center.addObserver("n", nullptr, [&](const auto&) {
    ++after;
    throw std::runtime_error("second");
  }));
  try {
    center.post("n");
    FAIL() << "the exception reaches the poster";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "first");
  }
  EXPECT_EQ(after, 1);
  EXPECT_EQ(late, 0);
}

}  // namespace
}  // namespace tessarine
