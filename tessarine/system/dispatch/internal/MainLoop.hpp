#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/dispatch/QueueNode.hpp"

namespace tessarine {
class DispatchQueue;
}

namespace tessarine::detail {

/// The main queue's blocks and the thread that runs them.
///
/// Producers append to a chain as on any queue. As only one thread ever takes from it, a node
/// leaves the chain before its block runs; so a block may drain the rest.
class MainLoop {
 public:
  static MainLoop& shared();

  void push(AsyncNode* node);
  /// Runs `block` on the main thread with `context` as the current queue and waits for it; its
  /// exception reaches the caller. Not from the main thread.
  void runAndWait(BlockReference block, DispatchQueue& context);

  void run();
  void stop();
  std::size_t drain();
  int fileDescriptor() const { return workSignal_; }
  bool isMainThread() const noexcept;

 private:
  MainLoop();
  void claimThread();
  void waitForWorkOrStop() const;
  bool takeStop();
  QueueNode* firstOrNull();
  AsyncNode* takeFirst();
  /// As `drain`, but ends early at a stop if `heedsStop`.
  std::size_t drainDue(bool heedsStop);

  const int workSignal_;
  const int stopSignal_;
  std::atomic<std::uintptr_t> mainThread_{0};
  Mutex stopMutex_;                         // keeps the flag and the signal of a stop together
  std::atomic<bool> stopRequested_{false};  // written under the lock, looked at between blocks
  std::atomic<QueueNode*> tail_{nullptr};
  std::atomic<QueueNode*> first_{nullptr};  // null also while a producer is about to set it
  std::uint64_t drains_ = 0;                // main thread only
};

}  // namespace tessarine::detail
