#include "tessarine/system/dispatch/internal/Waiting.hpp"

#include <algorithm>
#include <climits>
#include <ctime>

#include "tessarine/system/dispatch/internal/ManualTime.hpp"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tessarine::detail {

unsigned coreCount() noexcept {
  static const unsigned count = std::max(1U, std::thread::hardware_concurrency());
  return count;
}

bool yieldIfShort() noexcept {
  // Nanoseconds: far above what a block or two of others takes, and far below a time slice.
  constexpr std::uint64_t longYield = 200'000;
  // So that a tenth of the time, no more, goes to long yields.
  constexpr std::uint64_t pauseFactor = 10;
  static constinit std::atomic<std::uint64_t> nextTry{0};
  const std::uint64_t start = realTime();
  if (start < nextTry.load(std::memory_order_relaxed)) return false;
  std::this_thread::yield();
  const std::uint64_t end = realTime();
  const std::uint64_t length = end - start;
  if (length > longYield) nextTry.store(end + pauseFactor * length, std::memory_order_relaxed);
  return true;
}

void sleepWhile(std::atomic<std::uint32_t>& word, std::uint32_t value,
                std::optional<std::chrono::nanoseconds> limit) noexcept {
  timespec time{};
  if (limit) {
    time.tv_sec = static_cast<time_t>(*limit / std::chrono::seconds(1));
    time.tv_nsec = static_cast<long>((*limit % std::chrono::seconds(1)).count());
  }
  syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, limit ? &time : nullptr, nullptr, 0);
}

void sleepWhileBefore(std::atomic<std::uint32_t>& word, std::uint32_t value,
                      std::uint64_t deadline) noexcept {
  constexpr std::uint64_t second = 1'000'000'000;
  const timespec time{static_cast<time_t>(deadline / second), static_cast<long>(deadline % second)};
  syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, value, &time, nullptr,
          FUTEX_BITSET_MATCH_ANY);
}

void wakeSleepers(std::atomic<std::uint32_t>& word, int count) noexcept {
  syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

void openGate(std::atomic<std::uint32_t>& gate) noexcept {
  if (gate.exchange(gateOpen, std::memory_order_acq_rel) == gateAwaited)
    wakeSleepers(gate, INT_MAX);
}

namespace {

bool isOpen(const std::atomic<std::uint32_t>& gate) noexcept {
  return gate.load(std::memory_order_acquire) == gateOpen;
}

/// Marks the gate as awaited; false if it is open by now.
bool announce(std::atomic<std::uint32_t>& gate) noexcept {
  std::uint32_t state = gateClosed;
  gate.compare_exchange_strong(state, gateAwaited, std::memory_order_acquire);
  return state != gateOpen;
}

}  // namespace

bool lookAtGate(const std::atomic<std::uint32_t>& gate) noexcept {
  // A turn on a queue is short, so its end is likely within reach without leaving the core.
  const auto opened = [&] { return isOpen(gate); };
  return lookBriefly(opened) || lookAround(opened);
}

bool sleepAtGate(std::atomic<std::uint32_t>& gate,
                 std::optional<std::chrono::nanoseconds> limit) noexcept {
  using Clock = std::chrono::steady_clock;
  if (!announce(gate)) return true;
  if (!limit) {
    while (!isOpen(gate)) sleepWhile(gate, gateAwaited);
    return true;
  }
  const Clock::time_point deadline = Clock::now() + *limit;
  while (!isOpen(gate)) {
    const auto left = deadline - Clock::now();
    if (left <= std::chrono::nanoseconds::zero()) return false;
    sleepWhile(gate, gateAwaited, left);
  }
  return true;
}

}  // namespace tessarine::detail
