#pragma once

#include <atomic>
#include <cstdint>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Block.hpp"

namespace tessarine {

/// A block that can be cancelled and waited for. Held by `std::shared_ptr`, usually submitted once:
///
///     auto item = std::make_shared<DispatchWorkItem>([] { reindex(); });
///     queue->async(item);
///     item->cancel();  // skips it unless it has begun
///
/// Cancelling, asking and waiting: any thread. Performing one item on two threads at once is the
/// caller's fault, as the block would run twice at once.
class TESSARINE_EXPORT DispatchWorkItem {
 public:
  explicit DispatchWorkItem(Block block) noexcept;
  DispatchWorkItem(const DispatchWorkItem&) = delete;
  DispatchWorkItem& operator=(const DispatchWorkItem&) = delete;

  /// Runs the block on this thread, or skips it if cancelled before. Each call runs it again. An
  /// exception of the block reaches the caller, and the item counts as finished. True if it ran.
  bool perform();

  /// Lets a block that has not begun be skipped. A running block goes on; only the flag is set.
  void cancel() noexcept { cancelled_.store(true, std::memory_order_release); }
  bool isCancelled() const noexcept { return cancelled_.load(std::memory_order_acquire); }

  /// Blocks until the item has once run to its end or been skipped; at once if that was before. A
  /// cancelled item must still be performed, which a queue does, for the wait to end.
  void wait();

 private:
  Block block_;
  std::atomic<bool> cancelled_{false};
  std::atomic<std::uint32_t> finished_{0};
};

}  // namespace tessarine
