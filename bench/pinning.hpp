#pragma once

// Which core a thread runs on, for rows in which that decides.

#include <pthread.h>
#include <sched.h>

namespace {

constexpr int unpinned = -1;

void pinThisThread(int core) {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  if (core == unpinned)
    for (int i = 0; i < CPU_SETSIZE; ++i) CPU_SET(i, &cores);
  else
    CPU_SET(core, &cores);
  pthread_setaffinity_np(pthread_self(), sizeof cores, &cores);
}

/// Pins the measuring thread for a row.
class Pinned {
 public:
  explicit Pinned(int core) { pinThisThread(core); }
  ~Pinned() { pinThisThread(unpinned); }
};

}  // namespace
