#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/dispatch/QueueNode.hpp"

namespace tessarine::detail {

/// The threads that run what is ready, in order of submission. There is none until the first
/// submission; as many as cores run at a time, and none is woken while a running one is looking for
/// work anyway.
///
/// Work may wait for other work. A worker that waits in this folder says so (`Waiting`), and
/// another takes its place at once; for all other waits an overseer lets one more thread in
/// whenever ready work has stood still for 5 ms, up to 64 threads. Threads beyond the cores end
/// after 2 s idle.
///
/// Never destroyed: blocks may come from destructors that run while the process exits.
class WorkerPool {
 public:
  static WorkerPool& shared();

  /// Any thread.
  void submit(AsyncNode* node);

  /// Returns once nothing waits for a worker and none has a block to finish. One caller at a time,
  /// and not a worker.
  void awaitRest();

  /// Says for its life that this thread, if it is a worker, only waits.
  class Waiting {
   public:
    Waiting();
    ~Waiting();
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
  };

 private:
  struct Worker {
    std::atomic<std::uint32_t> gate{0};
    Worker* nextIdle = nullptr;
  };
  /// What is to be done once the lock is free, so that no woken thread runs into it.
  enum class Help : std::uint8_t { none, thread, overseer };
  struct Call {
    Help help = Help::none;
    Worker* wake = nullptr;
  };

  WorkerPool();
  Call callHelp() TESSARINE_REQUIRES(mutex_);
  Call admitOne() TESSARINE_REQUIRES(mutex_);
  void answer(const Call& call);
  bool isAtRest() const TESSARINE_REQUIRES(mutex_);
  void startThread();
  void work();
  AsyncNode* takeReady() TESSARINE_REQUIRES(mutex_);
  AsyncNode* awaitReady(Worker& worker);
  void lieDown(Worker& worker) TESSARINE_REQUIRES(mutex_);
  bool forgetIdle(Worker& worker) TESSARINE_REQUIRES(mutex_);
  void oversee();

  const unsigned cores_;
  std::atomic<unsigned> readyCount_{0};       // written under the lock, looked at without
  std::atomic<std::uint32_t> watchCalls_{0};  // the overseer sleeps on it

  Mutex mutex_;
  AsyncNode* firstReady_ TESSARINE_GUARDED_BY(mutex_) = nullptr;
  AsyncNode* lastReady_ TESSARINE_GUARDED_BY(mutex_) = nullptr;
  std::uint64_t taken_ TESSARINE_GUARDED_BY(mutex_) = 0;
  std::uint64_t finished_ TESSARINE_GUARDED_BY(mutex_) = 0;
  std::atomic<std::uint32_t>* restGate_ TESSARINE_GUARDED_BY(mutex_) = nullptr;
  Worker* idle_ TESSARINE_GUARDED_BY(mutex_) = nullptr;  // latest first: its caches are warm
  unsigned threads_ TESSARINE_GUARDED_BY(mutex_) = 0;
  unsigned active_ TESSARINE_GUARDED_BY(mutex_) = 0;   // neither parked nor known to wait
  unsigned looking_ TESSARINE_GUARDED_BY(mutex_) = 0;  // active, but without work
  bool hasOverseer_ TESSARINE_GUARDED_BY(mutex_) = false;
  bool isWatching_ TESSARINE_GUARDED_BY(mutex_) = false;
};

/// Returns once the gate is open. For a thread that may be a worker.
void passGateAsWorker(std::atomic<std::uint32_t>& gate);

}  // namespace tessarine::detail
