#include "tessarine/system/dispatch/Mutex.hpp"

#include <thread>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

using tessarine::Mutex;
using tessarine::MutexLock;

static_assert(!std::is_copy_constructible_v<MutexLock> && !std::is_copy_assignable_v<MutexLock>);

TEST(Mutex, LockMayLetGoResumeAndEndEitherWay) {
  Mutex mutex;
  int value = 0;  // the thread sanitizer watches who is alone with it
  const auto take = [&](bool holdsAtTheEnd) {
    MutexLock lock(mutex);
    ++value;
    lock.unlock();
    std::thread([&] {  // would wait for ever if the lock had not let go
      const MutexLock inner(mutex);
      ++value;
    })
        .join();
    if (!holdsAtTheEnd) return;
    lock.lock();
    ++value;
  };
  std::thread other([&] { take(true); });
  take(false);
  take(true);
  other.join();
  EXPECT_EQ(value, 8);
}

}  // namespace
