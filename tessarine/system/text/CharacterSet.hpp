#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <utility>
#include <vector>

#include "tessarine/export.hpp"

namespace tessarine {

/// A set of Unicode scalar values. A plain value: operations give a new set, and `insert` changes
/// this one. Membership of ASCII is one look-up, of all others a binary search over ranges.
class TESSARINE_EXPORT CharacterSet {
 public:
  /// No character.
  CharacterSet() = default;
  /// The characters of a text; ill-formed bytes count as U+FFFD.
  explicit CharacterSet(std::string_view charactersIn);
  /// All from `first` to `last`, both included.
  static CharacterSet range(char32_t first, char32_t last);

  /// What RFC 3986 allows in the query of a URL: letters, digits and -._~!$&'()*+,;=:@/? of ASCII.
  static const CharacterSet& urlQueryAllowed();

  bool contains(char32_t character) const noexcept {
    if (character < 128) return (ascii_[character >> 6U] >> (character & 63U) & 1U) != 0;
    return containsBeyondAscii(character);
  }

  void insert(std::string_view charactersIn);
  CharacterSet formUnion(const CharacterSet& other) const;
  CharacterSet subtracting(const CharacterSet& other) const;

  bool operator==(const CharacterSet&) const = default;

 private:
  using Range = std::pair<char32_t, char32_t>;  // both ends included

  explicit CharacterSet(std::vector<Range> ranges);
  bool containsBeyondAscii(char32_t character) const noexcept;

  std::vector<Range> ranges_;  // ascending, neither touching nor overlapping
  std::array<std::uint64_t, 2> ascii_{};
};

}  // namespace tessarine
