#include "tessarine/system/dispatch/OperationQueue.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/dispatch/internal/Waiting.hpp"
#include "tessarine/system/dispatch/internal/WorkerPool.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {
namespace {

using Handle = std::shared_ptr<Operation>;

/// Guards the books of all operations and queues.
Mutex& booksMutex() {
  static auto* const mutex = new Mutex;
  return *mutex;
}

enum class Stage : std::uint8_t { apart, waiting, executing, finished };

}  // namespace

struct Operation::Books {
  Block block;
  Stage stage = Stage::apart;
  bool isCancelled = false;
  QueuePriority priority = QueuePriority::normal;
  std::uint64_t number = 0;  // of its addition to the queue
  std::vector<Handle> dependencies;
  std::vector<std::weak_ptr<Operation>> dependents;
  // While it waits or runs; so what waits keeps its queue going.
  std::shared_ptr<OperationQueue::State> queue;

  bool isReady() const {
    return isCancelled || std::none_of(dependencies.begin(), dependencies.end(), [](auto& other) {
             return other->books_->stage != Stage::finished;
           });
  }
};

struct OperationQueue::State : std::enable_shared_from_this<State> {
  using Rank = std::pair<int, std::uint64_t>;  // the lowest goes first

  explicit State(std::shared_ptr<DispatchQueue> queue) : underlying(std::move(queue)) {}

  static Rank rankOf(const Operation& operation) {
    return {-static_cast<int>(operation.books_->priority), operation.books_->number};
  }

  /// Enters or removes a waiting operation among the ready, as it is by now.
  void sort(Operation& operation) {
    if (operation.books_->stage != Stage::waiting) return;
    if (operation.books_->isReady())
      ready.insert(rankOf(operation));
    else
      ready.erase(rankOf(operation));
  }

  /// Submits a block for each operation that may begin.
  void begin() {
    while (!isSuspended && !ready.empty() && (limit < 0 || executing < limit)) {
      const Handle operation = all.at(ready.begin()->second);
      ready.erase(ready.begin());
      ++executing;
      operation->books_->stage = Stage::executing;
      underlying->async([self = shared_from_this(), operation] { self->run(operation); });
    }
  }

  void run(const Handle& operation) {
    Block block;
    bool isCancelled = false;
    {
      const MutexLock lock(booksMutex());
      isCancelled = operation->books_->isCancelled;
      block = std::move(operation->books_->block);
    }
    if (!isCancelled) block();
    block = Block();
    // Released without the lock.
    std::vector<Handle> dropped;
    std::shared_ptr<State> itself;
    {
      const MutexLock lock(booksMutex());
      --executing;
      operation->books_->stage = Stage::finished;
      dropped.swap(operation->books_->dependencies);
      itself = std::move(operation->books_->queue);
      all.erase(operation->books_->number);
      for (const auto& weak : std::exchange(operation->books_->dependents, {})) {
        const Handle dependent = weak.lock();
        if (!dependent) continue;
        if (State* const queue = dependent->books_->queue.get()) {
          queue->sort(*dependent);
          if (queue != this) queue->begin();
        }
        dropped.push_back(dependent);
      }
      begin();
    }
    detail::openGate(operation->finished_);
  }

  const std::shared_ptr<DispatchQueue> underlying;
  // Under the lock of the books.
  std::map<std::uint64_t, Handle> all;
  std::set<Rank> ready;
  std::uint64_t added = 0;
  int executing = 0;
  int limit = defaultMaxConcurrentOperationCount;
  bool isSuspended = false;
};

Operation::Operation(Block block) : books_(std::make_unique<Books>()) {
  if (!block) fatal("An operation is made of an empty block.");
  books_->block = std::move(block);
}

Operation::~Operation() = default;

void Operation::addDependency(const Handle& other) {
  if (!other || other.get() == this) fatal("An operation depends on itself or on a null one.");
  const MutexLock lock(booksMutex());
  if (books_->stage > Stage::waiting || other->books_->stage == Stage::finished) return;
  books_->dependencies.push_back(other);
  other->books_->dependents.push_back(weak_from_this());
  if (books_->queue) books_->queue->sort(*this);
}

void Operation::removeDependency(const Handle& other) {
  const MutexLock lock(booksMutex());
  std::erase(books_->dependencies, other);
  OperationQueue::State* const queue = books_->queue.get();
  if (!queue) return;
  queue->sort(*this);
  queue->begin();
}

std::vector<Handle> Operation::dependencies() const {
  const MutexLock lock(booksMutex());
  return books_->dependencies;
}

Operation::QueuePriority Operation::queuePriority() const {
  const MutexLock lock(booksMutex());
  return books_->priority;
}

void Operation::setQueuePriority(QueuePriority priority) {
  const MutexLock lock(booksMutex());
  OperationQueue::State* const queue = books_->queue.get();
  if (queue) queue->ready.erase(OperationQueue::State::rankOf(*this));
  books_->priority = priority;
  if (queue) queue->sort(*this);
}

void Operation::cancel() {
  const MutexLock lock(booksMutex());
  books_->isCancelled = true;
  OperationQueue::State* const queue = books_->queue.get();
  if (!queue) return;
  queue->sort(*this);
  queue->begin();
}

bool Operation::isCancelled() const {
  const MutexLock lock(booksMutex());
  return books_->isCancelled;
}

bool Operation::isReady() const {
  const MutexLock lock(booksMutex());
  return books_->isReady();
}

bool Operation::isExecuting() const {
  const MutexLock lock(booksMutex());
  return books_->stage == Stage::executing;
}

bool Operation::isFinished() const {
  const MutexLock lock(booksMutex());
  return books_->stage == Stage::finished;
}

void Operation::waitUntilFinished() { detail::passGateAsWorker(finished_); }

OperationQueue::OperationQueue(std::shared_ptr<DispatchQueue> underlyingQueue)
    : state_(std::make_shared<State>(std::move(underlyingQueue))) {
  if (!state_->underlying) fatal("An operation queue is made on a null queue.");
}

OperationQueue::~OperationQueue() {
  const MutexLock lock(booksMutex());
  state_->isSuspended = false;
  state_->begin();
}

void OperationQueue::addOperation(Handle operation) {
  if (!operation) fatal("A null operation is added to a queue.");
  const MutexLock lock(booksMutex());
  Operation::Books& books = *operation->books_;
  if (books.stage != Stage::apart) fatal("An operation is added to a queue a second time.");
  books.stage = Stage::waiting;
  books.number = ++state_->added;
  books.queue = state_;
  Operation& entry = *operation;
  state_->all.emplace(books.number, std::move(operation));
  state_->sort(entry);
  state_->begin();
}

void OperationQueue::addOperation(Block block) {
  addOperation(std::make_shared<Operation>(std::move(block)));
}

std::vector<Handle> OperationQueue::operations() const {
  const MutexLock lock(booksMutex());
  std::vector<Handle> operations;
  operations.reserve(state_->all.size());
  for (const auto& [number, operation] : state_->all) operations.push_back(operation);
  return operations;
}

std::size_t OperationQueue::operationCount() const {
  const MutexLock lock(booksMutex());
  return state_->all.size();
}

void OperationQueue::cancelAllOperations() {
  for (const Handle& operation : operations()) operation->cancel();
}

int OperationQueue::maxConcurrentOperationCount() const {
  const MutexLock lock(booksMutex());
  return state_->limit;
}

void OperationQueue::setMaxConcurrentOperationCount(int count) {
  if (count < 1 && count != defaultMaxConcurrentOperationCount)
    fatal("An operation queue is limited to " + std::to_string(count) +
          " operations at a time; at least 1 is needed.");
  const MutexLock lock(booksMutex());
  state_->limit = count;
  state_->begin();
}

bool OperationQueue::isSuspended() const {
  const MutexLock lock(booksMutex());
  return state_->isSuspended;
}

void OperationQueue::setSuspended(bool suspended) {
  const MutexLock lock(booksMutex());
  state_->isSuspended = suspended;
  state_->begin();
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
  for (const Handle& operation : operations()) operation->waitUntilFinished();
}

}  // namespace tessarine
