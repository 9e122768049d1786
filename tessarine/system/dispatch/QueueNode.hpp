#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "tessarine/export.hpp"
#include "tessarine/system/dispatch/Block.hpp"
#include "tessarine/values/fatal.hpp"

/// The links that queues are made of. Hosts meet them only because `sync` and `async` are inline.
namespace tessarine::detail {

/// A place in a queue. `operations` is null for a caller of `sync` that waits for its turn.
struct QueueNode {
  std::atomic<QueueNode*> next{nullptr};
  const BlockOperations* operations = nullptr;
};

/// The place of a `sync` call; it lies on the caller's stack.
struct SyncNode : QueueNode {
  std::atomic<std::uint32_t> gate{0};
};

/// The place of an `async` block with the closure itself: one cache line, recycled.
struct alignas(64) AsyncNode : QueueNode {
  alignas(blockAlignment) std::byte storage[blockCapacity];
};
static_assert(sizeof(AsyncNode) == 64);

/// A node with `next` null, from the thread's own store of them; allocates only as the number of
/// waiting blocks reaches a new height. Any thread.
TESSARINE_EXPORT AsyncNode* takeNode();

/// Gives back a node whose closure is gone.
TESSARINE_EXPORT void recycleNode(AsyncNode* node) noexcept;

struct RecycleNode {
  void operator()(AsyncNode* node) const noexcept { recycleNode(node); }
};

/// A node that carries `f`; nothing is lost when copying `f` fails.
template <class F>
AsyncNode* makeNode(F&& f) {
  std::unique_ptr<AsyncNode, RecycleNode> node(takeNode());
  if constexpr (std::is_same_v<std::decay_t<F>, Block>) {
    Block block = std::forward<F>(f);
    if (!block) fatal("An empty block is submitted to a queue.");
    node->operations = block.releaseTo(node->storage);
  } else {
    node->operations = storeBlock(node->storage, std::forward<F>(f));
  }
  return node.release();
}

/// A callable that outlives the call it is passed to; not owned.
class BlockReference {
 public:
  template <class F>
  explicit BlockReference(F& f)
      : closure_(std::addressof(f)), call_([](void* closure) { (*static_cast<F*>(closure))(); }) {}
  void operator()() const { call_(closure_); }

 private:
  void* closure_;
  void (*call_)(void*);
};

}  // namespace tessarine::detail
