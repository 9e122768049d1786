#include "tessarine/system/dispatch/internal/WorkerPool.hpp"

#include <thread>

#include "tessarine/system/dispatch/DispatchQueue.hpp"
#include "tessarine/system/dispatch/internal/QuietThread.hpp"
#include "tessarine/system/dispatch/internal/RunBlock.hpp"
#include "tessarine/system/dispatch/internal/Waiting.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine::detail {
namespace {

using namespace std::chrono_literals;

constexpr unsigned mostThreads = 64;
constexpr auto standstill = 5ms;
constexpr auto idleLimit = 2s;

constinit thread_local bool isWorker = false;

}  // namespace

WorkerPool::WorkerPool() : cores_(coreCount()) {}

WorkerPool& WorkerPool::shared() {
  static auto* const pool = new WorkerPool;
  return *pool;
}

void WorkerPool::submit(AsyncNode* node) {
  node->next.store(nullptr, std::memory_order_relaxed);
  MutexLock lock(mutex_);
  if (lastReady_)
    lastReady_->next.store(node, std::memory_order_relaxed);
  else
    firstReady_ = node;
  lastReady_ = node;
  readyCount_.store(readyCount_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
  const Call call = callHelp();
  lock.unlock();
  answer(call);
}

WorkerPool::Call WorkerPool::callHelp() {
  if (readyCount_.load(std::memory_order_relaxed) <= looking_) return {};
  if (active_ < cores_) return admitOne();
  if (isWatching_) return {};
  isWatching_ = true;
  return {.help = Help::overseer};
}

WorkerPool::Call WorkerPool::admitOne() {
  if (Worker* const worker = idle_) {
    idle_ = worker->nextIdle;
    ++active_;
    ++looking_;
    return {.wake = worker};
  }
  if (threads_ == mostThreads) return {};
  ++threads_;
  ++active_;
  ++looking_;
  return {.help = Help::thread};
}

void WorkerPool::answer(const Call& call) {
  if (call.wake) {
    openGate(call.wake->gate);
  } else if (call.help == Help::thread) {
    startThread();
  } else if (call.help == Help::overseer) {
    MutexLock lock(mutex_);
    const bool isFirst = !std::exchange(hasOverseer_, true);
    lock.unlock();
    watchCalls_.fetch_add(1, std::memory_order_release);
    if (!isFirst)
      wakeSleepers(watchCalls_, 1);
    else if (!startQuietThread("tessarine-watch", [this] { oversee(); })) {
      const MutexLock again(mutex_);
      hasOverseer_ = false;
      isWatching_ = false;
    }
  }
}

void WorkerPool::startThread() {
  if (startQuietThread("tessarine", [this] { work(); })) return;
  const MutexLock lock(mutex_);
  --threads_;
  --active_;
  --looking_;
  if (threads_ == 0) fatal("The system grants no thread to run queued blocks on.");
}

void WorkerPool::work() {
  isWorker = true;
  Worker self;
  DispatchQueue& queue = *DispatchQueue::global();
  const FrameScope frame(queue);
  while (AsyncNode* const node = awaitReady(self)) {
    runBlock(*node, queue);
    recycleNode(node);
    MutexLock lock(mutex_);
    ++looking_;
    ++finished_;
    if (!restGate_ || !isAtRest()) continue;
    std::atomic<std::uint32_t>* const gate = std::exchange(restGate_, nullptr);
    lock.unlock();
    openGate(*gate);
  }
}

bool WorkerPool::isAtRest() const {
  return readyCount_.load(std::memory_order_relaxed) == 0 && taken_ == finished_;
}

void WorkerPool::awaitRest() {
  std::atomic<std::uint32_t> gate{gateClosed};
  MutexLock lock(mutex_);
  if (isAtRest()) return;
  restGate_ = &gate;
  lock.unlock();
  sleepAtGate(gate);
}

/// The next work for a worker that counts as looking, and as working then; null if it shall end.
AsyncNode* WorkerPool::awaitReady(Worker& worker) {
  MutexLock lock(mutex_);
  for (;;) {
    if (AsyncNode* const node = takeReady()) return node;
    if (looking_ == 1) {
      lock.unlock();
      lookAround([this] { return readyCount_.load(std::memory_order_acquire) != 0; });
      lock.lock();
      if (AsyncNode* const node = takeReady()) return node;
    }
    const bool isSurplus = threads_ > cores_;
    lieDown(worker);
    lock.unlock();
    const bool called =
        sleepAtGate(worker.gate, isSurplus ? std::optional(idleLimit) : std::nullopt);
    lock.lock();
    if (called) continue;
    if (forgetIdle(worker)) return nullptr;
    // Called in this very moment: the caller still needs the gate.
    lock.unlock();
    sleepAtGate(worker.gate);
    lock.lock();
  }
}

AsyncNode* WorkerPool::takeReady() {
  AsyncNode* const node = firstReady_;
  if (!node) return nullptr;
  firstReady_ = static_cast<AsyncNode*>(node->next.load(std::memory_order_relaxed));
  if (!firstReady_) lastReady_ = nullptr;
  readyCount_.store(readyCount_.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
  ++taken_;
  --looking_;
  return node;
}

void WorkerPool::lieDown(Worker& worker) {
  --active_;
  --looking_;
  worker.gate.store(gateClosed, std::memory_order_relaxed);
  worker.nextIdle = idle_;
  idle_ = &worker;
}

/// Takes a worker that ends out of the books; false if it has been called meanwhile.
bool WorkerPool::forgetIdle(Worker& worker) {
  for (Worker** place = &idle_; *place; place = &(*place)->nextIdle) {
    if (*place != &worker) continue;
    *place = worker.nextIdle;
    --threads_;
    return true;
  }
  return false;
}

/// The overseer's life: asleep unless work is ready while every core is taken.
void WorkerPool::oversee() {
  MutexLock lock(mutex_);
  for (;;) {
    while (!isWatching_) {
      const std::uint32_t calls = watchCalls_.load(std::memory_order_acquire);
      lock.unlock();
      sleepWhile(watchCalls_, calls);
      lock.lock();
    }
    const std::uint64_t taken = taken_;
    lock.unlock();
    std::this_thread::sleep_for(standstill);
    lock.lock();
    const bool hasReady = readyCount_.load(std::memory_order_relaxed) != 0;
    isWatching_ = hasReady;
    if (!hasReady || taken != taken_) continue;
    const Call call = admitOne();
    lock.unlock();
    answer(call);
    lock.lock();
  }
}

WorkerPool::Waiting::Waiting() {
  if (!isWorker) return;
  WorkerPool& pool = shared();
  MutexLock lock(pool.mutex_);
  --pool.active_;
  const Call call = pool.callHelp();
  lock.unlock();
  pool.answer(call);
}

WorkerPool::Waiting::~Waiting() {
  if (!isWorker) return;
  WorkerPool& pool = shared();
  const MutexLock lock(pool.mutex_);
  ++pool.active_;
}

void passGateAsWorker(std::atomic<std::uint32_t>& gate) {
  if (lookAtGate(gate)) return;
  const WorkerPool::Waiting waiting;
  sleepAtGate(gate);
}

}  // namespace tessarine::detail
