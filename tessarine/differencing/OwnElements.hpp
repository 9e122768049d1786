#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include "tessarine/differencing/IdentifierIndex.hpp"

namespace tessarine {

/// Offsets of elements that only one of two lists has: whatever script turns one list into the
/// other removes or inserts every one of them.
class OwnElements {
 public:
  /// Of a list of `count` elements; `offsets` ascend.
  OwnElements(std::size_t count, std::vector<std::int32_t> offsets)
      : words_(count / 64 + 1), before_(count / 64 + 1), offsets_(std::move(offsets)) {
    for (const std::int32_t offset : offsets_) {
      words_[static_cast<std::size_t>(offset) / 64] |= std::uint64_t{1} << (offset % 64);
    }
    std::int32_t sum = 0;
    for (std::size_t i = 0; i < words_.size(); ++i) {
      before_[i] = sum;
      sum += std::popcount(words_[i]);
    }
  }

  const std::vector<std::int32_t>& offsets() const { return offsets_; }
  std::int32_t count() const { return static_cast<std::int32_t>(offsets_.size()); }
  bool contains(std::size_t offset) const {
    return (words_[offset / 64] >> (offset % 64) & 1) != 0;
  }
  /// How many are at `offset` or behind it. Constant time.
  std::int32_t from(std::int32_t offset) const {
    const auto word = static_cast<std::size_t>(offset) / 64;
    const std::uint64_t lower = (std::uint64_t{1} << (offset % 64)) - 1;
    return count() - before_[word] - std::popcount(words_[word] & lower);
  }

 private:
  std::vector<std::uint64_t> words_;   // a bit an element
  std::vector<std::int32_t> before_;   // how many in the words before
  std::vector<std::int32_t> offsets_;  // ascending
};

/// What one script does to two lists; the elements that it leaves are equal, one by one. Ascending.
struct Unmatched {
  std::vector<std::int32_t> removed;
  std::vector<std::int32_t> inserted;
};

/// Finds which of the unmatched elements the other list does not have anywhere. Hashes the old list
/// once; the new one has the same elements but for the unmatched.
template <class Number>
class OwnElementsSearch {
 public:
  OwnElementsSearch(std::span<const Number> old, std::span<const Number> now,
                    const Unmatched& unmatched)
      : old_(old),
        now_(now),
        unmatched_(unmatched),
        index_(count()),
        group_(count()),
        lists_(count()),
        filter_(std::min(32 * std::bit_ceil(count() + 1), largestFilter)),
        shift_(std::countl_zero(filter_.size()) + 1) {
    for (std::size_t i = 0; i < count(); ++i) add(i);
    noteMatched();
  }

  OwnElements ofOld() const { return {old_.size(), own(unmatched_.removed, 0)}; }
  OwnElements ofNew() const { return {now_.size(), own(unmatched_.inserted, removedCount())}; }

 private:
  static constexpr std::size_t largestFilter = std::size_t{4} * 1024 * 1024;
  static constexpr char inOld = 1;
  static constexpr char inNew = 2;

  std::size_t removedCount() const { return unmatched_.removed.size(); }
  std::size_t count() const { return removedCount() + unmatched_.inserted.size(); }
  const Number& element(std::size_t i) const {
    return i < removedCount()
               ? old_[static_cast<std::size_t>(unmatched_.removed[i])]
               : now_[static_cast<std::size_t>(unmatched_.inserted[i - removedCount()])];
  }

  static std::size_t hash(const Number& element) { return std::hash<Number>{}(element); }
  /// Of the filter, which has 32 slots for each unmatched element, so that few others meet one;
  /// fewer where these are very many.
  std::size_t slotOf(const Number& element) const {
    return static_cast<std::size_t>(hash(element) * 0x9E3779B97F4A7C15U >> shift_);
  }

  void add(std::size_t i) {
    const Number& own = element(i);
    group_[i] = index_.findOrAdd(hash(own), static_cast<std::int32_t>(i), [&](std::int32_t other) {
      return own == element(static_cast<std::size_t>(other));
    });
    lists_[static_cast<std::size_t>(group_[i])] |= i < removedCount() ? inOld : inNew;
    filter_[slotOf(own)] = 1;
  }

  /// Notes the unmatched elements that equal a matched one.
  void noteMatched() {
    std::size_t matched = 0;
    for (const std::int32_t removed : unmatched_.removed) {
      noteRun(matched, static_cast<std::size_t>(removed));
      matched = static_cast<std::size_t>(removed) + 1;
    }
    noteRun(matched, old_.size());
  }

  void noteRun(std::size_t first, std::size_t last) {
    const char* const filter = filter_.data();
    for (std::size_t at = first; at < last; ++at) {
      if (filter[slotOf(old_[at])] != 0) note(old_[at]);
    }
  }

  void note(const Number& matched) {
    const std::int32_t group = index_.find(hash(matched), [&](std::int32_t other) {
      return matched == element(static_cast<std::size_t>(other));
    });
    if (group >= 0) lists_[static_cast<std::size_t>(group)] = inOld | inNew;
  }

  std::vector<std::int32_t> own(const std::vector<std::int32_t>& offsets, std::size_t from) const {
    std::vector<std::int32_t> result;
    for (std::size_t i = 0; i < offsets.size(); ++i) {
      if (lists_[static_cast<std::size_t>(group_[from + i])] != (inOld | inNew)) {
        result.push_back(offsets[i]);
      }
    }
    return result;
  }

  const std::span<const Number> old_;
  const std::span<const Number> now_;
  const Unmatched& unmatched_;
  IdentifierIndex index_;            // of the unmatched, by value
  std::vector<std::int32_t> group_;  // the first of the unmatched that is equal to it
  std::vector<char> lists_;          // by the first: which lists have one
  std::vector<char> filter_;
  const int shift_;
};

}  // namespace tessarine
