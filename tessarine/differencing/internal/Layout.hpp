#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "tessarine/differencing/SnapshotMatching.hpp"
#include "tessarine/differencing/internal/DifferenceIndex.hpp"

namespace tessarine {

/// Turns positions counted through all sections into the indexes of a level. Each section begins at
/// an entry of `starts`, whose last entry is the count of all.
template <class Index>
class Layout {
 public:
  explicit Layout(std::span<const std::int32_t> starts) : starts_(starts) {}

  std::int32_t count() const { return starts_.back(); }
  std::int32_t sectionCount() const { return static_cast<std::int32_t>(starts_.size()) - 1; }
  std::int32_t sectionStart(std::int32_t section) const {
    return starts_[static_cast<std::size_t>(section)];
  }
  std::int32_t sectionOf(std::int32_t position) const {
    return static_cast<std::int32_t>(std::upper_bound(starts_.begin(), starts_.end(), position) -
                                     starts_.begin() - 1);
  }
  /// The same where `guess` is the section of a position near by: mostly right, or one off.
  std::int32_t sectionOf(std::int32_t position, std::int32_t guess) const {
    for (const std::int32_t section : {guess, guess + 1, guess - 1}) {
      if (section >= 0 && section < sectionCount() && position >= sectionStart(section) &&
          position < sectionStart(section + 1)) {
        return section;
      }
    }
    return sectionOf(position);
  }
  Index at(std::int32_t position) const { return at(position, sectionOf(position)); }
  Index at(std::int32_t position, std::int32_t section) const {
    return DifferenceIndex<Index>::make(position - sectionStart(section), section);
  }
  std::span<const std::int32_t> starts() const { return starts_; }

 private:
  std::span<const std::int32_t> starts_;
};

/// The runs of a matching, cut where a section of either snapshot ends.
template <class Index>
class CutRuns {
 public:
  CutRuns(const Layout<Index>& old, const Layout<Index>& now) : old_(old), now_(now) {}

  /// Calls `use(run, oldSection, newSection)` for each piece of `runs`, in their order, which is by
  /// old position.
  template <class Use>
  void forEach(const std::vector<LevelMatching::Run>& runs, Use use) const {
    std::int32_t old_section = 0;
    std::int32_t new_section = 0;
    for (LevelMatching::Run run : runs) {
      while (run.length > 0) {
        while (run.oldStart >= old_.sectionStart(old_section + 1)) ++old_section;
        new_section = now_.sectionOf(run.newStart, new_section);
        const std::int32_t length =
            std::min({run.length, old_.sectionStart(old_section + 1) - run.oldStart,
                      now_.sectionStart(new_section + 1) - run.newStart});
        if (!use(LevelMatching::Run{run.oldStart, run.newStart, length}, old_section,
                 new_section)) {
          return;
        }
        run = {run.oldStart + length, run.newStart + length, run.length - length};
      }
    }
  }

 private:
  const Layout<Index>& old_;
  const Layout<Index>& now_;
};

/// The positions from 0 to before `count` that are in none of the `ranges` (start, length) and not
/// among `except`; all ascending.
template <class Use>
void forEachOutside(std::int32_t count, std::vector<std::pair<std::int32_t, std::int32_t>> ranges,
                    const std::vector<std::int32_t>& except, Use use) {
  if (!std::is_sorted(ranges.begin(), ranges.end())) std::sort(ranges.begin(), ranges.end());
  ranges.emplace_back(count, 0);
  auto skipped = except.begin();
  std::int32_t at = 0;
  for (const auto& [start, length] : ranges) {
    for (; at < start; ++at) {
      while (skipped != except.end() && *skipped < at) ++skipped;
      if (skipped == except.end() || *skipped != at) use(at);
    }
    at = std::max(at, start + length);
  }
}

/// The old elements that are in the new list no more.
template <class Use>
void forEachDeleted(const LevelMatching& matching, Use use) {
  std::vector<std::pair<std::int32_t, std::int32_t>> ranges;
  ranges.reserve(matching.runs.size() + 1);
  for (const auto& run : matching.runs) ranges.emplace_back(run.oldStart, run.length);
  forEachOutside(matching.oldCount, std::move(ranges), matching.repeatedOld, use);
}

/// The new elements that were not in the old list.
template <class Use>
void forEachInserted(const LevelMatching& matching, Use use) {
  std::vector<std::pair<std::int32_t, std::int32_t>> ranges;
  ranges.reserve(matching.runs.size() + 1);
  for (const auto& run : matching.runs) ranges.emplace_back(run.newStart, run.length);
  forEachOutside(matching.newCount, std::move(ranges), matching.repeatedNew, use);
}

}  // namespace tessarine
