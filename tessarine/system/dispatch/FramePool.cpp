#include "tessarine/system/dispatch/FramePool.hpp"

#include <array>

#if defined(__SANITIZE_ADDRESS__)
#define TESSARINE_FRAMES_PLAIN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TESSARINE_FRAMES_PLAIN 1
#endif
#endif

namespace tessarine::detail {

#ifdef TESSARINE_FRAMES_PLAIN

// The sanitizer tells a use after the end only where memory really goes back.
void* takeFrame(std::size_t size) { return ::operator new(size); }
void recycleFrame(void* frame, std::size_t /*size*/) noexcept { ::operator delete(frame); }

#else

namespace {

constexpr std::size_t step = 64;
constexpr std::size_t classes = 32;             // up to 2 KiB
constexpr unsigned mostAtRest = 64;             // frames a size that a thread keeps
constexpr unsigned mostInAll = 8 * mostAtRest;  // and over all sizes: half a mebibyte at the most

struct FreeFrame {
  FreeFrame* next;
};
struct FreeList {
  FreeFrame* first = nullptr;
  unsigned count = 0;
};
struct Store {
  std::array<FreeList, classes> lists{};
  unsigned count = 0;
  bool isArmed = false;
  bool isClosed = false;  // the thread is ending; frames go straight back
};

constinit thread_local Store store __attribute__((tls_model("initial-exec")));

/// Empties the thread's store when the thread ends.
struct StoreCloser {
  ~StoreCloser() {
    store.isClosed = true;
    for (FreeList& list : store.lists)
      while (FreeFrame* const frame = list.first) {
        list.first = frame->next;
        ::operator delete(frame);
      }
  }
  void arm() { store.isArmed = true; }
};
thread_local StoreCloser storeCloser;

std::size_t classOf(std::size_t size) noexcept { return (size + step - 1) / step - 1; }

}  // namespace

void* takeFrame(std::size_t size) {
  const std::size_t index = classOf(size);
  if (index >= classes) return ::operator new(size);
  FreeList& list = store.lists[index];
  FreeFrame* const frame = list.first;
  if (!frame) return ::operator new((index + 1) * step);
  list.first = frame->next;
  --list.count;
  --store.count;
  return frame;
}

void recycleFrame(void* memory, std::size_t size) noexcept {
  const std::size_t index = classOf(size);
  if (index >= classes) return ::operator delete(memory);
  FreeList& list = store.lists[index];
  if (store.isClosed || list.count == mostAtRest || store.count == mostInAll)
    return ::operator delete(memory);
  if (!store.isArmed) storeCloser.arm();
  list.first = ::new (memory) FreeFrame{list.first};
  ++list.count;
  ++store.count;
}

#endif

}  // namespace tessarine::detail
