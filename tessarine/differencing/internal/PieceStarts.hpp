#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>

namespace tessarine {

/// Which piece an item lies in: the nodes of pieces by their first items, in order, in chunks that
/// fit a few lines of the cache. An operation costs two short binary searches, and now and then the
/// split of a chunk.
class PieceStarts {
 public:
  using Entry = std::pair<std::int32_t, std::int32_t>;  // first item, node

  void add(Entry entry) {
    if (chunks_.empty()) {
      firsts_.push_back(entry.first);
      chunks_.emplace_back().reserve(mostEntries);
    }
    const std::size_t at = chunkOf(entry.first);
    Chunk& chunk = chunks_[at];
    chunk.insert(std::upper_bound(chunk.begin(), chunk.end(), entry), entry);
    firsts_[at] = chunk.front().first;
    if (chunk.size() == mostEntries) halve(at);
  }

  /// `start` is there.
  void remove(std::int32_t start) {
    const std::size_t at = chunkOf(start);
    Chunk& chunk = chunks_[at];
    chunk.erase(std::prev(behind(chunk, start)));
    if (!chunk.empty()) {
      firsts_[at] = chunk.front().first;
      return;
    }
    chunks_.erase(chunks_.begin() + static_cast<std::ptrdiff_t>(at));
    firsts_.erase(firsts_.begin() + static_cast<std::ptrdiff_t>(at));
  }

  /// The last piece that begins at `item` or before it; null if none does.
  const Entry* lastUpTo(std::int32_t item) const {
    if (chunks_.empty()) return nullptr;
    const Chunk& chunk = chunks_[chunkOf(item)];
    const auto next = behind(chunk, item);
    return next == chunk.begin() ? nullptr : &*std::prev(next);
  }

 private:
  using Chunk = std::vector<Entry>;
  static constexpr std::size_t mostEntries = 64;

  static Chunk::const_iterator behind(const Chunk& chunk, std::int32_t item) {
    return std::upper_bound(
        chunk.begin(), chunk.end(), item,
        [](std::int32_t value, const Entry& entry) { return value < entry.first; });
  }

  /// The chunk that `item` belongs to: the last that begins at it or before, else the first.
  std::size_t chunkOf(std::int32_t item) const {
    const auto next = std::upper_bound(firsts_.begin(), firsts_.end(), item);
    return next == firsts_.begin() ? 0 : static_cast<std::size_t>(next - firsts_.begin()) - 1;
  }

  void halve(std::size_t at) {
    const auto middle = chunks_[at].begin() + mostEntries / 2;
    Chunk upper;
    upper.reserve(mostEntries);
    upper.assign(middle, chunks_[at].end());
    chunks_[at].erase(middle, chunks_[at].end());
    const auto behind = static_cast<std::ptrdiff_t>(at) + 1;
    firsts_.insert(firsts_.begin() + behind, upper.front().first);
    chunks_.insert(chunks_.begin() + behind, std::move(upper));
  }

  std::vector<Chunk> chunks_;  // none is empty
  std::vector<std::int32_t> firsts_;
};

}  // namespace tessarine
