// A debouncer that is asked very often: what lives does not grow with the requests, and
// nothing of them remains. Counted are closures, through a token that each holds, and what operator
// new has given out in this process and not got back.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

#include "tessarine/scheduling/Debouncer.hpp"
#include "tessarine/system/dispatch/ManualClock.hpp"

#include <gtest/gtest.h>

// The sanitizers have operators of their own, and take their time: under them only closures are
// counted, and a tenth of the requests for a queue is made.
#ifdef __has_feature
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TESSARINE_TEST_OPERATORS_TAKEN 1
#endif
#endif

namespace {

std::atomic<std::int64_t> allocated{0};

}  // namespace

#ifndef TESSARINE_TEST_OPERATORS_TAKEN
namespace {

void* allocate(std::size_t size, std::size_t alignment) {
  const std::size_t rounded = (size + alignment - 1) / alignment * alignment;
  void* const memory = std::aligned_alloc(alignment, rounded);
  if (!memory) throw std::bad_alloc();
  ++allocated;
  return memory;
}

void release(void* memory) noexcept {
  if (memory) --allocated;
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }
#endif

namespace tessarine {
namespace {

TEST(DebouncerMemory, AMillionRequestsForAQueueKeepOneAlive) {
#ifdef TESSARINE_TEST_OPERATORS_TAKEN
  constexpr int requests = 100'000;
#else
  constexpr int requests = 1'000'000;
#endif
  ManualClock clock;
  const auto token = std::make_shared<int>(0);
  const auto queue = std::make_shared<DispatchQueue>("test.actions");
  const auto useOne = [&](int count) {
    Debouncer debouncer(100);
    debouncer.debounce(queue, [token] {});
    const std::int64_t withOne = allocated;
    for (int i = 1; i < count; ++i) {
      // Later and earlier than the one before, near and far.
      debouncer.debounce(queue, 1e-6 * static_cast<double>(i % 1000 * (i % 7) + 1), [token] {});
      ASSERT_EQ(token.use_count(), 2) << i;
      ASSERT_LE(allocated, withOne) << i;  // less once an idle worker has ended with its stores
    }
    EXPECT_EQ(debouncer.debounceCount(), count - 1);
    clock.advance(100);
    EXPECT_EQ(debouncer.debounceCount(), 0);
  };
  useOne(2);  // the queue takes its stores of memory
  const std::int64_t before = allocated;
  useOne(requests);
  EXPECT_EQ(token.use_count(), 1);
  EXPECT_LT(allocated, before + 100) << "a worker more may have taken its stores";
}

// Fewer, as each is run by a worker, which contends with the requests that follow.
TEST(DebouncerMemory, AHundredThousandRequestsForATaskKeepOneAlive) {
  constexpr int requests = 100'000;
  // Each thread keeps up to 512 frames for the next tasks, beside its blocks; how many of them it
  // comes to need depends on how the threads meet. A tenth of the requests is far above that.
  constexpr std::int64_t stores = requests / 10;
  ManualClock clock;
  const auto token = std::make_shared<int>(0);
  auto debouncer = std::make_shared<Debouncer>(100);
  const std::int64_t before = allocated;
  for (int i = 1; i <= requests; ++i) {
    debouncer->debounce(std::nullopt, [token]() -> Async<> { co_return; });
    if (i % 1000 != 0) continue;
    clock.settle();  // those that were replaced are told and come to their end
    ASSERT_EQ(token.use_count(), 2) << i;
    ASSERT_LT(allocated, before + stores) << i;
  }
  EXPECT_EQ(debouncer->debounceCount(), requests - 1);
  const std::weak_ptr<Debouncer> watched = debouncer;
  debouncer.reset();
  clock.advance(100);
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(token.use_count(), 1);
}

}  // namespace
}  // namespace tessarine
