#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tessarine {

/// Finds equal identifiers among numbered elements: a hash table of their numbers alone, which asks
/// its caller whether two elements are equal. Open addressing, eight bytes a slot, at most half
/// full. For the searches of this family; a general map is `std::unordered_map`.
class IdentifierIndex {
 public:
  /// Room for `count` different identifiers; no more may be added.
  explicit IdentifierIndex(std::size_t count)
      : slots_(std::bit_ceil(count * 2 + 2)), shift_(std::countl_zero(slots_.size()) + 1) {}

  /// The number added first under an equal identifier; `number` when there was none, which is then
  /// added. `isEqual(other)` says whether the element `other` has the identifier that `hash` is of.
  template <class IsEqual>
  std::int32_t findOrAdd(std::size_t hash, std::int32_t number, IsEqual isEqual) {
    Slot& slot = slotOf(hash, isEqual);
    if (slot.number < 0) slot = {tagOf(hash), number};
    return slot.number;
  }

  /// The same without adding: -1 when there is none.
  template <class IsEqual>
  std::int32_t find(std::size_t hash, IsEqual isEqual) {
    return slotOf(hash, isEqual).number;
  }

  /// Fetches what a search for `hash` begins with, for one that comes some searches later.
  void prefetch(std::size_t hash) const { __builtin_prefetch(&slots_[spread(hash) >> shift_], 1); }

 private:
  struct Slot {
    std::uint32_t tag = 0;
    std::int32_t number = -1;  // -1: free
  };

  // Many standard hashes of integers are the integer itself: its bits have to be spread.
  static std::uint64_t spread(std::size_t hash) { return hash * 0x9E3779B97F4A7C15U; }
  static std::uint32_t tagOf(std::size_t hash) { return static_cast<std::uint32_t>(spread(hash)); }

  template <class IsEqual>
  Slot& slotOf(std::size_t hash, IsEqual& isEqual) {
    const std::uint32_t tag = tagOf(hash);
    for (std::size_t at = spread(hash) >> shift_;; at = (at + 1) & (slots_.size() - 1)) {
      Slot& slot = slots_[at];
      if (slot.number < 0 || (slot.tag == tag && isEqual(slot.number))) return slot;
    }
  }

  std::vector<Slot> slots_;
  int shift_;
};

}  // namespace tessarine
