#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace tessarine::detail {

/// A place in a circular list.
struct TimerLink {
  TimerLink* previous = this;
  TimerLink* next = this;

  TimerLink() noexcept = default;
  ~TimerLink() = default;
  TimerLink(const TimerLink&) = delete;
  TimerLink& operator=(const TimerLink&) = delete;

  bool isAlone() const noexcept { return next == this; }
};

class TimerWheel;

/// What a timer carries in a wheel; the owner gives the memory.
struct WheelEntry : TimerLink {
  std::uint64_t deadline = 0;
  std::uint64_t filedUnder = 0;  // at most the deadline, which may have moved since
  std::uint64_t order = 0;       // earlier armed first among equals
  TimerWheel* wheel = nullptr;   // null while not pending
  std::uint16_t slot = 0;
};

/// Entries filed by deadline: constant time to add and to remove whatever their number, and nothing
/// is kept of those removed. A hierarchical wheel after Varghese and Lauck (SOSP 1987), eleven
/// levels of 64 slots over all 64 bits of nanoseconds: an entry lies on the level of the highest
/// group of six bits in which its deadline differs from the wheel's time, and moves down as that
/// comes near.
///
/// No lock: the owner has one.
class TimerWheel {
 public:
  static constexpr std::uint64_t never = UINT64_MAX;

  explicit TimerWheel(std::uint64_t now = 0) noexcept;
  TimerWheel(const TimerWheel&) = delete;
  TimerWheel& operator=(const TimerWheel&) = delete;

  /// Files `entry`, which is not pending, under its deadline.
  void add(WheelEntry& entry) noexcept;
  /// Takes out `entry`, which is pending in this wheel.
  void remove(WheelEntry& entry) noexcept;

  /// Gives `entry`, which is pending in this wheel, another deadline. A later one costs a store.
  void move(WheelEntry& entry, std::uint64_t deadline) noexcept;

  /// A time at or before that of the next entry; `never` when there is none. Lies before it at most
  /// once an entry that was removed or put off, until `takeDue` has been called for that time.
  std::uint64_t nextTime() const noexcept;

  /// The next entry whose deadline is at or before `now`, no longer pending; null when there is
  /// none. In the order of deadlines, and of arming among equals. `now` never goes back.
  WheelEntry* takeDue(std::uint64_t now);

  /// Any entry, no longer pending; null when there is none.
  WheelEntry* takeAny() noexcept;

 private:
  static constexpr unsigned groupBits = 6;
  static constexpr std::size_t slotsOnLevel = std::size_t{1} << groupBits;
  static constexpr unsigned levels = (64 + groupBits - 1) / groupBits;
  static constexpr unsigned dueSlot = levels * slotsOnLevel;

  static std::uint64_t slotStart(std::uint64_t time, unsigned level, unsigned position) noexcept;
  static void append(TimerLink& list, TimerLink& link) noexcept;
  static void unlink(TimerLink& link) noexcept;
  void file(WheelEntry& entry) noexcept;
  std::optional<unsigned> nextSlot() const noexcept;
  /// Opens the first slot that begins at or before `now`; false when there is none.
  bool openNextSlot(std::uint64_t now);

  std::uint64_t time_;  // all that was due before it has been moved to the due list
  std::uint64_t armings_ = 0;
  std::array<std::uint64_t, levels> occupied_{};            // a bit a slot
  std::array<std::uint64_t, levels * slotsOnLevel> first_;  // no entry of the slot is earlier
  std::array<TimerLink, levels * slotsOnLevel + 1> slots_;  // the last one: due, in order
  std::vector<WheelEntry*> opened_;                         // scratch of `openNextSlot`
};

}  // namespace tessarine::detail
