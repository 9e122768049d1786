#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/DispatchQueue.hpp"
#include "tessarine/system/dispatch/Operation.hpp"

namespace tessarine {

/// Runs operations as they become ready, higher priority first, at most so many at a time. Reach
/// for it where blocks depend on one another; plain order is cheaper on a `DispatchQueue`. Any
/// thread. Operations that wait when it is destroyed run all the same.
class TESSARINE_EXPORT OperationQueue {
 public:
  /// No limit but the number of threads.
  static constexpr int defaultMaxConcurrentOperationCount = -1;

  /// The operations run in blocks of `underlyingQueue`.
  explicit OperationQueue(std::shared_ptr<DispatchQueue> underlyingQueue = DispatchQueue::global());
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  /// An operation is added once in its life, to one queue; again is a programmer error.
  void addOperation(std::shared_ptr<Operation> operation);
  void addOperation(Block block);

  /// Those that have not finished, in the order in which they were added.
  std::vector<std::shared_ptr<Operation>> operations() const;
  std::size_t operationCount() const;
  void cancelAllOperations();

  /// At least 1, or `defaultMaxConcurrentOperationCount`; all else is a programmer error.
  int maxConcurrentOperationCount() const;
  void setMaxConcurrentOperationCount(int count);

  /// Begins no further operation while suspended.
  bool isSuspended() const;
  void setSuspended(bool suspended);

  /// Blocks until those that are in the queue now have finished.
  void waitUntilAllOperationsAreFinished();

 private:
  friend class Operation;
  struct State;
  const std::shared_ptr<State> state_;
};

}  // namespace tessarine
