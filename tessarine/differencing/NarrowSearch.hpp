#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "tessarine/differencing/Edit.hpp"

namespace tessarine {

/// The greedy search of Myers from depth to depth, over the diagonals that a rule keeps: a row is
/// cut at both ends after each depth. All points looked at stay, four bytes each, to walk back.
///
/// It finds what the whole search finds where the rule cuts only points that no shortest path goes
/// through: the ones on the path are then found from the same neighbours, for what was cut could
/// not have won against them.
template <class Equal>
class NarrowSearch {
 public:
  using Position = std::int32_t;
  /// Of both lists together.
  static constexpr std::size_t mostElements = std::size_t{1} << 29;

  /// A furthest point of `depth` edits: the first `x` of the old elements are behind it, and
  /// `x - diagonal` of the new ones. `lead` is the most elements of both that any point of that
  /// depth has behind it.
  struct Point {
    Position depth;
    Position diagonal;
    Position x;
    Position lead;
  };

  NarrowSearch(std::size_t oldCount, std::size_t newCount, Equal equal)
      : n_(static_cast<Position>(oldCount)), m_(static_cast<Position>(newCount)), equal_(equal) {}

  /// The script, as `ShortestEdit` gives it; absent when the rule left no way to the end, or more
  /// than `mostPoints` were looked at. `keeps(Point)` says whether the outermost point of a row
  /// stays.
  template <class Keeps>
  std::optional<std::vector<Edit>> script(Keeps keeps, std::size_t mostPoints) {
    points_.assign(1, matched(0, 0));
    rows_.assign(1, {0, 0, 1});
    lead_ = 2 * points_.front();
    while (!isAtEnd()) {
      cut(keeps);
      if (rows_.back().count == 0 || points_.size() > mostPoints) return std::nullopt;
      look();
    }
    return walkBack();
  }

 private:
  /// The points of one depth: every second diagonal from the lowest up.
  struct Row {
    Position lowest;
    std::size_t first;
    Position count;
  };

  /// Where no point is: loses every comparison, and stays out of range however many edits follow.
  static constexpr Position nowhere = std::numeric_limits<Position>::min() / 4;

  bool isAtEnd() const { return at(rows_.back(), n_ - m_) == n_; }

  Position at(const Row& row, Position diagonal) const {
    const Position i = (diagonal - row.lowest) / 2;
    const bool isIn = diagonal >= row.lowest && i < row.count;
    return isIn ? points_[row.first + static_cast<std::size_t>(i)] : nowhere;
  }

  template <class Keeps>
  void cut(Keeps& keeps) {
    Row& row = rows_.back();
    const auto depth = static_cast<Position>(rows_.size() - 1);
    const auto isKept = [&](Position i) {
      const Position x = points_[row.first + static_cast<std::size_t>(i)];
      return x >= 0 && keeps(Point{depth, row.lowest + 2 * i, x, lead_});
    };
    while (row.count > 0 && !isKept(row.count - 1)) --row.count;
    Position low = 0;
    while (low < row.count && !isKept(low)) ++low;
    row.lowest += 2 * low;
    row.first += static_cast<std::size_t>(low);
    row.count -= low;
  }

  /// Finds the points of the next depth from those of the last.
  void look() {
    const Row from = rows_.back();
    const Row to{from.lowest - 1, from.first + static_cast<std::size_t>(from.count),
                 from.count + 1};
    points_.resize(to.first + static_cast<std::size_t>(to.count));
    rows_.push_back(to);
    const Position* const last = points_.data() + from.first;
    Position* const next = points_.data() + to.first;
    Position lead = nowhere;
    Position below = nowhere;
    for (Position i = 0; i < to.count; ++i) {
      const Position above = i < from.count ? last[i] : nowhere;
      const Position diagonal = to.lowest + 2 * i;
      // The same as: above if below < above, else below + 1.
      const Position x = slid(std::max(below + 1, above), diagonal);
      next[i] = x;
      lead = std::max(lead, 2 * x - diagonal);
      below = above;
    }
    lead_ = lead;
  }

  /// How far matches lead from `x`; nowhere when it lies outside.
  Position slid(Position x, Position diagonal) const {
    const Position y = x - diagonal;
    if (x < 0 || x > n_ || y > m_) return nowhere;
    if (x == n_ || y == m_ || !equal_(static_cast<std::size_t>(x), static_cast<std::size_t>(y)))
      return x;
    return x + 1 + matched(x + 1, y + 1);
  }

  Position matched(Position x, Position y) const {
    return static_cast<Position>(
        equal_.equalRun(static_cast<std::size_t>(x), static_cast<std::size_t>(y),
                        static_cast<std::size_t>(std::min(n_ - x, m_ - y))));
  }

  std::vector<Edit> walkBack() const {
    std::vector<Edit> edits(rows_.size() - 1);
    Position diagonal = n_ - m_;
    for (std::size_t depth = edits.size(); depth > 0; --depth) {
      const Row& row = rows_[depth - 1];
      const Position below = at(row, diagonal - 1);
      const Position above = at(row, diagonal + 1);
      const bool isRemoval = below >= above;
      diagonal += isRemoval ? -1 : 1;
      edits[depth - 1] = {isRemoval, isRemoval ? below : above - diagonal};
    }
    return edits;
  }

  const Position n_;
  const Position m_;
  const Equal equal_;
  std::vector<Position> points_;  // the furthest x, row after row
  std::vector<Row> rows_;         // one a depth
  Position lead_ = 0;             // of the last row
};

}  // namespace tessarine
