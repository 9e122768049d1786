#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace tessarine::test {

/// The search as the paper has it, with the whole trace kept: what the library's has to equal.
template <class Element, class By>
// NOLINTNEXTLINE(readability-function-cognitive-complexity): as the paper prints it
std::vector<std::pair<bool, std::int64_t>> paperSearch(const std::vector<Element>& old,
                                                       const std::vector<Element>& now, By by) {
  using Row = std::vector<std::int64_t>;
  const auto slot = [](std::int64_t k) { return static_cast<std::size_t>(k <= 0 ? -k : k - 1); };
  const auto n = static_cast<std::int64_t>(old.size());
  const auto m = static_cast<std::int64_t>(now.size());
  std::vector<Row> trace;
  Row v(2, 0);
  const auto isAbove = [&](const Row& row, std::int64_t d, std::int64_t k) {
    return k == -d || (k != d && row[slot(k - 1)] < row[slot(k + 1)]);
  };
  const auto descend = [&] {
    for (std::int64_t d = 0; d <= n + m; ++d) {
      const Row last = v;
      trace.push_back(v);
      v = Row(static_cast<std::size_t>(d) + 1, 0);
      for (std::int64_t k = -d; k <= d; k += 2) {
        std::int64_t x = isAbove(last, d, k) ? last[slot(k + 1)] : last[slot(k - 1)] + 1;
        std::int64_t y = x - k;
        while (x < n && y < m &&
               by(old[static_cast<std::size_t>(x)], now[static_cast<std::size_t>(y)])) {
          ++x;
          ++y;
        }
        v[slot(k)] = x;
        if (x >= n && y >= m) return;
      }
    }
  };
  descend();
  std::vector<std::pair<bool, std::int64_t>> script;  // is it a removal, and its offset; backwards
  std::int64_t x = n;
  std::int64_t y = m;
  for (auto d = static_cast<std::int64_t>(trace.size()) - 1; d >= 1; --d) {
    const Row& row = trace[static_cast<std::size_t>(d)];
    const std::int64_t from = isAbove(row, d, x - y) ? x - y + 1 : x - y - 1;
    const std::int64_t from_x = row[slot(from)];
    const std::int64_t from_y = from_x - from;
    while (x > from_x && y > from_y) {
      --x;
      --y;
    }
    script.emplace_back(y == from_y, y == from_y ? from_x : from_y);
    x = from_x;
    y = from_y;
  }
  return script;
}

}  // namespace tessarine::test
