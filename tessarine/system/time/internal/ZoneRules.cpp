#include "tessarine/system/time/internal/ZoneRules.hpp"

#include <algorithm>
#include <utility>

namespace tessarine::internal {
namespace {

constexpr std::int64_t endOfTime = std::numeric_limits<std::int64_t>::max() / 2;
constexpr std::int64_t longestSeason = std::int64_t{366} * 86400;

/// Data files may call winter the exception and give it the smaller offset. Daylight saving is then
/// the other state, in the seasons beside it.
void turnNegativeSavings(std::vector<ZoneSpan>& spans) {
  const auto isStandard = [](const ZoneSpan& span) { return !span.isDaylightSaving; };
  std::vector<std::size_t> winters, summers;
  for (std::size_t i = 1; i + 1 < spans.size(); ++i) {
    const ZoneSpan& before = spans[i - 1];
    const ZoneSpan& after = spans[i + 1];
    const bool isBelow = spans[i].offset < before.offset && spans[i].offset < after.offset;
    if (isStandard(spans[i]) || !isStandard(before) || !isStandard(after) || !isBelow) continue;
    winters.push_back(i);
    if (i >= 2 && spans[i].start - before.start < longestSeason) summers.push_back(i - 1);
    if (i + 2 < spans.size() && spans[i + 2].start - after.start < longestSeason) {
      summers.push_back(i + 1);
    }
  }
  for (const std::size_t i : winters) spans[i].isDaylightSaving = false;
  for (const std::size_t i : summers) spans[i].isDaylightSaving = true;
}

}  // namespace

ZoneRules::ZoneRules(std::string identifier, Table table)
    : identifier_(std::move(identifier)),
      spans_(std::move(table.spans)),
      names_(std::move(table.abbreviations)),
      firstTransition_(spans_.size() > 1 ? spans_[1].start : endOfTime),
      cycleEnd_(table.cycleEnd) {
  turnNegativeSavings(spans_);
  const std::int64_t last = spans_.back().start;
  spans_.insert(spans_.end(), 2, {endOfTime, spans_.back().offset, false, 0});
  std::uint16_t span = 0;
  for (std::int64_t start = firstTransition_; start <= last + (std::int64_t{1} << bucketBits);
       start += std::int64_t{1} << bucketBits) {
    while (start >= spans_[span + std::size_t{1}].start) ++span;
    buckets_.push_back(span);
  }
  if (buckets_.empty()) buckets_.push_back(0);
  lastBucket_ = buckets_.size() - 1;
  if (firstTransition_ < endOfTime) {
    tableLength_ = std::min(
        std::uint64_t{buckets_.size()} << bucketBits,
        static_cast<std::uint64_t>(cycleEnd_) - static_cast<std::uint64_t>(firstTransition_));
  }
}

std::optional<std::int64_t> ZoneRules::nextTransition(std::int64_t second) const noexcept {
  if (firstTransition_ == endOfTime) return std::nullopt;
  if (second < firstTransition_) return firstTransition_;
  const std::int64_t back = cyclesBehind(second) * cycle;
  const std::int64_t next = spans_[indexAt(second - back) + 1].start;
  if (next < endOfTime) return next + back;
  // Behind the last of the table: the first of the cycle before it, one cycle later.
  if (cycleEnd_ == std::numeric_limits<std::int64_t>::max()) return std::nullopt;
  return spans_[indexAt(second - back - cycle) + 1].start + back + cycle;
}

ZoneRules::Table fixedZone(int offset, std::string abbreviation) {
  return {.spans = {{std::numeric_limits<std::int64_t>::min(), offset, false, 0}},
          .abbreviations = {std::move(abbreviation)}};
}

}  // namespace tessarine::internal
