// What the library's threads do when there is nothing to do: there is none before the first use,
// and then they sleep.
#include <filesystem>
#include <fstream>
#include <map>
#include <semaphore>
#include <string>
#include <thread>

#include "tessarine/system/dispatch/DispatchQueue.hpp"

#include <gtest/gtest.h>

namespace tessarine {
namespace {

/// How often and how long each of the library's threads has run, as the kernel counts it.
std::map<std::string, std::string> runTimes() {
  std::map<std::string, std::string> times;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(task.path() / "comm"), name);
    if (!name.starts_with("tessarine")) continue;
    std::getline(std::ifstream(task.path() / "schedstat"), times[task.path()]);
  }
  return times;
}

void useQueuesAndTimer() {
  std::counting_semaphore<2> ran(0);
  DispatchQueue::global()->async([&] { ran.release(); });
  DispatchQueue::global()->asyncAfter(0.001, [&] { ran.release(); });
  ran.acquire();
  ran.acquire();
}

/// Whether a time comes in which no thread runs at all; they need a moment to fall asleep.
bool comesToRest() {
  constexpr auto restLength = std::chrono::milliseconds(50);
  for (int attempt = 0; attempt < 40; ++attempt) {
    const auto before = runTimes();
    std::this_thread::sleep_for(restLength);
    if (runTimes() == before) return true;
  }
  return false;
}

int lookAtThreads() {
  if (!runTimes().empty()) return 1;
  useQueuesAndTimer();
  if (runTimes().size() < 2) return 2;
  return comesToRest() ? 0 : 3;
}

// In a process of its own, which has only begun. The exit status says what went wrong.
TEST(ThreadsDeathTest, NoneBeforeTheFirstUseAndAllAsleepAtRest) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::_Exit(lookAtThreads()), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tessarine
