#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <utility>
#include <vector>

namespace tessarine {

/// A set of positions in ascending order, side by side in memory. Looking one up costs the
/// logarithm of the size; it is made at once and then read.
template <class Index>
class IndexSet {
 public:
  using value_type = Index;
  using const_iterator = typename std::vector<Index>::const_iterator;
  using iterator = const_iterator;

  IndexSet() = default;
  IndexSet(std::initializer_list<Index> members) : IndexSet(std::vector<Index>(members)) {}
  /// In any order; of equal members one stays.
  explicit IndexSet(std::vector<Index> members) : members_(std::move(members)) {
    if (!std::is_sorted(members_.begin(), members_.end()))
      std::sort(members_.begin(), members_.end());
    members_.erase(std::unique(members_.begin(), members_.end()), members_.end());
  }

  bool contains(const Index& index) const {
    return std::binary_search(members_.begin(), members_.end(), index);
  }
  /// How many members are less than `index`.
  std::size_t countBelow(const Index& index) const {
    return static_cast<std::size_t>(std::lower_bound(members_.begin(), members_.end(), index) -
                                    members_.begin());
  }

  const_iterator begin() const noexcept { return members_.begin(); }
  const_iterator end() const noexcept { return members_.end(); }
  std::size_t size() const noexcept { return members_.size(); }
  bool empty() const noexcept { return members_.empty(); }

  bool operator==(const IndexSet&) const = default;

 private:
  std::vector<Index> members_;
};

}  // namespace tessarine
