#include "tessarine/system/dispatch/internal/Waiting.hpp"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>

namespace tessarine::detail {
namespace {

void keepThisThreadOn(int core) {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(core, &cores);
  ASSERT_EQ(pthread_setaffinity_np(pthread_self(), sizeof cores, &cores), 0);
}

/// How often this thread has left its core while it could go on. Yields count, if others ran.
long leavings() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nivcsw;
}

// Each yield gives away a time slice of milliseconds there, so looking around must not go on so.
TEST(Waiting, SeldomYieldsBesideWorkThatFillsTheCore) {
  constexpr int looks = 50;
  const int core = sched_getcpu();
  std::atomic<bool> isBusy = false;
  std::atomic<bool> hasLooked = false;
  std::thread busy([&] {
    keepThisThreadOn(core);
    isBusy = true;
    while (!hasLooked) {
    }
  });
  std::thread looking([&] {
    keepThisThreadOn(core);
    while (!isBusy) std::this_thread::yield();
    const long before = leavings();
    for (int i = 0; i < looks; ++i) EXPECT_FALSE(lookAround([] { return false; }));
    // Once in each if they lie far apart; some preemptions come on top.
    EXPECT_LT(leavings() - before, 2 * looks);
    hasLooked = true;
  });
  looking.join();
  busy.join();
}

}  // namespace
}  // namespace tessarine::detail
