#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace tessarine {

/// Sums of the first of some numbers that change, each in the logarithm of how many there are
/// (P. M. Fenwick, "A new data structure for cumulative frequency tables", 1994).
class PrefixSums {
 public:
  explicit PrefixSums(std::vector<std::int32_t> numbers) : sums_(std::move(numbers)) {
    for (std::size_t i = 1; i <= sums_.size(); ++i) {
      const std::size_t around = i + (i & (~i + 1));
      if (around <= sums_.size()) sums_[around - 1] += sums_[i - 1];
    }
  }

  void add(std::size_t index, std::int32_t change) {
    for (std::size_t i = index + 1; i <= sums_.size(); i += i & (~i + 1)) sums_[i - 1] += change;
  }

  std::int32_t sumBefore(std::size_t index) const {
    std::int32_t sum = 0;
    for (std::size_t i = index; i > 0; i &= i - 1) sum += sums_[i - 1];
    return sum;
  }

 private:
  std::vector<std::int32_t> sums_;  // each of as many numbers as its place's lowest bit says
};

}  // namespace tessarine
