#include "tessarine/system/dispatch/DispatchQueue.hpp"

#include <exception>

#include "tessarine/system/dispatch/DispatchWorkItem.hpp"
#include "tessarine/system/dispatch/internal/MainLoop.hpp"
#include "tessarine/system/dispatch/internal/RunBlock.hpp"
#include "tessarine/system/dispatch/internal/TimerService.hpp"
#include "tessarine/system/dispatch/internal/Waiting.hpp"
#include "tessarine/system/dispatch/internal/WorkerPool.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

namespace detail {

constinit thread_local QueueFrame* currentFrame = nullptr;

std::uint64_t nextSpecificIdentity() noexcept {
  static constinit std::atomic<std::uint64_t> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

namespace {

/// What the exception in flight says of itself.
std::string describeException() {
  try {
    throw;
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "of a type that is no std::exception";
  }
}

}  // namespace

void runBlock(AsyncNode& node, const DispatchQueue& queue) noexcept {
  try {
    node.operations->callAndDestroy(node.storage);
  } catch (...) {
    fatal("An exception left a block of queue \"" + queue.label() + "\": " + describeException());
  }
}

}  // namespace detail

using detail::AsyncNode;
using detail::QueueNode;
using detail::SyncNode;

DispatchQueue::DispatchQueue(std::string label, std::shared_ptr<DispatchQueue> target)
    : kind_(Kind::serial), plain_(!target), label_(std::move(label)), target_(std::move(target)) {}

DispatchQueue::DispatchQueue(std::string label, Kind kind)
    : kind_(kind), plain_(false), label_(std::move(label)) {}

DispatchQueue::~DispatchQueue() {
  if (tail_.load(std::memory_order_acquire))
    fatal("Queue \"" + label_ +
          "\" is destroyed while a sync call uses it; hold a handle meanwhile.");
}

const std::shared_ptr<DispatchQueue>& DispatchQueue::main() {
  static const auto& queue =
      *new std::shared_ptr<DispatchQueue>(new DispatchQueue("com.tessarine.main", Kind::main));
  return queue;
}

const std::shared_ptr<DispatchQueue>& DispatchQueue::global() {
  static const auto& queue = *new std::shared_ptr<DispatchQueue>(
      new DispatchQueue("com.tessarine.global", Kind::concurrent));
  return queue;
}

void DispatchQueue::async(std::shared_ptr<DispatchWorkItem> item) {
  if (!item) fatal("A null work item is submitted to queue \"" + label_ + "\".");
  async([item = std::move(item)] { item->perform(); });
}

void DispatchQueue::push(AsyncNode* node) {
  switch (kind_) {
    case Kind::serial:
      if (QueueNode* const previous = tail_.exchange(node, std::memory_order_acq_rel))
        previous->next.store(node, std::memory_order_release);
      else
        scheduleDrain(node);
      return;
    case Kind::concurrent:
      return detail::WorkerPool::shared().submit(node);
    case Kind::main:
      return detail::MainLoop::shared().push(node);
  }
}

namespace {

/// For a block that will not run.
struct DropBlock {
  void operator()(AsyncNode* node) const noexcept {
    node->operations->destroy(node->storage);
    detail::recycleNode(node);
  }
};

}  // namespace

struct DispatchQueue::Delayed : detail::Timer {
  std::shared_ptr<DispatchQueue> queue;
  AsyncNode* node;

  Delayed(std::shared_ptr<DispatchQueue> itsQueue, AsyncNode* itsNode)
      : Timer(submit), queue(std::move(itsQueue)), node(itsNode) {}

  static void submit(detail::Timer& timer) noexcept {
    const std::unique_ptr<Delayed> self(static_cast<Delayed*>(&timer));
    self->queue->push(self->node);
  }
};

void DispatchQueue::pushAfter(DispatchTime deadline, AsyncNode* node) {
  std::unique_ptr<AsyncNode, DropBlock> owned(node);
  if (deadline == DispatchTime::distantFuture()) return;
  if (deadline <= Clock::now()) return push(owned.release());
  auto delayed = std::make_unique<Delayed>(handle(), owned.release());
  delayed.release()->schedule(deadline);
}

void DispatchQueue::asyncAfter(DispatchTime deadline, std::shared_ptr<DispatchWorkItem> item) {
  if (!item) fatal("A null work item is submitted to queue \"" + label_ + "\".");
  asyncAfter(deadline, [item = std::move(item)] { item->perform(); });
}

std::function<void()> DispatchQueue::debounce(double delay, Block action) {
  if (!action) fatal("A limited action of queue \"" + label_ + "\" is made of an empty block.");
  struct Limit {
    Limit(double itsDelay, Block itsAction) : delay(itsDelay), action(std::move(itsAction)) {}
    const double delay;
    Block action;
    std::atomic<DispatchTime> lastFireTime{DispatchTime::now()};
    DispatchTime deadline() const { return lastFireTime.load() + delay; }
  };
  auto limit = std::make_shared<Limit>(delay, std::move(action));
  return [self = handle(), limit = std::move(limit)] {
    self->asyncAfter(limit->deadline(), [limit] {
      const DispatchTime now = DispatchTime::now();
      if (now < limit->deadline()) return;
      limit->lastFireTime.store(now);
      limit->action();
    });
  };
}

bool DispatchQueue::isMainQueue() noexcept { return isCurrent(*main()); }

bool DispatchQueue::isCurrent(const DispatchQueue& queue) noexcept {
  for (const DispatchQueue* each = current(); each; each = each->target_.get())
    if (each == &queue) return true;
  return false;
}

std::shared_ptr<DispatchQueue> DispatchQueue::handle() {
  std::shared_ptr<DispatchQueue> self = weak_from_this().lock();
  if (!self) fatal("Queue \"" + label_ + "\" is not held by a std::shared_ptr.");
  return self;
}

/// Has the blocks from `first` on run elsewhere. The caller has the turn and gives it away.
void DispatchQueue::scheduleDrain(QueueNode* first) noexcept {
  AsyncNode* const drainer = detail::makeNode([self = handle(), first] { self->drain(first); });
  if (target_)
    target_->push(drainer);
  else
    detail::WorkerPool::shared().submit(drainer);
}

/// Runs blocks from `node` on, until the queue is empty or a `sync` call has the turn. After a
/// while it lines up again, so that other queues get the thread or the target.
void DispatchQueue::drain(QueueNode* node) {
  constexpr int blocksInOneGo = 256;
  // Beside `tail_`, whose line the producers own: not to be read in the loop.
  const bool isPlain = plain_;
  const detail::FrameScope frame(*this);
  for (int count = 0; count < blocksInOneGo; ++count) {
    auto* const block = static_cast<AsyncNode*>(node);
    detail::runBlock(*block, *this);
    node = successorOf(*block, isPlain && count > 0);
    detail::recycleNode(block);
    if (!node) return;
    if (!node->operations) return detail::openGate(static_cast<SyncNode*>(node)->gate);
  }
  scheduleDrain(node);
}

/// The node behind `node`, which has the turn; null if there was none and the turn is free now.
/// `lingers` is for a producer in full flow, which would else find the queue idle each time it
/// falls behind and wake it anew.
QueueNode* DispatchQueue::successorOf(QueueNode& node, bool lingers) {
  QueueNode* next = nullptr;
  const auto hasNext = [&] {
    return (next = node.next.load(std::memory_order_acquire)) != nullptr;
  };
  if (lingers ? detail::lookBriefly(hasNext) : hasNext()) return next;
  QueueNode* last = &node;
  if (tail_.compare_exchange_strong(last, nullptr, std::memory_order_acq_rel)) return nullptr;
  detail::awaitLink(hasNext);
  return next;
}

void DispatchQueue::waitForTurn(QueueNode& previous, SyncNode& node) {
  refuseDeadlock();
  previous.next.store(&node, std::memory_order_release);
  detail::passGateAsWorker(node.gate);
}

/// Ends the process if a `sync` on this queue would wait for the very block that calls it.
void DispatchQueue::refuseDeadlock() const {
  for (const DispatchQueue* queue = this; queue; queue = queue->target_.get()) {
    const bool isMine = queue->kind_ == Kind::main
                            ? detail::MainLoop::shared().isMainThread()
                            : queue->kind_ == Kind::serial && queue->isRunningOnThisThread();
    if (isMine)
      fatal("sync on queue \"" + label_ + "\" while this thread is running queue \"" +
            queue->label_ + "\", so that it would wait for itself.");
  }
}

void DispatchQueue::passTurnOn(SyncNode& node) {
  QueueNode* next = nullptr;
  detail::awaitLink([&] { return (next = node.next.load(std::memory_order_acquire)) != nullptr; });
  if (next->operations)
    scheduleDrain(next);
  else
    detail::openGate(static_cast<SyncNode*>(next)->gate);
}

void DispatchQueue::syncElsewhere(detail::BlockReference block, DispatchQueue& context) {
  // Before any turn is taken: another thread may have this queue's and wait for the target's.
  if (this == &context) refuseDeadlock();
  if (kind_ == Kind::main) return detail::MainLoop::shared().runAndWait(block, context);
  std::optional<Turn> turn;
  if (kind_ == Kind::serial) turn.emplace(*this);
  if (target_) return target_->syncElsewhere(block, context);
  const detail::FrameScope frame(context);
  block();
}

DispatchQueue* DispatchQueue::current() noexcept {
  if (detail::currentFrame) return detail::currentFrame->queue;
  return detail::MainLoop::shared().isMainThread() ? main().get() : nullptr;
}

bool DispatchQueue::isRunningOnThisThread() const noexcept {
  for (const auto* frame = detail::currentFrame; frame; frame = frame->outer)
    for (const DispatchQueue* queue = frame->queue; queue; queue = queue->target_.get())
      if (queue == this) return true;
  return false;
}

void DispatchQueue::replaceSpecific(std::uint64_t key, std::shared_ptr<const void> value) {
  const MutexLock lock(specificsMutex_);
  for (Specific& specific : specifics_) {
    if (specific.key != key) continue;
    // The old value leaves through `value`, and ends once the lock is free.
    specific.value.swap(value);
    if (!specific.value) {
      std::swap(specific, specifics_.back());
      specifics_.pop_back();
    }
    hasSpecifics_.store(!specifics_.empty(), std::memory_order_release);
    return;
  }
  if (!value) return;
  specifics_.push_back({key, std::move(value)});
  hasSpecifics_.store(true, std::memory_order_release);
}

std::shared_ptr<const void> DispatchQueue::findSpecific(std::uint64_t key) const {
  if (!hasSpecifics_.load(std::memory_order_acquire)) return nullptr;
  const MutexLock lock(specificsMutex_);
  for (const Specific& specific : specifics_)
    if (specific.key == key) return specific.value;
  return nullptr;
}

std::shared_ptr<const void> DispatchQueue::findCurrentSpecific(std::uint64_t key) {
  for (const DispatchQueue* queue = current(); queue; queue = queue->target_.get())
    if (auto value = queue->findSpecific(key)) return value;
  return nullptr;
}

}  // namespace tessarine
