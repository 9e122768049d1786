#pragma once

#include <mutex>

#include "tessarine/thread_annotations.hpp"

namespace tessarine {

/// A `std::mutex` that clang's thread-safety analysis understands. Not recursive.
class TESSARINE_CAPABILITY("mutex") Mutex {
 public:
  void lock() TESSARINE_ACQUIRE() { mutex_.lock(); }
  void unlock() TESSARINE_RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// Holds a `Mutex` from construction to destruction. `unlock` ends the hold early, `lock` resumes
/// it.
class TESSARINE_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) TESSARINE_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() TESSARINE_RELEASE() {
    if (held_) mutex_.unlock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void unlock() TESSARINE_RELEASE() {
    held_ = false;
    mutex_.unlock();
  }
  void lock() TESSARINE_ACQUIRE() {
    mutex_.lock();
    held_ = true;
  }

 private:
  Mutex& mutex_;
  bool held_ = true;
};

}  // namespace tessarine
