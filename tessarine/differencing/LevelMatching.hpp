#pragma once

#include <cstdint>
#include <vector>

#include "tessarine/differencing/Diffable.hpp"

namespace tessarine {

/// Which elements of two lists have the same identifier: the meeting point of `difference` and
/// `tablePlan`. Positions are counted through all sections.
struct LevelMatching {
  /// Neighbours in the old list whose counterparts are neighbours in the new one, in the same
  /// order.
  struct Run {
    std::int32_t oldStart;
    std::int32_t newStart;
    std::int32_t length;
  };
  /// An old element whose counterpart is not simply unchanged.
  struct Mark {
    std::int32_t old;
    ElementDifference difference;
  };

  std::int32_t oldCount = 0;
  std::int32_t newCount = 0;
  std::vector<Run> runs;    // by old position
  std::vector<Mark> marks;  // by old position
  // Elements in no run that are neither deleted nor inserted, for an earlier one of their list has
  // the same identifier. With repeats several old elements may have one counterpart, the first.
  std::vector<std::int32_t> repeatedOld;
  std::vector<std::int32_t> repeatedNew;
  bool repeats = false;
  // Where identifiers repeat, whether the two lists are equal place by place all the same.
  bool isSame = false;

  void add(std::int32_t old, std::int32_t now, std::int32_t length) {
    if (length == 0) return;
    if (!runs.empty()) {
      Run& last = runs.back();
      if (last.oldStart + last.length == old && last.newStart + last.length == now) {
        last.length += length;
        return;
      }
    }
    runs.push_back({old, now, length});
  }
};

}  // namespace tessarine
