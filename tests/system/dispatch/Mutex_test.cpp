#include "tessarine/system/dispatch/Mutex.hpp"

#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace {

using tessarine::Mutex;
using tessarine::MutexLock;

static_assert(!std::is_copy_constructible_v<MutexLock> && !std::is_copy_assignable_v<MutexLock>);

TEST(MutexTest, HoldersExcludeEachOtherAlsoAfterResuming) {
  constexpr int threads = 4;
  constexpr int turns = 2000;
  Mutex mutex;
  int total = 0;
  std::vector<std::thread> holders;
  holders.reserve(threads);
  for (int i = 0; i < threads; ++i) {
    holders.emplace_back([&] {
      for (int turn = 0; turn < turns; ++turn) {
        MutexLock lock(mutex);
        ++total;
        lock.unlock();
        lock.lock();
        ++total;
      }
    });
  }
  for (auto& holder : holders) holder.join();
  EXPECT_EQ(total, 2 * threads * turns);
}

TEST(MutexTest, EarlyUnlockIsNotRepeatedAtTheEnd) {
  Mutex mutex;
  bool entered = false;
  {
    MutexLock lock(mutex);
    lock.unlock();
    // Would wait for ever if the early unlock had not let go.
    std::thread([&] {
      MutexLock inner(mutex);
      entered = true;
    }).join();
  }
  EXPECT_TRUE(entered);
  MutexLock again(mutex);
}

}  // namespace
