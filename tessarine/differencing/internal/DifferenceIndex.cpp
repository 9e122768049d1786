#include "tessarine/differencing/internal/DifferenceIndex.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tessarine/values/IndexPath.hpp"

namespace tessarine {

namespace {

/// Of each section, the end of the row of deleted sections that begins with it.
class DeletedSections {
 public:
  DeletedSections(const MetaMutator* metaMutator, std::int64_t most) {
    if (metaMutator == nullptr || metaMutator->sectionDifference.deletions.empty()) return;
    const auto& deletions = metaMutator->sectionDifference.deletions;
    most = std::max(most, *std::prev(deletions.end()));
    counts_.resize(static_cast<std::size_t>(most) + 2);
    for (std::int64_t section = most; section >= 0; --section) {
      const auto at = static_cast<std::size_t>(section);
      if (deletions.contains(section)) counts_[at] = counts_[at + 1] + 1;
    }
  }
  /// How many sections are deleted in a row, from `section` upward.
  std::int64_t countFrom(std::int64_t section) const {
    const auto at = static_cast<std::size_t>(section);
    return at < counts_.size() ? counts_[at] : 0;
  }

 private:
  std::vector<std::int64_t> counts_;
};

}  // namespace

std::vector<IndexPath> DifferenceIndex<IndexPath>::indexesReindexing(
    std::vector<IndexPath> indexes, const MetaMutator* metaMutator) {
  if (indexes.empty()) return indexes;
  const DeletedSections deleted(metaMutator, indexes.back().section());
  std::int64_t current = indexes.front().section();
  std::int64_t row = 0;
  std::int64_t skipped = 0;
  for (IndexPath& path : indexes) {
    const std::int64_t section = path.section();
    if (section != current) {
      const std::int64_t gap = current + 1 < section ? deleted.countFrom(current + 1) : 0;
      skipped += gap;
      if (current < section - gap) row = 0;
      current = section;
    }
    path = IndexPath(row++, current - skipped);
  }
  return indexes;
}

}  // namespace tessarine
