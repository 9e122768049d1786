#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Block.hpp"
#include "tessarine/system/dispatch/Clock.hpp"
#include "tessarine/system/dispatch/DispatchQoS.hpp"
#include "tessarine/system/dispatch/DispatchSpecificKey.hpp"
#include "tessarine/system/dispatch/DispatchWorkItemFlags.hpp"
#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/dispatch/QueueNode.hpp"

namespace tessarine {

class DispatchWorkItem;
class DispatchQueue;

namespace detail {

/// The queues whose blocks run on this thread, innermost first.
struct QueueFrame {
  DispatchQueue* queue;
  QueueFrame* outer;
};

/// Initial-exec, because `sync` reads and writes it twice and a call for its address would double
/// the cost of the uncontended path.
extern TESSARINE_EXPORT constinit thread_local QueueFrame* currentFrame
    __attribute__((tls_model("initial-exec")));

/// Makes `queue` the current one of this thread for a scope.
class FrameScope {
 public:
  explicit FrameScope(DispatchQueue& queue) noexcept : frame_{&queue, currentFrame} {
    currentFrame = &frame_;
  }
  ~FrameScope() { currentFrame = frame_.outer; }
  FrameScope(const FrameScope&) = delete;
  FrameScope& operator=(const FrameScope&) = delete;

 private:
  QueueFrame frame_;
};

}  // namespace detail

/// A serial first-in-first-out queue: its blocks run one at a time, in the order of submission,
/// with `async` and `sync` in one order. Reach for it where a lock would guard state that callbacks
/// need too; for a bare field a `Mutex` is as fast. Every member may be called from any thread.
///
///     auto queue = std::make_shared<DispatchQueue>("com.example.index");
///     queue->async([index, word] { index->add(word); });
///     auto size = queue->sync([&] { return index->size(); });
///
/// Held by `std::shared_ptr` only. Waiting blocks keep their queue alive, and the last handle may
/// go inside one of its blocks; during a `sync` the caller holds a handle.
class TESSARINE_EXPORT DispatchQueue : public std::enable_shared_from_this<DispatchQueue> {
 public:
  /// `label` names the queue in messages, in reverse-DNS form by custom. With a `target`, blocks of
  /// this queue run inside that queue, so that queues which share one never run at once.
  explicit DispatchQueue(std::string label, std::shared_ptr<DispatchQueue> target = nullptr);
  ~DispatchQueue();
  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;

  /// The queue whose blocks run on the main thread, as the host drives it; see `MainQueue`.
  static const std::shared_ptr<DispatchQueue>& main();

  /// The general queue: its blocks run at once with one another, on the worker threads. `sync` on
  /// it runs the block on the caller's thread without waiting.
  static const std::shared_ptr<DispatchQueue>& global();

  const std::string& label() const noexcept { return label_; }

  /// Runs `block`, any callable without arguments, later on a worker thread (on the main queue and
  /// those that target it: the main thread), never inside this call. Does not allocate in the
  /// steady state for closures of up to 48 bytes. The closure is destroyed right after it has run.
  /// An exception that leaves it is a programmer error and ends the process, as is an empty block.
  template <class F>
  requires detail::BlockSource<F>
  void async(F&& block) { push(detail::makeNode(std::forward<F>(block))); }

  /// Performs `item` later; skipped if cancelled by then.
  void async(std::shared_ptr<DispatchWorkItem> item);

  /// As `async` at `deadline`, or right after, never before; at once if that is past. Until then it
  /// holds no place in the queue, but it keeps the queue alive. For the distant future the block is
  /// destroyed at once, as it would never run.
  template <class F>
  requires detail::BlockSource<F>
  void asyncAfter(DispatchTime deadline, F&& block) {
    pushAfter(deadline, detail::makeNode(std::forward<F>(block)));
  }

  /// Performs `item` at `deadline`; skipped, then, if cancelled.
  void asyncAfter(DispatchTime deadline, std::shared_ptr<DispatchWorkItem> item);

  /// Runs `block` `delay` seconds from now. Any double is a delay; see `DispatchTime`.
  template <class F>
  requires detail::BlockSource<F>
  void asyncAfter(double delay, F&& block) {
    asyncAfter(DispatchTime::now() + delay, std::forward<F>(block));
  }
  template <class F>
  requires detail::BlockSource<F>
  void asyncAfter(double delay, [[maybe_unused]] DispatchQoS qos,
                  [[maybe_unused]] DispatchWorkItemFlags flags, F&& block) {
    asyncAfter(DispatchTime::now() + delay, std::forward<F>(block));
  }

  /// A limited form of `action`: however often it is called, from any thread, `action` runs at most
  /// once in `delay` seconds, on this queue, and first `delay` after this call. Each call asks for
  /// a run as soon as that is allowed; what asks meanwhile is served by that same run, and a call
  /// is not remembered beyond it. To wait for a pause in the calls instead, use a `Debouncer`. For
  /// serial queues: on the general queue two runs may overlap.
  std::function<void()> debounce(double delay, Block action);

  /// Whether this code runs on the main queue or on one that targets it. Outside of any block true
  /// on the main thread; inside a block of another queue false, also on the main thread.
  static bool isMainQueue() noexcept;

  /// Whether this code runs on `queue` or on one that targets it.
  static bool isCurrent(const DispatchQueue& queue) noexcept;

  /// Runs `f` after all that was submitted before and answers its result; exceptions of `f` reach
  /// the caller. On the caller's thread, on the main queue and those that target it on the main
  /// thread. When the queue is free this costs one atomic exchange and one compare-exchange.
  /// On a queue that this thread is running already, a programmer error that ends the process.
  template <class F>
  requires std::invocable<F> std::invoke_result_t<F> sync(F&& f) {
    if (!plain_) [[unlikely]] {
      return syncElsewhere(std::forward<F>(f));
    }
    const Turn turn(*this);
    const detail::FrameScope frame(*this);
    return std::invoke(std::forward<F>(f));
  }

  /// Attaches `value` under `key`, or removes what is there when absent.
  template <class T>
  void setSpecific(const DispatchSpecificKey<T>& key, std::optional<T> value) {
    std::shared_ptr<const void> held;
    if (value) held = std::make_shared<const T>(std::move(*value));
    replaceSpecific(key.identity_, std::move(held));
  }

  /// The value under `key` on this queue itself.
  template <class T>
  std::optional<T> specific(const DispatchSpecificKey<T>& key) const {
    return copyOf<T>(findSpecific(key.identity_));
  }

  /// The value under `key` where this code runs: on the current queue, else on its target, that
  /// one's target and so on. Absent outside of any queue; the main thread counts as the main queue
  /// there.
  template <class T>
  static std::optional<T> getSpecific(const DispatchSpecificKey<T>& key) {
    return copyOf<T>(findCurrentSpecific(key.identity_));
  }

  /// The queue whose block runs on this thread, innermost; the main queue on the main thread
  /// outside of any block; null elsewhere. Valid while that block runs.
  static DispatchQueue* current() noexcept;

 private:
  enum class Kind : std::uint8_t { serial, concurrent, main };
  struct Specific {
    std::uint64_t key;
    std::shared_ptr<const void> value;
  };

  /// The sole right to run blocks of one queue, from construction to destruction.
  ///
  /// The queue is a chain of nodes, `tail_` the last one; null means that nobody has the turn. Who
  /// finds null on exchanging has it at once, everybody else gets it from the node in front.
  class Turn {
   public:
    explicit Turn(DispatchQueue& queue) : queue_(queue) {
      detail::QueueNode* previous = queue.tail_.exchange(&node_, std::memory_order_acq_rel);
      if (previous) [[unlikely]] {
        queue.waitForTurn(*previous, node_);
      }
    }
    ~Turn() {
      detail::QueueNode* last = &node_;
      if (!queue_.tail_.compare_exchange_strong(last, nullptr, std::memory_order_release,
                                                std::memory_order_relaxed)) [[unlikely]] {
        queue_.passTurnOn(node_);
      }
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    DispatchQueue& queue_;
    detail::SyncNode node_;
  };

  /// A block that waits for its time.
  struct Delayed;

  DispatchQueue(std::string label, Kind kind);
  std::shared_ptr<DispatchQueue> handle();

  template <class T>
  static std::optional<T> copyOf(const std::shared_ptr<const void>& held) {
    if (!held) return std::nullopt;
    return *static_cast<const T*>(held.get());
  }

  template <class F>
  std::invoke_result_t<F> syncElsewhere(F&& f) {
    using Result = std::invoke_result_t<F>;
    if constexpr (std::is_void_v<Result>) {
      auto call = [&] { std::invoke(std::forward<F>(f)); };
      syncElsewhere(detail::BlockReference(call), *this);
    } else if constexpr (std::is_reference_v<Result>) {
      std::remove_reference_t<Result>* result = nullptr;
      auto call = [&] {
        auto&& answer = std::invoke(std::forward<F>(f));
        result = std::addressof(answer);
      };
      syncElsewhere(detail::BlockReference(call), *this);
      return static_cast<Result>(*result);
    } else {
      std::optional<std::remove_cv_t<Result>> result;
      auto call = [&] { result.emplace(std::invoke(std::forward<F>(f))); };
      syncElsewhere(detail::BlockReference(call), *this);
      return *std::move(result);
    }
  }

  void push(detail::AsyncNode* node);
  void pushAfter(DispatchTime deadline, detail::AsyncNode* node);
  void syncElsewhere(detail::BlockReference block, DispatchQueue& context);
  void waitForTurn(detail::QueueNode& previous, detail::SyncNode& node);
  void passTurnOn(detail::SyncNode& node);
  void scheduleDrain(detail::QueueNode* first) noexcept;
  void drain(detail::QueueNode* node);
  detail::QueueNode* successorOf(detail::QueueNode& node, bool lingers);

  void refuseDeadlock() const;
  bool isRunningOnThisThread() const noexcept;
  void replaceSpecific(std::uint64_t key, std::shared_ptr<const void> value);
  std::shared_ptr<const void> findSpecific(std::uint64_t key) const;
  static std::shared_ptr<const void> findCurrentSpecific(std::uint64_t key);

  std::atomic<detail::QueueNode*> tail_{nullptr};
  // Constant after construction.
  const Kind kind_;
  const bool plain_;  // serial without a target: `sync` needs no more than the turn
  const std::string label_;
  const std::shared_ptr<DispatchQueue> target_;

  mutable Mutex specificsMutex_;
  std::vector<Specific> specifics_ TESSARINE_GUARDED_BY(specificsMutex_);
  std::atomic<bool> hasSpecifics_{false};  // spares the lock along target chains
};

}  // namespace tessarine
