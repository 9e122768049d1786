#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

namespace tessarine {

/// Marks the members of an increasing subsequence of `keys` (all different) whose weights have the
/// greatest sum. With weights of 1, a longest one. Time: count times its logarithm.
inline std::vector<bool> heaviestIncreasing(const std::vector<std::int32_t>& keys,
                                            const std::vector<std::int32_t>& weights) {
  const std::size_t count = keys.size();
  if (std::is_sorted(keys.begin(), keys.end())) return std::vector<bool>(count, true);
  constexpr auto none = static_cast<std::size_t>(-1);
  std::vector<std::size_t> by_key(count);
  std::iota(by_key.begin(), by_key.end(), std::size_t{0});
  std::sort(by_key.begin(), by_key.end(),
            [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
  std::vector<std::size_t> rank(count);
  for (std::size_t i = 0; i < count; ++i) rank[by_key[i]] = i + 1;

  // A Fenwick tree over the ranks of the keys: the member with the heaviest sequence that ends
  // there.
  std::vector<std::size_t> heaviest(count + 1, none);
  std::vector<std::int64_t> sums(count);
  std::vector<std::size_t> before(count, none);
  std::size_t last = none;
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t at = rank[i] - 1; at > 0; at &= at - 1) {
      if (heaviest[at] == none) continue;
      if (before[i] == none || sums[heaviest[at]] > sums[before[i]]) before[i] = heaviest[at];
    }
    sums[i] = weights[i] + (before[i] == none ? 0 : sums[before[i]]);
    for (std::size_t at = rank[i]; at <= count; at += at & (~at + 1)) {
      if (heaviest[at] == none || sums[i] > sums[heaviest[at]]) heaviest[at] = i;
    }
    if (last == none || sums[i] > sums[last]) last = i;
  }
  std::vector<bool> marked(count, false);
  for (; last != none; last = before[last]) marked[last] = true;
  return marked;
}

}  // namespace tessarine
