#pragma once

// Counts what goes through operator new, in the whole process and from all of its threads. For the
// one source of a benchmark program: it replaces the operators.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

/// One thread's count, which only that thread changes: a count that all share would cost each
/// allocation as much as a short text's own.
struct ThreadAllocations {
  std::atomic<std::uint64_t> count{0};
  ThreadAllocations* next = nullptr;

  static ThreadAllocations& own() {
    thread_local ThreadAllocations* const mine = add();
    return *mine;
  }
  static std::atomic<ThreadAllocations*>& all() {
    static std::atomic<ThreadAllocations*> head{nullptr};
    return head;
  }

 private:
  /// Stays when the thread ends.
  static ThreadAllocations* add() {
    auto* const made = new (std::malloc(sizeof(ThreadAllocations))) ThreadAllocations;
    made->next = all().load();
    while (!all().compare_exchange_weak(made->next, made)) {
    }
    return made;
  }
};

struct Allocations {
  std::uint64_t load() const {
    std::uint64_t sum = 0;
    for (const auto* each = ThreadAllocations::all().load(); each; each = each->next) {
      sum += each->count.load(std::memory_order_relaxed);
    }
    return sum;
  }
};
constexpr Allocations allocations;

void* countedAllocation(std::size_t size, std::size_t alignment) {
  std::atomic<std::uint64_t>& count = ThreadAllocations::own().count;
  count.store(count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  void* const memory =
      alignment ? std::aligned_alloc(alignment, (size + alignment - 1) & ~(alignment - 1))
                : std::malloc(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) { return countedAllocation(size, 0); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return countedAllocation(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
