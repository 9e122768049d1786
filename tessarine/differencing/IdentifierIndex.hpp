#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tessarine {

/// Finds equal identifiers among numbered elements: a hash table of their numbers alone, which asks
/// its caller whether two elements are equal. Open addressing, four bytes a slot, at most half
/// full: the bits that a number leaves are of the hash, and spare most questions. For the searches
/// of this family; a general map is `std::unordered_map`.
class IdentifierIndex {
 public:
  /// Room for `count` different identifiers, no more may be added, with numbers below `end`.
  IdentifierIndex(std::size_t count, std::size_t end)
      : number_bits_(static_cast<int>(std::bit_width(end))),
        slots_(std::bit_ceil(count * 2 + 2), unused),
        shift_(std::countl_zero(slots_.size()) + 1) {}
  explicit IdentifierIndex(std::size_t count) : IdentifierIndex(count, count) {}

  /// The number added first under an equal identifier; `number` when there was none, which is then
  /// added. `isEqual(other)` says whether the element `other` has the identifier that `hash` is of.
  template <class IsEqual>
  std::int32_t findOrAdd(std::size_t hash, std::int32_t number, IsEqual isEqual) {
    std::uint32_t& slot = slotOf(hash, isEqual);
    if (slot != unused) return numberIn(slot);
    slot = tagOf(hash) << number_bits_ | static_cast<std::uint32_t>(number);
    return number;
  }

  /// The same without adding: -1 when there is none.
  template <class IsEqual>
  std::int32_t find(std::size_t hash, IsEqual isEqual) {
    const std::uint32_t slot = slotOf(hash, isEqual);
    return slot == unused ? -1 : numberIn(slot);
  }

  /// Fetches what a search for `hash` begins with, for one that comes some searches later.
  void prefetch(std::size_t hash) const { __builtin_prefetch(&slots_[spread(hash) >> shift_], 1); }

  /// A hash in half the space, as good here.
  static std::uint32_t folded(std::size_t hash) {
    return static_cast<std::uint32_t>(spread(hash) >> 32);
  }

 private:
  // No number has all its bits set, for it is below `end`.
  static constexpr std::uint32_t unused = ~std::uint32_t{0};

  // Many standard hashes of integers are the integer itself: its bits have to be spread.
  static std::uint64_t spread(std::size_t hash) { return hash * 0x9E3779B97F4A7C15U; }
  /// As many bits as fit beside a number.
  std::uint32_t tagOf(std::size_t hash) const {
    return static_cast<std::uint32_t>(spread(hash)) >> number_bits_;
  }
  std::int32_t numberIn(std::uint32_t slot) const {
    return static_cast<std::int32_t>(slot & ((std::uint32_t{1} << number_bits_) - 1));
  }

  template <class IsEqual>
  std::uint32_t& slotOf(std::size_t hash, IsEqual& isEqual) {
    const std::uint32_t tag = tagOf(hash);
    for (std::size_t at = spread(hash) >> shift_;; at = (at + 1) & (slots_.size() - 1)) {
      std::uint32_t& slot = slots_[at];
      if (slot == unused || (slot >> number_bits_ == tag && isEqual(numberIn(slot)))) return slot;
    }
  }

  int number_bits_;
  std::vector<std::uint32_t> slots_;
  int shift_;
};

}  // namespace tessarine
