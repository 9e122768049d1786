#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <thread>

/// How threads of this folder wait for one another: look a few times, then sleep in the kernel.
namespace tessarine::detail {

/// The cores that this process may use, at least 1; asked once.
unsigned coreCount() noexcept;

inline void pauseBriefly() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("isb");
#endif
}

/// Looks for `ready` a few times in half a microsecond without leaving the core; once on a single
/// core, where nothing could change meanwhile. Each look takes the cache line from the thread that
/// is about to write it, hence the pauses in between.
template <class Ready>
bool lookBriefly(Ready ready) {
  constexpr int looks = 3;
  constexpr int pauses = 6;
  if (coreCount() > 1) {
    for (int look = 0; look < looks; ++look) {
      if (ready()) return true;
      for (int pause = 0; pause < pauses; ++pause) pauseBriefly();
    }
  }
  return ready();
}

/// Yields this thread's core, unless that has lately proved long: then it answers false at once.
/// Beside work that fills the core, who yields gets it back after the time slice of everybody else,
/// which is milliseconds, while who sleeps is let in soon after it is woken.
bool yieldIfShort() noexcept;

/// Looks for `ready` for some microseconds, offering the core to others in between: the awaited
/// thread may want this very core, and a short yield costs a fraction of a sleep with its wake-up.
template <class Ready>
bool lookAround(Ready ready) {
  constexpr int yields = 16;
  if (ready()) return true;
  for (int turn = 0; turn < yields && yieldIfShort(); ++turn)
    if (ready()) return true;
  return false;
}

/// Waits for a producer between its two steps: it has appended its node and is about to link it.
/// That is a few instructions away unless the producer lost its core, hence the yields, then naps.
template <class Ready>
void awaitLink(Ready ready) {
  constexpr std::chrono::microseconds nap(20);
  while (!lookAround(ready)) std::this_thread::sleep_for(nap);
}

/// Sleeps while `word` holds `value`, until woken or `limit` has passed; may wake early.
void sleepWhile(std::atomic<std::uint32_t>& word, std::uint32_t value,
                std::optional<std::chrono::nanoseconds> limit = std::nullopt) noexcept;

/// Sleeps while `word` holds `value`, until woken or until `realTime()` is `deadline`; may wake
/// early.
void sleepWhileBefore(std::atomic<std::uint32_t>& word, std::uint32_t value,
                      std::uint64_t deadline) noexcept;

/// Wakes up to `count` threads that sleep on `word`. The word may be gone by now: only its address
/// is used.
void wakeSleepers(std::atomic<std::uint32_t>& word, int count) noexcept;

/// A gate that is passed once opened. Waiters say that they sleep, so opening it for a waiter that
/// is awake costs no system call.
enum GateState : std::uint32_t { gateClosed = 0, gateAwaited = 1, gateOpen = 2 };

/// Opens the gate. It may be destroyed by a waiter before this returns.
void openGate(std::atomic<std::uint32_t>& gate) noexcept;

/// Looks around for a little while; true if the gate is open.
bool lookAtGate(const std::atomic<std::uint32_t>& gate) noexcept;

/// Sleeps until the gate is open, or `limit` has passed with it closed: false then. Any number of
/// threads may wait at one gate.
bool sleepAtGate(std::atomic<std::uint32_t>& gate,
                 std::optional<std::chrono::nanoseconds> limit = std::nullopt) noexcept;

}  // namespace tessarine::detail
