#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "tessarine/differencing/Edit.hpp"

namespace tessarine {

/// The script that the greedy search of Myers finds: "An O(ND) Difference Algorithm and Its
/// Variations", Algorithmica 1 (1986). It is a shortest one; where a removal and an insertion reach
/// equally far, the removal is taken. There is no cut-off.
///
/// The paper goes from depth to depth, over the furthest points that d edits reach on each diagonal
/// k = x - y. Here the same points are taken in another order: by the edits that a path through
/// them must at least have, d and the distance of k from the end's diagonal. These levels are those
/// of Wu, Manber, Myers, Miller: "An O(NP) Sequence Comparison Algorithm" (1990). What no shortest
/// path can go through is never looked at: half of the points where as many elements come as go,
/// and nearly all where they only come or only go. Time is in the order of the sum of the lengths,
/// and of the distance times the fewer of the removals and the insertions.
///
/// The paper keeps all furthest points, to walk back. Here one bit a point is kept, which of the
/// two steps led there; from the diagonals that the bits give, the points are found again by
/// walking forward once. Past 32 MiB of bits, which is some 32,000 edits, those so far are dropped
/// and one level of points is kept instead, from which they are found again on the way back: that
/// doubles the time. So memory grows with the width of a level times the root of their number.
template <class Position, class Equivalent>
class ShortestEdit {
 public:
  static constexpr std::size_t usualWords = 4'194'304;

  /// `equivalent(x, y)` compares the old element at `x` with the new one at `y`; it may be called
  /// up to three times for a pair. One that is not transitive gives some script of the elements it
  /// matched. `mostWords` of 64 bits are kept before the first are dropped.
  ShortestEdit(Position oldCount, Position newCount, Equivalent equivalent,
               std::size_t mostWords = usualWords)
      : n_(oldCount),
        m_(newCount),
        goal_(oldCount - newCount),
        equivalent_(std::move(equivalent)),
        most_words_(mostWords),
        points_(std::make_unique_for_overwrite<Position[]>(static_cast<std::size_t>(oldCount) +
                                                           static_cast<std::size_t>(newCount) + 3)),
        reach_(points_.get() + newCount + 1) {}

  /// The script, removals and insertions in the order of the walk from the start to the end. Absent
  /// when more than `mostPoints` points would have to be looked at; a later call with more goes on
  /// from there.
  std::optional<std::vector<Edit>> script(
      std::size_t mostPoints = std::numeric_limits<std::size_t>::max()) {
    if (!search(mostPoints)) return std::nullopt;
    std::vector<Edit> edits(static_cast<std::size_t>(std::abs(goal_) + 2 * level_));
    walkBack(edits);
    walkForward(edits);
    return edits;
  }

  /// How many points will be looked at in all, judged by how far those so far have come: twice as
  /// far is twice the edits, and four times the points. A level was looked at; time in the order of
  /// its points.
  double expectedPoints() const {
    Position furthest = 1;
    for (Position k = lowest(level_ - 1); k <= highest(level_ - 1); ++k) {
      furthest = std::max(furthest, 2 * reach_[k] - k);
    }
    const double share = static_cast<double>(furthest) / (static_cast<double>(n_) + m_);
    return static_cast<double>(looked_) / (share * share);
  }

 private:
  /// The points of a level that was looked at, from its lowest diagonal up.
  struct Checkpoint {
    Position level;
    std::vector<Position> points;
  };

  // A level is the diagonals from which its number of edits can lead to the end, as far as the two
  // lengths allow.
  Position lowest(Position level) const {
    return std::max<Position>(-m_, std::min<Position>(0, goal_) - level);
  }
  Position highest(Position level) const {
    return std::min<Position>(n_, std::max<Position>(0, goal_) + level);
  }

  /// Goes on to the level that reaches the end; leaves the bits of the last ones in the rows.
  bool search(std::size_t mostPoints) {
    rows_.reserve(64);
    for (;; ++level_) {
      const auto points = static_cast<std::size_t>(highest(level_) - lowest(level_)) + 1;
      if (points > mostPoints - std::min(mostPoints, looked_)) return false;
      looked_ += points;
      if (kept_ > std::max(most_words_, checkpointed_)) keepPoints(level_ - 1);
      look(level_);
      if (reach_[goal_] >= n_) return true;
    }
  }

  /// Finds the points of a level from those of the level before.
  void look(Position level) {
    const Position low = lowest(level);
    const Position high = highest(level);
    const auto leftWords = wordsFor(goal_ - low + 1);
    std::uint64_t* const row = addRow(leftWords + wordsFor(high - goal_));
    // No step comes from outside: -1 loses every comparison.
    if (level == 0) std::fill(reach_ + low, reach_ + high + 1, Position{-1});
    reach_[low - 1] = reach_[high + 1] = -1;
    // Towards the end's diagonal from either side: so the neighbour outside is of this level, and
    // the one inside still of the level before.
    lookFrom<-1>(high, high - goal_, row + leftWords);
    lookFrom<1>(low, goal_ - low + 1, row);
  }

  /// Finds `count` points from the diagonal `first` on, and writes a bit for each: whether an
  /// insertion led there.
  template <int direction>
  void lookFrom(Position first, Position count, std::uint64_t* word) {
    // Copies that the stores cannot change.
    const Position n = n_;
    const Position m = m_;
    const Equivalent equivalent = equivalent_;
    Position* const reach = reach_;
    Position outside = reach[first - direction];
    for (Position done = 0; done < count;) {
      std::uint64_t bits = 0;
      const Position many = std::min<Position>(count - done, 64);
      for (Position i = 0; i < many; ++i) {
        const Position k = first + direction * (done + i);
        const Position inside = reach[k + direction];
        const Position below = direction > 0 ? outside : inside;
        const Position above = direction > 0 ? inside : outside;
        // The same as: above if below < above, else below + 1.
        Position x = std::max<Position>(below + 1, above);
        bits = bits >> 1 | static_cast<std::uint64_t>(below < above) << 63;
        const Position y = x - k;
        if (x < n && y < m && equivalent(x, y)) x += 1 + matched(x + 1, y + 1);
        reach[k] = outside = x;
      }
      // The bit of the first is the lowest.
      *word++ = bits >> (64 - many);
      done += many;
    }
  }

  /// How far matches lead on from there.
  Position matched(Position x, Position y) const {
    const Position most = std::min(n_ - x, m_ - y);
    if constexpr (requires { equivalent_.equalRun(x, y, most); }) {
      return static_cast<Position>(equivalent_.equalRun(static_cast<std::size_t>(x),
                                                        static_cast<std::size_t>(y),
                                                        static_cast<std::size_t>(most)));
    } else {
      Position length = 0;
      while (length < most && equivalent_(x + length, y + length)) ++length;
      return length;
    }
  }

  static std::size_t wordsFor(Position bits) { return (static_cast<std::size_t>(bits) + 63) / 64; }

  /// Room for the bits of one more level. Blocks grow up to 0.5 MiB and never move.
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

  void dropRows(Position firstLevel) {
    rows_.clear();
    blocks_.clear();
    room_ = kept_ = 0;
    first_level_ = firstLevel;
  }

  /// Keeps the points of `level`, the last that was looked at, instead of all bits.
  void keepPoints(Position level) {
    checkpoints_.push_back(
        {level, std::vector<Position>(reach_ + lowest(level), reach_ + highest(level) + 1)});
    checkpointed_ += checkpoints_.back().points.size() * sizeof(Position) / sizeof(std::uint64_t);
    dropRows(level + 1);
  }

  /// Finds again the bits of the levels before the rows, up to `level`.
  void lookAgain(Position level) {
    checkpoints_.pop_back();
    const bool fromStart = checkpoints_.empty();
    dropRows(fromStart ? 0 : checkpoints_.back().level + 1);
    if (!fromStart) {
      const Checkpoint& from = checkpoints_.back();
      std::copy(from.points.begin(), from.points.end(), reach_ + lowest(from.level));
    }
    for (Position each = first_level_; each <= level; ++each) look(each);
  }

  bool isInsertion(Position level, Position k) const {
    const Position low = lowest(level);
    const std::uint64_t* row = rows_[static_cast<std::size_t>(level - first_level_)];
    auto at = static_cast<std::size_t>(k - low);
    if (k > goal_) {
      row += wordsFor(goal_ - low + 1);
      at = static_cast<std::size_t>(highest(level) - k);
    }
    return (row[at / 64] >> (at % 64) & 1) != 0;
  }

  /// Finds which steps are removals, from the last to the first.
  void walkBack(std::vector<Edit>& edits) {
    Position k = goal_;
    for (auto d = static_cast<Position>(edits.size()); d > 0; --d) {
      const Position level = (d + std::abs(goal_ - k) - std::abs(goal_)) / 2;
      if (level < first_level_) lookAgain(level);
      const bool insertion = isInsertion(level, k);
      edits[static_cast<std::size_t>(d) - 1].isRemoval = !insertion;
      k += insertion ? 1 : -1;
    }
  }

  /// Finds where the steps are, from the first to the last.
  void walkForward(std::vector<Edit>& edits) const {
    Position x = 0;
    Position y = 0;
    for (std::size_t i = 0; i < edits.size(); ++i) {
      const Position length = matched(x, y);
      x += length;
      y += length;
      // A test that answers differently the second time must not lead outside.
      if (edits[i].isRemoval ? x >= n_ : y >= m_) return edits.resize(i);
      edits[i].offset = edits[i].isRemoval ? x++ : y++;
    }
  }

  const Position n_;
  const Position m_;
  const Position goal_;  // the diagonal of the end
  const Equivalent equivalent_;
  const std::size_t most_words_;
  // The furthest x of each diagonal, at `reach_[k]`. Uninitialised: a level touches its own only.
  const std::unique_ptr<Position[]> points_;
  Position* const reach_;
  Position level_ = 0;      // the next to look at
  std::size_t looked_ = 0;  // points, in the levels before it

  std::vector<std::unique_ptr<std::uint64_t[]>> blocks_;  // the bits of the levels at hand
  std::uint64_t* next_ = nullptr;                         // what is free in the last block
  std::size_t room_ = 0;
  std::size_t kept_ = 0;                    // words in all blocks
  std::vector<const std::uint64_t*> rows_;  // the bits of a level, from `first_level_` on
  Position first_level_ = 0;
  std::vector<Checkpoint> checkpoints_;  // of the levels before those
  std::size_t checkpointed_ = 0;         // words in them
};

/// The shortest edit script from a sequence of `oldCount` to one of `newCount` elements; absent
/// when more than `mostPoints` points would have to be looked at.
template <class Equivalent>
std::optional<std::vector<Edit>> shortestEdit(
    std::size_t oldCount, std::size_t newCount, Equivalent equivalent,
    std::size_t mostPoints = std::numeric_limits<std::size_t>::max()) {
  // Half the memory for the points wherever the lengths allow.
  if (oldCount + newCount < static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    return ShortestEdit<std::int32_t, Equivalent>(static_cast<std::int32_t>(oldCount),
                                                  static_cast<std::int32_t>(newCount),
                                                  std::move(equivalent))
        .script(mostPoints);
  }
  return ShortestEdit<std::int64_t, Equivalent>(static_cast<std::int64_t>(oldCount),
                                                static_cast<std::int64_t>(newCount),
                                                std::move(equivalent))
      .script(mostPoints);
}

}  // namespace tessarine
