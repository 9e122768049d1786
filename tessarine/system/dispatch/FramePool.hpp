#pragma once

#include <cstddef>
#include <new>

#include "tessarine/export.hpp"

/// Where coroutine frames and the small states beside them come from. Hosts meet it only because
/// coroutines are compiled in their sources.
namespace tessarine::detail {

/// At least `size` bytes, aligned as by `operator new`. What this thread gave back last is taken
/// first, so a steady state does not allocate; sizes above 2 KiB always do. Any thread.
TESSARINE_EXPORT void* takeFrame(std::size_t size);

/// Gives back what `takeFrame(size)` gave, on whichever thread.
TESSARINE_EXPORT void recycleFrame(void* frame, std::size_t size) noexcept;

/// A standard allocator over the same store, for `std::allocate_shared`.
template <class T>
struct FrameAllocator {
  using value_type = T;
  FrameAllocator() noexcept = default;
  template <class U>
  // A rebound allocator is the same allocator.
  FrameAllocator(const FrameAllocator<U>&) noexcept {}  // NOLINT(google-explicit-constructor)

  T* allocate(std::size_t count) {
    static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    return static_cast<T*>(takeFrame(count * sizeof(T)));
  }
  void deallocate(T* memory, std::size_t count) noexcept {
    recycleFrame(memory, count * sizeof(T));
  }
  friend bool operator==(const FrameAllocator&, const FrameAllocator&) noexcept { return true; }
};

}  // namespace tessarine::detail
