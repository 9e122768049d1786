#include "tessarine/system/dispatch/internal/TimerWheel.hpp"

#include <algorithm>
#include <bit>
#include <utility>

namespace tessarine::detail {

TimerWheel::TimerWheel(std::uint64_t now) noexcept : time_(now) {}

void TimerWheel::append(TimerLink& list, TimerLink& link) noexcept {
  link.previous = list.previous;
  link.next = &list;
  list.previous->next = &link;
  list.previous = &link;
}

void TimerWheel::unlink(TimerLink& link) noexcept {
  link.previous->next = link.next;
  link.next->previous = link.previous;
  link.previous = link.next = &link;
}

std::uint64_t TimerWheel::slotStart(std::uint64_t time, unsigned level,
                                    unsigned position) noexcept {
  const unsigned shift = level * groupBits;
  const unsigned upper = shift + groupBits;
  const std::uint64_t base = upper < 64 ? time >> upper << upper : 0;
  return base | std::uint64_t{position} << shift;
}

void TimerWheel::add(WheelEntry& entry) noexcept {
  entry.wheel = this;
  entry.order = ++armings_;
  file(entry);
}

void TimerWheel::file(WheelEntry& entry) noexcept {
  const std::uint64_t when = std::max(entry.deadline, time_);
  const auto highestBit = 63U - static_cast<unsigned>(std::countl_zero((time_ ^ when) | 1U));
  const unsigned level = highestBit / groupBits;
  const auto position = static_cast<unsigned>(when >> (level * groupBits)) % slotsOnLevel;
  const unsigned slot = level * slotsOnLevel + position;
  const std::uint64_t bit = std::uint64_t{1} << position;
  first_[slot] = occupied_[level] & bit ? std::min(first_[slot], when) : when;
  occupied_[level] |= bit;
  entry.filedUnder = entry.deadline;
  entry.slot = static_cast<std::uint16_t>(slot);
  append(slots_[slot], entry);
}

void TimerWheel::move(WheelEntry& entry, std::uint64_t deadline) noexcept {
  entry.deadline = deadline;
  if (entry.slot != dueSlot && deadline >= entry.filedUnder) {
    entry.order = ++armings_;
    return;
  }
  remove(entry);
  add(entry);
}

void TimerWheel::remove(WheelEntry& entry) noexcept {
  unlink(entry);
  entry.wheel = nullptr;
  if (entry.slot != dueSlot && slots_[entry.slot].isAlone())
    occupied_[entry.slot / slotsOnLevel] &= ~(std::uint64_t{1} << entry.slot % slotsOnLevel);
}

/// The lowest level holds what is nearest, as each level begins where the one below ends.
std::optional<unsigned> TimerWheel::nextSlot() const noexcept {
  for (unsigned level = 0; level < levels; ++level)
    if (occupied_[level] != 0)
      return level * slotsOnLevel + static_cast<unsigned>(std::countr_zero(occupied_[level]));
  return std::nullopt;
}

std::uint64_t TimerWheel::nextTime() const noexcept {
  if (!slots_[dueSlot].isAlone()) return time_;
  const std::optional<unsigned> slot = nextSlot();
  return slot ? first_[*slot] : never;
}

bool TimerWheel::openNextSlot(std::uint64_t now) {
  const std::optional<unsigned> slot = nextSlot();
  const std::uint64_t start =
      slot ? slotStart(time_, *slot / slotsOnLevel, *slot % slotsOnLevel) : never;
  if (!slot || start > now) {
    time_ = std::max(time_, now);
    return false;
  }
  // What was put off beyond the slot stays behind what lies in between.
  const std::uint64_t last = start + (std::uint64_t{1} << *slot / slotsOnLevel * groupBits) - 1;
  time_ = start;
  occupied_[*slot / slotsOnLevel] &= ~(std::uint64_t{1} << *slot % slotsOnLevel);
  TimerLink& list = slots_[*slot];
  while (!list.isAlone()) {
    auto& entry = static_cast<WheelEntry&>(*list.next);
    unlink(entry);
    if (entry.deadline > std::min(now, last))
      file(entry);
    else
      opened_.push_back(&entry);
  }
  std::sort(opened_.begin(), opened_.end(), [](const WheelEntry* a, const WheelEntry* b) {
    return std::pair(a->deadline, a->order) < std::pair(b->deadline, b->order);
  });
  for (WheelEntry* const entry : opened_) {
    entry->slot = dueSlot;
    append(slots_[dueSlot], *entry);
  }
  opened_.clear();
  return true;
}

WheelEntry* TimerWheel::takeDue(std::uint64_t now) {
  TimerLink& due = slots_[dueSlot];
  while (due.isAlone())
    if (!openNextSlot(now)) return nullptr;
  auto& entry = static_cast<WheelEntry&>(*due.next);
  remove(entry);
  return &entry;
}

WheelEntry* TimerWheel::takeAny() noexcept {
  const std::optional<unsigned> slot =
      slots_[dueSlot].isAlone() ? nextSlot() : std::optional(dueSlot);
  if (!slot) return nullptr;
  auto& entry = static_cast<WheelEntry&>(*slots_[*slot].next);
  remove(entry);
  return &entry;
}

}  // namespace tessarine::detail
