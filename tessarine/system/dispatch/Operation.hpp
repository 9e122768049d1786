#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Block.hpp"

namespace tessarine {

class OperationQueue;

/// A block for an `OperationQueue`, which runs it once, after all that it depends on. Held by
/// `std::shared_ptr`. Any thread.
///
///     auto load = std::make_shared<Operation>([=] { page->load(); });
///     auto show = std::make_shared<Operation>([=] { page->show(); });
///     show->addDependency(load);
///     queue.addOperation(show);
///     queue.addOperation(load);
///
/// Operations that depend on one another in a circle never run, unless one is cancelled.
class TESSARINE_EXPORT Operation : public std::enable_shared_from_this<Operation> {
 public:
  enum class QueuePriority : std::int8_t {
    veryLow = -8,
    low = -4,
    normal = 0,
    high = 4,
    veryHigh = 8
  };

  explicit Operation(Block block);
  ~Operation();
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  /// Holds this one back until `other` has finished, on whichever queue. One that is cancelled has
  /// finished once its queue has passed it over, without waiting for what it depends on itself. Of
  /// no effect once this one has begun; no more kept once it has finished.
  void addDependency(const std::shared_ptr<Operation>& other);
  void removeDependency(const std::shared_ptr<Operation>& other);
  std::vector<std::shared_ptr<Operation>> dependencies() const;

  /// Which goes first of those that are ready on a queue; of equals the one added first.
  QueuePriority queuePriority() const;
  void setQueuePriority(QueuePriority priority);

  /// Lets the queue pass it over unless it has begun. A running block goes on and may ask.
  void cancel();
  bool isCancelled() const;

  /// Whether nothing it depends on holds it back.
  bool isReady() const;
  bool isExecuting() const;
  /// Whether it has run, or has been passed over.
  bool isFinished() const;
  /// Blocks until it is finished. Not from a block of the queue that it waits on.
  void waitUntilFinished();

 private:
  friend class OperationQueue;
  struct Books;  // guarded by one lock for all operations, as they may depend across queues

  const std::unique_ptr<Books> books_;
  std::atomic<std::uint32_t> finished_{0};
};

}  // namespace tessarine
