#pragma once

// Counts what goes through operator new, in the whole process and from all of its threads. For the
// one source of a benchmark program: it replaces the operators.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::uint64_t> allocations{0};

void* countedAllocation(std::size_t size, std::size_t alignment) {
  allocations.fetch_add(1, std::memory_order_relaxed);
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
