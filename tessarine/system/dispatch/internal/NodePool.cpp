#include <array>
#include <new>

#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/dispatch/QueueNode.hpp"

/// Nodes are taken on one thread and given back on another. Each thread keeps two magazines of
/// them, one to take from and one to fill, and swaps whole magazines with a common depot, so a lock
/// comes once in 63 nodes. Magazines are emptied in the order in which they were filled: nodes then
/// keep running through the same slab in address order, which the processor's prefetcher follows.
namespace tessarine::detail {
namespace {

constexpr std::size_t slabBytes = 4096;
constexpr unsigned magazineSize = slabBytes / sizeof(AsyncNode) - 1;
constexpr unsigned mostFullMagazines =
    256;  // 1 MiB of nodes at rest; what a burst took beyond goes back

/// A page of nodes behind a header; freed when all its nodes have been discarded.
struct alignas(64) Slab {
  std::atomic<unsigned> discarded{0};
};

AsyncNode* nodesOf(void* slab) {
  return reinterpret_cast<AsyncNode*>(static_cast<std::byte*>(slab) + sizeof(Slab));
}

Slab& slabOf(AsyncNode* node) {
  const auto offset = reinterpret_cast<std::uintptr_t>(node) % slabBytes;
  return *reinterpret_cast<Slab*>(reinterpret_cast<std::byte*>(node) - offset);
}

void discard(AsyncNode* node) noexcept {
  Slab& slab = slabOf(node);
  if (slab.discarded.fetch_add(1, std::memory_order_acq_rel) + 1 == magazineSize)
    ::operator delete (&slab, std::align_val_t{slabBytes});
}

/// Nodes `first` to `end` are there to be taken.
struct Magazine {
  unsigned first = 0;
  unsigned end = 0;
  Magazine* next = nullptr;
  std::array<AsyncNode*, magazineSize> nodes;

  AsyncNode* take() {
    // The consumer's core still holds the lines; asked for early, they are here when written.
    if (first + 4 < end) __builtin_prefetch(nodes[first + 4], 1);
    return nodes[first++];
  }
  bool isEmpty() const { return first == end; }
  bool isFull() const { return end == magazineSize; }
  void reset() { first = end = 0; }
};

void fillFromNewSlab(Magazine& magazine) {
  void* const memory = ::operator new (slabBytes, std::align_val_t{slabBytes});
  ::new (memory) Slab;
  AsyncNode* const nodes = nodesOf(memory);
  for (unsigned i = 0; i < magazineSize; ++i) magazine.nodes[i] = ::new (nodes + i) AsyncNode;
  magazine.first = 0;
  magazine.end = magazineSize;
}

/// Where threads swap magazines. Leaked with all its nodes, as blocks may be submitted at any time.
class Depot {
 public:
  static Depot& shared() {
    static auto* const depot = new Depot;
    return *depot;
  }

  /// A magazine with nodes in it, for an empty one or null.
  Magazine* swapForFull(Magazine* empty) {
    MutexLock lock(mutex_);
    if (Magazine* const full = full_) {
      full_ = full->next;
      --fullCount_;
      if (empty) keepEmpty(*empty);
      return full;
    }
    lock.unlock();
    if (!empty) empty = new Magazine;
    fillFromNewSlab(*empty);
    return empty;
  }

  /// An empty magazine, for a full one or null. Null when memory is short.
  Magazine* swapForEmpty(Magazine* full) noexcept {
    MutexLock lock(mutex_);
    if (full && fullCount_ == mostFullMagazines) {
      lock.unlock();
      discardAll(*full);
      return full;
    }
    if (full) keepFull(*full);
    if (Magazine* const empty = empty_) {
      empty_ = empty->next;
      return empty;
    }
    lock.unlock();
    return new (std::nothrow) Magazine;
  }

  /// Takes over the magazine of a thread that ends.
  void takeOver(Magazine* magazine) noexcept {
    if (!magazine) return;
    const MutexLock lock(mutex_);
    if (magazine->isEmpty())
      keepEmpty(*magazine);
    else
      keepFull(*magazine);
  }

 private:
  static void discardAll(Magazine& magazine) noexcept {
    for (unsigned i = magazine.first; i < magazine.end; ++i) discard(magazine.nodes[i]);
    magazine.reset();
  }
  void keepFull(Magazine& magazine) TESSARINE_REQUIRES(mutex_) {
    magazine.next = full_;
    full_ = &magazine;
    ++fullCount_;
  }
  void keepEmpty(Magazine& magazine) TESSARINE_REQUIRES(mutex_) {
    magazine.reset();
    magazine.next = empty_;
    empty_ = &magazine;
  }

  Mutex mutex_;
  Magazine* full_ TESSARINE_GUARDED_BY(mutex_) = nullptr;
  unsigned fullCount_ TESSARINE_GUARDED_BY(mutex_) = 0;
  Magazine* empty_ TESSARINE_GUARDED_BY(mutex_) = nullptr;
};

struct Store {
  Magazine* taking = nullptr;
  Magazine* filling = nullptr;
  bool isClosed = false;  // the thread is ending; nodes go to the depot one by one
};

constinit thread_local Store store __attribute__((tls_model("initial-exec")));

/// Empties the thread's store when the thread ends.
struct StoreCloser {
  ~StoreCloser() {
    Depot::shared().takeOver(std::exchange(store.taking, nullptr));
    Depot::shared().takeOver(std::exchange(store.filling, nullptr));
    store.isClosed = true;
  }
  void arm() {}
};
thread_local StoreCloser storeCloser;

/// For blocks submitted by what is destroyed after the store.
AsyncNode* takeFromDepot() {
  Magazine* const magazine = Depot::shared().swapForFull(nullptr);
  AsyncNode* const node = magazine->take();
  Depot::shared().takeOver(magazine);
  return node;
}

AsyncNode* takeAfterRefill() {
  if (store.isClosed) return takeFromDepot();
  storeCloser.arm();
  // What this thread gave back itself is warmest.
  if (store.filling && !store.filling->isEmpty()) {
    std::swap(store.taking, store.filling);
    if (store.filling) store.filling->reset();
  } else {
    store.taking = Depot::shared().swapForFull(store.taking);
  }
  return store.taking->take();
}

}  // namespace

AsyncNode* takeNode() {
  Magazine* const magazine = store.taking;
  AsyncNode* const node = magazine && !magazine->isEmpty() ? magazine->take() : takeAfterRefill();
  node->next.store(nullptr, std::memory_order_relaxed);
  return node;
}

void recycleNode(AsyncNode* node) noexcept {
  Magazine* magazine = store.filling;
  if (!magazine || magazine->isFull()) [[unlikely]] {
    if (store.isClosed) return discard(node);
    storeCloser.arm();
    magazine = store.filling = Depot::shared().swapForEmpty(magazine);
    if (!magazine) return discard(node);
  }
  magazine->nodes[magazine->end++] = node;
}

}  // namespace tessarine::detail
