#include "tessarine/system/dispatch/internal/MainLoop.hpp"

#include <array>
#include <exception>
#include <thread>

#include "tessarine/system/dispatch/DispatchQueue.hpp"
#include "tessarine/system/dispatch/internal/RunBlock.hpp"
#include "tessarine/system/dispatch/internal/Waiting.hpp"
#include "tessarine/system/dispatch/internal/WorkerPool.hpp"
#include "tessarine/values/fatal.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tessarine::detail {
namespace {

int makeSignal() {
  const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (descriptor < 0) fatal("The system grants no descriptor for the main queue.");
  return descriptor;
}

void raise(int signal) {
  const std::uint64_t one = 1;
  // Can only fail when the counter is full, and then it is raised.
  [[maybe_unused]] const auto written = write(signal, &one, sizeof one);
}

void lower(int signal) {
  std::uint64_t count = 0;
  [[maybe_unused]] const auto got = read(signal, &count, sizeof count);
}

/// A number that tells this thread from all others that live.
std::uintptr_t thisThread() noexcept {
  static constinit thread_local char marker = 0;
  return reinterpret_cast<std::uintptr_t>(&marker);
}

bool isInitialThread() noexcept {
  static constinit thread_local signed char known = -1;
  if (known < 0) known = getpid() == static_cast<pid_t>(syscall(SYS_gettid)) ? 1 : 0;
  return known == 1;
}

}  // namespace

MainLoop::MainLoop() : workSignal_(makeSignal()), stopSignal_(makeSignal()) {}

MainLoop& MainLoop::shared() {
  static auto* const loop = new MainLoop;
  return *loop;
}

void MainLoop::push(AsyncNode* node) {
  if (QueueNode* const previous = tail_.exchange(node, std::memory_order_acq_rel)) {
    previous->next.store(node, std::memory_order_release);
    return;
  }
  first_.store(node, std::memory_order_release);
  raise(workSignal_);
}

void MainLoop::runAndWait(BlockReference block, DispatchQueue& context) {
  std::exception_ptr failure;
  std::atomic<std::uint32_t> done{gateClosed};
  push(makeNode([&] {
    try {
      const FrameScope frame(context);
      block();
    } catch (...) {
      failure = std::current_exception();
    }
    openGate(done);
  }));
  passGateAsWorker(done);
  if (failure) std::rethrow_exception(std::move(failure));
}

bool MainLoop::isMainThread() const noexcept {
  const std::uintptr_t thread = mainThread_.load(std::memory_order_acquire);
  return thread ? thread == thisThread() : isInitialThread();
}

void MainLoop::claimThread() {
  std::uintptr_t thread = 0;
  if (mainThread_.compare_exchange_strong(thread, thisThread(), std::memory_order_acq_rel)) return;
  if (thread != thisThread())
    fatal("The main queue is driven from a second thread; the first to drive it is the main one.");
}

void MainLoop::run() {
  claimThread();
  while (!takeStop()) {
    waitForWorkOrStop();
    drainDue(true);
  }
}

void MainLoop::stop() {
  const MutexLock lock(stopMutex_);
  stopRequested_.store(true, std::memory_order_relaxed);
  raise(stopSignal_);
}

bool MainLoop::takeStop() {
  const MutexLock lock(stopMutex_);
  if (!stopRequested_.load(std::memory_order_relaxed)) return false;
  stopRequested_.store(false, std::memory_order_relaxed);
  lower(stopSignal_);
  return true;
}

void MainLoop::waitForWorkOrStop() const {
  std::array<pollfd, 2> signals{{{workSignal_, POLLIN, 0}, {stopSignal_, POLLIN, 0}}};
  poll(signals.data(), signals.size(), -1);
}

std::size_t MainLoop::drain() {
  claimThread();
  return drainDue(false);
}

std::size_t MainLoop::drainDue(bool heedsStop) {
  const QueueNode* const last = tail_.load(std::memory_order_acquire);
  if (!last) return 0;
  const std::uint64_t drain = ++drains_;
  DispatchQueue& queue = *DispatchQueue::main();
  const FrameScope frame(queue);
  std::size_t count = 0;
  for (bool more = true; more;) {
    if (heedsStop && stopRequested_.load(std::memory_order_relaxed)) break;
    AsyncNode* const node = takeFirst();
    more = node != last;
    runBlock(*node, queue);
    recycleNode(node);
    ++count;
    // A drain inside the block has run all that this one had to.
    if (drains_ != drain) break;
  }
  return count;
}

/// Takes the first node out; there is one.
AsyncNode* MainLoop::takeFirst() {
  QueueNode* first = nullptr;
  awaitLink([&] { return (first = first_.load(std::memory_order_acquire)) != nullptr; });
  QueueNode* next = first->next.load(std::memory_order_acquire);
  if (!next) {
    // Both before the chain is given up: a producer that finds it empty sets them anew.
    first_.store(nullptr, std::memory_order_relaxed);
    lower(workSignal_);
    QueueNode* last = first;
    if (tail_.compare_exchange_strong(last, nullptr, std::memory_order_acq_rel))
      return static_cast<AsyncNode*>(first);
    awaitLink([&] { return (next = first->next.load(std::memory_order_acquire)) != nullptr; });
    raise(workSignal_);
  }
  first_.store(next, std::memory_order_release);
  return static_cast<AsyncNode*>(first);
}

}  // namespace tessarine::detail
