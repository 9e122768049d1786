#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace tessarine {

/// One step of a shortest edit script, in offsets of the two sequences.
struct Edit {
  bool isRemoval = false;
  std::int64_t offset = 0;  // in the old sequence for a removal, in the new one for an insertion
};

/// The greedy search of Myers for a shortest edit script: "An O(ND) Difference Algorithm and Its
/// Variations", Algorithmica 1 (1986). Where a removal and an insertion reach equally far, the
/// removal is taken. There is no cut-off: time is in the order of the sum of the lengths and the
/// square of the distance.
///
/// The paper keeps the row of furthest points of every depth, to walk back. Here one bit a point is
/// kept, which of the two steps led there; from the diagonals that the bits give, the points are
/// found again by walking forward once. So the memory is the square of the distance in bits, over
/// two: 0.25 MiB for 2,000 edits, 24 MiB for 20,000.
template <class Position, class Equivalent>
class ShortestEdit {
 public:
  /// `equivalent(x, y)` compares the old element at `x` with the new one at `y`; it may be called
  /// twice for a pair. One that is not transitive gives some script of the elements it matched.
  ShortestEdit(Position oldCount, Position newCount, Equivalent equivalent)
      : n_(oldCount), m_(newCount), equivalent_(std::move(equivalent)) {}

  /// The script, removals and insertions in the order of the walk from the start to the end.
  std::vector<Edit> script() {
    const Position distance = search();
    std::vector<Edit> edits(static_cast<std::size_t>(distance));
    walkBack(edits);
    walkForward(edits);
    return edits;
  }

 private:
  // A row is the diagonals k = x - y that the two lengths allow, in steps of two.
  Position lowest(Position d) const { return d <= m_ ? -d : -m_ + ((d - m_) & 1); }
  Position highest(Position d) const { return d <= n_ ? d : n_ - ((d - n_) & 1); }

  /// How far matches lead from there.
  Position snake(Position x, Position y) const {
    while (x < n_ && y < m_ && equivalent_(x, y)) {
      ++x;
      ++y;
    }
    return x;
  }

  /// Gives the distance, and leaves the bits of every depth in the rows.
  Position search() {
    const Position start = snake(0, 0);
    if (start == n_ && n_ == m_) return 0;
    const Position goal = n_ - m_;
    const std::size_t most = static_cast<std::size_t>(n_) + static_cast<std::size_t>(m_);
    // Furthest x of each diagonal, at `reach[k]`. Uninitialised: a depth touches its own range
    // only.
    const auto reaches = std::make_unique_for_overwrite<Position[]>(most + 3);
    Position* const reach = reaches.get() + m_ + 1;
    reach[0] = start;
    rows_.reserve(64);
    for (Position d = 1;; ++d) {
      // No step comes from outside: -1 loses every comparison.
      if (d <= m_) reach[-d - 1] = -1;
      if (d <= n_) reach[d + 1] = -1;
      if (d == 1) reach[-1] = reach[1] = -1;
      if (step(d, goal, reach)) return d;
    }
  }

  /// One depth: true when it reaches the end.
  bool step(Position d, Position goal, Position* reach) {
    const Position low = lowest(d);
    const Position high = highest(d);
    std::uint64_t* word = addRow(static_cast<std::size_t>((high - low) / 2) / 64 + 1);
    // Copies that the stores into the row cannot change.
    const Position n = n_;
    const Position m = m_;
    const Equivalent equivalent = equivalent_;
    Position below = reach[low - 1];
    for (Position first = low; first <= high; first += 128) {
      std::uint64_t bits = 0;
      const Position last = std::min<Position>(high, first + 126);
      for (Position k = first; k <= last; k += 2) {
        const Position above = reach[k + 1];
        // The same as: above if below < above, else below + 1.
        Position x = std::max<Position>(below + 1, above);
        bits = bits >> 1 | static_cast<std::uint64_t>(below < above) << 63;
        below = above;
        Position y = x - k;
        while (x < n && y < m && equivalent(x, y)) {
          ++x;
          ++y;
        }
        reach[k] = x;
      }
      // The bit of `first` is the lowest.
      *word++ = bits >> (63 - (last - first) / 2);
    }
    return goal >= low && goal <= high && ((goal - low) & 1) == 0 && reach[goal] >= n_;
  }

  /// Room for the bits of one more depth. Blocks grow up to 0.5 MiB and never move.
  std::uint64_t* addRow(std::size_t words) {
    if (room_ < words) {
      room_ = std::max(words, std::clamp<std::size_t>(kept_, 32, 65'536));
      kept_ += room_;
      blocks_.push_back(std::make_unique_for_overwrite<std::uint64_t[]>(room_));
      next_ = blocks_.back().get();
    }
    room_ -= words;
    rows_.push_back(next_);
    return std::exchange(next_, next_ + words);
  }

  bool isInsertion(Position d, Position k) const {
    const auto at = static_cast<std::size_t>((k - lowest(d)) / 2);
    return (rows_[static_cast<std::size_t>(d) - 1][at / 64] >> (at % 64) & 1) != 0;
  }

  /// Finds which steps are removals, from the last to the first.
  void walkBack(std::vector<Edit>& edits) const {
    Position k = n_ - m_;
    for (auto d = static_cast<Position>(edits.size()); d > 0; --d) {
      const bool insertion = isInsertion(d, k);
      edits[static_cast<std::size_t>(d) - 1].isRemoval = !insertion;
      k += insertion ? 1 : -1;
    }
  }

  /// Finds where the steps are, from the first to the last.
  void walkForward(std::vector<Edit>& edits) const {
    Position x = 0;
    Position y = 0;
    for (std::size_t i = 0; i < edits.size(); ++i) {
      const Position matched = snake(x, y) - x;
      x += matched;
      y += matched;
      // A test that answers differently the second time must not lead outside.
      if (edits[i].isRemoval ? x >= n_ : y >= m_) return edits.resize(i);
      edits[i].offset = edits[i].isRemoval ? x++ : y++;
    }
  }

  Position n_;
  Position m_;
  Equivalent equivalent_;
  std::vector<std::unique_ptr<std::uint64_t[]>> blocks_;  // the bits of all depths
  std::uint64_t* next_ = nullptr;                         // what is free in the last block
  std::size_t room_ = 0;
  std::size_t kept_ = 0;                    // words in all blocks
  std::vector<const std::uint64_t*> rows_;  // the bits of depth d, at d - 1
};

/// The shortest edit script from a sequence of `oldCount` to one of `newCount` elements.
template <class Equivalent>
std::vector<Edit> shortestEdit(std::size_t oldCount, std::size_t newCount, Equivalent equivalent) {
  // Half the memory for the rows wherever the lengths allow.
  if (oldCount + newCount < static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    return ShortestEdit<std::int32_t, Equivalent>(static_cast<std::int32_t>(oldCount),
                                                  static_cast<std::int32_t>(newCount),
                                                  std::move(equivalent))
        .script();
  }
  return ShortestEdit<std::int64_t, Equivalent>(static_cast<std::int64_t>(oldCount),
                                                static_cast<std::int64_t>(newCount),
                                                std::move(equivalent))
      .script();
}

}  // namespace tessarine
