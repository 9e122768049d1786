#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

namespace tessarine {

/// A small value that many threads read without a lock and one at a time writes. A read costs a
/// load a word and two more, never waits for another reader, and repeats while a write is under
/// way; it always gives one whole value that was stored. Writers need a lock of their own.
template <class T>
requires std::is_trivially_copyable_v<T>
class SeqLock {
 public:
  explicit SeqLock(const T& value) noexcept { store(value); }

  T load() const noexcept {
    Words words;
    std::uint32_t before = 0;
    do {
      before = sequence_.load(std::memory_order_acquire);
      // Acquire, so that the second look at the sequence cannot move ahead of them.
      for (std::size_t i = 0; i < count; ++i) words[i] = words_[i].load(std::memory_order_acquire);
    } while (before % 2 != 0 || before != sequence_.load(std::memory_order_relaxed));
    alignas(T) std::array<std::byte, sizeof(T)> bytes;
    std::memcpy(bytes.data(), words.data(), sizeof(T));
    return *std::launder(reinterpret_cast<const T*>(bytes.data()));
  }

  void store(const T& value) noexcept {
    Words words{};
    std::memcpy(words.data(), static_cast<const void*>(&value), sizeof(T));
    const std::uint32_t before = sequence_.load(std::memory_order_relaxed);
    sequence_.store(before + 1, std::memory_order_relaxed);
    // Release, so that who sees a new word also sees that a write has begun.
    for (std::size_t i = 0; i < count; ++i) words_[i].store(words[i], std::memory_order_release);
    sequence_.store(before + 2, std::memory_order_release);
  }

 private:
  static constexpr std::size_t count = (sizeof(T) + 7) / 8;
  using Words = std::array<std::uint64_t, count>;

  std::atomic<std::uint32_t> sequence_ = 0;
  std::array<std::atomic<std::uint64_t>, count> words_{};
};

}  // namespace tessarine
