#include "tessarine/system/dispatch/DispatchWorkItem.hpp"

#include "tessarine/system/dispatch/internal/Waiting.hpp"
#include "tessarine/system/dispatch/internal/WorkerPool.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {
namespace {

/// Lets the waiters go also when the block throws.
struct FinishScope {
  std::atomic<std::uint32_t>& finished;
  ~FinishScope() { detail::openGate(finished); }
};

}  // namespace

DispatchWorkItem::DispatchWorkItem(Block block) noexcept : block_(std::move(block)) {
  if (!block_) fatal("A work item is made of an empty block.");
}

bool DispatchWorkItem::perform() {
  const FinishScope finish{finished_};
  if (isCancelled()) return false;
  block_();
  return true;
}

void DispatchWorkItem::wait() { detail::passGateAsWorker(finished_); }

}  // namespace tessarine
